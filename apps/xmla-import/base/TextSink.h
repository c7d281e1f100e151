#pragma once

#include <string_view>

/// Receives a text in pieces.
class TextSink {
 public:
  virtual ~TextSink() = default;
  virtual void Write(std::string_view text) = 0;
};
