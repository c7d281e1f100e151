#pragma once

#include <cstddef>
#include <functional>
#include <string_view>

/// The position of the XML document in a reply, and a part of it to be read as white space. Servers
/// put byte-order marks and white space before the document, callers put a declaration before the
/// server's, and some servers send their whole buffer with null characters after the text.
struct XmlProlog {
  std::size_t begin;         ///< first character of the document
  std::size_t end;           ///< after its last character
  std::size_t ignoredBegin;  ///< start of a second declaration with byte-order marks
  std::size_t ignoredEnd;    ///< its end; both equal `begin` if there is none
};

/// Calls `isToStop` every 64 KiB. If that returns true, the result has no meaning.
XmlProlog FindXmlDocument(std::string_view text, const std::function<bool()>& isToStop);
