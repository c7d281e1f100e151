#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Envelope.h"
#include "Wire.h"

namespace sample {

struct MoodEntry;

// A misbehaviour as it was asked for: NAME[:NUMBER][@REQUEST_TYPE].
struct Mood {
  const MoodEntry* entry = nullptr;
  long number = 0;
  std::string request_type;  // empty: every type

  bool AppliesTo(std::string_view type) const {
    return request_type.empty() || request_type == type;
  }
};

// Nothing for an empty text. Throws std::runtime_error, with what is possible, for a name that
// does not exist or a number that cannot be read.
std::optional<Mood> ParseMood(std::string_view text);

// What goes over the wire instead of the proper answer.
WireReply InMood(const Mood& mood, Kind kind, const HttpReply& proper);

}  // namespace sample
