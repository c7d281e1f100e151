#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Envelope.h"
#include "Wire.h"

namespace sample {

struct MoodEntry;

// A misbehaviour as it was asked for: NAME[:NUMBER][@REQUEST_TYPE][/NTH].
struct Mood {
  const MoodEntry* entry = nullptr;
  long number = 0;
  std::string requestType;  // empty: every type
  long nth = 0;             // 0: every such request
  std::string text;

  bool AppliesTo(std::string_view type) const { return requestType.empty() || requestType == type; }
  // True for the mood that is another one at every request.
  bool IsRandom() const;
};

// Nothing for an empty text. Throws std::runtime_error, with what is possible, for a name that
// does not exist or a number that cannot be read.
std::optional<Mood> ParseMood(std::string_view text);

// What the random mood chooses from, the empty text being no mood. `choice` may be any number.
std::string_view RandomMood(std::uint64_t choice);

// What goes over the wire instead of the proper answer.
WireReply InMood(const Mood& mood, Kind kind, const HttpReply& proper);

}  // namespace sample
