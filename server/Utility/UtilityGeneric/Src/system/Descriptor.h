#pragma once

#include <unistd.h>

#include <utility>

/// Owns a file descriptor and closes it; negative: none.
class Descriptor {
 public:
  explicit Descriptor(int number) noexcept : m_number(number) {}
  ~Descriptor() {
    if (m_number >= 0) ::close(m_number);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int Number() const noexcept { return m_number; }
  /// Passes ownership to the caller.
  int Release() noexcept { return std::exchange(m_number, -1); }

 private:
  int m_number;
};
