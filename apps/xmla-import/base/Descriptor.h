#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

/// Owns a file descriptor; -1 is none.
class Descriptor {
 public:
  Descriptor() noexcept = default;
  explicit Descriptor(int number) noexcept : m_number(number) {}
  Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(m_number, other.m_number);
    return *this;
  }
  ~Descriptor() {
    if (m_number >= 0) close(m_number);
  }

  int Number() const noexcept { return m_number; }
  bool IsOpen() const noexcept { return m_number >= 0; }
  /// 0 or the error number.
  int Close() noexcept { return close(std::exchange(m_number, -1)) == 0 ? 0 : errno; }

 private:
  int m_number = -1;
};
