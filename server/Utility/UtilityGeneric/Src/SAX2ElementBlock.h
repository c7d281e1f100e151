#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Utility/Generic/String.h"

/// Elements in the order of their ends, in compact form: what passes from the thread that parses to
/// the thread that reads, and what is kept of a reply that is read twice. An element takes eight
/// bytes and its value in UTF-8; the text object of a value is made by the reader, if it asks.
struct SAX2ElementBlock {
  struct Record {
    std::uint32_t name;    // index into `names`
    std::uint32_t length;  // of the value in bytes
  };

  std::vector<String> names;
  std::vector<Record> records;
  std::string text;  // the values, one behind the other
};

using SAX2ElementBlocks = std::vector<std::unique_ptr<SAX2ElementBlock>>;
