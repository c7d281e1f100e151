#pragma once

/// Simple (one-to-one) Unicode case folding: statuses C and S of CaseFolding.txt.
namespace CaseFolding {

wchar_t FoldBeyondASCII(wchar_t character) noexcept;

inline wchar_t Fold(wchar_t character) noexcept {
  if (static_cast<char32_t>(character) >= 0x80) return FoldBeyondASCII(character);
  return character >= L'A' && character <= L'Z' ? character + (L'a' - L'A') : character;
}

}  // namespace CaseFolding
