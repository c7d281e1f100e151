// Tests the agent's rowset readers: requests, results, errors and log entries.

#include <gmock/gmock.h>

#include "AgentProbe.h"
#include "DiscoverText.h"
#include "Utility/Generic/SUSystemConfig.h"
#include "support/ChildProcess.h"
#include "support/Settings.h"
#include "support/TempDir.h"

namespace {

using support::FaultReply;
using support::Reply;
using support::RowsetReply;
using support::ScriptedServer;
using testing::ElementsAre;
using testing::HasSubstr;

using enum ServerInfo::TargetType;

RefCnt<XmlAHierarchy> HierarchyNamed(const wchar_t* uniqueName) {
  RefCnt<XmlAHierarchy> hierarchy(new XmlAHierarchy(kTessera, ServerInfo::kCLIXMLA));
  hierarchy->AppendValueName(L"HIERARCHY_UNIQUE_NAME", uniqueName);
  return hierarchy;
}

/// One operation of the agent, with catalog "C&1", data source "D<", and the given cube.
struct Operation {
  std::string name;
  std::string requestType;
  std::vector<std::pair<std::string, std::string>> restrictions;  // without those of an empty cube
  std::string row;                                                // of its reply
  std::function<std::size_t(XmlADiscoverAgent&, const String& cube)>
      run;                   // returns the number of rows; lists may have previous content
  std::string title;         // title of its log entry
  std::string failureStart;  // start of its log entry after an error, up to ", errorMessage: "
};

constexpr const wchar_t* kCatalog = L"C&1";
constexpr const wchar_t* kSource = L"D<";

// Previous content of every list, which the call must remove even if it fails.
template <class Row>
std::vector<Row> Preset(Row row) {
  return std::vector<Row>(3, row);
}

const std::vector<Operation>& Operations() {
  static const std::pair<std::string, std::string> catalog{"CATALOG_NAME", "C&amp;1"};
  static const std::pair<std::string, std::string> cube{"CUBE_NAME", "Q"};
  static const std::vector<Operation> operations = {
      {"data sources",
       "DISCOVER_DATASOURCES",
       {},
       "<DataSourceInfo>x</DataSourceInfo>",
       [](XmlADiscoverAgent& agent, const String&) {
         VXStringVector names(3, L"old");
         agent.GetDataSourceInfo(names);
         return names.size();
       },
       "Get data sources from URL: \"URL\"\n",
       "Get data sources from URL: \"URL\""},
      {"catalogs",
       "DBSCHEMA_CATALOGS",
       {},
       "<CATALOG_NAME>x</CATALOG_NAME>",
       [](XmlADiscoverAgent& agent, const String&) {
         VXStringVector names(3, L"old");
         agent.GetCatalogs(names, kSource);
         return names.size();
       },
       "Get Catalogs from data source: \"D<\"\n",
       "Get Catalogs from data source: \"D<\""},
      {"cubes",
       "MDSCHEMA_CUBES",
       {catalog},
       "<CUBE_NAME>x</CUBE_NAME>",
       [](XmlADiscoverAgent& agent, const String&) {
         std::vector<OTCube> cubes = Preset(OTCube());
         agent.GetCubesOnCatalog(cubes, kCatalog, kSource);
         return cubes.size();
       },
       "Get Cubes from catalog \"C&1\" and data source \"D<\"\n",
       "Get Cubes from catalog \"C&1\" and data source \"D<\""},
      {"dimensions",
       "MDSCHEMA_DIMENSIONS",
       {catalog, cube},
       "",
       [](XmlADiscoverAgent& agent, const String& name) {
         auto rows = Preset(RefCnt<XmlADimension>(new XmlADimension));
         agent.GetDimensionsOnCatalogCube(rows, kCatalog, name, kSource);
         return rows.size();
       },
       "Get Dimension from cube \"Q\", catalog \"C&1\" and data source \"D<\"\n",
       "Get Dimension from cube \"Q\", catalog \"C&1\" and data source \"D<\""},
      {"default hierarchies",
       "MDSCHEMA_DIMENSIONS",
       {catalog, cube},
       "<DEFAULT_HIERARCHY>x</DEFAULT_HIERARCHY>",
       [](XmlADiscoverAgent& agent, const String& name) {
         XmlADiscoverAgent::DefaultHierarchies defaults;
         agent.FindDefaultHierarchiesOnCatalogCube(defaults, kCatalog, name, kSource);
         return defaults.size();
       },
       "Get Dimension for default hierarchy from cube \"Q\", catalog \"C&1\" and data source "
       "\"D<\"\n",
       "Get Dimension for default hierarchy from cube \"Q\", catalog \"C&1\" and data source "
       "\"D<\""},
      {"hierarchies",
       "MDSCHEMA_HIERARCHIES",
       {catalog, cube},
       "",
       [](XmlADiscoverAgent& agent, const String& name) {
         auto rows = Preset(HierarchyNamed(L"old"));
         agent.GetHierarchiesOnCatalogCube(rows, kCatalog, name, kSource);
         return rows.size();
       },
       "Get Hierarchies from cube \"Q\", catalog \"C&1\" and data source \"D<\"\n",
       "Get Hierarchies from cube \"Q\", catalog \"C&1\" and data source \"D<\""},
      {"members",
       "MDSCHEMA_MEMBERS",
       {catalog, cube, {"HIERARCHY_UNIQUE_NAME", "[H]"}, {"MEMBER_UNIQUE_NAME", "[H].[M]"}},
       "<MEMBER_TYPE>1</MEMBER_TYPE>",
       [](XmlADiscoverAgent& agent, const String& name) {
         const RefCnt<XmlAMember> member(new XmlAMember);
         member->SetUniqueName(L"[H].[M]");
         agent.GetMemberOnCatalogCubeHierarchy(member, kCatalog, name, L"[H]", kSource);
         return static_cast<std::size_t>(member->GetMemberType());
       },
       "Get Members from hierarchy \"[H]\", cube \"Q\", catalog \"C&1\" and data source \"D<\"\n",
       "Get Members from hierarchy \"[H]\",  cube \"Q\", catalog \"C&1\" and data source \"D<\""},
      {"measures",
       "MDSCHEMA_MEASURES",
       {catalog, cube},
       "",
       [](XmlADiscoverAgent& agent, const String& name) {
         auto rows = Preset(RefCnt<XmlAMeasure>(new XmlAMeasure(false)));
         agent.GetMeasuresOnCatalogCube(rows, kCatalog, name, kSource);
         return rows.size();
       },
       "Get Measures from cube \"Q\", catalog \"C&1\" and data source \"D<\"\n",
       "Get Measures from cube \"Q\", catalog \"C&1\" and data source \"D<\""},
      {"variables",
       "SAP_VARIABLES",
       {catalog, cube},
       "",
       [](XmlADiscoverAgent& agent, const String& name) {
         auto rows = Preset(RefCnt<XmlACubeVariable>(new XmlACubeVariable));
         agent.GetVariablesOnCatalogCube(rows, name, kCatalog, kSource);
         return rows.size();
       },
       "Get Varaibles from cube \"Q\", catalog \"C&1\" and data source \"D<\"\n",
       "Get Varaibles from cube \"Q\", catalog \"C&1\" and data source \"D<\""},
  };
  return operations;
}

std::string DataSourceOf(const Operation& operation) {
  return operation.requestType == "DISCOVER_DATASOURCES" ? "" : "D&lt;";
}

TEST(RowsetReaders, SendExactlyOneRequest) {
  for (const Operation& operation : Operations()) {
    ScriptedServer server({{RowsetReply("<row>" + operation.row + "</row>")}});
    AgentProbe agent(server.Url());
    EXPECT_EQ(operation.run(agent, L"Q"), 1u) << operation.name;
    const auto requests = server.Requests();
    ASSERT_EQ(requests.size(), 1u) << operation.name;
    EXPECT_EQ(requests[0].body,
              Discover(operation.requestType, DataSourceOf(operation), operation.restrictions))
        << operation.name;
  }
}

TEST(RowsetReaders, OmitAnEmptyCubeExceptForMeasures) {
  for (const Operation& operation : Operations()) {
    ScriptedServer server({{RowsetReply("")}});
    AgentProbe agent(server.Url());
    operation.run(agent, L"");
    auto restrictions = operation.restrictions;
    std::erase_if(restrictions, [](const auto& r) { return r.first == "CUBE_NAME"; });
    if (operation.name == "measures") restrictions.push_back({"CUBE_NAME", ""});
    EXPECT_EQ(server.Requests().at(0).body,
              Discover(operation.requestType, DataSourceOf(operation), restrictions))
        << operation.name;
  }
}

TEST(RowsetReaders, AlwaysRestrictToTheCatalogEvenIfEmpty) {
  ScriptedServer server([](const support::Request&) { return Reply{RowsetReply("")}; });
  AgentProbe agent(server.Url());
  std::vector<RefCnt<XmlADimension>> dimensions;
  agent.GetDimensionsOnCatalogCube(dimensions, L"", L"", L"D");
  std::vector<RefCnt<XmlAMeasure>> measures;
  agent.GetMeasuresOnCatalogCube(measures, L"", L"Q", L"D");
  std::vector<OTCube> cubes;
  agent.GetCubesOnCatalog(cubes, L"", L"D");
  const auto requests = server.Requests();
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_EQ(requests[0].body, Discover("MDSCHEMA_DIMENSIONS", "D", {{"CATALOG_NAME", ""}}));
  EXPECT_EQ(requests[1].body,
            Discover("MDSCHEMA_MEASURES", "D", {{"CATALOG_NAME", ""}, {"CUBE_NAME", "Q"}}));
  EXPECT_EQ(requests[2].body, Discover("MDSCHEMA_CUBES", "D", {{"CATALOG_NAME", ""}}));
}

TEST(RowsetReaders, ClearTheirOutputEvenIfTheRequestFails) {
  for (const Operation& operation : Operations()) {
    AgentProbe agent(kNobody);
    EXPECT_EQ(ErrorNumberOf([&] { operation.run(agent, L"Q"); }), 0) << operation.name;
  }
  AgentProbe agent(kNobody);
  VXStringVector names(3, L"old");
  EXPECT_EQ(ErrorNumberOf([&] { agent.GetCatalogs(names, L"D"); }), 0);
  EXPECT_TRUE(names.empty());
  names = VXStringVector(3, L"old");
  EXPECT_EQ(ErrorNumberOf([&] { agent.GetDataSourceInfo(names); }), 0);
  EXPECT_TRUE(names.empty());
  std::vector<OTCube> cubes(3);
  EXPECT_EQ(ErrorNumberOf([&] { agent.GetCubesOnCatalog(cubes, L"C", L"D"); }), 0);
  EXPECT_TRUE(cubes.empty());
  XmlADiscoverAgent::DataSourceCatalogs sources(3);
  EXPECT_EQ(ErrorNumberOf([&] { agent.GetDataSourceInfoCatalogs(sources); }), 0);
  EXPECT_TRUE(sources.empty());
  std::vector<RefCnt<XmlADimension>> dimensions(3);
  EXPECT_EQ(ErrorNumberOf([&] { agent.GetDimensionsOnCatalogCube(dimensions, L"C", L"Q", L"D"); }),
            0);
  EXPECT_TRUE(dimensions.empty());
  std::vector<RefCnt<XmlAHierarchy>> hierarchies(3);
  EXPECT_EQ(
      ErrorNumberOf([&] { agent.GetHierarchiesOnCatalogCube(hierarchies, L"C", L"Q", L"D"); }), 0);
  EXPECT_TRUE(hierarchies.empty());
  std::vector<RefCnt<XmlALevel>> levels(3);
  EXPECT_EQ(ErrorNumberOf([&] {
              agent.GetLevelsOnCatalogCubeHierarchy(levels, L"C", L"Q", HierarchyNamed(L"[H]"),
                                                    L"D");
            }),
            0);
  EXPECT_TRUE(levels.empty());
  std::vector<RefCnt<XmlAMeasure>> measures(3);
  EXPECT_EQ(ErrorNumberOf([&] { agent.GetMeasuresOnCatalogCube(measures, L"C", L"Q", L"D"); }), 0);
  EXPECT_TRUE(measures.empty());
  std::vector<RefCnt<XmlACubeVariable>> variables(3);
  EXPECT_EQ(ErrorNumberOf([&] { agent.GetVariablesOnCatalogCube(variables, L"Q", L"C", L"D"); }),
            0);
  EXPECT_TRUE(variables.empty());
}

TEST(RowsetReaders, PassFaultsAndParseErrorsAndStayUsable) {
  for (const Operation& operation : Operations()) {
    ScriptedServer server({{FaultReply("c", "The fault's text")},
                           {"<a><b></a>"},
                           {RowsetReply("<row>" + operation.row + "</row>")}});
    AgentProbe agent(server.Url());
    EXPECT_THAT(ErrorOf([&] { operation.run(agent, L"Q"); }),
                testing::AllOf(testing::StartsWith("[64203] "), HasSubstr("The fault's text")))
        << operation.name;
    EXPECT_EQ(ErrorNumberOf([&] { operation.run(agent, L"Q"); }), 46100) << operation.name;
    EXPECT_EQ(operation.run(agent, L"Q"), 1u) << operation.name;
  }
}

TEST(RowsetReaders, KeepTheOrderOfRows) {
  const std::string rows = RowsetReply(
      "<row><MEASURE_NAME>a</MEASURE_NAME></row><row/><ROW><measure_name>b</measure_name></ROW>"
      "<Row><MEASURE_NAME>a</MEASURE_NAME></Row><MEASURE_NAME>after the last</MEASURE_NAME>");
  ScriptedServer server({{rows}});
  AgentProbe agent(server.Url());
  std::vector<RefCnt<XmlAMeasure>> measures;
  agent.GetMeasuresOnCatalogCube(measures, L"C", L"Q", L"D");
  ASSERT_EQ(measures.size(), 4u);
  EXPECT_EQ(measures[0]->GetName(), String(L"a"));
  EXPECT_EQ(measures[1]->GetName(), String());
  EXPECT_EQ(measures[2]->GetName(), String(L"b"));
  EXPECT_EQ(measures[3]->GetName(), String(L"a"));
}

TEST(RowsetReaders, AcceptColumnsOutsideOfRows) {
  // The column belongs to the next row that ends.
  ScriptedServer server({{RowsetReply("<MEASURE_NAME>early</MEASURE_NAME><row><x/></row><row/>")}});
  AgentProbe agent(server.Url());
  std::vector<RefCnt<XmlAMeasure>> measures;
  agent.GetMeasuresOnCatalogCube(measures, L"C", L"Q", L"D");
  ASSERT_EQ(measures.size(), 2u);
  EXPECT_EQ(measures[0]->GetName(), String(L"early"));
  EXPECT_EQ(measures[1]->GetName(), String());
}

TEST(RowsetReaders, SecondPassKeepsRowsBeforeAParseError) {
  AgentProbe agent(kNobody);
  agent.StartSaxParser(L"<r><CUBE_NAME>a</CUBE_NAME><CUBE_NAME>b</CUBE_NAME><broken></r>");
  std::vector<OTCube> cubes;
  EXPECT_EQ(ErrorNumberOf([&] { agent.ReadCubes(cubes); }), 46100);
  EXPECT_EQ(cubes.size(), 2u);
  // Only complete rows.
  agent.StartSaxParser(L"<r><row/><row><MEASURE_NAME>a</MEASURE_NAME></row><row><x/></r>");
  std::vector<RefCnt<XmlAMeasure>> measures;
  EXPECT_EQ(ErrorNumberOf([&] { agent.ReadMeasures(measures); }), 46100);
  ASSERT_EQ(measures.size(), 2u);
  EXPECT_EQ(measures[1]->GetName(), String(L"a"));
}

// Data sources, catalogs, cubes.

TEST(DataSources, AreNamesForAnalysisServicesFrom2005OnElseInformation) {
  const std::string reply = RowsetReply(
      "<row><DataSourceName>name 1</DataSourceName><DataSourceInfo>info 1</DataSourceInfo></row>"
      "<row><datasourcename>name 2</datasourcename><DATASOURCEINFO>info 2</DATASOURCEINFO></row>");
  const std::pair<ServerInfo::TargetType, bool> targets[] = {
      {kAnalysisServices2005, true},
      {ServerInfo::kAnalysisServices2008, true},
      {ServerInfo::kAnalysisServices2012, true},
      {kAnalysisServices2000, false},
      {ServerInfo::kSAP_BW, false},
      {ServerInfo::kSAP_BW35, false},
      {kTessera, false},
      {ServerInfo::kTamarind7, false},
      {ServerInfo::kTamarind11, false},
  };
  for (const auto& [target, byName] : targets) {
    ScriptedServer server({{reply}});
    AgentProbe agent(server.Url(), target);
    VXStringVector sources;
    agent.GetDataSourceInfo(sources);
    EXPECT_THAT(sources, ElementsAre(String(byName ? L"name 1" : L"info 1"),
                                     String(byName ? L"name 2" : L"info 2")))
        << target;
  }
}

TEST(DataSources, OnlyTheOtherColumnGivesNone) {
  for (const auto& [target, column] : {std::pair{kAnalysisServices2005, "DataSourceInfo"},
                                       {ServerInfo::kAnalysisServices2012, "DataSourceInfo"},
                                       {kTessera, "DataSourceName"}}) {
    ScriptedServer server({{RowsetReply(column, {"x", "y"})}});
    AgentProbe agent(server.Url(), target);
    VXStringVector sources;
    agent.GetDataSourceInfo(sources);
    EXPECT_TRUE(sources.empty());
  }
}

TEST(Catalogs, AreFoundAnywhereAndInAnyCase) {
  ScriptedServer server(
      {{RowsetReply("<row><CATALOG_NAME>a</CATALOG_NAME></row>"
                    "<catalog_name>b</catalog_name><row><Catalog_Name/></row>"
                    "<row><x><CATALOG_NAME>a</CATALOG_NAME></x></row>")}});
  AgentProbe agent(server.Url());
  VXStringVector catalogs;
  agent.GetCatalogs(catalogs, L"D");
  EXPECT_THAT(catalogs, ElementsAre(String(L"a"), String(L"b"), String(), String(L"a")));
}

TEST(Cubes, HaveTheNameInBothFieldsAndNoUniqueMemberNames) {
  ScriptedServer server(
      {{RowsetReply("<row><CUBE_NAME>Sales &amp; more</CUBE_NAME></row>"
                    "<row><cube_name>Sales &amp; more</cube_name></row>")}});
  AgentProbe agent(server.Url());
  std::vector<OTCube> cubes;
  agent.GetCubesOnCatalog(cubes, L"C", L"D");
  ASSERT_EQ(cubes.size(), 2u);
  for (const OTCube& cube : cubes) {
    EXPECT_EQ(cube.first, String(L"Sales & more"));
    EXPECT_EQ(cube.second, String(L"Sales & more"));
    EXPECT_TRUE(cube.m_bMemberNameUnique);
    EXPECT_TRUE(cube.m_variables.empty() && cube.m_sapVariables.empty() && cube.m_aliases.empty());
    EXPECT_EQ(cube.m_dateFormat, String());
  }
}

TEST(DataSourcesWithCatalogs, RequestTheCatalogsOfEachSource) {
  ScriptedServer server({{RowsetReply("DataSourceInfo", {"s1", "s2"})},
                         {RowsetReply("CATALOG_NAME", {"a", "b"})},
                         {RowsetReply("")}});
  AgentProbe agent(server.Url());
  XmlADiscoverAgent::DataSourceCatalogs sources(1);
  agent.GetDataSourceInfoCatalogs(sources);
  ASSERT_EQ(sources.size(), 2u);
  EXPECT_EQ(sources[0].first, String(L"s1"));
  EXPECT_THAT(sources[0].second, ElementsAre(String(L"a"), String(L"b")));
  EXPECT_EQ(sources[1].first, String(L"s2"));
  EXPECT_TRUE(sources[1].second.empty());
  EXPECT_EQ(server.Requests().at(2).body, Discover("DBSCHEMA_CATALOGS", "s2", {}));
}

TEST(DataSourcesWithCatalogs, WithoutSourcesRequestNoCatalogs) {
  ScriptedServer server({{RowsetReply("")}});
  AgentProbe agent(server.Url());
  XmlADiscoverAgent::DataSourceCatalogs sources(1);
  agent.GetDataSourceInfoCatalogs(sources);
  EXPECT_TRUE(sources.empty());
  EXPECT_EQ(server.Requests().size(), 1u);
}

TEST(DataSourcesWithCatalogs, KeepThePairsBeforeAnError) {
  ScriptedServer server({{RowsetReply("DataSourceInfo", {"s1", "s2"})},
                         {RowsetReply("CATALOG_NAME", {"a"})},
                         {FaultReply("c", "t")}});
  AgentProbe agent(server.Url());
  XmlADiscoverAgent::DataSourceCatalogs sources;
  EXPECT_EQ(ErrorNumberOf([&] { agent.GetDataSourceInfoCatalogs(sources); }), 64203);
  EXPECT_EQ(sources.size(), 1u);
}

// Inside a cube.

TEST(DefaultHierarchies, AreAddedToTheMap) {
  ScriptedServer server(
      {{RowsetReply("<row><DEFAULT_HIERARCHY>[A]</DEFAULT_HIERARCHY></row>"
                    "<row><DEFAULT_HIERARCHY>[B]</DEFAULT_HIERARCHY></row>"
                    "<row><DEFAULT_HIERARCHY>[A]</DEFAULT_HIERARCHY></row>")},
       {RowsetReply("<row><DIMENSION_UNIQUE_NAME>[C]</DIMENSION_UNIQUE_NAME></row>")},
       {FaultReply("c", "t")}});
  AgentProbe agent(server.Url());
  XmlADiscoverAgent::DefaultHierarchies defaults{{L"[Z]", true}, {L"[B]", false}};
  agent.FindDefaultHierarchiesOnCatalogCube(defaults, L"C", L"Q", L"D");
  EXPECT_THAT(defaults,
              ElementsAre(std::pair{String(L"[A]"), true}, std::pair{String(L"[B]"), true},
                          std::pair{String(L"[Z]"), true}));
  agent.FindDefaultHierarchiesOnCatalogCube(defaults, L"C", L"Q", L"D");
  EXPECT_EQ(defaults.size(), 4u);
  EXPECT_TRUE(defaults.at(L""));
  EXPECT_EQ(
      ErrorNumberOf([&] { agent.FindDefaultHierarchiesOnCatalogCube(defaults, L"C", L"Q", L"D"); }),
      64203);
  EXPECT_EQ(defaults.size(), 4u);
}

std::string LevelRow(const std::string& name) {
  return "<row><DIMENSION_UNIQUE_NAME>[D" + name + "]</DIMENSION_UNIQUE_NAME><LEVEL_UNIQUE_NAME>[" +
         name + "]</LEVEL_UNIQUE_NAME></row>";
}

std::string PropertiesRequest(const std::string& level, bool withCube = true) {
  std::vector<std::pair<std::string, std::string>> restrictions{{"CATALOG_NAME", "C"}};
  if (withCube) restrictions.push_back({"CUBE_NAME", "Q"});
  restrictions.push_back({"DIMENSION_UNIQUE_NAME", "[D" + level + "]"});
  restrictions.push_back({"HIERARCHY_UNIQUE_NAME", "[H]"});
  restrictions.push_back({"LEVEL_UNIQUE_NAME", "[" + level + "]"});
  return Discover("MDSCHEMA_PROPERTIES", "D", restrictions);
}

TEST(Levels, NeedOneRequestPlusOnePerLevel) {
  for (const bool withCube : {true, false}) {
    ScriptedServer server({{RowsetReply(LevelRow("0") + LevelRow("1") + LevelRow("2"))},
                           {RowsetReply("")},
                           {RowsetReply("PROPERTY_NAME", {"a", "a"})},
                           {RowsetReply("PROPERTY_NAME", {"b"})}});
    AgentProbe agent(server.Url());
    std::vector<RefCnt<XmlALevel>> levels(2);
    agent.GetLevelsOnCatalogCubeHierarchy(levels, L"C", withCube ? L"Q" : L"",
                                          HierarchyNamed(L"[H]"), L"D");
    ASSERT_EQ(levels.size(), 3u);
    EXPECT_EQ(levels[0]->GetNumOfProperties(), 0u);
    ASSERT_EQ(levels[1]->GetNumOfProperties(), 2u);
    EXPECT_EQ(levels[1]->GetLevelPropertyName(1), String(L"a"));
    EXPECT_EQ(levels[2]->GetLevelPropertyName(0), String(L"b"));
    const auto requests = server.Requests();
    ASSERT_EQ(requests.size(), 4u);
    std::vector<std::pair<std::string, std::string>> restrictions{{"CATALOG_NAME", "C"}};
    if (withCube) restrictions.push_back({"CUBE_NAME", "Q"});
    restrictions.push_back({"HIERARCHY_UNIQUE_NAME", "[H]"});
    EXPECT_EQ(requests[0].body, Discover("MDSCHEMA_LEVELS", "D", restrictions));
    for (std::size_t i = 1; i < 4; ++i)
      EXPECT_EQ(requests[i].body, PropertiesRequest(std::to_string(i - 1), withCube));
  }
}

TEST(Levels, WithoutLevelsRequestNoProperties) {
  ScriptedServer server({{RowsetReply("")}});
  AgentProbe agent(server.Url());
  std::vector<RefCnt<XmlALevel>> levels;
  agent.GetLevelsOnCatalogCubeHierarchy(levels, L"C", L"Q", HierarchyNamed(L"[H]"), L"D");
  EXPECT_TRUE(levels.empty());
  EXPECT_EQ(server.Requests().size(), 1u);
}

TEST(Levels, KeepPropertiesReadBeforeAFailure) {
  ScriptedServer server({{RowsetReply(LevelRow("0") + LevelRow("1") + LevelRow("2"))},
                         {RowsetReply("PROPERTY_NAME", {"a"})},
                         {FaultReply("c", "t")}});
  AgentProbe agent(server.Url());
  std::vector<RefCnt<XmlALevel>> levels;
  EXPECT_EQ(ErrorNumberOf([&] {
              agent.GetLevelsOnCatalogCubeHierarchy(levels, L"C", L"Q", HierarchyNamed(L"[H]"),
                                                    L"D");
            }),
            64203);
  ASSERT_EQ(levels.size(), 3u);
  EXPECT_EQ(levels[0]->GetNumOfProperties(), 1u);
  EXPECT_EQ(levels[2]->GetNumOfProperties(), 0u);
  EXPECT_EQ(server.Requests().size(), 3u);
}

TEST(Members, FillTheCallersObject) {
  ScriptedServer server({{RowsetReply("<row><MEMBER_TYPE>1</MEMBER_TYPE></row>"
                                      "<row><member_type>2</member_type></row>")},
                         {RowsetReply("")}});
  AgentProbe agent(server.Url());
  const RefCnt<XmlAMember> member(new XmlAMember);
  member->SetUniqueName(L"[M]");
  agent.GetMemberOnCatalogCubeHierarchy(member, L"C", L"Q", L"[H]", L"D");
  EXPECT_EQ(member->GetMemberType(), 2);
  agent.GetMemberOnCatalogCubeHierarchy(member, L"C", L"Q", L"[H]", L"D");
  EXPECT_EQ(member->GetMemberType(), 2);
  EXPECT_EQ(member->GetUniqueName(), String(L"[M]"));
}

TEST(Measures, HaveUniqueNamesOnlyForSapBw) {
  const std::string reply = RowsetReply(
      "<row><MEASURE_NAME>name</MEASURE_NAME><MEASURE_UNIQUE_NAME>[Measures].[unique]"
      "</MEASURE_UNIQUE_NAME></row>");
  for (const auto target :
       {kAnalysisServices2000, kAnalysisServices2005, ServerInfo::kAnalysisServices2008,
        ServerInfo::kAnalysisServices2012, kTessera, ServerInfo::kTamarind7, ServerInfo::kSAP_BW,
        ServerInfo::kSAP_BW35}) {
    ScriptedServer server({{reply}});
    AgentProbe agent(server.Url(), target);
    std::vector<RefCnt<XmlAMeasure>> measures;
    agent.GetMeasuresOnCatalogCube(measures, L"C", L"Q", L"D");
    const bool sap = target == ServerInfo::kSAP_BW || target == ServerInfo::kSAP_BW35;
    EXPECT_EQ(measures.at(0)->GetName(), String(sap ? L"unique" : L"name")) << target;
  }
}

TEST(Variables, AreReadRowByRow) {
  ScriptedServer server(
      {{RowsetReply("<row><VARIABLE_NAME>a</VARIABLE_NAME></row><row>"
                    "<VARIABLE_NAME>b</VARIABLE_NAME><VARIABLE_TYPE>2"
                    "</VARIABLE_TYPE></row>")}});
  AgentProbe agent(server.Url());
  std::vector<RefCnt<XmlACubeVariable>> variables;
  agent.GetVariablesOnCatalogCube(variables, L"cube", L"catalog", L"D");
  ASSERT_EQ(variables.size(), 2u);
  EXPECT_EQ(variables[0]->m_Name, String(L"a"));
  EXPECT_EQ(variables[1]->m_type, XmlACubeVariable::SAP_VAR_TYPE_NUMERIC);
  EXPECT_EQ(server.Requests().at(0).body,
            Discover("SAP_VARIABLES", "D", {{"CATALOG_NAME", "catalog"}, {"CUBE_NAME", "cube"}}));
}

// The log.

const std::map<std::string, std::string> kLogging = {{"OT_XMLA_IMPORT_LOGGING", "1"}};

/// The titles of the entries written while `action` runs with an agent.
template <class Action>
std::vector<std::string> LoggedTitles(const std::string& url, Action action) {
  support::TempDir dir;
  const support::LogInto log(dir.Path());
  {
    AgentProbe agent(url, kTessera, true);
    action(agent);
  }
  const std::string text = support::ReadFile(dir.Files().at(0));
  const std::string delimiter = "\n##############################################\n";
  std::vector<std::string> titles;
  for (std::size_t at = text.find(delimiter); at != std::string::npos;) {
    const std::size_t begin = at + delimiter.size();
    at = text.find(delimiter, begin);
    const std::string entry = text.substr(begin, at - begin);
    if (!entry.starts_with("Import ends at ")) {
      std::string title = entry.substr(0, entry.find("\n\n") + 1);
      if (const std::size_t where = title.find(url); where != std::string::npos)
        title.replace(where, url.size(), "URL");
      titles.push_back(title);
    }
  }
  return titles;
}

TEST_IN_CHILD(ReaderLog, TitlesEveryOperation, kLogging) {
  for (const Operation& operation : Operations()) {
    ScriptedServer server([](const support::Request&) { return Reply{RowsetReply("")}; });
    const auto titles =
        LoggedTitles(server.Url(), [&](AgentProbe& agent) { operation.run(agent, L"Q"); });
    ASSERT_GE(titles.size(), 1u);
    EXPECT_EQ(titles[0], operation.title) << operation.name;
    EXPECT_EQ(titles.size(), operation.name == "hierarchies" ? 2u : 1u) << operation.name;
  }
}

TEST_IN_CHILD(ReaderLog, TitlesTheProvidersNameAndVersion, kLogging) {
  ScriptedServer server([](const support::Request&) { return Reply{RowsetReply("")}; });
  const auto titles = LoggedTitles(server.Url(), [](AgentProbe& agent) {
    std::pair<String, String> identity;
    agent.GetProviderInfomation(identity);
  });
  EXPECT_THAT(titles,
              ElementsAre("Get Provider Name: \"URL\"\n", "Get Provider Version: \"URL\"\n"));
}

TEST_IN_CHILD(ReaderLog, TitlesEveryErrorWithItsText, kLogging) {
  for (const Operation& operation : Operations()) {
    ScriptedServer server({{FaultReply("c", "The fault")}});
    std::string error;
    const auto titles = LoggedTitles(server.Url(), [&](AgentProbe& agent) {
      error = ErrorOf([&] { operation.run(agent, L"Q"); });
    });
    EXPECT_THAT(error, HasSubstr("The fault"));
    EXPECT_THAT(titles, ElementsAre(operation.failureStart + ", errorMessage: \"" + error + "\"\n"))
        << operation.name;
  }
}

TEST_IN_CHILD(ReaderLog, ShowsTheDimensionsBesideTheHierarchies, kLogging) {
  ScriptedServer server([](const support::Request&) { return Reply{RowsetReply("")}; });
  const auto titles = LoggedTitles(server.Url(), [&](AgentProbe& agent) {
    std::vector<RefCnt<XmlAHierarchy>> rows;
    agent.GetHierarchiesOnCatalogCube(rows, L"C", L"Q", L"D");
  });
  EXPECT_THAT(titles,
              ElementsAre("Get Hierarchies from cube \"Q\", catalog \"C\" and data source \"D\"\n",
                          "Get Dimension from cube \"Q\", catalog \"C\" and data source \"D\"\n"));
  const auto requests = server.Requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[1].body,
            Discover("MDSCHEMA_DIMENSIONS", "D", {{"CATALOG_NAME", "C"}, {"CUBE_NAME", "Q"}}));
}

