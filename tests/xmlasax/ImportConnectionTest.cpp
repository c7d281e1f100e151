// Tests connection, detection of the provider's kind, the list and tree of data sources, and local
// operations of the host interface.

#include <gmock/gmock.h>

#include "DiscoverText.h"
#include "Import/OTXMLAImportEntry.h"
#include "ImportProbe.h"
#include "Utility/Generic/SUStrUtil.h"
#include "Utility/XMLASAX/XmlADiscoverAgentImpl.h"

namespace {

using support::FaultReply;
using support::Reply;
using support::Request;
using support::RequestType;
using support::RowsetReply;
using support::ScriptedServer;
using testing::ElementsAre;
using testing::HasSubstr;

using enum ServerInfo::TargetType;

struct DetectionCase {
  const wchar_t* name;
  const wchar_t* version;
  ServerInfo::TargetType target;
};

TEST(Detection, UsesNameThenVersion) {
  const DetectionCase cases[] = {
      {L"SAP BW", L"", ServerInfo::kSAP_BW35},
      {L"sap", L"9.0", ServerInfo::kSAP_BW35},
      {L"The Bw Provider", L"10.0", ServerInfo::kSAP_BW35},
      {L"disapproved", L"9.0", ServerInfo::kSAP_BW35},
      {L"Kelvora of SAP", L"", ServerInfo::kSAP_BW35},
      {L"bw Kelvora", L"", ServerInfo::kSAP_BW35},
      {L"Kelvora", L"9.0", ServerInfo::kTamarind7},
      {L"the KELVORA server", L"", ServerInfo::kTamarind7},
      {L"Microsoft Analysis Services", L"8.00.194", ServerInfo::kAnalysisServices2000},
      {L"Microsoft Analysis Services", L"9.00.1399.06", ServerInfo::kAnalysisServices2005},
      {L"Microsoft Analysis Services", L"10.50.1600.1", ServerInfo::kAnalysisServices2008},
      {L"Microsoft Analysis Services", L"11.0.2100.60", ServerInfo::kAnalysisServices2012},
      {L"Microsoft Analysis Services", L"12.0.2000.8", ServerInfo::kAnalysisServices2012},
      {L"Microsoft Analysis Services", L"13.0.1601.5", ServerInfo::kAnalysisServices2012},
      {L"Mondrian XML for Analysis Provider", L"10.50.1600.1", ServerInfo::kAnalysisServices2008},
      {L"Mondrian XML for Analysis Provider", L"3.11.0.0", ServerInfo::kTessera},
      {L"x", L"1.0", ServerInfo::kTessera},
      {L"x", L"9", ServerInfo::kTessera},
      {L"x", L"110.0", ServerInfo::kTessera},
      {L"x", L"19.0", ServerInfo::kTessera},
      {L"x", L" 9.0", ServerInfo::kTessera},
      {L"x", L"7.0", ServerInfo::kTessera},
      {L"x", L"14.0.1", ServerInfo::kTessera},
      {L"x", L"80.1", ServerInfo::kTessera},
      {L"x", L"90.1", ServerInfo::kTessera},
      {L"x", L"100.1", ServerInfo::kTessera},
      {L"x", L"111.0", ServerInfo::kTessera},
      {L"x", L"120.1", ServerInfo::kTessera},
      {L"x", L"130.1", ServerInfo::kTessera},
      {L"x", L"8", ServerInfo::kTessera},
      {L"x", L"10", ServerInfo::kTessera},
      {L"x", L"11", ServerInfo::kTessera},
      {L"x", L"12", ServerInfo::kTessera},
      {L"x", L"13,0", ServerInfo::kTessera},
      {L"x", L"16.0.5", ServerInfo::kTessera},
      {L"x", L"", ServerInfo::kTessera},
      {L"", L"", ServerInfo::kTessera},
      {L"", L"9.0", ServerInfo::kAnalysisServices2005},
  };
  for (const DetectionCase& c : cases)
    EXPECT_EQ(OTXMLAAnaTamImportAPI::DetectTargetType(c.name, c.version), c.target)
        << support::Narrow(c.name) << " " << support::Narrow(c.version);
}

/// A provider with this name and version and two data sources.
ScriptedServer::Handler Provider(const std::string& name, const std::string& version) {
  return [=](const Request& request) {
    const std::string identity = IdentityReply(request, name, version);
    if (!identity.empty()) return Reply{identity};
    return Reply{
        RowsetReply("<row><DataSourceName>n1</DataSourceName><DataSourceInfo>i1"
                    "</DataSourceInfo></row><row><DataSourceName>n2</DataSourceName>"
                    "<DataSourceInfo>i2</DataSourceInfo></row>")};
  };
}

TEST(TargetCheck, IsSilentIfTheKindsAgree) {
  ScriptedServer server(Provider("Microsoft Analysis Services", "9.00.1399.06"));
  ImportProbe import(server.Url(), kAnalysisServices2005);
  String warnings;
  EXPECT_EQ(import.CheckTargetType(warnings), kAnalysisServices2005);
  EXPECT_EQ(warnings, String());
}

TEST(TargetCheck, WarnsOnceWithConfiguredKindAndProvidersName) {
  ScriptedServer server(Provider("Some &amp; Provider", "10.0"));
  ImportProbe import(server.Url(), kAnalysisServices2005);
  String warnings = L"earlier\n";
  EXPECT_EQ(import.CheckTargetType(warnings), ServerInfo::kAnalysisServices2008);
  const std::string text = support::Narrow(warnings);
  EXPECT_EQ(text, "earlier\n" +
                      support::Narrow(SUStrUtil::LoadMsgStringOnly(
                          62010, {L"Analysis Services 2005", L"Some & Provider"})) +
                      "\n");
  EXPECT_EQ(import.GetTargetType(), kAnalysisServices2005);
}

TEST(DataSourceNames, AreTheProvidersNames) {
  ScriptedServer server(Provider("Microsoft Analysis Services", "9.0"));
  ImportProbe import(server.Url(), kAnalysisServices2005);
  VXStringVector names(1, L"old");
  String errors;
  String warnings;
  import.GetDataSourceNames(names, errors, warnings);
  EXPECT_THAT(names, ElementsAre(String(L"n1"), String(L"n2")));
  EXPECT_EQ(errors, String());
  EXPECT_EQ(warnings, String());
  const auto requests = server.Requests();
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_EQ(requests[0].body,
            Discover("DISCOVER_PROPERTIES", "", {{"PropertyName", "ProviderName"}}));
  EXPECT_EQ(requests[1].body,
            Discover("DISCOVER_PROPERTIES", "", {{"PropertyName", "ProviderVersion"}}));
  EXPECT_EQ(requests[2].body, Discover("DISCOVER_DATASOURCES", "", {}));
}

TEST(DataSourceNames, AreListedWithOneWarningForAnotherKind) {
  ScriptedServer server(Provider("Kelvora", ""));
  ImportProbe import(server.Url(), kAnalysisServices2005);
  VXStringVector names;
  String errors;
  String warnings;
  import.GetDataSourceNames(names, errors, warnings);
  EXPECT_THAT(names, ElementsAre(String(L"n1"), String(L"n2")));
  EXPECT_EQ(errors, String());
  const std::string text = support::Narrow(warnings);
  EXPECT_THAT(text, testing::StartsWith("[62010] "));
  EXPECT_EQ(text.rfind("[62010]"), 0u);  // exactly one
  EXPECT_EQ(text.find('\n'), text.size() - 1);
}

TEST(DataSourceNames, AreUnchangedIfTheKindCannotBeChecked) {
  const auto provider = Provider("x", "9.0");
  for (const char* const failing : {">ProviderName<", ">ProviderVersion<"}) {
    ScriptedServer server([&](const Request& request) {
      return request.body.find(failing) != std::string::npos ? Reply{FaultReply("c", "no")}
                                                             : provider(request);
    });
    ImportProbe import(server.Url(), kAnalysisServices2005);
    VXStringVector names(2, L"the host's");
    String errors;
    String warnings;
    import.GetDataSourceNames(names, errors, warnings);
    EXPECT_THAT(names, ElementsAre(String(L"the host's"), String(L"the host's")));
    EXPECT_NE(errors, String());
  }
}

TEST(DataSourceNames, ErrorsAreAppendedWithoutException) {
  for (const char* const failing : {"DISCOVER_PROPERTIES", "DISCOVER_DATASOURCES"}) {
    const auto provider = Provider("x", "9.0");
    ScriptedServer server([&](const Request& request) {
      return RequestType(request.body) == failing ? Reply{FaultReply("c", "the fault")}
                                                  : provider(request);
    });
    ImportProbe import(server.Url(), kAnalysisServices2005);
    VXStringVector names;
    String errors = L"earlier";
    String warnings = L"kept";
    import.GetDataSourceNames(names, errors, warnings);
    EXPECT_TRUE(names.empty());
    EXPECT_THAT(support::Narrow(errors), testing::StartsWith("earlier\n[64203] "));
    EXPECT_THAT(support::Narrow(errors), HasSubstr("the fault"));
    EXPECT_EQ(warnings, String(L"kept"));
  }
}

// The tree.

ScriptedServer::Handler Tree(const std::string& failAt = "") {
  return [=](const Request& request) {
    const std::string identity = IdentityReply(request, "x", "9.0");
    if (!identity.empty()) return Reply{identity};
    if (!failAt.empty() && request.body.find(failAt) != std::string::npos)
      return Reply{FaultReply("c", "the fault")};
    const auto has = [&](const char* text) { return request.body.find(text) != std::string::npos; };
    if (has("DISCOVER_DATASOURCES"))
      return Reply{RowsetReply("DataSourceName", {"s2", "s1", "s0"})};
    if (has("DBSCHEMA_CATALOGS")) {
      if (has(">s0<")) return Reply{RowsetReply("")};
      return Reply{RowsetReply("CATALOG_NAME", {"full", "bare"})};
    }
    if (has(">bare<")) return Reply{RowsetReply("")};
    return Reply{RowsetReply("CUBE_NAME", {has(">s2<") ? "z" : "y", "a", "a"})};
  };
}

TEST(DataSourceTree, HasAllCatalogsAndCubesInTheProvidersOrder) {
  ScriptedServer server(Tree());
  ImportProbe import(server.Url(), kAnalysisServices2005);
  std::vector<OTDataSource> sources;
  String errors;
  String warnings;
  import.GetDataSourceInfo(sources, errors, warnings);
  EXPECT_EQ(errors, String());
  EXPECT_EQ(warnings, String());
  ASSERT_EQ(sources.size(), 3u);
  EXPECT_EQ(sources[0].m_dataSourceName, String(L"s2"));
  EXPECT_EQ(sources[1].m_dataSourceName, String(L"s1"));
  ASSERT_EQ(sources[0].m_catalogs.size(), 2u);
  EXPECT_EQ(sources[0].m_catalogs[0].m_catalogName, String(L"full"));
  EXPECT_FALSE(sources[0].m_catalogs[0].m_bASOType);
  ASSERT_EQ(sources[0].m_catalogs[0].m_cubes.size(), 3u);
  EXPECT_EQ(sources[0].m_catalogs[0].m_cubes[0].first, String(L"z"));
  EXPECT_EQ(sources[1].m_catalogs[0].m_cubes[0].second, String(L"y"));
  EXPECT_EQ(sources[0].m_catalogs[0].m_cubes[2].first, String(L"a"));
  // A copied list has no spare room: neither a catalog nor a data source was copied.
  EXPECT_GT(sources[0].m_catalogs[0].m_cubes.capacity(), 3u);
  // Keeps a catalog without cubes and a source without catalogs.
  EXPECT_EQ(sources[0].m_catalogs[1].m_catalogName, String(L"bare"));
  EXPECT_TRUE(sources[0].m_catalogs[1].m_cubes.empty());
  EXPECT_EQ(sources[2].m_dataSourceName, String(L"s0"));
  EXPECT_TRUE(sources[2].m_catalogs.empty());
  std::vector<std::string> types;
  for (const Request& request : server.Requests()) types.push_back(RequestType(request.body));
  EXPECT_THAT(types, ElementsAre("DISCOVER_PROPERTIES", "DISCOVER_PROPERTIES",
                                 "DISCOVER_DATASOURCES", "DBSCHEMA_CATALOGS", "MDSCHEMA_CUBES",
                                 "MDSCHEMA_CUBES", "DBSCHEMA_CATALOGS", "MDSCHEMA_CUBES",
                                 "MDSCHEMA_CUBES", "DBSCHEMA_CATALOGS"));
}

TEST(DataSourceTree, WithoutSourcesIsEmptyWithoutError) {
  ScriptedServer server([](const Request& request) {
    const std::string identity = IdentityReply(request, "x", "9.0");
    return Reply{identity.empty() ? RowsetReply("") : identity};
  });
  ImportProbe import(server.Url(), kAnalysisServices2005);
  std::vector<OTDataSource> sources;
  String errors;
  String warnings;
  import.GetDataSourceInfo(sources, errors, warnings);
  EXPECT_TRUE(sources.empty());
  EXPECT_EQ(errors, String());
}

TEST(DataSourceTree, OfAListCoversOnlyItsFirstElement) {
  ScriptedServer server(Tree());
  ImportProbe import(server.Url(), kAnalysisServices2005);
  std::vector<OTDataSource> sources(2);
  sources[0].m_dataSourceName = L"s1";
  sources[0].m_catalogs.resize(7);
  sources[1].m_dataSourceName = L"s2";
  String errors;
  String warnings;
  import.GetDataSourceInfo(sources, errors, warnings);
  ASSERT_EQ(sources.size(), 1u);
  EXPECT_EQ(sources[0].m_dataSourceName, String(L"s1"));
  ASSERT_EQ(sources[0].m_catalogs.size(), 2u);
  EXPECT_EQ(sources[0].m_catalogs[0].m_cubes[0].first, String(L"y"));
  for (const Request& request : server.Requests())
    EXPECT_NE(RequestType(request.body), "DISCOVER_DATASOURCES");
}

TEST(DataSourceTree, IsCompleteWithOneWarningIfTheKindsDiffer) {
  ScriptedServer server(Tree());
  ImportProbe import(server.Url(), ServerInfo::kAnalysisServices2012);
  std::vector<OTDataSource> sources;
  String errors;
  String warnings;
  import.GetDataSourceInfo(sources, errors, warnings);
  EXPECT_EQ(sources.size(), 3u);
  const std::string text = support::Narrow(warnings);
  EXPECT_THAT(text, testing::StartsWith("[62010] "));
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1);
}

