#pragma once

#include <atomic>
#include <cstdint>

/// Limits the total size of unread replies. Several transfers can share one limit. A reply counts
/// until it is used or dropped. Thread-safe.
class HTTPByteLimit {
 public:
  explicit HTTPByteLimit(std::uint64_t most) noexcept : m_most(most) {}

  /// False if the sum would exceed the limit; then nothing is added.
  bool TryAdd(std::uint64_t bytes) noexcept {
    std::uint64_t sum = m_sum;
    do {
      if (bytes > m_most - sum) return false;
    } while (!m_sum.compare_exchange_weak(sum, sum + bytes));
    return true;
  }
  void Subtract(std::uint64_t bytes) noexcept { m_sum -= bytes; }
  std::uint64_t Most() const noexcept { return m_most; }
  std::uint64_t Sum() const noexcept { return m_sum; }

 private:
  const std::uint64_t m_most;
  std::atomic<std::uint64_t> m_sum = 0;
};
