#include "results/Cells.h"

#include <algorithm>

namespace {

struct KeyHeading {
  std::string_view key;
  const char* heading;
};
/// The words of the HTML report, where they are not the key in words.
constexpr KeyHeading kHeadings[] = {
    {"externalName", "name on the server"},
    {"hierarchyExternalName", "hierarchy's name on the server"},
    {"levelExternalName", "level's name on the server"},
    {"dimensionUniqueName", "dimension"},
    {"memberType", "default member's kind"},
    {"hierarchyType", "structure"},
    {"dimensionType", "dimension's kind"},
    {"aggrType", "aggregation"},
    {"tamarindAttributeHierarchyName", "attribute hierarchy"},
    {"tamarindGenerationNumber", "generation"},
    {"tamarindPropertyType", "kind of property"},
    {"selectionType", "how many"},
    {"entryType", "required"},
    {"referenceDimension", "of dimension"},
    {"referenceHierarchy", "of hierarchy"},
    {"defaultLow", "default"},
    {"defaultHigh", "default to"},
};

}  // namespace

bool IsConstant(std::string_view key) {
  constexpr std::string_view kConstant[] = {
      "asoType",  "memberNameUnique", "dateFormat",         "defaultMember",
      "nullable", "dimPropType",      "overrideDefaultLow", "overrideDefaultHigh"};
  return std::ranges::find(kConstant, key) != std::end(kConstant);
}

std::string Heading(std::string_view key) {
  const auto* const own = std::ranges::find(kHeadings, key, &KeyHeading::key);
  if (own != std::end(kHeadings)) return own->heading;
  std::string heading;
  for (const char letter : key) {
    const bool isCapital = 'A' <= letter && letter <= 'Z';
    if (isCapital) heading += ' ';
    heading += isCapital ? static_cast<char>(letter - 'A' + 'a') : letter;
  }
  return heading;
}

std::string WithoutLabel(const std::string& word) {
  if (word.starts_with('(') && word.ends_with(')')) return word.substr(1, word.size() - 2);
  const std::size_t colon = word.find(": ");
  return colon == word.npos ? word : word.substr(colon + 2);
}

std::string_view StateOf(const CubeResult& cube) {
  if (cube.messages.errors.empty()) return "complete";
  return cube.IsEmpty() ? "not read" : "incomplete";
}
