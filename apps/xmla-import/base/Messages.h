#pragma once

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

#include "Utility/Generic/MessageNumbers.h"

/// Errors and warnings of the library and of the tool, one line each.
struct Messages {
  std::vector<std::string> errors;
  std::vector<std::string> warnings;
  bool isUnreachable = false;  ///< the server could not be connected
};

/// Begin of the error that names the request that was sent last.
inline constexpr const char* kFailedRequest = "the failed request was ";
/// The beginning of a line that completes the message before it with the detail of a SOAP fault.
inline constexpr const char* kFaultDetail = "the server says: ";

/// True for a line that completes the error before it.
inline bool CompletesAnError(const std::string& line) {
  return line.starts_with(kFailedRequest) || line.starts_with(kFaultDetail);
}

/// True for a warning that servers cause in almost every cube, and that needs no action: a note.
inline bool NeedsNoAction(const std::string& warning) {
  return warning.starts_with("[" + std::to_string(kMessageMeasuresHierarchy) + "] ");
}

/// Moves the lines of `more` to the end of `messages`.
inline void AddMessages(Messages more, Messages& messages) {
  std::ranges::move(more.errors, std::back_inserter(messages.errors));
  std::ranges::move(more.warnings, std::back_inserter(messages.warnings));
  messages.isUnreachable |= more.isUnreachable;
}
