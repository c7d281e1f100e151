#pragma once

#include <cstddef>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "base/Messages.h"

/// Which warnings are shown on standard error.
enum class ShownWarnings {
  kAll,      ///< each one, and each error, as soon as its cube is written
  kSummary,  ///< at the end, one line for each kind, with an example
  kNone,
};

/// Combines messages of many cubes into few lines: one for each error text, and one for each kind
/// of warning. A kind is a catalogue number, or a text without number.
class MessageSummary {
 public:
  /// `cube` is quoted; empty for messages that belong to no cube.
  void AddErrors(const std::string& cube, const std::vector<std::string>& lines);
  void AddWarnings(const std::string& cube, const std::vector<std::string>& lines);

  struct Line {
    std::string text;
    bool isNote;  ///< completes the line before it, or needs no action
  };
  std::vector<Line> ErrorLines() const;
  std::vector<Line> WarningLines() const;
  /// Number of warnings, and of their kinds, without those that need no action.
  std::size_t WarningCount() const;
  std::size_t WarningKinds() const;

 private:
  struct Kind {
    std::string text;                  ///< the first message
    std::vector<std::string> details;  ///< lines that complete it: details of its fault
    std::string request;               ///< the line that names the failed request, if there is one
    bool areRequestsAlike = true;      ///< of the same type in all cubes
    std::vector<std::string> cubes;    ///< the first three
    std::string lastCube;
    std::size_t cubeCount = 0;
    std::size_t count = 0;
  };
  struct List {
    std::vector<Kind> kinds;  ///< in the order of their first message
    std::map<std::string, std::size_t, std::less<>> index;
    std::size_t count = 0;
    std::size_t omitted = 0;  ///< messages of further kinds, to limit memory
  };

  static Kind* Add(List& list, const std::string& key, const std::string& cube,
                   std::span<const std::string> message);
  List m_errors;
  List m_warnings;
};
