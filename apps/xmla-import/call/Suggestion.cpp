#include "call/Suggestion.h"

#include <algorithm>
#include <array>

namespace {

std::string LowerCase(std::string_view text) {
  std::string lower(text);
  for (char& c : lower)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return lower;
}

using Row = std::array<std::size_t, Suggestion::kMaxBytes + 1>;

/// The number of characters to change, insert, remove or swap with the next. Any number above `max`
/// means more than that.
std::size_t Distance(std::string_view a, std::string_view b, std::size_t max) {
  if (std::max(a.size(), b.size()) - std::min(a.size(), b.size()) > max) return max + 1;
  Row beforeLast{};
  Row last{};
  Row row{};
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    beforeLast = last;
    last = row;
    row.fill(max + 1);
    row[0] = i;
    // Outside of this band the distance is above `max`.
    const std::size_t begin = i > max ? i - max : 1;
    const std::size_t end = std::min(i + max, b.size());
    for (std::size_t j = begin; j <= end; ++j) {
      const bool isSame = a[i - 1] == b[j - 1];
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (isSame ? 0 : 1)});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
        row[j] = std::min(row[j], beforeLast[j - 2] + 1);
    }
  }
  return row[b.size()];
}

}  // namespace

Suggestion::Suggestion(std::string_view word)
    : m_word(word.size() <= kMaxBytes ? LowerCase(word) : std::string()),
      m_maxDistance(std::min<std::size_t>(m_word.size() / 3, 3)),
      m_rank(m_maxDistance + 2) {}

void Suggestion::Consider(std::string_view name) {
  constexpr std::size_t kShortestBeginning = 2;
  constexpr std::size_t kShortestPart = 4;
  if (m_word.empty() || m_rank == 0 || name.empty() || name.size() > kMaxBytes) return;
  const std::string lower = LowerCase(name);
  std::size_t rank = Distance(m_word, lower, m_maxDistance);
  if (m_word.size() >= kShortestBeginning && lower.starts_with(m_word)) {
    rank = std::min<std::size_t>(rank, 1);
  } else if (rank > m_maxDistance) {
    // "--username" for "--user", and the last part of a name for the name.
    const bool isLonger = lower.size() >= kShortestPart && m_word.starts_with(lower);
    const bool isEnd = m_word.size() >= kShortestPart && lower.ends_with(m_word);
    if (!isLonger && !isEnd) return;
    rank = m_maxDistance + 1;
  }
  if (rank >= m_rank) return;
  m_rank = rank;
  m_best = name;
}

std::string DidYouMean(std::string_view word, const std::vector<std::string>& names) {
  Suggestion suggestion(word);
  for (const std::string& name : names) suggestion.Consider(name);
  return suggestion.Best().empty() ? std::string() : " (did you mean " + suggestion.Best() + "?)";
}
