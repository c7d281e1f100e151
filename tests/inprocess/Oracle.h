#pragma once

#include <string>
#include <string_view>

#include "Utility/Generic/String.h"

namespace inprocess {

/// What the XML library says of a text when it reads it in one piece into a tree: a second opinion
/// on what the product reads piece by piece in another thread.
struct Verdict {
  enum Kind {
    kIllFormed,
    kRefused,  ///< well-formed, but with a document type declaration or nested too deep
    kFault,    ///< well-formed, and a SOAP fault
    kRows,     ///< well-formed, and no fault
  };
  Kind kind = kIllFormed;
  std::size_t counted = 0;  ///< elements of the name that was asked for
};

/// Judges a whole reply in UTF-8. `isBare`: the target's replies come without XML declaration, and
/// one is put in front of them. `countedName` is compared ignoring case and prefix.
Verdict JudgeReply(std::string_view reply, bool isBare, String::View countedName);

/// Judges a document as the reader gets it. `elements`, unless null, is given each element's local
/// name and own text, "NAME|TEXT|", in the order in which the elements end.
Verdict JudgeDocument(std::string_view document, String::View countedName = {},
                      std::wstring* elements = nullptr);

}  // namespace inprocess
