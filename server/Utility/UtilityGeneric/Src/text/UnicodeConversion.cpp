#include "text/UnicodeConversion.h"

#include <cstdint>
#include <cstring>
#include <utility>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/VXAssert.h"

namespace UnicodeConversion {
namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr std::size_t kReplacementBytes = 3;
constexpr std::size_t kBlock = 16;  // characters that the ASCII loops handle at once

struct Decoded {
  char32_t character;
  unsigned int bytes;
  bool isIllFormed = false;
};

unsigned char At(const char* position) { return static_cast<unsigned char>(*position); }

bool IsContinuation(unsigned char byte, unsigned char least = 0x80, unsigned char most = 0xBF) {
  return byte >= least && byte <= most;
}

/// Decodes one character, or U+FFFD for a maximal subpart of an ill-formed sequence. Requires
/// position < end, and a byte that is not ASCII at `position`.
Decoded DecodeBeyondASCII(const char* position, const char* end) {
  const unsigned char lead = At(position);
  const auto left = static_cast<std::size_t>(end - position);
  if (lead >= 0xC2 && lead <= 0xDF) {
    if (left < 2 || !IsContinuation(At(position + 1))) return {kReplacement, 1, true};
    return {static_cast<char32_t>((lead & 0x1F) << 6 | (At(position + 1) & 0x3F)), 2};
  }
  if (lead >= 0xE0 && lead <= 0xEF) {
    // These bounds exclude overlong forms and surrogates.
    const unsigned char least = lead == 0xE0 ? 0xA0 : 0x80;
    const unsigned char most = lead == 0xED ? 0x9F : 0xBF;
    if (left < 2 || !IsContinuation(At(position + 1), least, most)) return {kReplacement, 1, true};
    if (left < 3 || !IsContinuation(At(position + 2))) return {kReplacement, 2, true};
    return {static_cast<char32_t>((lead & 0x0F) << 12 | (At(position + 1) & 0x3F) << 6 |
                                  (At(position + 2) & 0x3F)),
            3};
  }
  if (lead >= 0xF0 && lead <= 0xF4) {
    // These bounds exclude overlong forms and values above U+10FFFF.
    const unsigned char least = lead == 0xF0 ? 0x90 : 0x80;
    const unsigned char most = lead == 0xF4 ? 0x8F : 0xBF;
    if (left < 2 || !IsContinuation(At(position + 1), least, most)) return {kReplacement, 1, true};
    if (left < 3 || !IsContinuation(At(position + 2))) return {kReplacement, 2, true};
    if (left < 4 || !IsContinuation(At(position + 3))) return {kReplacement, 3, true};
    return {static_cast<char32_t>((lead & 0x07) << 18 | (At(position + 1) & 0x3F) << 12 |
                                  (At(position + 2) & 0x3F) << 6 | (At(position + 3) & 0x3F)),
            4};
  }
  return {kReplacement, 1, true};
}

/// Decodes one character. Most texts are short and ASCII, so this case is inline.
inline Decoded DecodeOne(const char* position, const char* end) {
  if (At(position) < 0x80) return {At(position), 1};
  return DecodeBeyondASCII(position, end);
}

bool IsASCIIBlock(const char* position) {
  std::uint64_t words[2];
  std::memcpy(words, position, sizeof words);
  return ((words[0] | words[1]) & 0x8080808080808080u) == 0;
}

bool IsASCIIBlock(const wchar_t* position) {
  std::uint32_t all = 0;
  for (std::size_t i = 0; i < kBlock; ++i) all |= static_cast<std::uint32_t>(position[i]);
  return all < 0x80;
}

/// Length of the next slice of a long text. A slice does not end inside a character. A character
/// begins at most three bytes before the limit; further continuation bytes are ill-formed.
std::size_t SliceLength(std::string_view bytes) {
  constexpr std::size_t kSlice = std::size_t{256} << 10;
  if (bytes.size() <= kSlice) return bytes.size();
  for (std::size_t length = kSlice; length >= kSlice - 3; --length)
    if (!IsContinuation(At(bytes.data() + length))) return length;
  return kSlice;
}

/// The code to encode: U+FFFD for a value that is not a Unicode scalar value.
char32_t Encodable(wchar_t character) {
  const auto code = static_cast<char32_t>(character);
  return code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF) ? kReplacement : code;
}

}  // namespace

