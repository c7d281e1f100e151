#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Finds the name that a user most likely meant: one that differs only in the case of ASCII
/// letters, else one that begins with the word or has one wrong, missing, extra or swapped
/// character, else one with few of them. The first such name wins. Bytes are compared. Words and
/// names of more than 64 bytes are ignored, so the work for one name is bounded.
class Suggestion {
 public:
  static constexpr std::size_t kMaxBytes = 64;

  explicit Suggestion(std::string_view word);
  void Consider(std::string_view name);
  /// Empty if no name is similar.
  const std::string& Best() const { return m_best; }

 private:
  const std::string m_word;  // lower case; empty: no suggestion
  const std::size_t m_maxDistance;
  std::size_t m_rank;  // of m_best; less is better
  std::string m_best;
};

/// " (did you mean NAME?)" with the best of the names, or empty.
std::string DidYouMean(std::string_view word, const std::vector<std::string>& names);
