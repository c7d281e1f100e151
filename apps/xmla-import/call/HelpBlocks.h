#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "call/Help.h"

/// A paragraph of the help.
struct HelpBlock {
  enum class Kind {
    kText,      ///< is wrapped
    kVerbatim,  ///< lines that stay as they are, indented by two blanks
    kList,      ///< names and meanings
  };

  Kind kind = Kind::kText;
  std::string text = {};  ///< of kText and kVerbatim; without a line feed at its end
  std::vector<std::pair<std::string, std::string>> entries = {};  ///< of kList
};

/// The paragraphs of a HelpText, with the lists of names in place of {formats} and {targets}, and
/// the example in place of {server-file}.
std::vector<HelpBlock> HelpBlocks(std::string_view paragraphs, const HelpSource& source);

/// The text with the names in place of {formats} and {targets}.
std::string FilledHelp(std::string_view text, const HelpSource& source);