struct TreeFailure {
  const char* at;  // part of the request that gets a fault
  std::size_t left;
};

TEST(DataSourceTree, KeepsCompleteSourcesBeforeAnError) {
  const TreeFailure failures[] = {
      {"DISCOVER_DATASOURCES", 0},
      {"<DataSourceInfo>s2</DataSourceInfo></PropertyList>", 0},
      {"<DataSourceInfo>s1</DataSourceInfo><Catalog>full</Catalog>", 1},
      {"<DataSourceInfo>s1</DataSourceInfo><Catalog>bare</Catalog>", 1},
      {"<DataSourceInfo>s0</DataSourceInfo>", 2},
  };
  for (const TreeFailure& failure : failures) {
    ScriptedServer server(Tree(failure.at));
    ImportProbe import(server.Url(), kAnalysisServices2005);
    std::vector<OTDataSource> sources;
    String errors;
    String warnings;
    import.GetDataSourceInfo(sources, errors, warnings);
    EXPECT_EQ(sources.size(), failure.left) << failure.at;
    EXPECT_THAT(support::Narrow(errors), HasSubstr("the fault")) << failure.at;
  }
}

TEST(DataSourceTree, OfAListIsEmptyAfterAnError) {
  ImportProbe import("http://127.0.0.1:1/", kAnalysisServices2005);
  std::vector<OTDataSource> sources(2);
  String errors;
  String warnings;
  import.GetDataSourceInfo(sources, errors, warnings);
  EXPECT_TRUE(sources.empty());
  EXPECT_NE(errors, String());
}

