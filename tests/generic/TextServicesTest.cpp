// Tests comparison, search, replacement, escaping and numbers.
#include <gtest/gtest.h>
#include <locale.h>
#include <wctype.h>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/WholeNumber.h"

namespace {

using namespace BaseStringUtil;  // NOLINT: the services under test

struct FoldCase {
  const wchar_t* a;
  const wchar_t* b;
  int order;
};

TEST(CaseFolding, UsesSimpleCaseFolding) {
  const FoldCase cases[] = {
      {L"", L"", 0},
      {L"CATALOG_NAME", L"catalog_name", 0},
      {L"a", L"B", -1},
      {L"A", L"b", -1},
      {L"b", L"A", 1},
      {L"a", L"aa", -1},
      {L"_", L"A", -1},  // folded to lower case: the underscore stands before it
      {L"[", L"A", -1},
      {L"@", L"`", -1},
      {L"\xC4\xD6\xDC", L"\xE4\xF6\xFC", 0},
      {L"\x41F\x420\x418", L"\x43F\x440\x438", 0},
      {L"\x3A3", L"\x3C3", 0},
      {L"\x3C2", L"\x3C3", 0},  // final sigma
      {L"\xB5", L"\x3BC", 0},   // micro sign and mu
      {L"\x212A", L"k", 0},     // Kelvin sign
      {L"\x1E9E", L"\xDF", 0},  // capital sharp s, statuses F and S
      {L"\xDF", L"ss", 1},      // full folding is not meant
      {L"I", L"i", 0},
      {L"\x130", L"i", 1},  // no simple folding, and Turkish rules never hold
      {L"\x131", L"i", 1},
      {L"\x1C5", L"\x1C6", 0},  // title case
      {L"\x10A0", L"\x2D00", 0},
      {L"\x13A0", L"\xAB70", 0},  // Cherokee folds to upper case
      {L"\x10400", L"\x10428", 0},
      {L"\x100", L"\x101", 0},  // first, second and last of an alternating run
      {L"\x102", L"\x103", 0},
      {L"\x12E", L"\x12F", 0},
      {L"\x101", L"\x102", -1},  // between them
      {L"\xD7", L"\xF7", -1},    // the multiplication sign is no letter
      {L"\x1F600", L"\x1F601", -1},
  };
  for (const FoldCase& test : cases) {
    EXPECT_EQ(CaseInsensitiveCompare(test.a, test.b), test.order) << test.a << ' ' << test.b;
    EXPECT_EQ(CaseInsensitiveCompare(test.b, test.a), -test.order);
    EXPECT_EQ(IsCaseInsensitiveMatch(test.a, test.b), test.order == 0);
  }
}

TEST(CaseFolding, AgreesWithTheCLibrarysLowerCase) {
  // The C library's tables are the independent source. Excludes characters whose case folding
  // differs from their lower case: dotted capital I and Cherokee.
  const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  ASSERT_NE(locale, nullptr);
  int letters = 0;
  for (wchar_t code = 0; code < 0x20000; ++code) {
    const auto lower = static_cast<wchar_t>(towlower_l(static_cast<wint_t>(code), locale));
    if (lower == code || code == 0x130 || (code >= 0x13A0 && code <= 0x13FF)) continue;
    ++letters;
    EXPECT_TRUE(IsCaseInsensitiveMatch(String(1, code), String(1, lower)))
        << static_cast<unsigned int>(code);
  }
  freelocale(locale);
  EXPECT_GT(letters, 1300);
}

TEST(Finding, IgnoresCaseOrNot) {
  const String text = L"The Measures and the measures\x3A3";
  EXPECT_EQ(CaseInsensitiveFindPattern(text, L"MEASURES"), 4u);
  EXPECT_EQ(CaseInsensitiveFindPattern(text, L"MEASURES", 5), 21u);
  EXPECT_EQ(CaseInsensitiveFindPattern(text, L"s\x3C3"), 28u);
  EXPECT_EQ(CaseInsensitiveFindPattern(text, L"measured"), String::npos);
  EXPECT_EQ(CaseInsensitiveFindPattern(text, L""), 0u);
  EXPECT_EQ(CaseInsensitiveFindPattern(text, L"", 30), 30u);
  EXPECT_EQ(CaseInsensitiveFindPattern(text, L"", 31), String::npos);
  EXPECT_EQ(CaseInsensitiveFindPattern(L"ab", L"abc"), String::npos);
  EXPECT_EQ(ForwardPatternMatch(text, L"measures", 0), 21u);
  EXPECT_EQ(ForwardPatternMatch(text, L"The", 1), String::npos);
  EXPECT_EQ(ForwardPatternMatch(text, L"x", 1000), String::npos);
}

struct ReplaceCase {
  const wchar_t* text;
  const wchar_t* pattern;
  const wchar_t* replacement;
  const wchar_t* result;
};

TEST(Replacing, ReplacesOnceFromLeftToRight) {
  const ReplaceCase cases[] = {
      {L"a.b.c", L".", L"", L"abc"},
      {L"aaaa", L"aa", L"a", L"aa"},
      {L"aaa", L"aa", L"b", L"ba"},
      {L"x", L"x", L"xx", L"xx"},
      {L"abc", L"", L"y", L"abc"},
      {L"abc", L"d", L"y", L"abc"},
      {L"", L"a", L"b", L""},
      {L"[a]b]", L"]", L"]]", L"[a]]b]]"},
      {L"aXa", L"a", L"long", L"longXlong"},
      {L"abab", L"ab", L"", L""},
  };
  for (const ReplaceCase& test : cases) {
    String text = test.text;
    ReplacePatternInString(text, test.pattern, test.replacement);
    EXPECT_TRUE(text == test.result) << test.text;
  }
  String text = L"abc";
  const String copy = text;
  ReplacePatternInString(text, L"b", text);
  EXPECT_TRUE(text == L"aabcc");
  EXPECT_TRUE(copy == L"abc");
  String same = copy;
  ReplacePatternInString(same, L"x", L"y");
  EXPECT_TRUE(same.SharesBufferWith(copy));
}

TEST(Escaping, GivesValidXmlText) {
  const String text(L"a&b<c>d\"e'f\rg\nh\ti\x1\0\xFFFE\xD800\x1F600\xFFFD", 23);
  String surrogate = text;
  surrogate += static_cast<wchar_t>(0x110000);
  EXPECT_TRUE(EscapeXMLChars(surrogate) ==
              L"a&amp;b&lt;c&gt;d&quot;e&apos;f&#13;g\nh\ti\xFFFD\xFFFD\xFFFD\xFFFD\x1F600\xFFFD"
              L"\xFFFD");
  const String plain = L"plain \x433\x1F600";
  EXPECT_TRUE(EscapeXMLChars(plain).SharesBufferWith(plain));
  EXPECT_TRUE(EscapeXMLChars(L"").empty());
}

struct NumberCase {
  const wchar_t* text;
  std::int16_t small;
  std::int32_t number;
  std::uint32_t natural;
};

TEST(Numbers, AreParsedUpToTheFirstOtherCharacter) {
  const NumberCase cases[] = {
      {L"", 0, 0, 0},
      {L"7", 7, 7, 7},
      {L" \t\r\n+12x", 12, 12, 12},
      {L"-5", -5, -5, 0},
      {L"- 5", 0, 0, 0},
      {L"+-5", 0, 0, 0},
      {L"x5", 0, 0, 0},
      {L"\xA0"
       L"5",
       0, 0, 0},
      {L"\x665", 0, 0, 0},  // an Arabic digit
      {L"0012", 12, 12, 12},
      {L"1.9", 1, 1, 1},
      {L"1e3", 1, 1, 1},
      {L"32767", 32767, 32767, 32767},
      {L"32768", 32767, 32768, 32768},
      {L"-32769", -32768, -32769, 0},
      {L"65535", 32767, 65535, 65535},
      {L"2147483647", 32767, 2147483647, 2147483647u},
      {L"2147483648", 32767, 2147483647, 2147483648u},
      {L"-2147483648", -32768, -2147483647 - 1, 0},
      {L"-2147483649", -32768, -2147483647 - 1, 0},
      {L"4294967295", 32767, 2147483647, 4294967295u},
      {L"4294967296", 32767, 2147483647, 4294967295u},
      {L"99999999999999999999999999", 32767, 2147483647, 4294967295u},
      {L"-99999999999999999999999999", -32768, -2147483647 - 1, 0},
  };
  for (const NumberCase& test : cases) {
    EXPECT_EQ(Int16From(test.text), test.small) << test.text;
    EXPECT_EQ(IntFrom(test.text), test.number) << test.text;
    EXPECT_EQ(UIntFrom(test.text), test.natural) << test.text;
  }
  EXPECT_EQ(IntFrom(String(L"1\0002", 3)), 1);
}

TEST(Numbers, WholeNumbersAreReadCompletely) {
  for (const wchar_t* const text : {L"0", L"+3", L" 3", L"\t\r\n +3 \n", L"007", L"4294967295",
                                    L"4294967296", L"99999999999999999999999999"})
    EXPECT_TRUE(IsWholeNumber(text)) << text;
  for (const wchar_t* const text : {L"", L" ", L"+", L"-", L"-1", L"-0", L"+-3", L"++3", L"+ 3",
                                    L"3x", L"x3", L"3 4", L"1.5", L"1e3", L"0x10", L"\x663",
                                    L"\xA0"
                                    L"3"})
    EXPECT_FALSE(IsWholeNumber(text)) << text;
  EXPECT_FALSE(IsWholeNumber(String::View(L"3\0", 2)));
}

TEST(Numbers, AreWrittenInDecimalDigits) {
  EXPECT_TRUE(StringFrom(0) == L"0");
  EXPECT_TRUE(StringFrom(1234567890) == L"1234567890");
  EXPECT_TRUE(StringFrom(18446744073709551615u) == L"18446744073709551615");
}

}  // namespace
