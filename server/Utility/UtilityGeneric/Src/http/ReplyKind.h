#pragma once

#include <string>
#include <string_view>

/// What the body of a reply is, judged by its content: servers and proxies label their pages as
/// they like. Only the first 64 KiB are looked at, and each byte of them a fixed number of times.
/// Leading byte-order marks and blanks do not matter.
namespace ReplyKind {

bool IsEmpty(std::string_view body) noexcept;
/// True for an HTML page.
bool IsWebPage(std::string_view body) noexcept;
/// True for text without any tag.
bool IsPlainText(std::string_view body) noexcept;
/// The title of a page as one line of at most 120 bytes, or an empty text.
std::string PageTitle(std::string_view body);
/// The beginning of a plain text as one line of at most 120 bytes.
std::string Beginning(std::string_view body);

}  // namespace ReplyKind
