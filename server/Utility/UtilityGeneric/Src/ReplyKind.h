#pragma once

#include <string>
#include <string_view>

/// What a reply's body is, judged by its content: servers and proxies label their pages as they
/// like. Leading byte-order marks and blanks do not matter.
namespace ReplyKind {

bool IsEmpty(std::string_view body) noexcept;
/// True for an HTML page.
bool IsWebPage(std::string_view body) noexcept;
/// True when not a single tag is in it.
bool IsPlainText(std::string_view body) noexcept;
/// True for a SOAP envelope that holds a fault.
/// False, too, when the host asks the calling thread to stop meanwhile.
bool HoldsSOAPFault(std::string_view body) noexcept;
/// The title of a page as one line of at most 120 bytes, or an empty text.
std::string PageTitle(std::string_view body);
/// The beginning of a plain text as one line of at most 120 bytes.
std::string Beginning(std::string_view body);

}  // namespace ReplyKind