std::size_t WideLength(std::string_view bytes) noexcept {
  const char* position = bytes.data();
  const char* const end = position + bytes.size();
  std::size_t length = 0;
  while (position != end) {
    if (static_cast<std::size_t>(end - position) >= kBlock && IsASCIIBlock(position)) {
      position += kBlock;
      length += kBlock;
      continue;
    }
    // Decodes about one block, and then tries whole ASCII blocks again.
    const char* const stop =
        static_cast<std::size_t>(end - position) > kBlock ? position + kBlock : end;
    for (; position < stop; ++length) position += DecodeOne(position, end).bytes;
  }
  return length;
}

wchar_t* Decode(std::string_view bytes, wchar_t* place) noexcept {
  const char* position = bytes.data();
  const char* const end = position + bytes.size();
  while (position != end) {
    if (static_cast<std::size_t>(end - position) >= kBlock && IsASCIIBlock(position)) {
      for (std::size_t i = 0; i < kBlock; ++i) place[i] = At(position + i);
      position += kBlock;
      place += kBlock;
      continue;
    }
    const char* const stop =
        static_cast<std::size_t>(end - position) > kBlock ? position + kBlock : end;
    while (position < stop) {
      const Decoded decoded = DecodeOne(position, end);
      *place++ = static_cast<wchar_t>(decoded.character);
      position += decoded.bytes;
    }
  }
  return place;
}

bool IsWellFormed(std::string_view bytes) noexcept {
  const char* position = bytes.data();
  const char* const end = position + bytes.size();
  while (position != end) {
    if (static_cast<std::size_t>(end - position) >= kBlock && IsASCIIBlock(position)) {
      position += kBlock;
      continue;
    }
    const char* const stop =
        static_cast<std::size_t>(end - position) > kBlock ? position + kBlock : end;
    while (position < stop) {
      const Decoded decoded = DecodeOne(position, end);
      if (decoded.isIllFormed) return false;
      position += decoded.bytes;
    }
  }
  return true;
}

bool MakeWellFormed(NarrowString& bytes, const std::function<bool()>& isToStop) {
  const std::string_view all = bytes.view();
  NarrowString repaired;
  bool isReplaced = false;  // false: everything so far was well-formed
  for (std::size_t position = 0; position < all.size();) {
    if (isToStop()) return false;
    const std::string_view slice = all.substr(position, SliceLength(all.substr(position)));
    const bool isWellFormed = IsWellFormed(slice);
    if (!isWellFormed && !isReplaced) {
      repaired.reserve(all.size() + all.size() / 4);
      repaired.append(all.substr(0, position));
      isReplaced = true;
    }
    if (isWellFormed && isReplaced) repaired.append(slice);
    if (!isWellFormed) repaired.append(BaseStringUtil::ToUTF8(BaseStringUtil::FromUTF8(slice)));
    position += slice.size();
  }
  if (isReplaced) bytes = std::move(repaired);
  return true;
}

std::uint64_t WellFormedLength(std::string_view bytes, std::uint64_t most,
                               const std::function<bool()>& isToStop) {
  std::uint64_t length = 0;
  while (!bytes.empty() && length <= most && !isToStop()) {
    const std::string_view slice = bytes.substr(0, SliceLength(bytes));
    length += slice.size();
    if (!IsWellFormed(slice)) {
      const char* const end = slice.data() + slice.size();
      for (const char* position = slice.data(); position < end;) {
        const Decoded decoded = DecodeOne(position, end);
        if (decoded.isIllFormed) length += kReplacementBytes - decoded.bytes;
        position += decoded.bytes;
      }
    }
    bytes.remove_prefix(slice.size());
  }
  return length;
}

