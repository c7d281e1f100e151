#include "MoodMemory.h"

#include "DiscoverService.h"

namespace sample {
namespace {

/// Own functions, because std::hash and the standard generators differ between implementations.
std::uint64_t Hash(std::string_view text, std::uint64_t hash) {
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3U;
  return hash;
}

std::uint64_t Mixed(std::uint64_t number) {
  number = (number ^ (number >> 30U)) * 0xBF58476D1CE4E5B9U;
  number = (number ^ (number >> 27U)) * 0x94D049BB133111EBU;
  return number ^ (number >> 31U);
}

}  // namespace

std::optional<Mood> MoodMemory::MoodOf(const Mood& asked, const std::string& body) {
  if (!asked.requestType.empty() && !asked.AppliesTo(RequestTypeOf(body))) return std::nullopt;
  const std::lock_guard lock(m_mutex);
  if (asked.nth > 0 && ++m_counts[asked.text] != asked.nth) return std::nullopt;
  if (!asked.IsRandom()) return asked;
  return ParseMood(NextRandomMood(asked.number, body));
}

std::string_view MoodMemory::NextRandomMood(long seed, const std::string& body) {
  const std::uint64_t request =
      Hash(body, Mixed(static_cast<std::uint64_t>(seed) + 0x9E3779B97F4A7C15U));
  return RandomMood(Mixed(request + m_seen[request]++ * 0x9E3779B97F4A7C15U));
}

}  // namespace sample
