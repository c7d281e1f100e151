// Tests the message catalogue, ErrorMessage, and the kinds of servers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/HostConstants.h"
#include "Utility/Generic/SUStrUtil.h"
#include "Utility/Generic/ServerInfo.h"
#include "support/Text.h"

namespace {

using support::Narrow;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

std::string Load(int number, const std::vector<String>& arguments) {
  return Narrow(SUStrUtil::LoadMsgStringOnly(number, arguments));
}

std::string MessageTexts(const ErrorMessage& error, const wchar_t* before = L"") {
  String texts = before;
  error.RetrieveErrorMessages(texts);
  return Narrow(texts);
}

struct Entry {
  int number;
  std::vector<String> arguments;
};

TEST(Messages, HaveNumberAndAllArgumentsOnOneLine) {
  const Entry entries[] = {
      {46066, {}},
      {46100, {L"arg-1"}},
      {62010, {L"arg-1", L"arg-2"}},
      {62011, {L"arg-1", L"arg-2", L"arg-3", L"arg-4"}},
      {62012, {L"arg-1", L"arg-2", L"arg-3", L"arg-4"}},
      {62013, {L"arg-1", L"arg-2", L"arg-3", L"arg-4"}},
      {64203, {L"arg-1", L"arg-2"}},
  };
  for (const Entry& entry : entries) {
    const std::string text = Load(entry.number, entry.arguments);
    EXPECT_THAT(text, StartsWith("[" + std::to_string(entry.number) + "] "));
    EXPECT_GT(text.size(), 40u);
    for (const String& argument : entry.arguments) EXPECT_THAT(text, HasSubstr(Narrow(argument)));
    EXPECT_EQ(text.find_first_of("\n\r\t{}"), std::string::npos) << text;
  }
}

TEST(Messages, NameTheHierarchyThenItsCube) {
  const std::pair<int, const char*> reasons[] = {
      {62011, "it is virtual"},
      {62012, "it holds the measures, which are imported separately"},
      {62013, "its structure is not supported"},
  };
  for (const auto& [number, reason] : reasons) {
    EXPECT_THAT(Load(number, {L"[H]", L"source", L"catalog", L"cube"}),
                HasSubstr("The hierarchy \"[H]\" was skipped because " + std::string(reason) +
                          " (data source \"source\", catalog \"catalog\", cube \"cube\")"));
    EXPECT_THAT(Load(number, {L"", L"source", L"catalog", L"cube"}),
                HasSubstr("] A hierarchy without a name was skipped because " +
                          std::string(reason) + " (data source \"source\""));
  }
}

TEST(Messages, NameTheConfiguredKindThenTheProvider) {
  EXPECT_THAT(Load(62010, {L"Kind 1", L"Provider"}),
              AllOf(HasSubstr("configured for Kind 1, but the server calls itself \"Provider\""),
                    HasSubstr("uses the rules of the configured kind (or of Tamarind, if "
                              "OT_XMLA_IMPORT_TAMARIND is set).")));
}

TEST(Messages, LineBreaksInArgumentsBecomeBlanks) {
  EXPECT_THAT(Load(46100, {L"a\r\nb\tc\x85"
                           L"d\x2028"
                           L"e"}),
              HasSubstr("as XML: a  b c d e."));
}

TEST(Messages, LongArgumentsAreTruncatedWithTheirLength) {
  const std::pair<std::size_t, std::string> cases[] = {
      {0, ""},
      {511, std::string(511, 'x')},
      {512, std::string(512, 'x')},
      {513, std::string(512, 'x') + "... (1 more characters)"},
      {1000512, std::string(512, 'x') + "... (1000000 more characters)"},
  };
  for (const auto& [length, shown] : cases) {
    const String argument(length, L'x');
    EXPECT_THAT(Load(62013, {L"h", argument, L"c", argument}),
                AllOf(HasSubstr("data source \"" + shown + "\", catalog"),
                      HasSubstr("cube \"" + shown + "\")")));
    EXPECT_EQ(Load(12345, {argument}), "[12345] " + shown);
    EXPECT_EQ(MessageTexts(ErrorMessage(46100, argument)), Load(46100, {argument}));
  }
}

TEST(Messages, PlaceholdersInArgumentsStayText) {
  EXPECT_THAT(Load(64203, {L"{2}", L"%s{1}"}), HasSubstr("SOAP fault {2}, \"%s{1}\"."));
}

TEST(Messages, FaultWithoutCodeOrTextIsReadable) {
  const std::string begin = "[64203] The server refused the request ";
  const std::string end = ". Check the user's rights and the chosen data source, ";
  const struct {
    std::vector<String> arguments;
    std::string text;
  } cases[] = {
      {{L"c", L"t"}, "with the SOAP fault c, \"t\""},
      {{L"c", L""}, "with the SOAP fault c"},
      {{L"c", L" \n"}, "with the SOAP fault c"},
      {{L"c"}, "with the SOAP fault c"},
      {{L"", L"t"}, "with the SOAP fault \"t\""},
      {{L"\t ", L"t"}, "with the SOAP fault \"t\""},
      {{L"", L""}, "without a reason"},
      {{L" ", L"\n"}, "without a reason"},
      {{}, "without a reason"},
  };
  for (const auto& c : cases)
    EXPECT_THAT(Load(64203, c.arguments), StartsWith(begin + c.text + end));
}

TEST(Messages, MissingAndSurplusArguments) {
  EXPECT_EQ(Load(46066, {L"x"}), Load(46066, {}));
  EXPECT_EQ(Load(12345, {L"a", L"b\nc"}), "[12345] a, b c");
  EXPECT_EQ(Load(-7, {}), "[-7] ");
}

TEST(ErrorMessages, AreFormattedAndAppended) {
  const ErrorMessage numbered(64203, String(L"c"), L"s");
  EXPECT_EQ(numbered.GetNumber(), 64203);
  EXPECT_EQ(MessageTexts(numbered), Load(64203, {L"c", L"s"}));
  const ErrorMessage bare(String(L"two\nlines"));
  EXPECT_EQ(bare.GetNumber(), 0);
  EXPECT_EQ(MessageTexts(bare), "two lines");
  EXPECT_EQ(MessageTexts(bare, L"before"), "before\ntwo lines");
  EXPECT_EQ(MessageTexts(bare, L"before\n"), "before\ntwo lines");
  ErrorMessage several = bare;
  several.Append(ErrorMessage(String(L"more")));
  several.Append(several);
  EXPECT_EQ(MessageTexts(several), "two lines\nmore\ntwo lines\nmore");
  EXPECT_EQ(MessageTexts(bare), "two lines");
}

TEST(ErrorMessages, ExceptionsHaveTheirSource) {
  const ErrorMessage error(46066);
  try {
    SUGThrow(error, L"dir/File.cpp", 17);
  } catch (const ErrorMessage& caught) {
    EXPECT_TRUE(caught.GetSourceFile() == L"dir/File.cpp");
    EXPECT_EQ(caught.GetSourceLine(), 17);
    EXPECT_EQ(caught.GetNumber(), 46066);
    EXPECT_EQ(MessageTexts(caught), Load(46066, {}));
  }
  EXPECT_TRUE(error.GetSourceFile().empty());
  EXPECT_EQ(error.GetSourceLine(), 0);
}

struct Kind {
  int number;
  const char* name;
};

TEST(ServerKinds, HaveFixedNumbersAndNames) {
  const Kind kinds[] = {
      {33, "Analysis Services 2000"},
      {34, "Tamarind 7"},
      {40, "SAP BW"},
      {41, "Analysis Services 2005"},
      {43, "SAP BW 3.5"},
      {55, "Tamarind 9"},
      {63, "Tessera"},
      {69, "Analysis Services 2008"},
      {75, "Tamarind 11"},
      {82, "Analysis Services 2012"},
      {85, "Tamarind 11.1.2.3.500"},
      {0, "Unknown"},
      {99, "Unknown"},
  };
  for (const Kind& kind : kinds) {
    const auto target = static_cast<ServerInfo::TargetType>(kind.number);
    EXPECT_EQ(Narrow(ServerInfo::GetTargetNameFromEnum(target)), kind.name);
  }
}

TEST(HostConstants, HaveTheHostsValues) {
  EXPECT_STREQ(S_CATALOG_NAME, L"CATALOG_NAME");
  EXPECT_STREQ(_S_KELVORA, L"Kelvora");
  EXPECT_STREQ(_S_LOG_EXT, L".log");
  EXPECT_STREQ(s_ksBlank, L" ");
}

}  // namespace
