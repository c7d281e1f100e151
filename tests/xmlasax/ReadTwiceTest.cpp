// Every reply is read twice, for a fault and for its rows, but parsed once. What comes of it must
// be what parsing it twice gives: here replies, whole and cut at every byte, go both ways.

#include <atomic>
#include <filesystem>

#include "AgentProbe.h"
#include "support/TempDir.h"

namespace {

using support::FaultReply;
using support::RowsetReply;
using support::ScriptedServer;
using support::Wide;

struct Reading {
  std::vector<std::pair<std::wstring, std::wstring>> elements;
  bool failed = false;
  std::wstring error;
  bool operator==(const Reading&) const = default;
};

/// What the first reading looks for, in other letters.
constexpr String::View kNames[] = {L"FaultCode", L"FAULTSTRING"};

bool IsAmongNames(std::wstring_view name) {
  return std::any_of(std::begin(kNames), std::end(kNames), [name](String::View wanted) {
    return BaseStringUtil::IsCaseInsensitiveMatch(name, wanted);
  });
}

Reading ReadAll(SAX2XmlReadDriver& driver, const String& error, bool amongNames = false) {
  Reading reading;
  while (const RefCnt<SAX2XmlElement> element =
             amongNames ? driver.ReadAmong(kNames) : driver.Read()) {
    if (element->HasError())
      reading.failed = true;
    else
      reading.elements.emplace_back(element->GetLocalName().view(), element->GetValue().view());
  }
  reading.error = error.view();
  return reading;
}

/// The documents here are small enough for the hand-over to hold them whole, so that one thread can
/// parse and then read.
void ExpectTheSameEitherWay(const std::string& bytes) {
  static const auto plainDriver = SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(1);
  static const auto driver = SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(1);
  String error;
  plainDriver->ParseInMem(Wide(bytes), error);
  const Reading plain = ReadAll(*plainDriver, error);

  error.clear();
  driver->KeepElements();
  const bool parsed = driver->ParseBytesInMem(NarrowString(bytes.data(), bytes.size()), error);
  ASSERT_EQ(parsed, !plain.failed);
  ASSERT_TRUE(ReadAll(*driver, error) == plain) << bytes;
  ASSERT_EQ(driver->ReadAgain(), parsed) << bytes;
  if (parsed) {
    ASSERT_TRUE(ReadAll(*driver, error) == plain) << bytes;
  }

  error.clear();
  driver->KeepElements();
  driver->ParseBytesInMem(NarrowString(bytes.data(), bytes.size()), error);
  Reading named = ReadAll(*driver, error, true);
  Reading plainNamed = plain;
  for (Reading* reading : {&named, &plainNamed})
    std::erase_if(reading->elements, [](const auto& one) { return !IsAmongNames(one.first); });
  ASSERT_TRUE(named == plainNamed) << bytes;
  ASSERT_EQ(driver->ReadAgain(), parsed) << bytes;
  if (parsed) {
    ASSERT_TRUE(ReadAll(*driver, error) == plain) << bytes;
  }
  ASSERT_FALSE(driver->ReadAgain());
}

void ExpectTheSameCutAnywhere(const std::string& bytes, std::size_t step = 1) {
  for (std::size_t length = 0; length < bytes.size(); length += step)
    ASSERT_NO_FATAL_FAILURE(ExpectTheSameEitherWay(bytes.substr(0, length)));
  ASSERT_NO_FATAL_FAILURE(ExpectTheSameEitherWay(bytes));
}

/// Four elements a row; in the middle whatever else.
std::string ManyRows(int rows, const std::string& middle = "") {
  std::string text;
  for (int i = 0; i < rows; ++i) {
    if (i == rows / 2) text += middle;
    text += "<row><A>" + std::to_string(i) + "</A><B/><C> x </C></row>";
  }
  return RowsetReply(text);
}

const std::string kDocuments[] = {
    "",
    "plain text",
    "<a/>",
    RowsetReply("<row><HIERARCHY_CAPTION>A &amp; B &#x433;</HIERARCHY_CAPTION><x:B xmlns:x='u'>"
                "<![CDATA[<&>]]></x:B></row>"),
    FaultReply("soap:Client", "No such cube \xD0\xB3\xE6\x97\xA5\xF0\x9F\x98\x80"),
    "\xEF\xBB\xBF \n<?xml version='1.0'?>\n\xEF\xBB\xBF<?xml version='1.0' encoding='x'?>\n<a>\n"
    "<b>1</b>text<b>2</b> </a>\n\n",
    "<?xml version='1.0'?><a>ill-formed \xC3\x28 \xFF \xE6\x97 \xED\xA0\x80 text</a>",
    "<a><b>1</b><c></a>",
    "<a><b>1</b></a><a/>",
    "<!DOCTYPE a [<!ENTITY b 'c'>]><a>&b;</a>",
    "<a>one<b/>two<!-- no --><?pi no?>three</a>",
    "<a>null" + std::string(1, '\0') + "</a>",
    "<a/>" + std::string(3, '\0'),
    ManyRows(80),  // more than one block
};

TEST(ReadTwice, ElementsAndErrorsAreThoseOfParsingTwice) {
  for (const std::string& document : kDocuments)
    ASSERT_NO_FATAL_FAILURE(ExpectTheSameCutAnywhere(document));
  // What is sought stands in the second of three blocks.
  const std::string fault = "<faultcode>c</faultcode><x:FaultString xmlns:x='u'>s</x:FaultString>";
  ASSERT_NO_FATAL_FAILURE(ExpectTheSameCutAnywhere(ManyRows(160, fault), 37));
}

TEST(ReadTwice, RecordedRepliesToo) {
  if (!std::filesystem::is_directory(XMLA_RECORDED_REPLIES))
    GTEST_SKIP() << "skipped: no folder of recorded replies was found";
  for (const auto& entry : std::filesystem::recursive_directory_iterator(XMLA_RECORDED_REPLIES)) {
    if (entry.path().extension() != ".xml" || entry.file_size() > 100000) continue;
    const std::string bytes = support::ReadFile(entry.path());
    ASSERT_NO_FATAL_FAILURE(ExpectTheSameCutAnywhere(bytes, 1 + bytes.size() / 100))
        << entry.path();
  }
}

/// Its protected readers, for the plain way.
class PlainAgent : public AgentProbe {
 public:
  using AgentProbe::AgentProbe;
  using XmlADiscoverAgentImpl::ReadHierarchies;
};

using Hierarchies = std::vector<RefCnt<XmlAHierarchy>>;

/// The exchange step by step: one parse for the fault, one for the rows.
std::string ReadPlainly(PlainAgent& agent, const std::string& reply, bool isModern,
                        Hierarchies& hierarchies) {
  const std::size_t start = isModern ? std::string::npos : reply.find("<?xml version");
  std::string text = "<?xml version=\"1.0\"";
  if (start == std::string::npos)
    text += "?>" + reply;
  else if (const std::size_t end = reply.find("?>", start); end != std::string::npos)
    text += reply.substr(end);
  return ErrorOf([&] {
    String code;
    String fault;
    agent.RetrieveSoapFaultString(Wide(text), code, fault);
    if (!(fault == L"NULL") && !(code.empty() && fault.empty()))
      throw ErrorMessage(64203, code, fault);
    agent.StartSaxParser(Wide(text));
    agent.ReadHierarchies(hierarchies);
    agent.StopSaxParser();
  });
}

std::vector<String> Described(const Hierarchies& hierarchies) {
  std::vector<String> texts;
  for (const auto& hierarchy : hierarchies)
    texts.push_back(hierarchy->GetUniqueName() + L"|" + hierarchy->GetCaption());
  return texts;
}

TEST(ReadTwice, ExchangeGivesRowsAndErrorsOfTheStepsOneByOne) {
  const std::string rows =
      "<row><HIERARCHY_UNIQUE_NAME>[A].[\xD0\xB3]</HIERARCHY_UNIQUE_NAME><HIERARCHY_CAPTION>a"
      "</HIERARCHY_CAPTION></row><row><HIERARCHY_CAPTION>b &lt;</HIERARCHY_CAPTION></row>";
  const std::string replies[] = {
      RowsetReply(rows),
      FaultReply("soap:Client", "No such cube"),
      FaultReply("soap:Client", "NULL"),
      "<?xml version='1.0' encoding='utf-8'?><e>" + rows + "<faultstring>NULL</faultstring></e>",
      "<e>" + rows + "</e>",
      "<e>" + rows + "\xFF</e><e/>",
  };
  for (const bool isModern : {false, true}) {
    const auto target = isModern ? ServerInfo::kAnalysisServices2008 : ServerInfo::kTessera;
    for (const std::string& whole : replies) {
      std::atomic<std::size_t> length = 0;
      ScriptedServer server([&](const support::Request&) {
        return support::Reply{whole.substr(0, length), 200, "text/xml"};
      });
      AgentProbe agent(server.Url(), target);
      PlainAgent plainAgent(kNobody, target);
      for (length = 1; length <= whole.size(); ++length) {
        Hierarchies hierarchies;
        Hierarchies plain;
        const std::string error =
            ErrorOf([&] { agent.GetHierarchiesOnCatalogCube(hierarchies, L"c", L"d", L"e"); });
        ASSERT_EQ(error, ReadPlainly(plainAgent, whole.substr(0, length), isModern, plain));
        ASSERT_EQ(Described(hierarchies), Described(plain)) << length;
      }
    }
  }
}

TEST(RememberedNames, AreTakenForNoOtherOnesHoweverManyThereAre) {
  // More names than the reader or the parser remembers, the known ones among them again and again.
  constexpr int kRows = 300;
  std::string rows;
  for (int i = 0; i < kRows; ++i) {
    const std::string n = std::to_string(i);
    rows +=
        "<row><X" + n + ">x</X" + n + "><HIERARCHY_UNIQUE_NAME>[" + n + "]</HIERARCHY_UNIQUE_NAME>";
    for (int j = 0; j < 10; ++j) rows += "<Y" + n + "_" + std::to_string(j) + "/>";
    rows += (i % 2 == 0 ? "<HIERARCHY_CAPTION>" : "<hierarchy_caption>") + n +
            (i % 2 == 0 ? "</HIERARCHY_CAPTION></row>" : "</hierarchy_caption></row>");
  }
  ScriptedServer server({{RowsetReply(rows)}});
  AgentProbe agent(server.Url());
  Hierarchies hierarchies;
  agent.GetHierarchiesOnCatalogCube(hierarchies, L"c", L"d", L"e");
  ASSERT_EQ(hierarchies.size(), std::size_t{kRows});
  for (std::size_t i = 0; i < hierarchies.size(); ++i) {
    const String n = Wide(std::to_string(i));
    ASSERT_EQ(hierarchies[i]->GetUniqueName(), L"[" + n + L"]");
    ASSERT_EQ(hierarchies[i]->GetCaption(), n);
  }
}

TEST(ReadTwice, AReplyThatIsCancelledWhileReadAgainEndsWithTheCancelledElement) {
  const auto driver = SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(1);
  const std::string bytes = ManyRows(200);
  String error;
  driver->KeepElements();
  driver->ParseBytesInMem(NarrowString(bytes.data(), bytes.size()), error);
  ReadAll(*driver, error);
  ASSERT_TRUE(driver->ReadAgain());
  for (int i = 0; i < 300; ++i) ASSERT_FALSE(driver->Read()->IsCancel());
  driver->Cancel();
  EXPECT_TRUE(driver->Read()->IsCancel());
  EXPECT_FALSE(driver->Read());
  EXPECT_FALSE(driver->ReadAgain());
}

TEST(ReadTwice, NothingIsKeptOfAReadingThatStoppedEarlyOrOfTheParseBefore) {
  const auto driver = SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(1);
  String error;
  EXPECT_FALSE(driver->ReadAgain());
  driver->KeepElements();
  driver->ParseInMem(L"<a><b/></a>", error);
  driver->Read();
  EXPECT_FALSE(driver->ReadAgain());
  driver->ParseInMem(L"<c/>", error);  // nobody asked to keep this one
  ReadAll(*driver, error);
  EXPECT_FALSE(driver->ReadAgain());
}

TEST(Element, KeptByItsReaderOutlivesTheNextOnesTheParseAndTheDriver) {
  auto driver = SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(1);
  String error;
  driver->ParseInMem(L"<a><b>1</b><c>2</c></a>", error);
  const RefCnt<SAX2XmlElement> first = driver->Read();
  const RefCnt<SAX2XmlElement> second = driver->Read();
  EXPECT_NE(first.get(), second.get());
  driver.reset();
  EXPECT_EQ(first->GetLocalName(), String(L"b"));
  EXPECT_EQ(first->GetValue(), String(L"1"));
  EXPECT_EQ(second->GetLocalName(), String(L"c"));
  EXPECT_EQ(second->GetValue(), String(L"2"));
}

}  // namespace
