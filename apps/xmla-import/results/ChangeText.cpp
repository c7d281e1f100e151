#include "results/ChangeText.h"

#include <algorithm>
#include <string_view>

#include "base/Text.h"
#include "commands/Sorting.h"
#include "results/TextLegend.h"
#include "results/Totals.h"

namespace {

constexpr std::size_t kLongestValue = 200;  // bytes

/// The word for an enumerator; other texts are unchanged.
std::string Word(const std::string& text) {
  static const std::vector<EnumeratorWord> words = EnumeratorWords();
  for (const EnumeratorWord& each : words)
    if (each.enumerator == text) return std::string(each.entry.word);
  const bool isType = text.starts_with("VX") && text.ends_with("Data");
  return isType ? text.substr(2, text.size() - 6) : text;
}

/// A value for a line: cut if it is long.
std::string Value(const std::string& given) {
  const std::string text = Word(given);
  if (text.empty()) return "(empty)";
  if (text.size() <= kLongestValue) return text;
  std::size_t end = kLongestValue;
  while ((static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
  return text.substr(0, end) + "... (" + Counted(text.size(), "byte", "bytes") + ")";
}

}  // namespace

std::string PathText(const std::vector<PathPart>& path) {
  if (path.empty()) return "the document";
  std::string text;
  for (const PathPart& part : path)
    text += (text.empty() ? "" : ", ") + std::string(part.kind) + " \"" + part.name + '"';
  return text;
}

std::string ChangeText(const Change& change) {
  std::string text = change.what;
  if (!change.before.empty() || !change.after.empty())
    text += ": " + Value(change.before) + ", now " + Value(change.after);
  if (!change.remark.empty()) text += " (" + change.remark + ')';
  return text;
}

std::string FoundText(const DiffResult& result) {
  Totals totals;
  totals.Add(result);
  const std::string text = totals.Text();
  return text.empty() ? "no differences" : text;
}

std::string OrderNote(const DiffResult& result, bool isSorted, bool hasService) {
  const auto& changes = result.comparison.changes;
  const auto isOrder = [](const Change& change) {
    return std::ranges::find(kSortedLists, change.id) != std::end(kSortedLists);
  };
  if (changes.empty() || !std::ranges::all_of(changes, isOrder)) return {};
  constexpr const char* kAdvice[] = {"if OLD was written with --sort, give --sort",
                                     "if OLD was written without --sort, leave out --sort"};
  return std::string("only the order differs; ") +
         (hasService ? kAdvice[isSorted] : "write both files with --sort, or both without");
}

std::string ComparedText(const DiffResult& result) {
  std::string text;
  for (const auto& [kind, plural, count] : result.comparison.compared)
    if (count > 0) text += (text.empty() ? "" : ", ") + Counted(count, kind, plural);
  return text.empty() ? "nothing" : text;
}
