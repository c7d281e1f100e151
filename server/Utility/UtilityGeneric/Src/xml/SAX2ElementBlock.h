#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Utility/Generic/String.h"

/// Consecutive elements of a document, in the order of their end tags. An element takes eight bytes
/// plus its value in UTF-8. The reader decodes a value only on request.
struct SAX2ElementBlock {
  struct Record {
    std::uint16_t name;  ///< index into `names`
    std::uint16_t depth;
    std::uint32_t length;  ///< bytes of the value
  };

  std::vector<String> names;
  std::vector<Record> records;
  std::string text;           ///< the values, one after the other
  std::size_t nameBytes = 0;  ///< bytes of the names

  std::size_t Bytes() const noexcept {
    return records.size() * sizeof(Record) + text.size() + nameBytes;
  }
};
