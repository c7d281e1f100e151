#pragma once

#include <utility>

/// A text that is overwritten at the end of its life. Characters that it shares with another text
/// stay: they are somebody else's.
template <class Text>
class Secret : public Text {
 public:
  Secret() = default;
  explicit Secret(Text&& text) noexcept : Text(std::move(text)) {}
  ~Secret() { this->Erase(); }
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
};