// Connection and state.

TEST(Connection, SetupKeepsParametersAndSendsNothing) {
  ImportProbe import;
  EXPECT_FALSE(import.m_DiscoverAgent);
  import.SetupConnInfo(L"http://127.0.0.1:1/x", L"u", L"p", ServerInfo::kSAP_BW,
                       ServerInfo::kCLIXMLA);
  EXPECT_EQ(import.m_url, String(L"http://127.0.0.1:1/x"));
  EXPECT_EQ(import.m_user, String(L"u"));
  EXPECT_EQ(import.m_password, String(L"p"));
  EXPECT_EQ(import.GetTargetType(), ServerInfo::kSAP_BW);
  EXPECT_EQ(import.m_cliType, ServerInfo::kCLIXMLA);
  EXPECT_TRUE(import.m_DiscoverAgent->IsSAPBW());
}

/// An agent that records its destruction.
struct MortalAgent : XmlADiscoverAgentImpl {
  explicit MortalAgent(int& count)
      : XmlADiscoverAgentImpl(L"http://127.0.0.1:1/", L"", L"", ServerInfo::kTessera,
                              ServerInfo::kCLIXMLA, false),
        deaths(count) {}
  ~MortalAgent() override { ++deaths; }
  int& deaths;
};

TEST(Connection, SecondSetupReplacesOnlyTheAgent) {
  int deaths = 0;
  {
    ImportProbe import;
    OTXMLAImportAPI::ConnectParameters parameters{{L"a", L"b"}};
    import.SetConnectParameters(parameters, L"9.5");
    OTXMLAImportOption option;
    option.m_bFlatMeasureListFlag = true;
    option.m_bSkipDimensionUDA = true;
    option.m_forceSingleViewHierarchyNames.push_back(L"h");
    import.SetImportOption(option);
    import.SetImportChoiceInfo(L"S", L"C", L"Q");
    import.m_DiscoverAgent.reset(new MortalAgent(deaths));
    import.SetupConnInfo(L"http://127.0.0.1:2/", L"", L"", kAnalysisServices2005,
                         ServerInfo::kCLIXMLA);
    EXPECT_EQ(deaths, 1);
    EXPECT_TRUE(import.m_DiscoverAgent);
    EXPECT_EQ(import.m_choiceDataSource, String(L"S"));
    EXPECT_EQ(import.m_choiceCatalog, String(L"C"));
    EXPECT_EQ(import.m_choiceCube, String(L"Q"));
    EXPECT_EQ(import.GetRequiredVersion(), String(L"9.5"));
    OTXMLAImportAPI::ConnectParameters kept;
    import.GetConnectParameters(kept);
    EXPECT_EQ(kept, parameters);
    EXPECT_TRUE(import.m_importOption.m_bFlatMeasureListFlag);
    EXPECT_TRUE(import.m_importOption.m_bSkipDimensionUDA);
    EXPECT_THAT(import.m_importOption.m_forceSingleViewHierarchyNames, ElementsAre(String(L"h")));
    import.m_DiscoverAgent.reset(new MortalAgent(deaths));
  }
  EXPECT_EQ(deaths, 2);  // the import object owns its agent
}