std::size_t UTF8Length(std::wstring_view text) noexcept {
  const wchar_t* position = text.data();
  const wchar_t* const end = position + text.size();
  std::size_t length = text.size();
  while (position != end) {
    if (static_cast<std::size_t>(end - position) >= kBlock && IsASCIIBlock(position)) {
      position += kBlock;
      continue;
    }
    const wchar_t* const stop =
        static_cast<std::size_t>(end - position) > kBlock ? position + kBlock : end;
    for (; position != stop; ++position) {
      const auto code = static_cast<std::uint32_t>(*position);
      // Without branches, because texts mix scripts. U+FFFD takes three bytes.
      length += static_cast<std::size_t>(code >= 0x80) + static_cast<std::size_t>(code >= 0x800) +
                static_cast<std::size_t>(code - 0x10000u < 0x100000u);
    }
  }
  return length;
}

char* Encode(std::wstring_view text, char* place) noexcept {
  const wchar_t* position = text.data();
  const wchar_t* const end = position + text.size();
  while (position != end) {
    if (static_cast<std::size_t>(end - position) >= kBlock && IsASCIIBlock(position)) {
      char block[kBlock];  // cannot alias the text, so the compiler can vectorise the loop
      for (std::size_t i = 0; i < kBlock; ++i) block[i] = static_cast<char>(position[i]);
      std::memcpy(place, block, kBlock);
      position += kBlock;
      place += kBlock;
      continue;
    }
    const wchar_t* const stop =
        static_cast<std::size_t>(end - position) > kBlock ? position + kBlock : end;
    while (position != stop) {
      const char32_t code = Encodable(*position++);
      if (code < 0x80) {
        *place++ = static_cast<char>(code);
      } else if (code < 0x800) {
        *place++ = static_cast<char>(0xC0 | code >> 6);
        *place++ = static_cast<char>(0x80 | (code & 0x3F));
      } else if (code < 0x10000) {
        *place++ = static_cast<char>(0xE0 | code >> 12);
        *place++ = static_cast<char>(0x80 | (code >> 6 & 0x3F));
        *place++ = static_cast<char>(0x80 | (code & 0x3F));
      } else {
        *place++ = static_cast<char>(0xF0 | code >> 18);
        *place++ = static_cast<char>(0x80 | (code >> 12 & 0x3F));
        *place++ = static_cast<char>(0x80 | (code >> 6 & 0x3F));
        *place++ = static_cast<char>(0x80 | (code & 0x3F));
      }
    }
  }
  return place;
}

}  // namespace UnicodeConversion

namespace {

void CheckCodePage(unsigned int codePage) {
  if (codePage != BaseStringUtil::kCodePageUTF8)
    VXAssert::handleLogicError(L"UnicodeConversion.cpp", __LINE__, L"only UTF-8 is known");
}

}  // namespace

NarrowString BaseStringUtil::ToUTF8(String::View text) {
  NarrowString bytes;
  const std::size_t length = UnicodeConversion::UTF8Length(text);
  bytes.AppendFilled(length, [&](char* place) noexcept {
    UnicodeConversion::Encode(text, place);
    return length;
  });
  return bytes;
}

String BaseStringUtil::FromUTF8(NarrowString::View bytes) {
  String text;
  const std::size_t length = UnicodeConversion::WideLength(bytes);
  text.AppendFilled(length, [&](wchar_t* place) noexcept {
    UnicodeConversion::Decode(bytes, place);
    return length;
  });
  return text;
}

NarrowString BaseStringUtil::StringToStdString(const String& text, unsigned int codePage) {
  CheckCodePage(codePage);
  return ToUTF8(text);
}

String BaseStringUtil::StdStringToString(const NarrowString& bytes, unsigned int codePage) {
  CheckCodePage(codePage);
  return FromUTF8(bytes);
}

void BaseStringUtil::ReplaceIllFormedUTF8(NarrowString& bytes) {
  UnicodeConversion::MakeWellFormed(bytes, [] { return false; });
}

std::size_t BaseStringUtil::UTF8PrefixLength(NarrowString::View bytes, std::size_t most) noexcept {
  if (bytes.size() <= most) return bytes.size();
  const std::size_t least = most < 3 ? 0 : most - 3;  // a character has at most 3 further bytes
  while (most > least && (static_cast<unsigned char>(bytes[most]) & 0xC0) == 0x80) --most;
  return most;
}
