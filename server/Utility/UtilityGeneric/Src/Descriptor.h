#pragma once

#include <unistd.h>

/// An open file's number, closed at the end; negative for none.
class Descriptor {
 public:
  explicit Descriptor(int number) noexcept : m_number(number) {}
  ~Descriptor() {
    if (m_number >= 0) ::close(m_number);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int Number() const noexcept { return m_number; }

 private:
  int m_number;
};