TEST(Connection, FailedSetupKeepsTheFormerAgent) {
  int deaths = 0;
  ImportProbe import;
  import.m_DiscoverAgent.reset(new MortalAgent(deaths));
  EXPECT_THROW(
      import.SetupConnInfo(L"no url", L"", L"", kAnalysisServices2005, ServerInfo::kCLIXMLA),
      ErrorMessage);
  EXPECT_EQ(deaths, 0);
}

TEST(Connection, CloseConnectionDoesNotCloseIt) {
  ScriptedServer server(Provider("x", "9.0"));
  ImportProbe import(server.Url(), kAnalysisServices2005);
  const XmlADiscoverAgent* const agent = import.m_DiscoverAgent.get();
  import.CloseConnection();
  EXPECT_EQ(import.m_DiscoverAgent.get(), agent);
  EXPECT_EQ(import.m_url, support::Wide(server.Url()));
  VXStringVector names;
  String errors;
  String warnings;
  import.GetDataSourceNames(names, errors, warnings);
  EXPECT_EQ(names.size(), 2u);
  EXPECT_EQ(errors, String());
}

TEST(HostInterface, KeepsConnectParametersAndVersion) {
  ImportProbe import;
  EXPECT_EQ(import.GetRequiredVersion(), String());
  OTXMLAImportAPI::ConnectParameters first{{L"n", L"v"}, {L"n2", L"v2"}};
  import.SetConnectParameters(first, L"one");
  OTXMLAImportAPI::ConnectParameters second{{L"x", L"y"}};
  import.SetConnectParameters(second, L"two");
  OTXMLAImportAPI::ConnectParameters got{{L"old", L"old"}, {L"old", L"old"}};
  import.GetConnectParameters(got);
  EXPECT_EQ(got, second);
  EXPECT_EQ(import.GetRequiredVersion(), String(L"two"));
}

