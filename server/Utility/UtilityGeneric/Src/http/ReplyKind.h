#pragma once

#include <string>
#include <string_view>

/// Classifies the body of a reply by its content, because servers and proxies often send a wrong
/// Content-Type. Inspects only the first 64 KiB, in linear time. Ignores leading byte-order marks
/// and white space.
namespace ReplyKind {

bool IsEmpty(std::string_view body) noexcept;
/// True for an HTML page.
bool IsWebPage(std::string_view body) noexcept;
/// True for text without any tag.
bool IsPlainText(std::string_view body) noexcept;
/// True for XML with an element whose name is Fault, with or without a prefix.
bool IsFault(std::string_view body) noexcept;
/// The title of a page as one line of at most 120 bytes; empty if there is none.
std::string PageTitle(std::string_view body);
/// The beginning of a plain text as one line of at most 120 bytes.
std::string Beginning(std::string_view body);

}  // namespace ReplyKind
