#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <unordered_map>

#include "Moods.h"

namespace sample {

/// Counts requests, to decide which of them a mood applies to. Thread-safe.
class MoodMemory {
 public:
  /// The mood for this request, or nullopt.
  std::optional<Mood> MoodOf(const Mood& asked, const std::string& body);

 private:
  std::string_view NextRandomMood(long seed, const std::string& body);

  std::mutex m_mutex;
  std::map<std::string, long> m_counts;                     // matching requests per mood with /NTH
  std::unordered_map<std::uint64_t, std::uint64_t> m_seen;  // number of equal requests, by hash
};

}  // namespace sample