TEST(HostInterface, KeepsACopyOfTheImportOptions) {
  ImportProbe import;
  OTXMLAImportOption option;
  option.m_bFlatMeasureListFlag = true;
  option.m_bSkipDimensionUDA = true;
  option.m_forceSingleViewHierarchyNames.push_back(L"h");
  import.SetImportOption(option);
  option.m_forceSingleViewHierarchyNames.clear();
  EXPECT_TRUE(import.m_importOption.m_bFlatMeasureListFlag);
  EXPECT_TRUE(import.m_importOption.m_bSkipDimensionUDA);
  EXPECT_EQ(import.m_importOption.m_forceSingleViewHierarchyNames.size(), 1u);
  import.SetImportOption(OTXMLAImportOption());
  EXPECT_FALSE(import.m_importOption.m_bFlatMeasureListFlag);
  EXPECT_FALSE(import.m_importOption.m_bSkipDimensionUDA);
  EXPECT_TRUE(import.m_importOption.m_forceSingleViewHierarchyNames.empty());
}

TEST(HostInterface, UnsupportedOperationsKeepTheirArguments) {
  ImportProbe import;
  String a = L"a";
  String b = L"b";
  import.OpenConnection();
  import.CloseConnection();
  std::vector<OTXMLAUnit> units(2);
  import.FlatDimensionToMeasures(L"d", units, a, b);
  EXPECT_EQ(units.size(), 2u);
  import.PrepareForApplicationAndCube(a, b);
  std::set<String> names{L"n"};
  import.GetAppCubeNames(names);
  EXPECT_EQ(names.size(), 1u);
  OTCube cube;
  cube.first = L"c";
  import.GetCubeInfo(L"x", L"y", cube, a, b);
  EXPECT_EQ(cube.first, String(L"c"));
  OTDataSource source;
  source.m_dataSourceName = L"s";
  import.GetVariables(source, a, b);
  EXPECT_EQ(source.m_dataSourceName, String(L"s"));
  import.GetObject(L"1", L"2", L"3", L"4", a, b);
  int numbers[] = {7, 8, 9};
  EXPECT_EQ(import.GetVersionInfo(numbers[0], numbers[1], numbers[2], a, b), 1);
  EXPECT_THAT(numbers, ElementsAre(7, 8, 9));
  EXPECT_EQ(a, String(L"a"));
  EXPECT_EQ(b, String(L"b"));
}

