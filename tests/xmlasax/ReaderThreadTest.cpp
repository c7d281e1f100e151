// Tests the reader thread as the agent uses it. Also runs under ThreadSanitizer.

#include <gmock/gmock.h>

#include "AgentProbe.h"
#include "Utility/Generic/VXExecutionState.h"

namespace {

using testing::HasSubstr;

/// A document with that many DataSourceInfo elements.
String Document(int elements) {
  std::string text = "<root>";
  for (int i = 0; i < elements; ++i)
    text += "<DataSourceInfo>" + std::to_string(i) + "</DataSourceInfo>";
  return support::Wide(text + "</root>");
}

/// More than the queue delivers at once.
const String& LargeDocument() {
  static const String document = Document(100000);
  return document;
}

TEST(ReaderThread, DeliversEverythingInOrder) {
  for (const int count : {0, 1, 2, 255, 256, 257, 5000}) {
    AgentProbe agent(kNobody);
    agent.StartSaxParser(Document(count));
    VXStringVector values;
    agent.ReadDataSourceInfo(values);
    agent.StopSaxParser();
    ASSERT_EQ(values.size(), static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
      ASSERT_EQ(values[static_cast<std::size_t>(i)], support::Wide(std::to_string(i)));
  }
}

TEST(ReaderThread, ParseErrorFollowsTheElementsBeforeIt) {
  for (const int before : {0, 1, 1000, 5000}) {
    const String document = Document(before);
    // Truncated inside the closing tag, so that everything before it is delivered.
    AgentProbe agent(kNobody);
    agent.StartSaxParser(document.substr(0, document.size() - 2));
    VXStringVector values;
    EXPECT_THAT(ErrorOf([&] { agent.ReadDataSourceInfo(values); }), HasSubstr("[46100] "));
    EXPECT_EQ(values.size(), static_cast<std::size_t>(before));
  }
}

TEST(ReaderThread, CancelledParseIsMessage46066) {
  AgentProbe agent(kNobody);
  agent.StartSaxParser(LargeDocument());
  agent.StopSaxParser();
  VXStringVector values;
  EXPECT_EQ(ErrorNumberOf([&] { agent.ReadDataSourceInfo(values); }), 46066);
}

TEST(ReaderThread, CancellationByTheHostIsMessage46066) {
  const RefCnt<VXExecutionState> state(new VXExecutionState);
  const VXExecutionState::Scope scope(*state);
  AgentProbe agent(kNobody);
  agent.StartSaxParser(Document(10));
  state->RequestCancellation(VXExecutionState::kCancelReasonHost);
  VXStringVector values;
  EXPECT_EQ(ErrorNumberOf([&] { agent.ReadDataSourceInfo(values); }), 46066);
}

TEST(ReaderThread, StoppingTwiceOrWithoutAThreadDoesNothing) {
  AgentProbe agent(kNobody);
  agent.StopSaxParser();
  agent.StartSaxParser(Document(3));
  agent.StopSaxParser();
  agent.StopSaxParser();
}

TEST(ReaderThread, RestartReadsOnlyTheNewDocument) {
  AgentProbe agent(kNobody);
  for (int round = 0; round < 50; ++round) {
    agent.StartSaxParser(LargeDocument());
    agent.StartSaxParser(Document(round));
    VXStringVector values;
    agent.ReadDataSourceInfo(values);
    ASSERT_EQ(values.size(), static_cast<std::size_t>(round));
  }
}

TEST(ReaderThread, ConsumerThatStopsEarlyDoesNotAffectTheNextParse) {
  AgentProbe agent(kNobody);
  agent.StartSaxParser(L"<a><DataSourceInfo>old</DataSourceInfo><b></a>");
  VXStringVector values;
  EXPECT_EQ(ErrorNumberOf([&] { agent.ReadDataSourceInfo(values); }), 46100);
  agent.StartSaxParser(Document(2));
  values.clear();
  agent.ReadDataSourceInfo(values);
  EXPECT_EQ(values.size(), 2u);
}

TEST(ReaderThread, AgentMayBeDestroyedDuringAParse) {
  for (int round = 0; round < 50; ++round) {
    AgentProbe agent(kNobody);
    agent.StartSaxParser(round % 2 ? LargeDocument() : Document(1));
  }
}

TEST(ReaderThread, TextMayChangeAfterTheReaderHasStarted) {
  AgentProbe agent(kNobody);
  String text = Document(5000);
  agent.StartSaxParser(text);
  text = L"<other/>";
  VXStringVector values;
  agent.ReadDataSourceInfo(values);
  EXPECT_EQ(values.size(), 5000u);
}

struct ValueCase {
  const char* name;
  const wchar_t* document;
  const wchar_t* value;
};

TEST(PropertyValue, FollowsItsName) {
  const ValueCase cases[] = {
      {"found", L"<r><row><PropertyName>P</PropertyName><Value>v</Value></row></r>", L"v"},
      {"names in any case", L"<r><propertyname>p</propertyname><VALUE>v</VALUE></r>", L"v"},
      {"absent leaves the text", L"<r><PropertyName>Q</PropertyName><Value>v</Value></r>",
       L"before"},
      {"no rows", L"<r/>", L"before"},
      {"the last of two wins",
       L"<r><PropertyName>P</PropertyName><Value>1</Value><PropertyName>P</PropertyName>"
       L"<Value>2</Value></r>",
       L"2"},
      {"a value clears the flag",
       L"<r><PropertyName>P</PropertyName><Value>1</Value><Value>2</Value></r>", L"1"},
      {"others in between do not", L"<r><PropertyName>P</PropertyName><x/><Value>v</Value></r>",
       L"v"},
      {"a row without value takes the next row's",
       L"<r><row><PropertyName>P</PropertyName></row><row><PropertyName>Q</PropertyName>"
       L"<Value>q</Value></row></r>",
       L"q"},
      {"a value before the name does not count",
       L"<r><Value>v</Value><PropertyName>P</PropertyName></r>", L"before"},
      {"an empty value counts", L"<r><PropertyName>P</PropertyName><Value/></r>", L""},
  };
  for (const ValueCase& c : cases) {
    AgentProbe agent(kNobody);
    agent.StartSaxParser(c.document);
    String value = L"before";
    agent.ReadValue(value, L"P");
    EXPECT_EQ(value, String(c.value)) << c.name;
  }
}

TEST(PrintedContent, HasAllElementsExceptTheSchema) {
  AgentProbe agent(kNobody);
  agent.StartSaxParser(
      L"<root><schema><complexType><sequence><element/></sequence></complexType></schema>"
      L"<SCHEMA><ComplexType><Sequence><Element/></Sequence></ComplexType></SCHEMA>"
      L"<row><A>ä日</A></row></root>");
  testing::internal::CaptureStdout();
  agent.PrintXmlContent();
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "\tNAME[A]\t\tVALUE[ä日]\n\tNAME[row]\t\tVALUE[]\n\tNAME[root]\t\tVALUE[]\n");
}

}  // namespace
