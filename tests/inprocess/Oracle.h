#pragma once

#include <string>
#include <string_view>

#include "Utility/Generic/String.h"

namespace inprocess {

/// libxml2's view of a text that it parses as a whole into a tree. Independent check of what the
/// product parses in chunks on another thread.
struct Verdict {
  enum Kind {
    kIllFormed,
    kRefused,  ///< well-formed, but with a document type declaration or too deep
    kFault,    ///< well-formed, and a SOAP fault
    kRows,     ///< well-formed, no fault
  };
  Kind kind = kIllFormed;
  std::size_t counted = 0;  ///< number of elements with the requested name
};

/// Classifies a whole reply in UTF-8. `isBare`: replies of this target have no XML declaration, so
/// one is prepended. `countedName` is compared without case and prefix.
Verdict JudgeReply(std::string_view reply, bool isBare, String::View countedName);

/// Classifies a document as the reader receives it. If `elements` is not null, appends each
/// element's local name and own text as "NAME|TEXT|", in the order in which elements end.
Verdict JudgeDocument(std::string_view document, String::View countedName = {},
                      std::wstring* elements = nullptr);

}  // namespace inprocess