// Identification without a configured kind.

struct Identified {
  bool answered = false;
  OTXMLAProviderIdentity identity;
  std::string errors;
  std::vector<std::string> requests;
};

Identified Identify(ScriptedServer::Handler handler) {
  ScriptedServer server(std::move(handler));
  Identified result;
  String errors;
  result.answered = OTXMLAIdentifyProvider(support::Wide(server.Url()), L"", L"",
                                           ServerInfo::kCLIXMLA, result.identity, errors);
  result.errors = support::Narrow(errors);
  for (const Request& request : server.Requests())
    result.requests.push_back(RequestType(request.body));
  return result;
}

TEST(Identifying, RequestsBothPropertiesFirst) {
  const Identified found = Identify(Provider("Microsoft Analysis Services", "9.0"));
  EXPECT_TRUE(found.answered);
  EXPECT_EQ(found.identity.name, String(L"Microsoft Analysis Services"));
  EXPECT_EQ(found.identity.version, String(L"9.0"));
  EXPECT_EQ(found.identity.target, kAnalysisServices2005);
  EXPECT_THAT(found.requests, ElementsAre("DISCOVER_PROPERTIES", "DISCOVER_PROPERTIES"));
}

Reply TamarindReply(const Request& request, const Reply& toTheName) {
  if (request.body.find("ProviderName<") != std::string::npos) return toTheName;
  if (RequestType(request.body) == "DISCOVER_PROPERTIES")
    return {IdentityReply(request, "", "11.1")};
  return {RowsetReply("ProviderName", {"Kelvora"})};
}

