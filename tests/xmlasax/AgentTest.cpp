// Tests creation of an agent, its environment, and identification of the provider.

#include <gmock/gmock.h>

#include "../../server/Utility/UtilityXMLASAX/Src/SUXMLASAXConfiguration.h"
#include "AgentProbe.h"
#include "support/ChildProcess.h"

namespace {

using support::FaultReply;
using support::Reply;
using support::RequestType;
using support::RowsetReply;
using support::ScriptedServer;
using testing::HasSubstr;

TEST_IN_CHILD(Timeout, DefaultIsTwoMinutes, std::map<std::string, std::string>{}) {
  ASSERT_FALSE(std::getenv("MORVEN_BI_XMLA_HTTP_TIMEOUT"));
  EXPECT_EQ(g_kTimeoutDefault, 120u);
  EXPECT_FALSE(g_bOverrideTimeout);
}

TEST_IN_CHILD(Timeout, IsReadFromTheEnvironment, {{"MORVEN_BI_XMLA_HTTP_TIMEOUT", "30"}}) {
  EXPECT_EQ(g_kTimeoutDefault, 30u);
  EXPECT_TRUE(g_bOverrideTimeout);
}

// The next test runs this one in child processes.
TEST(Timeout, DISABLED_IsAsExpected) {
  EXPECT_EQ(std::to_string(g_kTimeoutDefault), std::getenv("EXPECTED_TIMEOUT"));
  EXPECT_EQ(std::to_string(g_bOverrideTimeout), std::getenv("EXPECTED_OVERRIDE"));
}

TEST(Timeout, IsAWholeNumberOrTheDefault) {
  struct Case {
    const char* value;
    const char* timeout;
    const char* isOverride;
  };
  const Case cases[] = {
      {"0", "0", "1"},
      {"007", "7", "1"},
      {" \t45\r\n", "45", "1"},
      {"99999999999", "4294967295", "1"},
      {"+5", "5", "1"},
      {" 3", "3", "1"},
      {"4294967295", "4294967295", "1"},
      {"", "120", "1"},
      {" ", "120", "1"},
      {"soon", "120", "1"},
      {"30s", "120", "1"},
      {"1.5", "120", "1"},
      {"-1", "120", "1"},
      {"+", "120", "1"},
      {"++5", "120", "1"},
      {"+ 5", "120", "1"},
      {"1 2", "120", "1"},
      {"0x10", "120", "1"},
      {"\u0663", "120", "1"},  // an Arabic digit
  };
  for (const Case& test : cases) {
    const support::ChildResult result = support::RunTestInChild(
        "Timeout.DISABLED_IsAsExpected", {{"MORVEN_BI_XMLA_HTTP_TIMEOUT", test.value},
                                          {"EXPECTED_TIMEOUT", test.timeout},
                                          {"EXPECTED_OVERRIDE", test.isOverride}});
    EXPECT_EQ(result.exitStatus, 0) << '"' << test.value << '"' << result.out << result.err;
  }
}

TEST_IN_CHILD(Timeout, ReachesTheHttpClientAndIsReadOnce, {{"MORVEN_BI_XMLA_HTTP_TIMEOUT", "1"}}) {
  setenv("MORVEN_BI_XMLA_HTTP_TIMEOUT", "100", 1);
  std::atomic<bool> ended{false};
  ScriptedServer server([&](const support::Request&) {
    for (int i = 0; i < 1000 && !ended; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return Reply{RowsetReply("")};
  });
  AgentProbe agent(server.Url());
  VXStringVector names;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_NE(ErrorOf([&] { agent.GetDataSourceInfo(names); }), "no error");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  ended = true;
}

struct KindCase {
  ServerInfo::TargetType target;
  bool analysisServices;
  bool sapBW;
  bool tamarind;
};

TEST(TargetKind, BelongsToOneFamily) {
  const KindCase cases[] = {
      {ServerInfo::kAnalysisServices2000, true, false, false},
      {ServerInfo::kAnalysisServices2005, true, false, false},
      {ServerInfo::kAnalysisServices2008, true, false, false},
      {ServerInfo::kAnalysisServices2012, true, false, false},
      {ServerInfo::kTessera, true, false, false},
      {ServerInfo::kSAP_BW, false, true, false},
      {ServerInfo::kSAP_BW35, false, true, false},
      {ServerInfo::kTamarind7, false, false, true},
      {ServerInfo::kTamarind9, false, false, true},
      {ServerInfo::kTamarind11, false, false, true},
      {ServerInfo::kTamarind11_1_2_3_500, false, false, true},
      {ServerInfo::kTargetUnknown, false, false, false},
  };
  for (const KindCase& c : cases) {
    const AgentProbe agent(kNobody, c.target);
    EXPECT_EQ(agent.IsAnalysisServices(), c.analysisServices) << c.target;
    EXPECT_EQ(agent.IsSAPBW(), c.sapBW) << c.target;
    EXPECT_EQ(agent.IsTamarind(), c.tamarind) << c.target;
  }
}

TEST(TargetKind, HasTheHostsNumbers) {
  EXPECT_EQ(ServerInfo::kAnalysisServices2000, 33);
  EXPECT_EQ(ServerInfo::kTamarind7, 34);
  EXPECT_EQ(ServerInfo::kAnalysisServices2005, 41);
  EXPECT_EQ(ServerInfo::kSAP_BW35, 43);
  EXPECT_EQ(ServerInfo::kTessera, 63);
  EXPECT_EQ(ServerInfo::kAnalysisServices2008, 69);
  EXPECT_EQ(ServerInfo::kAnalysisServices2012, 82);
}

TEST_IN_CHILD(TargetKind, EnvironmentVariableForcesTamarindEvenIfEmpty,
              {{"OT_XMLA_IMPORT_TAMARIND", ""}}) {
  const AgentProbe agent(kNobody, ServerInfo::kAnalysisServices2005);
  EXPECT_TRUE(agent.IsTamarind());
  EXPECT_FALSE(agent.IsAnalysisServices());
}

TEST(Agent, CreationSendsNoRequest) {
  ScriptedServer server(std::vector<Reply>{});
  const XmlADiscoverAgentHeap agent = XmlADiscoverAgent::Create(
      support::Wide(server.Url()), L"u", L"p", ServerInfo::kTamarind9, ServerInfo::kCLIXMLA, true);
  ASSERT_TRUE(agent);
  EXPECT_TRUE(agent->IsTamarind());
  EXPECT_TRUE(server.Requests().empty());
}

TEST(Agent, RejectsAnInvalidUrl) {
  for (const char* url : {"", "no url", "ftp://127.0.0.1/x", "http://"}) {
    const std::string error = ErrorOf([&] { AgentProbe agent{std::string(url)}; });
    EXPECT_NE(error, "no error") << url;
    EXPECT_EQ(error.find('\n'), std::string::npos);
  }
}

// Identification.

std::string Property(const std::string& name, const std::string& value) {
  return "<row><PropertyName>" + name + "</PropertyName><PropertyDescription>d" +
         "</PropertyDescription><Value>" + value + "</Value></row>";
}

const std::string kEmptyProperties = "<Properties></Properties>";

TEST(Identification, RequestsBothProperties) {
  ScriptedServer server({{RowsetReply(Property("ProviderName", "Some Provider"))},
                         {RowsetReply(Property("ProviderVersion", "9.0.1"))}});
  AgentProbe agent(server.Url());
  std::pair<String, String> info;
  agent.GetProviderInfomation(info);
  EXPECT_EQ(info.first, String(L"Some Provider"));
  EXPECT_EQ(info.second, String(L"9.0.1"));
  const auto requests = server.Requests();
  ASSERT_EQ(requests.size(), 2u);
  const char* const names[] = {"ProviderName", "ProviderVersion"};
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_THAT(requests[i].body, HasSubstr("<RequestType>DISCOVER_PROPERTIES</RequestType>\n"
                                            "<Restrictions><RestrictionList><PropertyName>" +
                                            std::string(names[i]) +
                                            "</PropertyName></RestrictionList></Restrictions>" +
                                            kEmptyProperties + "</Discover>"));
  }
}

TEST(Identification, LastNameCounts) {
  ScriptedServer server({{RowsetReply(Property("ProviderName", "first") + Property("Other", "x") +
                                      Property("ProviderName", "second"))}});
  AgentProbe agent(server.Url());
  String name;
  agent.GetProviderName(name);
  EXPECT_EQ(name, String(L"second"));
}

TEST(Identification, MissingValuesStayUnchanged) {
  ScriptedServer server({{RowsetReply("")}, {RowsetReply(Property("Catalog", "x"))}});
  AgentProbe agent(server.Url());
  std::pair<String, String> info(L"name", L"version");
  agent.GetProviderInfomation(info);
  EXPECT_EQ(info.first, String(L"name"));
  EXPECT_EQ(info.second, String(L"version"));
}

TEST(Identification, TamarindNameComesFromTheDataSources) {
  for (const auto target : {ServerInfo::kTamarind7, ServerInfo::kTamarind9, ServerInfo::kTamarind11,
                            ServerInfo::kTamarind11_1_2_3_500}) {
    ScriptedServer server({{RowsetReply("<row><ProviderName>first</ProviderName></row>"
                                        "<row><PROVIDERNAME>Kelvora</PROVIDERNAME></row>")},
                           {RowsetReply(Property("ProviderVersion", "11.1"))}});
    AgentProbe agent(server.Url(), target);
    std::pair<String, String> info;
    agent.GetProviderInfomation(info);
    EXPECT_EQ(info.first, String(L"Kelvora"));
    EXPECT_EQ(info.second, String(L"11.1"));
    const auto requests = server.Requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_THAT(requests[0].body, HasSubstr("<RequestType>DISCOVER_DATASOURCES</RequestType>\n"
                                            "<Restrictions></Restrictions>" +
                                            kEmptyProperties + "</Discover>"));
    EXPECT_EQ(RequestType(requests[1].body), "DISCOVER_PROPERTIES");
  }
}

TEST_IN_CHILD(Identification, ForcedKindRequestsDataSourcesThenVersion,
              {{"OT_XMLA_IMPORT_TAMARIND", "1"}}) {
  ScriptedServer server([](const support::Request&) { return Reply{RowsetReply("")}; });
  AgentProbe agent(server.Url(), ServerInfo::kAnalysisServices2008);
  std::pair<String, String> info(L"unchanged", L"");
  agent.GetProviderInfomation(info);
  EXPECT_EQ(info.first, String(L"unchanged"));
  ASSERT_EQ(server.Requests().size(), 2u);
  EXPECT_EQ(RequestType(server.Requests()[0].body), "DISCOVER_DATASOURCES");
  EXPECT_EQ(RequestType(server.Requests()[1].body), "DISCOVER_PROPERTIES");
}

TEST(Identification, PassesErrorsToTheCaller) {
  String text;
  for (const auto target : {ServerInfo::kTessera, ServerInfo::kTamarind7}) {
    {
      ScriptedServer server({{FaultReply("c", "t")}, {"<a><b></a>"}});
      AgentProbe agent(server.Url(), target);
      EXPECT_EQ(ErrorNumberOf([&] { agent.GetProviderName(text); }), 64203);
      EXPECT_EQ(ErrorNumberOf([&] { agent.GetProviderName(text); }), 46100);
    }
    AgentProbe agent(kNobody, target);
    EXPECT_EQ(ErrorNumberOf([&] { agent.GetProviderVersion(text); }), 0);
  }
}

}  // namespace
