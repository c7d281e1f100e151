// Tests how the reader handles documents: elements, values, tolerated and refused input.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include "Utility/Generic/BaseStringUtil.h"
#include "XmlReading.h"
#include "support/Sanitized.h"

namespace {

using testing::ElementsAre;
using Item = Reading::Item;
using Items = std::vector<Item>;

struct Accepted {
  const char* name;
  std::wstring text;
  Items items;
};

class AcceptedDocument : public testing::TestWithParam<Accepted> {};

TEST_P(AcceptedDocument, DeliversItsElements) {
  const Reading reading = ReadDocument(String(GetParam().text));
  EXPECT_FALSE(reading.failed) << testing::PrintToString(reading.error);
  EXPECT_EQ(reading.items, GetParam().items);
}

const std::wstring kDeclaration = L"<?xml version=\"1.0\"?>";
const std::wstring kMark = L"\xFEFF";

INSTANTIATE_TEST_SUITE_P(
    Documents, AcceptedDocument,
    testing::ValuesIn(std::vector<Accepted>{
        {"ChildrenFirst", L"<a><b>1</b><c>2</c></a>", {{L"b", L"1"}, {L"c", L"2"}, {L"a", L""}}},
        {"EmptyElements", L"<a><b/><c></c></a>", {{L"b", L""}, {L"c", L""}, {L"a", L""}}},
        {"BlanksBetweenChildrenAreNoValue",
         L"<a>\n  <b>x</b>\r\n\t<c/>\n</a>",
         {{L"b", L"x"}, {L"c", L""}, {L"a", L""}}},
        {"BlanksOfALeafStay", L"<a> \n\t</a>", {{L"a", L" \n\t"}}},
        {"BlanksAroundALeafsTextStay", L"<a>  x y  </a>", {{L"a", L"  x y  "}}},
        {"OwnTextWithoutThatOfChildren", L"<a>x<b>y</b>z</a>", {{L"b", L"y"}, {L"a", L"xz"}}},
        {"MixedTextLosesBlankRunsOnly",
         L"<a> x <b/> <c/>y</a>",
         {{L"b", L""}, {L"c", L""}, {L"a", L" x y"}}},
        {"CData", L"<a><![CDATA[<b>&amp;]]></a>", {{L"a", L"<b>&amp;"}}},
        {"CDataBetweenText", L"<a>1<![CDATA[2]]>3<![CDATA[]]></a>", {{L"a", L"123"}}},
        {"References",
         L"<a>&lt;&gt;&amp;&quot;&apos;&#65;&#x1F600;</a>",
         {{L"a", L"<>&\"'A\x1F600"}}},
        {"CarriageReturnReferenceStays", L"<a>1&#13;\r\n2\r3</a>", {{L"a", L"1\r\n2\n3"}}},
        {"CommentsAndInstructionsSplitNothing", L"<a>1<!-- x -->2<?y z?>3</a>", {{L"a", L"123"}}},
        {"Prefixes", L"<p:a xmlns:p='u'><p:b>1</p:b></p:a>", {{L"b", L"1"}, {L"a", L""}}},
        {"UndeclaredPrefixes",
         L"<SOAP:Envelope><SOAP:Body x:y='1'/></SOAP:Envelope>",
         {{L"Body", L""}, {L"Envelope", L""}}},
        {"Attributes", L"<a b='1' c=\"&lt;\"/>", {{L"a", L""}}},
        {"AttributesOfAnError",
         L"<ERROR d:description='t &lt;&amp;' x='2' ErrorCodes='3' errorCode='1' "
         L"Source='s'><b/></ERROR>",
         {{L"description", L"t <&"},
          {L"errorCode", L"1"},
          {L"Source", L"s"},
          {L"b", L""},
          {L"ERROR", L""}}},
        {"NamesBeyondASCII",
         L"<\x433\x43E\x434>\x4E2D\x1F600</\x433\x43E\x434>",
         {{L"\x433\x43E\x434", L"\x4E2D\x1F600"}}},
        {"SurrogateValues", L"<a>\xD83D</a>", {{L"a", L"\xFFFD"}}},
        {"Declaration", kDeclaration + L"<a/>", {{L"a", L""}}},
        {"DoubledDeclaration",
         kDeclaration + L"<?xml version='1.0' encoding='utf-8'?>\n<a/>",
         {{L"a", L""}}},
        {"DoubledDeclarationBehindBlanks",
         kDeclaration + L"\r\n" + kDeclaration + L"<a/>",
         {{L"a", L""}}},
        {"MarkBetweenDeclarations",
         kDeclaration + kMark + kDeclaration + kMark + L"<a/>",
         {{L"a", L""}}},
        {"MarkBehindDeclaration", kDeclaration + kMark + L"<a/>", {{L"a", L""}}},
        {"MarkInFront", kMark + kDeclaration + L"<a/>", {{L"a", L""}}},
        {"MarkWithoutDeclaration", kMark + L"<a/>", {{L"a", L""}}},
        {"BlanksInFront", L" \r\n\t" + kDeclaration + L"<a/>", {{L"a", L""}}},
        {"BlanksAndMarkInFront", L"\n" + kMark + L"\n<a/>", {{L"a", L""}}},
        {"EncodingMeansNothing",
         L"<?xml version='1.0' encoding='UTF-16'?><a>\x442</a>",
         {{L"a", L"\x442"}}},
        {"UnknownEncodingMeansNothing",
         L"<?xml version='1.0' encoding='no-such'?><a>\xE9</a>",
         {{L"a", L"\xE9"}}},
        {"NullsBehindTheEnd", std::wstring(L"<a/>\0\0\0", 7), {{L"a", L""}}},
        {"NullsAndBlanksBehindTheEnd", std::wstring(L"<a/>\r\n\0 \0\n", 10), {{L"a", L""}}},
        {"MiscBehindTheEnd", L"<a/><!-- x --><?y?>\n", {{L"a", L""}}},
    }),
    [](const auto& test) { return test.param.name; });

TEST(Elements, HaveTheDepthOfTheirParentPlusOne) {
  const auto driver = SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(1);
  String error;
  driver->ParseInMem(L"<a><b/><Error ErrorCode='1'><c><d/></c></Error></a>", error);
  const struct {
    const wchar_t* name;
    std::size_t depth;
  } expected[] = {{L"b", 1}, {L"ErrorCode", 2}, {L"d", 3}, {L"c", 2}, {L"Error", 1}, {L"a", 0}};
  for (const auto& e : expected) {
    const RefCnt<SAX2XmlElement> element = driver->Read();
    EXPECT_EQ(element->GetLocalName(), String(e.name));
    EXPECT_EQ(element->GetDepth(), e.depth) << testing::PrintToString(element->GetLocalName());
  }
}

struct Refused {
  const char* name;
  std::wstring text;
  const wchar_t* error;  // part of the error text
  std::size_t before;    // elements delivered before the error
};

class RefusedDocument : public testing::TestWithParam<Refused> {};

TEST_P(RefusedDocument, ErrorHasReasonAndPosition) {
  const Reading reading = ReadDocument(String(GetParam().text));
  EXPECT_TRUE(reading.failed);
  EXPECT_FALSE(reading.cancelled);
  EXPECT_EQ(reading.items.size(), GetParam().before);
  EXPECT_NE(reading.error.find(GetParam().error), String::npos)
      << testing::PrintToString(reading.error);
}

INSTANTIATE_TEST_SUITE_P(
    Documents, RefusedDocument,
    testing::ValuesIn(std::vector<Refused>{
        {"Empty", L"", L"empty (line 1, column 1)", 0},
        {"Blank", L" \n\xFEFF\0", L"empty", 0},
        {"DeclarationAlone", kDeclaration, L"before its first element", 0},
        {"PlainText", L"\n hello", L"(line 2, column", 0},
        {"TagsThatDoNotMatch", L"<a>\n<b></a>",
         L"the end tag </a> does not match the element b (line 2, column 8)", 0},
        {"RootThatDoesNotMatch", L"\n\n<a></b>",
         L"the end tag </b> does not match the element a (line 3, column", 0},
        {"PrefixThatDoesNotMatch", L"<a:b></c:b >",
         L"the end tag </c:b> does not match the element b (", 0},
        {"EndTagWithoutName", L"<a></ >", L"the end tag </> does not match the element a (", 0},
        {"LineOfAnUnfinishedTag", L"\n<a \x1/>", L"Couldn't find end of Start Tag a (line 2,", 0},
        {"Truncated", L"<a><b/>\n<c>x", L"inside the element c (line 2, column", 1},
        {"TruncatedTag", L"<a><b/>\n<c", L"ends inside the element c (line 2, column", 1},
        {"ErrorInATruncatedTag", L"<a><b c=1", L"AttValue", 0},
        {"ErrorInATruncatedText", L"<a>\x1 <", L"PCDATA", 0},
        {"MarkThatIsNoPrefix", L"<a><!x", L"invalid element name", 0},
        {"NullInAMark", std::wstring(L"<a><!-\0-->", 10), L"U+0000 is not allowed", 0},
        {"SecondRoot", L"<a/><b/>", L"(line 1, column", 1},
        {"TextBehindTheEnd", L"<a/>x", L"(line 1, column", 1},
        {"DocumentType", L"<!DOCTYPE a><a/>", L"document type declaration", 0},
        {"DocumentTypeWithEntities", L"<!DOCTYPE a [<!ENTITY b 'c'>]><a>&b;</a>",
         L"document type declaration", 0},
        {"ExternalDocumentType", L"<!DOCTYPE a SYSTEM \"http://127.0.0.1:9/x.dtd\"><a/>",
         L"document type declaration", 0},
        {"UndefinedEntity", L"<a>&b;</a>", L"(line 1, column", 0},
        {"NullInside", std::wstring(L"<a><b/>\n\0</a>", 13),
         L"U+0000 is not allowed in XML (line 2, column 1)", 1},
        {"ControlCharacter", L"<a>\x1</a>", L"(line 1, column", 0},
        {"NoncharacterFFFE", L"<a>\xFFFE</a>", L"(line 1, column", 0},
        {"ControlCharacterByReference", L"<a>&#1;</a>", L"(line 1, column", 0},
        {"MarkInsideMarkup", L"<a \xFEFF b='1'/>", L"(line 1, column", 0},
        {"AttributeTwice", L"<a b='1' b='2'/>", L"(line 1, column", 0},
        {"LineAfterSkippedBlanks", L"\n\n  <a>\n</b>", L"(line 4, column", 0},
        {"LineAfterSecondDeclaration", kDeclaration + L"\n<?xml version='1.0'\n?>\n<a>\n</b>",
         L"(line 5, column", 0},
        {"ThirdDeclaration", kDeclaration + kDeclaration + kDeclaration + L"<a/>", L"(line 1", 0},
    }),
    [](const auto& test) { return test.param.name; });

std::wstring Repeated(std::size_t count, std::wstring_view piece) {
  std::wstring text;
  for (std::size_t i = 0; i < count; ++i) text += piece;
  return text;
}

std::wstring Nested(std::size_t depth) {
  return Repeated(depth, L"<e>") + Repeated(depth, L"</e>");
}

std::wstring Numbered(std::size_t count, const wchar_t* before, const wchar_t* behind) {
  std::wstring text;
  for (std::size_t i = 0; i < count; ++i) text += before + std::to_wstring(i) + behind;
  return text;
}

struct Limit {
  const char* name;
  std::size_t most;
  std::wstring (*make)(std::size_t size);
  const wchar_t* error;
  std::size_t muchMore = 100000;
};

class XmlLimit : public testing::TestWithParam<Limit> {};

TEST_P(XmlLimit, IsExact) {
  const Limit& limit = GetParam();
  const Reading longest = ReadDocument(String(limit.make(limit.most)));
  EXPECT_FALSE(longest.failed) << testing::PrintToString(longest.error);
  for (const std::size_t more : {std::size_t{1}, std::size_t{2}, limit.muchMore}) {
    const Reading longer = ReadDocument(String(limit.make(limit.most + more)));
    EXPECT_TRUE(longer.failed) << more;
    EXPECT_TRUE(longer.error.view().starts_with(limit.error + std::wstring(L" (line ")))
        << more << testing::PrintToString(longer.error);
  }
}

constexpr std::size_t kTag = 65536;
constexpr const wchar_t* kTagError = L"a tag is longer than 65536 bytes";
constexpr std::size_t kMarkup = 10'000'000;
constexpr const wchar_t* kCommentError = L"a comment is longer than 10000000 bytes";
constexpr const wchar_t* kInstructionError =
    L"a processing instruction is longer than 10000000 bytes";

/// A start tag of this many bytes.
std::wstring Tag(std::size_t bytes, const wchar_t* close = L">") {
  return L"<t a='" + std::wstring(bytes - 7 - std::wcslen(close), L'x') + L"'" + close;
}

INSTANTIATE_TEST_SUITE_P(
    Xml, XmlLimit,
    testing::ValuesIn(std::vector<Limit>{
        {"Nesting", 250, &Nested, L"elements are nested deeper than 250"},
        {"StartTag", kTag, [](std::size_t size) { return Tag(size) + L"</t>"; }, kTagError},
        {"EmptyTag", kTag, [](std::size_t size) { return L"<r>" + Tag(size, L"/>") + L"</r>"; },
         kTagError},
        {"EndTag", kTag,
         [](std::size_t size) { return L"<r>text</r" + std::wstring(size - 4, L' ') + L">"; },
         kTagError},
        {"TagBehindOtherTags", kTag,
         [](std::size_t size) {
           return L"<r><a/><b>" + Tag(size, L"\r\n/>") + Tag(kTag, L"/>") + L"</b></r>";
         },
         kTagError},
        {"TagBehindText", kTag,
         [](std::size_t size) {
           return L"<r>" + std::wstring(100001, L'x') + Tag(size, L"/>") + L"</r>";
         },
         kTagError},
        {"TagBehindBlanks", kTag,
         [](std::size_t size) {
           return L"<?xml version='1.0'?><!---->" + std::wstring(70000, L' ') + Tag(size, L"/>");
         },
         kTagError},
        {"TagBehindAComment", kTag,
         [](std::size_t size) {
           return L"<r><!-- < " + std::wstring(70000, L'>') + L"-->" + Tag(size, L"/>") + L"</r>";
         },
         kTagError},
        {"TagOfBlanks", kTag,
         [](std::size_t size) { return L"<r" + std::wstring(size - 4, L'\n') + L"/>"; }, kTagError},
        {"TagOfCharactersOf3Bytes", kTag / 3,
         [](std::size_t size) {
           return L"<r a='>" + std::wstring(size - 4, L'\x4E2D') + L"' />";  // 10 other bytes
         },
         kTagError},
        {"NameOfAnElement", kTag - 3,
         [](std::size_t size) { return L"<" + std::wstring(size, L'n') + L"/>"; }, kTagError},
        {"Comment", kMarkup,
         [](std::size_t size) { return L"<r><!--" + std::wstring(size, L'x') + L"--></r>"; },
         kCommentError},
        {"CommentInFront", kMarkup,
         [](std::size_t size) {
           return L"<?xml version='1.0'?>" + std::wstring(70000, L' ') + L"<!--" +
                  std::wstring(size, L'x') + L"--><r/>";
         },
         kCommentError},
        {"CommentBehind", kMarkup,
         [](std::size_t size) { return L"<r/><!--" + std::wstring(size, L'\n') + L"-->"; },
         kCommentError},
        {"Instruction", kMarkup,
         [](std::size_t size) { return L"<r><?p " + std::wstring(size - 1, L'x') + L"?></r>"; },
         kInstructionError},
        {"TargetOfAnInstruction", kMarkup,
         [](std::size_t size) { return L"<?" + std::wstring(size, L'p') + L"?><r/>"; },
         kInstructionError},
        {"InstructionOfTwoParts", kMarkup,
         [](std::size_t size) {
           return L"<r/><?" + std::wstring(kMarkup / 2, L'p') + L" " +
                  std::wstring(size - kMarkup / 2, L'?') + L"?>";
         },
         kInstructionError},
        {"NamesOfElements", 100000,
         [](std::size_t size) { return L"<r>" + Numbered(size - 1, L"<n", L"/>") + L"</r>"; },
         L"there are more than 100000 different names"},
        {"NamesOfAttributes", 100000,
         [](std::size_t size) { return L"<r>" + Numbered(size - 2, L"<n a", L"=''/>") + L"</r>"; },
         L"there are more than 100000 different names"},
        {"NamesOfInstructions", 100000,
         [](std::size_t size) { return Numbered(size - 1, L"<?n", L"?>") + L"<r/>"; },
         L"there are more than 100000 different names"},
        {"NamesOfInstructionsBehind", 100000,
         [](std::size_t size) { return L"<r/>" + Numbered(size - 1, L"<?n", L"?>"); },
         L"there are more than 100000 different names"},
        {"NamespacesOfATag", 1000,
         [](std::size_t size) { return L"<r" + Numbered(size, L" xmlns:n", L"='u'") + L"/>"; },
         L"more than 1000 namespaces are declared", 1000},
        {"NamespacesInScope", 1000,
         [](std::size_t size) {
           return L"<r" + Numbered(size - 1, L" xmlns:n", L"='u'") + L"><a xmlns='v'/></r>";
         },
         L"more than 1000 namespaces are declared", 1000},
        {"TextInACDataSection", std::size_t{8} << 20,
         [](std::size_t size) {
           return L"<r><![CDATA[" + std::wstring(size, L'\x1F600') + L"]]></r>";
         },
         L"the text of the element r is longer than 8388608 characters"},
    }),
    [](const auto& test) { return test.param.name; });

TEST(XmlLimits, BlanksOutsideTheRootAreNotLimited) {
  const std::wstring blanks(11'000'000, L' ');
  const std::wstring documents[] = {
      kDeclaration + blanks + L"<r/>",
      L"<!---->" + blanks + L"<r/>",
      L"<r/><!---->" + blanks + L"<!---->",
  };
  for (const std::wstring& document : documents) {
    const Reading reading = ReadDocument(String(document));
    EXPECT_FALSE(reading.failed) << testing::PrintToString(reading.error);
    EXPECT_EQ(reading.items.size(), 1u);
  }
}

TEST(XmlLimits, ShortPiecesDoNotAddUp) {
  for (const wchar_t* const piece :
       {L"<![CDATA[]]>", L"<![CDATA[ ]]>", L"<!---->", L"<!-- a -->", L"<?p?>", L"<?p q?>",
        L"&#65;", L"&lt;", L"\r\n", L"]", L"<a/>", L"<a b='' />", L"<a></a >"}) {
    const std::wstring pieces = Repeated(20000, piece);
    EXPECT_FALSE(ReadDocument(String(L"<r>" + pieces + L"</r>")).failed) << piece;
    EXPECT_FALSE(ReadDocument(String(L"<r><s>" + pieces + Tag(kTag, L"/>") + L"</s></r>")).failed)
        << piece;
  }
}

TEST(XmlLimits, LongNamesAreNotLimited) {
  const std::wstring part(60000, L'n');  // 15 MB in total
  const Reading reading =
      ReadDocument(String(L"<r>" + Numbered(250, (L"<" + part).c_str(), L"/>") + L"</r>"));
  EXPECT_EQ(reading.items.size(), 251u) << testing::PrintToString(reading.error);
}

TEST(XmlLimits, LimitOnTextCountsCharacters) {
  constexpr std::size_t kLimit = std::size_t{8} << 20;
  std::wstring text(kLimit, L'\x4E2D');
  const Reading longest = ReadDocument(String(L"<a>" + text + L"</a>"));
  ASSERT_EQ(longest.items.size(), 1u) << testing::PrintToString(longest.error);
  EXPECT_EQ(longest.items[0].value, text);
  const Reading longer = ReadDocument(String(L"<a>" + text + L"x</a>"));
  EXPECT_TRUE(longer.failed);
  EXPECT_NE(longer.error.find(L"longer than 8388608 characters"), String::npos)
      << testing::PrintToString(longer.error);
  // Whitespace between children is never part of the value, whatever precedes it.
  const std::wstring part(std::size_t{3} << 20, L'\x4E2D');
  const std::wstring blanks(std::size_t{4} << 20, L' ');
  EXPECT_FALSE(
      ReadDocument(String(L"<a>" + part + L"<b/>" + blanks + L"<b/>" + part + L"</a>")).failed);
  // The limit applies to each element separately.
  const std::wstring half(kLimit / 2 + 1, L'x');
  EXPECT_FALSE(ReadDocument(String(L"<a>" + half + L"<b>" + half + L"</b></a>")).failed);
  EXPECT_TRUE(ReadDocument(String(L"<a>" + half + L"<b/>" + half + L"</a>")).failed);
}

TEST(XmlLimits, RefusesAHugeAttributeInTime) {
  const std::wstring value(std::size_t{30} << 20, L'x');
  EXPECT_TRUE(ReadDocument(String(L"<a b='" + value + L"'/>")).failed);
}

TEST(XmlDocument, KeepsEveryCharacterAcrossChunkBorders) {
  // Each length shifts the borders of the chunks in which the text is parsed.
  for (std::size_t shift = 0; shift < 5; ++shift) {
    std::wstring value(shift, L'-');
    for (int i = 0; i < 20000; ++i) value += L"a\x433\x4E2D\x1F600\n";
    const Reading reading = ReadDocument(String(L"<a>" + value + L"</a>"));
    ASSERT_EQ(reading.items.size(), 1u) << testing::PrintToString(reading.error);
    EXPECT_EQ(reading.items[0].value, value);
  }
}

TEST(XmlDocument, TruncatedAnywhereSaysThatItEndsTooEarly) {
  const std::string inFront =
      "<?xml version='1.0' encoding=\"utf-8\" standalone='yes' ?>\n"
      "<!-- a - b --><?p?><?xml-stylesheet q?>\n";
  const std::string firstTag = "<e:Envelope xmlns:e='urn:x' xmlns = \"v\" e:n='1'\n>";
  const std::string content =
      "<!----><!-- c - < & --><a b='1' c = \"&lt;&#65;&#x41; > \xC3\xA9\">x &amp; y &#65;&#x1F600;"
      "<![CDATA[]]><![CDATA[z]] ><&]]></a\n><?p?><?p q ? > r?>\xD0\xB3 > ]] "
      "\xF0\x9F\x98\x80<\xC3\xA9/><b c='' /><e:f></e:f>\r\n<e:g e:h='2'/></e:Envelope ";
  const std::string behind = ">\n<!-- c --> <?p q?>";
  const wchar_t* const kBefore = L"the document ends before its first element (line ";
  const wchar_t* const kInside = L"the document ends inside the element ";
  const wchar_t* const kBehind =
      L"incomplete or unexpected text follows the end of the document (line ";
  const struct {
    std::string text;
    std::vector<const wchar_t*> errors;
  } parts[] = {
      {inFront, {kBefore}},
      {firstTag, {kBefore, kInside}},
      {content, {kInside}},
      {behind, {kBehind}},
  };
  const auto startsWithOneOf = [](const String& error, const std::vector<const wchar_t*>& begins) {
    return std::any_of(begins.begin(), begins.end(),
                       [&](const wchar_t* begin) { return error.view().starts_with(begin); });
  };
  const Heap<SAX2XmlReadDriver> driver = SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(1);
  int complete = 0;
  std::string text;
  for (const auto& part : parts) {
    for (const char byte : part.text) {
      text += byte;
      const Reading reading = ReadDocument(*driver, BaseStringUtil::FromUTF8(text));
      complete += reading.failed ? 0 : 1;
      if (reading.failed || part.text != behind) {
        EXPECT_TRUE(startsWithOneOf(reading.error, part.errors))
            << text << ": " << testing::PrintToString(reading.error);
      }
      const Reading cut = ReadDocument(*driver, BaseStringUtil::FromUTF8(text + '\0' + '<'));
      EXPECT_TRUE(startsWithOneOf(cut.error, {L"the character U+0000 is not allowed in XML ("}))
          << text << ": " << testing::PrintToString(cut.error);
    }
  }
  // Behind the root, a comment, and an instruction, and behind the spaces between them.
  EXPECT_EQ(complete, 5);
}

TEST(XmlDocument, ErrorsAreOneLineOfReasonableLength) {
  const std::wstring name(40000, L'n');
  const std::wstring documents[] = {
      L"<" + name + L">\n</b>",
      L"<" + name + L">text",  // ends inside the element
      L"<" + name + L">" + std::wstring((std::size_t{8} << 20) + 1, L'x') + L"</" + name + L">",
      L"<a><!-- a comment\r\n\tof some lines",  // which the library's reason quotes
      L"<a b='" + name + L"\n<",
  };
  for (const std::wstring& document : documents) {
    const Reading reading = ReadDocument(String(document));
    EXPECT_TRUE(reading.failed);
    EXPECT_LT(reading.error.size(), 400u) << testing::PrintToString(reading.error);
    for (const wchar_t* const unwanted : {L"\n", L"\r", L"\t"})
      EXPECT_EQ(reading.error.find(unwanted), String::npos)
          << testing::PrintToString(reading.error);
  }
}

TEST(XmlDocument, DoesNotDependOnThePreviousDocument) {
  std::wstring deep;
  for (int i = 0; i < 250; ++i)
    deep = L"<d" + std::to_wstring(i) + L">" + deep + L"</d" + std::to_wstring(i) + L">";
  std::wstring names;
  for (int i = 0; i < 1500; ++i) names += L"<m" + std::to_wstring(i) + L"/>";
  const std::wstring documents[] = {
      L"<a/>",
      L"<a>1</a>",
      L"<p:a xmlns:p='u' xmlns='v'><b xmlns=''/><p:b xml:space='preserve' p:c='1'> </p:b></p:a>",
      L"<p:a><q:b/></p:a>",  // undeclared
      L"<?xml version='1.0' encoding='UTF-16' standalone='yes'?><a/>",
      L"<?xml version='1.1'?><a/>",
      L"<?xml version='1.0'?>\n<?xml version='1.0'?>\n<a/>",
      L"\xFEFF<a>\xFEFF</a>",
      L"<a>&#65;&amp;<![CDATA[<]]><!-- c --><?p q?></a><!-- c --><?p q?>",
      L"<a b='1' c='&lt;' d='\x433'>\x433\x1F600</a>",
      L"<a>" + std::wstring(100000, L'x') + L"</a>",
      deep,
      L"<r>" + names + L"</r>",
      L"<" + std::wstring(30000, L'n') + L"/>",
      L"<" + std::wstring(30000, L'm') + L"/>",
      L"<?oasis-xml-catalog catalog='file:///no/such/file'?><a/>",
      L"",
      L"  ",
      L"plain",
      L"<a>",
      L"<a><p:b xmlns:p='u'><c>",
      L"<a></b>",
      L"<a>&unknown;</a>",
      L"<a b='1' b='2'/>",
      L"<!DOCTYPE a [<!ENTITY e 'x'><!ATTLIST a b CDATA 'y'>]><a>&e;</a>",
      L"<a/><b/>",
      L"<a/>text",
      L"<d>" + deep + L"</d>",
      std::wstring(L"<a>\0</a>", 8),
  };
  std::vector<Reading> alone;
  for (const std::wstring& document : documents) alone.push_back(ReadDocument(String(document)));
  const Heap<SAX2XmlReadDriver> driver = SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(1);
  for (std::size_t first = 0; first < alone.size(); ++first) {
    for (std::size_t second = 0; second < alone.size(); ++second) {
      ReadDocument(*driver, String(documents[first]));
      const Reading reading = ReadDocument(*driver, String(documents[second]));
      EXPECT_TRUE(reading.items == alone[second].items) << first << " then " << second;
      EXPECT_EQ(reading.failed, alone[second].failed) << first << " then " << second;
      EXPECT_EQ(reading.error, alone[second].error) << first << " then " << second;
    }
  }
}

TEST(XmlDocument, CountsOnlyItsOwnNames) {
  const auto document = [](wchar_t letter, int count) {
    std::wstring names;
    for (int i = 0; i < count; ++i) names += (L"<" + (letter + std::to_wstring(i))) + L"/>";
    return String(L"<r>" + names + L"</r>");
  };
  const Heap<SAX2XmlReadDriver> driver = SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(1);
  for (const int before : {1, 900}) {
    EXPECT_FALSE(ReadDocument(*driver, document(L'm', before)).failed);
    EXPECT_FALSE(ReadDocument(*driver, document(L'n', 99900)).failed);
    EXPECT_FALSE(ReadDocument(*driver, document(L'm', before)).failed);
    EXPECT_TRUE(ReadDocument(*driver, document(L'n', 100100)).failed);
  }
}

TEST(XmlDocument, ReleasesTheMemoryOfItsText) {
  if (support::kIsSanitized) GTEST_SKIP() << "a sanitizer has its own heap";
  const auto held = [] {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
  };
  const auto longNames = [](int count, std::size_t length) {
    std::wstring all;
    for (int i = 0; i < count; ++i)
      all += L"<" + std::wstring(length, L'n') + std::to_wstring(i) + L"/>";
    return String(L"<a>" + all + L"</a>");
  };
  const std::wstring text(5000000, L'x');
  std::wstring names;
  for (int i = 0; i < 50000; ++i) names += L"<n" + std::to_wstring(i) + L"/>";
  const String documents[] = {
      String(L"<a>" + text + L"</a>"),
      String(L"<a><!--" + text + L"--></a>"),
      String(L"<a><![CDATA[" + text + L"]]></a>"),
      String(L"<a>" + names + L"</a>"),
      longNames(50, 40000),
      longNames(500, 10000),
      longNames(1, 60000),
      String(L"<?oasis-xml-catalog catalog='" + std::wstring(50000, L'x') + L"'?><a/>"),
  };
  for (std::size_t i = 0; i < std::size(documents); ++i) {
    for (const int before : {0, 2}) {
      const Heap<SAX2XmlReadDriver> driver = SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(1);
      for (int round = 0; round < before; ++round) ReadDocument(*driver, L"<a><b>1</b></a>");
      const std::size_t former = held();
      for (int round = 0; round < 2; ++round) ReadDocument(*driver, documents[i]);
      EXPECT_LT(held(), former + 500000) << "document " << i << " behind " << before;
    }
    const std::size_t former = held();
    for (int round = 0; round < 2; ++round) ReadDocument(documents[i]);
    EXPECT_LT(held(), former + 20000) << "document " << i << " with a driver of its own";
  }
  const Heap<SAX2XmlReadDriver> driver = SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(1);
  const std::size_t former = held();
  for (int i = 0; i < 100; ++i)
    ReadDocument(*driver, String(L"<n" + std::to_wstring(i) + std::wstring(20000, L'n') + L"/>"));
  EXPECT_LT(held(), former + 500000);
}

TEST(XmlDocument, ElementsWithTheSameNameShareItsText) {
  const Heap<SAX2XmlReadDriver> driver = SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(1);
  String error;
  ASSERT_TRUE(driver->ParseInMem(L"<a><b/><b/></a>", error));
  const RefCnt<SAX2XmlElement> first = driver->Read();
  const RefCnt<SAX2XmlElement> second = driver->Read();
  EXPECT_TRUE(first->GetLocalName().SharesBufferWith(second->GetLocalName()));
}

TEST(XmlDocument, ManyNamesAreDistinguished) {
  std::wstring text = L"<r>";
  for (int i = 0; i < 5000; ++i) {
    const std::wstring name = L"n" + std::to_wstring(i);
    text += L"<" + name + L"/>";
  }
  const Reading reading = ReadDocument(String(text + L"</r>"));
  ASSERT_EQ(reading.items.size(), 5001u);
  for (std::size_t i = 0; i < 5000; ++i)
    ASSERT_EQ(reading.items[i].name, L"n" + std::to_wstring(i));
}

/// Returns the value of the document's only element, read from bytes.
std::wstring ValueOfBytes(const NarrowString& document) {
  using Job = VXThreadJob_TwoArg<SAX2XmlReadDriver, NarrowString, String>;
  const Heap<SAX2XmlReadDriver> driver = SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(1);
  String error;
  const RefCnt<VXThreadJob> job(
      new Job(driver.get(), &SAX2XmlReadDriver::ParseBytesInMem, document, error));
  const RefCnt<VXThread> thread(new ReaderThread(ManagedJobFunctor(job)));
  thread->Start();
  Reading reading;
  ReadElements(*driver, reading, [] { return true; });
  thread->WaitUntilStopped();
  return reading.items.empty() ? L"" : reading.items.back().value;
}

TEST(XmlBytes, IllFormedBytesGiveTheSameAnywhereInALongText) {
  // Characters of every length, truncated ones, and surplus continuation bytes. Long texts are
  // checked in blocks of 256 KiB.
  const std::string_view odd =
      "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\xF0\x9F\x98\xE2\x82\x80\x80\x80\x80\xC3\xFF\xC2\x80z";
  const std::size_t border = std::size_t{256} << 10;
  for (std::size_t begin = border - odd.size() - 4; begin < border + 2; ++begin) {
    NarrowString text(begin - 3, 'x');  // offset after <a>
    text.append(odd);
    const String meant = BaseStringUtil::StdStringToString(text, BaseStringUtil::kCodePageUTF8);
    NarrowString document("<a>");
    document.append(text.view());
    document.append("</a>");
    ASSERT_TRUE(ValueOfBytes(document) == meant.view()) << begin;
  }
}

}  // namespace
