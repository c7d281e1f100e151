#pragma once

#include <cstddef>

#include "Utility/Generic/String.h"

namespace support {

/// A password to search for in this process's memory. The program contains it nowhere as a text: it
/// computes the characters one by one.
class HiddenPassword {
 public:
  static constexpr int kLength = 24;

  /// Each number gives another password, since freed memory may still contain earlier ones.
  explicit HiddenPassword(int number) : m_number(number) {}

  char Character(int i) const {
    unsigned int mixed = static_cast<unsigned int>(m_number * kLength + i + 1) * 2654435761U;
    mixed = (mixed ^ (mixed >> 15)) * 2246822519U;
    return static_cast<char>('A' + (mixed >> 8) % 26);
  }
  /// The password between two other texts, in one buffer.
  String Between(const wchar_t* before, const wchar_t* behind) const;

  /// Counts the copies of the password's end in writable memory, as characters of `width` bytes.
  /// Only the end, since the allocator overwrites the start of freed blocks.
  int Copies(std::size_t width) const;
  int WideCopies() const { return Copies(sizeof(wchar_t)); }

 private:
  int CopiesBetween(std::size_t begin, std::size_t end, std::size_t width, int memory) const;

  int m_number;
};

}  // namespace support
