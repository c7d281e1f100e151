#pragma once

#include <cstddef>
#include <functional>
#include <string_view>

/// Which part of a reply's text is the XML document, and which part of that is to be read as
/// blanks. Servers put byte-order marks and blanks in front, callers put a declaration of their own
/// before the server's, and some servers send their whole buffer with the null characters behind
/// the text.
struct XmlProlog {
  std::size_t begin;  ///< the document's first character
  std::size_t end;    ///< behind its last character
  std::size_t
      ignoredBegin;        ///< a second declaration and byte-order marks around it stand from here
  std::size_t ignoredEnd;  ///< to here; both equal `begin` where there is none
};

/// Asks `isToStop` every 64 KiB. Once that is true, the result means nothing.
XmlProlog FindXmlDocument(std::string_view text, const std::function<bool()>& isToStop);
