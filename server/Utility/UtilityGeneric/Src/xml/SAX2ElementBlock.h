#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Utility/Generic/String.h"

/// Some elements of a document in the order of their ends, in compact form. An element takes eight
/// bytes and its value as UTF-8. The reader makes a wide text of a value only when it is asked for.
struct SAX2ElementBlock {
  struct Record {
    std::uint32_t name;    // index into `names`
    std::uint32_t length;  // of the value in bytes
  };

  std::vector<String> names;
  std::vector<Record> records;
  std::string text;           // the values, one after the other
  std::size_t nameBytes = 0;  // of the names, which may be long

  std::size_t Bytes() const noexcept {
    return records.size() * sizeof(Record) + text.size() + nameBytes;
  }
};
