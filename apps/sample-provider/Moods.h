#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Envelope.h"
#include "Wire.h"

namespace sample {

struct MoodEntry;

/// A parsed misbehaviour: NAME[:NUMBER][@REQUEST_TYPE][/NTH].
struct Mood {
  const MoodEntry* entry = nullptr;
  long number = 0;
  std::string requestType;  ///< empty: every type
  long nth = 0;             ///< 0: every such request
  std::string text;

  bool AppliesTo(std::string_view type) const { return requestType.empty() || requestType == type; }
  /// True for the mood that selects a new mood for every request.
  bool IsRandom() const;
};

/// Returns nullopt for an empty text. Throws std::runtime_error for an unknown name or an invalid
/// number; the text lists the valid ones.
std::optional<Mood> ParseMood(std::string_view text);

/// Maps any number to the name of a mood. An empty name means a normal reply.
std::string_view RandomMood(std::uint64_t choice);

/// Turns a normal reply into the reply of this mood.
WireReply InMood(const Mood& mood, Kind kind, const HttpReply& proper);

}  // namespace sample