TEST_IN_CHILD(ReaderLog, ErrorOfTheSecondRequestReachesTheCaller, kLogging) {
  ScriptedServer server({{RowsetReply("<row/>")}, {FaultReply("c", "t")}});
  std::size_t read = 0;
  const auto titles = LoggedTitles(server.Url(), [&](AgentProbe& agent) {
    std::vector<RefCnt<XmlAHierarchy>> rows;
    EXPECT_EQ(ErrorNumberOf([&] { agent.GetHierarchiesOnCatalogCube(rows, L"C", L"Q", L"D"); }),
              64203);
    read = rows.size();
  });
  EXPECT_EQ(read, 1u);
  EXPECT_EQ(titles.size(), 2u);
}

TEST_IN_CHILD(ReaderLog, TitlesLevelsAndTheirProperties, kLogging) {
  ScriptedServer server(
      {{RowsetReply(LevelRow("0") + LevelRow("1"))}, {RowsetReply("")}, {FaultReply("c", "t")}});
  std::string error;
  const auto titles = LoggedTitles(server.Url(), [&](AgentProbe& agent) {
    std::vector<RefCnt<XmlALevel>> levels;
    error = ErrorOf([&] {
      agent.GetLevelsOnCatalogCubeHierarchy(levels, L"C", L"Q", HierarchyNamed(L"[H]"), L"D");
    });
  });
  EXPECT_THAT(
      titles,
      ElementsAre(
          "Get Levels from hierarchy \"[H]\", cube \"Q\", catalog \"C\" and data source \"D\"\n",
          "Get Properties on Levels \"[0]\", hierarchy \"[H]\", cube \"Q\", catalog \"C\" and data "
          "source \"D\"\n",
          "Get Properties on Levels \"[1]\",  hierarchy \"[H]\", cube \"Q\", catalog \"C\" and "
          "data source \"D\", errorMessage: \"" +
              error + "\"\n"));
}

