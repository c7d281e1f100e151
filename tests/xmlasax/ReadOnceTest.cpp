// The exchange reads a reply once: it builds rows while it searches for a fault. The outcome must
// equal that of two passes, first for a fault, then for rows. Reads replies, complete and truncated
// at every byte, both ways.

#include <gtest/gtest.h>

#include <atomic>

#include "AgentProbe.h"

namespace {

using support::FaultReply;
using support::RowsetReply;
using support::ScriptedServer;
using support::Wide;

/// Exposes protected readers for the two passes.
class PlainAgent : public AgentProbe {
 public:
  using AgentProbe::AgentProbe;
  using XmlADiscoverAgentImpl::ReadHierarchies;
};

using Hierarchies = std::vector<RefCnt<XmlAHierarchy>>;

/// The exchange in steps: one parse for the fault, one for the rows.
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

TEST(ReadOnce, GivesRowsAndErrorsOfTwoPasses) {
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

TEST(RememberedNames, AreNeverConfused) {
  // More names than the reader and the parser cache, with known names between them.
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

TEST(Element, OutlivesTheParseAndTheDriver) {
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
