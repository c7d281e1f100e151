// Tests the conversions between UTF-8 and wide text, including ill-formed input.
#include <gtest/gtest.h>

#include <random>

#include "Utility/Generic/BaseStringUtil.h"

namespace {

using Text = std::wstring;
using Bytes = std::string;

Text Widened(const Bytes& bytes) {
  return Text(
      BaseStringUtil::StdStringToString(NarrowString(bytes.data(), bytes.size()), 65001).view());
}

Bytes Narrowed(const Text& text) {
  return Bytes(BaseStringUtil::StringToStdString(String(text), 65001).view());
}

/// Decodes as the Unicode Standard defines it: finds the longest prefix of a well-formed sequence
/// at each position by trying every sequence of Table 3-7.
Text Reference(const Bytes& bytes) {
  struct Row {
    int first[2], second[2], third[2], fourth[2];
  };
  static constexpr Row kRows[] = {
      {{0x00, 0x7F}, {-1, -1}, {-1, -1}, {-1, -1}},
      {{0xC2, 0xDF}, {0x80, 0xBF}, {-1, -1}, {-1, -1}},
      {{0xE0, 0xE0}, {0xA0, 0xBF}, {0x80, 0xBF}, {-1, -1}},
      {{0xE1, 0xEC}, {0x80, 0xBF}, {0x80, 0xBF}, {-1, -1}},
      {{0xED, 0xED}, {0x80, 0x9F}, {0x80, 0xBF}, {-1, -1}},
      {{0xEE, 0xEF}, {0x80, 0xBF}, {0x80, 0xBF}, {-1, -1}},
      {{0xF0, 0xF0}, {0x90, 0xBF}, {0x80, 0xBF}, {0x80, 0xBF}},
      {{0xF1, 0xF3}, {0x80, 0xBF}, {0x80, 0xBF}, {0x80, 0xBF}},
      {{0xF4, 0xF4}, {0x80, 0x8F}, {0x80, 0xBF}, {0x80, 0xBF}},
  };
  Text text;
  for (std::size_t i = 0; i < bytes.size();) {
    std::size_t longest = 1;
    bool whole = false;
    for (const Row& row : kRows) {
      const int* const parts[] = {row.first, row.second, row.third, row.fourth};
      std::size_t length = 0;
      while (length < 4 && parts[length][0] >= 0 && i + length < bytes.size()) {
        const int byte = static_cast<unsigned char>(bytes[i + length]);
        if (byte < parts[length][0] || byte > parts[length][1]) break;
        ++length;
      }
      if (length > 0 && (length == 4 || parts[length][0] < 0)) whole = true;
      longest = std::max(longest, length);
    }
    char32_t code = static_cast<unsigned char>(bytes[i]);
    if (whole && longest > 1) {
      code &= 0xFFu >> (longest + 1);
      for (std::size_t j = 1; j < longest; ++j)
        code = code << 6 | (static_cast<unsigned char>(bytes[i + j]) & 0x3F);
    }
    text += static_cast<wchar_t>(whole ? code : 0xFFFD);
    i += longest;
  }
  return text;
}

struct IllFormed {
  Bytes bytes;
  Text text;
};

TEST(UTF8ToWide, EachMaximalSubpartBecomesOneReplacement) {
  const Text r = L"\xFFFD";
  const IllFormed cases[] = {
      // The examples of the Unicode Standard, Tables 3-8 to 3-11.
      {"\xC0\xAF\xE0\x80\xBF\xF0\x81\x82\x41", r + r + r + r + r + r + r + r + L"A"},
      {"\xED\xA0\x80\xED\xBF\xBF\xED\xAF\x41", r + r + r + r + r + r + r + r + L"A"},
      {"\xF4\x91\x92\x93\xFF\x41\x80\xBF\x42", r + r + r + r + r + L"A" + r + r + L"B"},
      {"\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41", r + r + r + r + L"A"},
      {"\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64",
       L"a" + r + r + r + L"b" + r + L"c" + r + r + L"d"},
      {"\xC3", r},
      {"\xE4\xB8", r},
      {"\xF0\x9F\x98", r},
      {"\xF0\x9F\x98 ", r + L" "},
      {"\xF5\x80\x80\x80", r + r + r + r},
      {"\xFE\xFF", r + r},
      {Bytes("\xC0\x80\0x", 4), r + r + Text(L"\0x", 2)},
      {"\xF4\x8F\xBF\xBF", L"\x10FFFF"},
      {"\xF4\x90\x80\x80", r + r + r + r},
      {"\xEF\xBF\xBE\xEF\xBB\xBF", L"\xFFFE\xFEFF"},
  };
  for (const IllFormed& test : cases) {
    EXPECT_EQ(Widened(test.bytes), test.text) << testing::PrintToString(test.bytes);
    EXPECT_EQ(Reference(test.bytes), test.text) << testing::PrintToString(test.bytes);
    // Crosses the borders of the blocks in which ASCII text is copied.
    for (std::size_t before = 0; before < 40; ++before)
      EXPECT_EQ(Widened(Bytes(before, 'x') + test.bytes + Bytes(40, 'y')),
                Reference(Bytes(before, 'x') + test.bytes + Bytes(40, 'y')));
  }
}

TEST(UTF8ToWide, AgreesWithTheReferenceOnRandomBytes) {
  std::mt19937 random(7);
  const Bytes interesting = "\x41\x80\xBF\xC2\xE0\xA0\xED\x9F\xF0\x90\xF4\x8F\xFF\xC1";
  for (int round = 0; round < 4000; ++round) {
    Bytes bytes(random() % 60, 'a');
    for (char& byte : bytes)
      if (random() % 2 == 0) byte = interesting[random() % interesting.size()];
    ASSERT_EQ(Widened(bytes), Reference(bytes)) << testing::PrintToString(bytes);
  }
}

TEST(UTF8ToWide, EveryCharacterComesBack) {
  Text all;
  for (wchar_t code = 0; code <= 0x10FFFF; ++code)
    if (code < 0xD800 || code > 0xDFFF) all += code;
  const Bytes bytes = Narrowed(all);
  EXPECT_EQ(bytes.size(), 0x80u + 0x780 * 2 + (0xF800u - 0x800) * 3 + 0x100000u * 4);
  EXPECT_TRUE(Widened(bytes) == all);
}

TEST(WideToUTF8, WhatIsNoCharacterBecomesAReplacement) {
  const Bytes r = "\xEF\xBF\xBD";
  EXPECT_EQ(Narrowed({static_cast<wchar_t>(0xD800), L'a', static_cast<wchar_t>(0xDFFF)}),
            r + "a" + r);
  EXPECT_EQ(Narrowed({static_cast<wchar_t>(0x110000), static_cast<wchar_t>(0xFFFFFFFF),
                      static_cast<wchar_t>(0x80000000)}),
            r + r + r);
  EXPECT_EQ(Narrowed(Text(L"\0\x7F\x80\x7FF\x800\xFFFF\x10000", 7)),
            Bytes("\0\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80", 16));
  EXPECT_EQ(Narrowed(L""), "");
}

TEST(ConversionDeathTest, OtherCodePagesAreALogicError) {
  EXPECT_DEATH(BaseStringUtil::StringToStdString(L"x", 1252), "only UTF-8 is known");
  EXPECT_DEATH(BaseStringUtil::StdStringToString("x", 0), "only UTF-8 is known");
}

TEST(UTF8Prefix, EndsBeforeACharacterThatDoesNotFit) {
  const std::string text = "a\u00e4\u20ac\U0001F600";  // 1, 2, 3 and 4 bytes
  const std::size_t expected[] = {0, 1, 1, 3, 3, 3, 6, 6, 6, 6, 10, 10};
  for (std::size_t most = 0; most < std::size(expected); ++most)
    EXPECT_EQ(BaseStringUtil::UTF8PrefixLength(text, most), expected[most]) << most;
  // Ill-formed bytes do not cost more than three of them.
  EXPECT_EQ(BaseStringUtil::UTF8PrefixLength(std::string(10, '\x80'), 8), 5u);
}

}  // namespace
