#pragma once

#include <utility>

// Texts that are overwritten when they are no longer needed, so that no copy of a password stays in
// freed memory. Characters that another text shares are not overwritten: the last holder does that.

/// A String or NarrowString that is overwritten at the end of its life.
template <class Text>
class Secret : public Text {
 public:
  Secret() = default;
  explicit Secret(Text&& text) noexcept : Text(std::move(text)) {}
  ~Secret() { this->Erase(); }
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
};

/// Overwrites a text and puts another one in its place.
template <class Text>
void ReplaceSecret(Text& secret, Text text) noexcept {
  secret.Erase();
  secret = std::move(text);
}
