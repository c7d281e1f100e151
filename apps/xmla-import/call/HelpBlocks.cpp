#include "call/HelpBlocks.h"

#include <algorithm>

#include "call/ServerFileExample.h"
#include "call/TargetNames.h"
#include "call/UsageError.h"

namespace {

/// "  NAME<tab>MEANING" in each line.
HelpBlock List(std::string_view lines) {
  HelpBlock block{HelpBlock::Kind::kList};
  while (!lines.empty()) {
    const std::size_t end = std::min(lines.find('\n'), lines.size());
    const std::string_view line = lines.substr(0, end);
    const std::size_t begin = line.find_first_not_of(' ');
    const std::size_t tab = line.find('\t');
    block.entries.emplace_back(line.substr(begin, tab - begin), line.substr(tab + 1));
    lines.remove_prefix(std::min(end + 1, lines.size()));
  }
  return block;
}

}  // namespace

std::string FilledHelp(std::string_view text, const HelpSource& source) {
  std::string filled(text);
  for (const auto& [place, names] :
       {std::pair<std::string, std::string>{"{formats}", Enumerated(NamesOf(source.formats, ""))},
        {"{targets}", TargetNames()},
        {"{server-file}", kServerFileExample}})
    if (const std::size_t at = filled.find(place); at != filled.npos)
      filled.replace(at, place.size(), names);
  return filled;
}

std::vector<HelpBlock> HelpBlocks(std::string_view paragraphs, const HelpSource& source) {
  const std::string filled = FilledHelp(paragraphs, source);
  std::vector<HelpBlock> blocks;
  for (std::size_t begin = 0; begin < filled.size();) {
    const std::size_t end = std::min(filled.find("\n\n", begin), filled.size());
    const std::string paragraph = filled.substr(begin, end - begin);
    if (!paragraph.starts_with(' '))
      blocks.push_back({HelpBlock::Kind::kText, paragraph});
    else if (paragraph.find('\t') == paragraph.npos)
      blocks.push_back({HelpBlock::Kind::kVerbatim, paragraph});
    else
      blocks.push_back(List(paragraph));
    begin = end + 2;
  }
  return blocks;
}