TEST(Identifying, UsesTamarindRulesWithoutNameOrAfterAFault) {
  for (const Reply& answer : {Reply{RowsetReply("")}, Reply{FaultReply("c", "unknown")}}) {
    const Identified found =
        Identify([&](const Request& request) { return TamarindReply(request, answer); });
    EXPECT_TRUE(found.answered);
    EXPECT_EQ(found.identity.name, String(L"Kelvora"));
    EXPECT_EQ(found.identity.version, String(L"11.1"));
    EXPECT_EQ(found.identity.target, ServerInfo::kTamarind7);
    EXPECT_EQ(found.requests.back(), "DISCOVER_PROPERTIES");
  }
}

TEST(Identifying, KeepsTheVersionOfTheFirstRequest) {
  int versions = 0;
  const Identified found = Identify([&](const Request& request) {
    if (request.body.find("ProviderVersion<") != std::string::npos && ++versions > 1)
      return Reply{FaultReply("c", "once is enough")};
    return TamarindReply(request, {RowsetReply("")});
  });
  EXPECT_TRUE(found.answered);
  EXPECT_EQ(found.identity.name, String(L"Kelvora"));
  EXPECT_EQ(found.identity.version, String(L"11.1"));
}

TEST(Identifying, KnownNameIsSufficient) {
  const Identified found = Identify([](const Request& request) {
    if (request.body.find("ProviderVersion<") != std::string::npos)
      return Reply{FaultReply("c", "no such property")};
    return Reply{IdentityReply(request, "SAP BW", "")};
  });
  EXPECT_TRUE(found.answered);
  EXPECT_EQ(found.errors, "");
  EXPECT_EQ(found.identity.name, String(L"SAP BW"));
  EXPECT_EQ(found.identity.version, String());
  EXPECT_EQ(found.identity.target, ServerInfo::kSAP_BW35);
  // The Tamarind rules are not tried.
  EXPECT_THAT(found.requests, ElementsAre("DISCOVER_PROPERTIES", "DISCOVER_PROPERTIES"));
}

TEST(Identifying, ProviderWithoutIdentityIsTessera) {
  const Identified found = Identify([](const Request&) { return Reply{RowsetReply("")}; });
  EXPECT_TRUE(found.answered);
  EXPECT_EQ(found.identity.target, ServerInfo::kTessera);
}

TEST(Identifying, FaultsByBothRulesAreTheError) {
  const Identified found =
      Identify([](const Request&) { return Reply{FaultReply("c", "go away")}; });
  EXPECT_FALSE(found.answered);
  EXPECT_THAT(found.errors, HasSubstr("go away"));
}

TEST(Identifying, NetworkErrorEndsItAtOnce) {
  const Identified found = Identify([](const Request&) { return Reply{"x", 503, "text/plain"}; });
  EXPECT_FALSE(found.answered);
  EXPECT_THAT(found.errors, HasSubstr("503"));
  EXPECT_EQ(found.requests.size(), 1u);
}

}  // namespace
