#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <unordered_map>

#include "Moods.h"

namespace sample {

// What a provider must remember of its requests to know which of them a mood is for. Any thread may
// ask.
class MoodMemory {
 public:
  // The mood that the request is answered in, or nothing.
  std::optional<Mood> MoodOf(const Mood& asked, const std::string& body);

 private:
  std::string_view NextRandomMood(long seed, const std::string& body);

  std::mutex m_mutex;
  std::map<std::string, long> m_counts;  // requests that a mood with a number was for
  std::unordered_map<std::uint64_t, std::uint64_t> m_seen;  // how often a request came, by its hash
};

}  // namespace sample