TEST_IN_CHILD(ReaderLog, TitlesAFailedLevelsRequest, kLogging) {
  ScriptedServer server({{FaultReply("c", "t")}});
  std::string error;
  const auto titles = LoggedTitles(server.Url(), [&](AgentProbe& agent) {
    std::vector<RefCnt<XmlALevel>> levels;
    error = ErrorOf([&] {
      agent.GetLevelsOnCatalogCubeHierarchy(levels, L"C", L"Q", HierarchyNamed(L"[H]"), L"D");
    });
  });
  EXPECT_THAT(titles,
              ElementsAre("Get Levels from hierarchy \"[H]\", cube \"Q\", catalog \"C\" and "
                          "data source \"D\", errorMessage: \"" +
                          error + "\"\n"));
}

TEST_IN_CHILD(ReaderLog, TamarindNameIsTitledAndItsErrorsAreNot, kLogging) {
  support::TempDir dir;
  const support::LogInto log(dir.Path());
  ScriptedServer server({{RowsetReply("")}, {FaultReply("c", "the fault")}});
  {
    AgentProbe agent(server.Url(), ServerInfo::kTamarind7, true);
    String name;
    agent.GetProviderName(name);
    EXPECT_EQ(ErrorNumberOf([&] { agent.GetProviderName(name); }), 64203);
  }
  const std::string text = support::ReadFile(dir.Files().at(0));
  EXPECT_THAT(text, HasSubstr("Get data sources from URL: \"" + server.Url() + "\"\n\n"));
  EXPECT_THAT(text, testing::Not(HasSubstr("the fault")));
}

}  // namespace
