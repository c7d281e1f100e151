#include "results/Cells.h"

#include <algorithm>

bool IsConstant(std::string_view key) {
  constexpr std::string_view kConstant[] = {
      "asoType",  "memberNameUnique", "dateFormat",         "defaultMember",
      "nullable", "dimPropType",      "overrideDefaultLow", "overrideDefaultHigh"};
  return std::ranges::find(kConstant, key) != std::end(kConstant);
}

std::string Heading(std::string_view key) {
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
