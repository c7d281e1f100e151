#pragma once

/// \file
/// Texts that are overwritten when they are no longer needed, so that no copy of a password stays
/// in freed memory. Characters that are shared with another text are not overwritten; the last
/// owner must do that.

#include <utility>

/// A String or NarrowString that its destructor overwrites.
template <class Text>
class Secret : public Text {
 public:
  Secret() = default;
  /// Takes the text, which is empty afterwards.
  explicit Secret(Text&& text) noexcept : Text(std::move(text)) {}
  ~Secret() { this->Erase(); }
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
};

/// Overwrites `secret`, then assigns `text` to it.
template <class Text>
void ReplaceSecret(Text& secret, Text text) noexcept {
  secret.Erase();
  secret = std::move(text);
}
