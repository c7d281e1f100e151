// Replies recorded from real servers, served by a local one. They are not part of the project: the
// environment variable XMLA_RECORDED_REPLIES names their folder. Without it, the tests are skipped.
// A person has read the expected values from the replies.

#include <gmock/gmock.h>

#include <filesystem>
#include <span>

#include "AgentProbe.h"
#include "support/RecordedReplies.h"
#include "support/TempDir.h"

namespace {

using support::Narrow;
using support::Reply;
using support::ScriptedServer;
using testing::HasSubstr;
using Texts = std::vector<std::string>;

using enum ServerInfo::TargetType;

class RecordedReplies : public testing::Test {
 protected:
  void SetUp() override {
    if (support::RecordedReplies().empty())
      GTEST_SKIP() << "skipped: XMLA_RECORDED_REPLIES names no folder of recorded replies";
  }
};

/// The bytes of a recorded body, with an envelope around a single row.
std::string Body(const std::string& file) {
  const std::string bytes = support::ReadFile(support::RecordedReplies() / file);
  const bool bare = file.ends_with(".row.xml") || file.ends_with(".fragment.xml");
  return bare ? support::RowsetReply(bytes) : bytes;
}

// Every body through the exchange, for a target with and one without normalised declaration.

struct ExchangeCase {
  const char* file;
  const char* fault;  // part of the error; null: no error
};

const ExchangeCase kExchanges[] = {
    {"daanse/DISCOVER-empty-1.xml", nullptr},
    {"daanse/DISCOVER_PROPERTIES-1.xml", nullptr},
    {"mondrian-9/DBSCHEMA_CATALOGS-1.xml", nullptr},
    {"mondrian-9/DISCOVER_SCHEMA_ROWSETS-1.xml", nullptr},
    {"mondrian-9/MDSCHEMA_CUBES-1.xml", nullptr},
    {"mondrian-9/MDSCHEMA_CUBES-2.xml", nullptr},
    {"mondrian-9/MDSCHEMA_CUBES-3.xml", nullptr},
    {"mondrian-9/MDSCHEMA_LEVELS-1.xml", nullptr},
    {"mondrian-9/MDSCHEMA_MEMBERS-1.xml", nullptr},
    {"mondrian-other/MDSCHEMA_MEASURES-1.xml", nullptr},
    {"mondrian/DBSCHEMA_CATALOGS-1.xml", nullptr},
    {"mondrian/DBSCHEMA_SCHEMATA-1.xml", nullptr},
    {"mondrian/DISCOVER_DATASOURCES-1.xml", nullptr},
    {"mondrian/DISCOVER_LITERALS-1.xml", nullptr},
    {"mondrian/DISCOVER_PROPERTIES-1.xml", nullptr},
    {"mondrian/FAULT-1.xml", "XMLA MDX parse failed"},
    {"mondrian/MDSCHEMA_ACTIONS-1.xml", nullptr},
    {"mondrian/MDSCHEMA_CUBES-1.xml", nullptr},
    {"mondrian/MDSCHEMA_CUBES-2.xml", nullptr},
    {"mondrian/MDSCHEMA_DIMENSIONS-1.xml", nullptr},
    {"mondrian/MDSCHEMA_HIERARCHIES-1.xml", nullptr},
    {"mondrian/MDSCHEMA_HIERARCHIES-2.xml", nullptr},
    {"mondrian/MDSCHEMA_LEVELS-1.xml", nullptr},
    {"mondrian/MDSCHEMA_LEVELS-2.xml", nullptr},
    {"mondrian/MDSCHEMA_MEASURES-1.xml", nullptr},
    {"mondrian/MDSCHEMA_MEASURES-2.xml", nullptr},
    {"mondrian/MDSCHEMA_MEMBERS-1.xml", nullptr},
    {"mondrian/MDSCHEMA_MEMBERS-2.xml", nullptr},
    {"mondrian/MDSCHEMA_PROPERTIES-1.xml", nullptr},
    {"mondrian/MDSCHEMA_PROPERTIES-2.xml", nullptr},
    {"mondrian/MDSCHEMA_SETS-1.xml", nullptr},
    {"sap-bw/DISCOVER_DATASOURCES-1.xml", nullptr},
    {"sap-bw/MDSCHEMA_CUBES-1.row.xml", nullptr},
    {"sap-bw/SAP_VARIABLES-1.row.xml", nullptr},
    {"sap-bw/WSDL-1.xml", nullptr},
    {"spec-xmla11/FAULT-1.xml", "XMLAnalysisError.0x80000005"},
    {"spec-xmla11/MDSCHEMA_CUBES-1.xml", nullptr},
    {"ssas-doc/DISCOVER_PROPERTIES-1.xml", nullptr},
    {"ssas-doc/FAULT-1.xml", "The XML for Analysis provider encountered an error."},
    {"ssas/DBSCHEMA_CATALOGS-1.xml", nullptr},
    {"ssas/DISCOVER_DATASOURCES-1.xml", nullptr},
    {"ssas/FAULT-1.xml", "XMLAnalysisError.0xc10a004d"},
    {"ssas/MDSCHEMA_CUBES-1.xml", nullptr},
    {"ssas/MDSCHEMA_DIMENSIONS-1.xml", nullptr},
    {"ssas/MDSCHEMA_HIERARCHIES-1.xml", nullptr},
    {"ssas/MDSCHEMA_LEVELS-1.xml", nullptr},
    {"ssas/MDSCHEMA_MEASUREGROUPS-1.xml", nullptr},
    {"ssas/MDSCHEMA_MEASURES-1.xml", nullptr},
    {"ssas/MESSAGES-1.fragment.xml", nullptr},
    {"virtuoso-doc/DISCOVER_DATASOURCES-1.xml", nullptr},
};

TEST_F(RecordedReplies, PassTheExchangeAndFaultsAreErrors) {
  for (const ExchangeCase& recorded : kExchanges) {
    const std::string body = Body(recorded.file);
    ScriptedServer server([&](const support::Request&) { return Reply{body}; });
    for (const auto target : {kAnalysisServices2005, kTessera, kSAP_BW35}) {
      AgentProbe agent(server.Url(), target);
      String response;
      const std::string error = ErrorOf([&] { agent.SendSoapRequest(L"x", response); });
      if (recorded.fault) {
        EXPECT_THAT(error,
                    testing::AllOf(testing::StartsWith("[64203] "), HasSubstr(recorded.fault)))
            << recorded.file;
      } else {
        EXPECT_EQ(error, "no error") << recorded.file << " " << target;
      }
    }
  }
}

TEST_F(RecordedReplies, AreAllInTheTable) {
  std::set<std::string> listed;
  for (const ExchangeCase& recorded : kExchanges) listed.insert(recorded.file);
  for (const auto& entry :
       std::filesystem::recursive_directory_iterator(support::RecordedReplies())) {
    const std::string name =
        std::filesystem::relative(entry.path(), support::RecordedReplies()).generic_string();
    if (!name.ends_with(".xml") || name.ends_with(".request.xml")) continue;
    EXPECT_TRUE(listed.contains(name)) << name << " is not tried by any test";
  }
}

// Rowset readers.

/// Serves one recorded body to one operation of an agent.
template <class Run>
auto Read(const std::string& body, ServerInfo::TargetType target, Run run) {
  ScriptedServer server({{body}});
  AgentProbe agent(server.Url(), target);
  return run(agent);
}

struct ListCase {
  const char* file;
  ServerInfo::TargetType target;
  Texts expected;
};

Texts Narrowed(const VXStringVector& texts) {
  Texts result;
  for (const String& text : texts) result.push_back(Narrow(text));
  return result;
}

void ExpectNames(std::span<const ListCase> cases, Texts (*read)(AgentProbe& agent)) {
  for (const ListCase& c : cases)
    EXPECT_EQ(Read(Body(c.file), c.target, read), c.expected) << c.file;
}

TEST_F(RecordedReplies, OfDataSourcesGiveTheirNamesOrInformation) {
  const std::string mondrian = "Provider=Mondrian;DataSource=MondrianFoodMart;";
  const ListCase cases[] = {
      {"ssas/DISCOVER_DATASOURCES-1.xml", kAnalysisServices2012, {"WORKSTATION"}},
      {"ssas/DISCOVER_DATASOURCES-1.xml", kTessera, {""}},
      {"sap-bw/DISCOVER_DATASOURCES-1.xml", kSAP_BW35, {"default"}},
      {"sap-bw/DISCOVER_DATASOURCES-1.xml", kAnalysisServices2005, {"SAP_BW"}},
      {"mondrian/DISCOVER_DATASOURCES-1.xml", kTessera, {mondrian}},
      {"mondrian/DISCOVER_DATASOURCES-1.xml", kAnalysisServices2005, {mondrian}},
      {"virtuoso-doc/DISCOVER_DATASOURCES-1.xml", kTessera, {"DSN=__local"}},
      {"virtuoso-doc/DISCOVER_DATASOURCES-1.xml", kAnalysisServices2005, {"Local Server"}},
  };
  ExpectNames(cases, [](AgentProbe& agent) {
    VXStringVector names;
    agent.GetDataSourceInfo(names);
    return Narrowed(names);
  });
}

TEST_F(RecordedReplies, OfCatalogsGiveTheirNames) {
  const ListCase cases[] = {
      {"ssas/DBSCHEMA_CATALOGS-1.xml",
       kAnalysisServices2012,
       {"Adventure Works Internet Sales Model"}},
      {"mondrian/DBSCHEMA_CATALOGS-1.xml", kTessera, {"FoodMart"}},
      {"mondrian-9/DBSCHEMA_CATALOGS-1.xml", kAnalysisServices2005, {"FoodMart"}},
      {"mondrian/DBSCHEMA_SCHEMATA-1.xml", kTessera, {"FoodMart"}},
  };
  ExpectNames(cases, [](AgentProbe& agent) {
    VXStringVector names;
    agent.GetCatalogs(names, L"d");
    return Narrowed(names);
  });
}

TEST_F(RecordedReplies, OfCubesGiveTheirNamesInOrder) {
  const Texts mondrian = {
      "HR", "Sales", "Sales 2", "Sales Ragged", "Store", "Warehouse", "Warehouse and Sales"};
  const ListCase cases[] = {
      {"ssas/MDSCHEMA_CUBES-1.xml",
       kAnalysisServices2012,
       {"Adventure Works", "Channel Sales", "Direct Sales", "Finance", "Sales Summary",
        "Sales Targets"}},
      {"mondrian/MDSCHEMA_CUBES-1.xml", kTessera, mondrian},
      {"mondrian-9/MDSCHEMA_CUBES-1.xml", kTessera, mondrian},
      {"mondrian/MDSCHEMA_CUBES-2.xml", kAnalysisServices2005, {"Warehouse and Sales"}},
      {"mondrian-9/MDSCHEMA_CUBES-2.xml", kAnalysisServices2005, {"Sales"}},
      {"sap-bw/MDSCHEMA_CUBES-1.row.xml", kSAP_BW35, {"$/CPMB/AJIN09O"}},
      {"spec-xmla11/MDSCHEMA_CUBES-1.xml", kTessera, {"Sales", "Warehouse"}},
  };
  ExpectNames(cases, [](AgentProbe& agent) {
    std::vector<OTCube> cubes;
    agent.GetCubesOnCatalog(cubes, L"c", L"d");
    Texts names;
    for (const OTCube& cube : cubes) names.push_back(Narrow(cube.first));
    return names;
  });
}

TEST_F(RecordedReplies, OfACubeWithItsContentsGiveEveryCubeNameInside) {
  // The server was asked for all properties of the cube, and nests them in the cube's row.
  EXPECT_EQ(Read(Body("mondrian-9/MDSCHEMA_CUBES-3.xml"), kTessera,
                 [](AgentProbe& agent) {
                   std::vector<OTCube> cubes;
                   agent.GetCubesOnCatalog(cubes, L"c", L"d");
                   return cubes.size();
                 }),
            42u);
}

struct IdentityCase {
  const char* file;
  const char* name;
  const char* version;
};

TEST_F(RecordedReplies, OfPropertiesGiveNameAndVersion) {
  const IdentityCase cases[] = {
      {"mondrian/DISCOVER_PROPERTIES-1.xml", "Mondrian XML for Analysis Provider", "3.2-SNAPSHOT"},
      {"daanse/DISCOVER_PROPERTIES-1.xml", "Mondrian XML for Analysis Provider", "10.50.1600.1"},
      {"ssas-doc/DISCOVER_PROPERTIES-1.xml", "", ""},  // it lists another property
  };
  for (const IdentityCase& c : cases) {
    const std::string body = Body(c.file);
    ScriptedServer server({{body}, {body}});
    AgentProbe agent(server.Url());
    std::pair<String, String> info;
    agent.GetProviderInfomation(info);
    EXPECT_EQ(Narrow(info.first), c.name) << c.file;
    EXPECT_EQ(Narrow(info.second), c.version) << c.file;
  }
}

TEST_F(RecordedReplies, OfDataSourcesGiveTheNameByTamarindRules) {
  for (const auto& [file, name] :
       {std::pair{"ssas/DISCOVER_DATASOURCES-1.xml", "Microsoft Analysis Services"},
        {"sap-bw/DISCOVER_DATASOURCES-1.xml", "SAP BW"},
        {"mondrian/DISCOVER_DATASOURCES-1.xml", "Mondrian"},
        {"virtuoso-doc/DISCOVER_DATASOURCES-1.xml", "Virtuoso XML for Analysis"}}) {
    EXPECT_EQ(Read(Body(file), ServerInfo::kTamarind7,
                   [](AgentProbe& agent) {
                     String text;
                     agent.GetProviderName(text);
                     return Narrow(text);
                   }),
              name);
  }
}

// Objects inside cubes.

Texts Dimensions(const std::string& body, ServerInfo::TargetType target) {
  return Read(body, target, [](AgentProbe& agent) {
    std::vector<RefCnt<XmlADimension>> rows;
    agent.GetDimensionsOnCatalogCube(rows, L"c", L"q", L"d");
    Texts texts;
    for (const auto& row : rows)
      texts.push_back(Narrow(row->GetDimensionUniqueName()) + " " +
                      std::to_string(row->GetDimensionType()) + " " +
                      Narrow(row->GetDefaultHierarchyUniqueName()));
    return texts;
  });
}

TEST_F(RecordedReplies, OfDimensions) {
  EXPECT_EQ(Dimensions(Body("mondrian/MDSCHEMA_DIMENSIONS-1.xml"), kTessera),
            (Texts{"[Department] 3 [Department]", "[Employees] 3 [Employees]",
                   "[Measures] 2 [Measures]", "[Pay Type] 3 [Pay Type]", "[Position] 3 [Position]",
                   "[Store] 3 [Store]", "[Store Type] 3 [Store Type]", "[Time] 1 [Time]"}));
  const Texts rows = Dimensions(Body("ssas/MDSCHEMA_DIMENSIONS-1.xml"), kAnalysisServices2012);
  ASSERT_EQ(rows.size(), 17u);
  EXPECT_EQ(rows[0], "[Customer] 7 [Customer].[Customer Geography]");
  EXPECT_EQ(rows[1], "[Date] 1 [Date].[Fiscal]");
  EXPECT_EQ(rows[16], "[Source Currency] 11 [Source Currency].[Source Currency]");
}

TEST_F(RecordedReplies, OfHierarchies) {
  const std::pair<const char*, const char*> cases[] = {
      {"mondrian/MDSCHEMA_HIERARCHIES-1.xml", "[Time]|Time|[Time].[1997]||1|1|0"},
      {"mondrian/MDSCHEMA_HIERARCHIES-2.xml",
       "[Store Size in SQFT]|Store Size in SQFT|[Store Size in SQFT].[All Store Size in SQFTs]|"
       "[Store Size in SQFT].[All Store Size in SQFTs]|1|3|0"},
      {"ssas/MDSCHEMA_HIERARCHIES-1.xml",
       "[Customer].[Address Line 1]|Address Line 1|[Customer].[Address Line 1].[All]|"
       "[Customer].[Address Line 1].[All]|1|3|0"},
  };
  for (const auto& [file, expected] : cases) {
    const std::string text = Read(Body(file), kTessera, [](AgentProbe& agent) {
      std::vector<RefCnt<XmlAHierarchy>> rows;
      agent.GetHierarchiesOnCatalogCube(rows, L"c", L"q", L"d");
      const auto& row = rows.at(0);
      EXPECT_EQ(rows.size(), 1u);
      return Narrow(row->GetUniqueName() + L"|" + row->GetCaption() + L"|" +
                    row->GetDefaultMember() + L"|" + row->GetAllMember() + L"|") +
             std::to_string(row->GetHierarchyType()) + "|" +
             std::to_string(row->GetDimensionType()) + "|" + std::to_string(row->Virtual());
    });
    EXPECT_EQ(text, expected) << file;
  }
}

TEST_F(RecordedReplies, OfLevels) {
  const ListCase cases[] = {
      {"mondrian/MDSCHEMA_LEVELS-1.xml",
       kTessera,
       {"0 (All) [Time.Weekly].[(All)]", "1 Year [Time.Weekly].[Year]",
        "2 Week [Time.Weekly].[Week]", "3 Day [Time.Weekly].[Day]"}},
      {"mondrian/MDSCHEMA_LEVELS-2.xml",
       kTessera,
       {"0 (All) [Product].[(All)]", "1 Product Family [Product].[Product Family]",
        "2 Product Department [Product].[Product Department]",
        "3 Product Category [Product].[Product Category]",
        "4 Product Subcategory [Product].[Product Subcategory]",
        "5 Brand Name [Product].[Brand Name]", "6 Product Name [Product].[Product Name]"}},
      {"ssas/MDSCHEMA_LEVELS-1.xml",
       kAnalysisServices2012,
       {"0 (All) [Customer].[Address Line 1].[(All)]"}},
  };
  for (const ListCase& c : cases) {
    // The import then asks for the levels' properties; there are none.
    const std::string body = Body(c.file);
    ScriptedServer server([&](const support::Request& request) {
      return Reply{support::RequestType(request.body) == "MDSCHEMA_LEVELS"
                       ? body
                       : support::RowsetReply("")};
    });
    AgentProbe agent(server.Url(), c.target);
    std::vector<RefCnt<XmlALevel>> rows;
    agent.GetLevelsOnCatalogCubeHierarchy(
        rows, L"c", L"q", RefCnt<XmlAHierarchy>(new XmlAHierarchy(kTessera, ServerInfo::kCLIXMLA)),
        L"d");
    Texts texts;
    for (const auto& row : rows)
      texts.push_back(std::to_string(row->GetLevelNumber()) + " " + Narrow(row->GetLevelName()) +
                      " " + Narrow(row->GetUniqueName()));
    EXPECT_EQ(texts, c.expected) << c.file;
  }
}

Texts Measures(const std::string& body, ServerInfo::TargetType target) {
  return Read(body, target, [](AgentProbe& agent) {
    std::vector<RefCnt<XmlAMeasure>> rows;
    agent.GetMeasuresOnCatalogCube(rows, L"c", L"q", L"d");
    Texts texts;
    for (const auto& row : rows)
      texts.push_back(Narrow(row->GetName()) + " " + std::to_string(row->GetAggrType()) + " " +
                      Narrow(row->GetType() + L" " + row->GetPrecision() + L" " + row->GetScale()));
    return texts;
  });
}

TEST_F(RecordedReplies, OfMeasures) {
  EXPECT_EQ(Measures(Body("mondrian/MDSCHEMA_MEASURES-1.xml"), kTessera),
            (Texts{"Avg Salary 127 130  ", "Count 2 3  ", "Employee Salary 127 130  ",
                   "Number of Employees 0 3  ", "Org Salary 1 5  "}));
  EXPECT_EQ(Measures(Body("mondrian-other/MDSCHEMA_MEASURES-1.xml"), kTessera),
            (Texts{"Avg Salary 127 130  ", "Count 2 3  ", "Employee Salary 127 130  ",
                   "Number of Employees 0 3  ", "Org Salary 1 5  "}));
  const Texts rows = Measures(Body("ssas/MDSCHEMA_MEASURES-1.xml"), kAnalysisServices2012);
  ASSERT_EQ(rows.size(), 10u);
  EXPECT_EQ(rows[0], "Internet Sales Amount 1 6 19 4");
  EXPECT_EQ(rows[1], "Internet Order Quantity 1 3 10 -1");
  EXPECT_EQ(rows[8], "Customer Count 8 3 10 -1");
  const Texts second = Measures(Body("mondrian/MDSCHEMA_MEASURES-2.xml"), kSAP_BW35);
  ASSERT_EQ(second.size(), 8u);
  EXPECT_EQ(second[0], "Customer Count 0 3  ");  // from [Measures].[Customer Count]
}

TEST_F(RecordedReplies, OfMembersAndProperties) {
  for (const auto& [file, type] : {std::pair{"mondrian/MDSCHEMA_MEMBERS-1.xml", 2},
                                   {"mondrian/MDSCHEMA_MEMBERS-2.xml", 4},
                                   {"mondrian-9/MDSCHEMA_MEMBERS-1.xml", 1}}) {
    EXPECT_EQ(Read(Body(file), kTessera,
                   [](AgentProbe& agent) {
                     const RefCnt<XmlAMember> member(new XmlAMember);
                     agent.GetMemberOnCatalogCubeHierarchy(member, L"c", L"q", L"h", L"d");
                     return member->GetMemberType();
                   }),
              type)
        << file;
  }
  const RefCnt<XmlALevel> level(new XmlALevel(kTessera, ServerInfo::kCLIXMLA));
  AgentProbe agent(kNobody);
  agent.StartSaxParser(support::Wide(Body("mondrian/MDSCHEMA_PROPERTIES-2.xml")));
  std::vector<RefCnt<XmlALevelProperty>> properties;
  agent.ReadLevelProperties(properties);
  for (const RefCnt<XmlALevelProperty>& property : properties) level->AppendLevelProperty(property);
  ASSERT_EQ(level->GetNumOfProperties(), 8u);
  EXPECT_EQ(level->GetLevelPropertyName(2), String(L"Store Sqft"));
  EXPECT_EQ(level->GetLevelPropertyDataType(2), String(L"5"));
  EXPECT_EQ(level->GetLevelPropertyCaption(6), String(L"Has coffee bar"));
  EXPECT_EQ(level->GetLevelPropertyDataType(6), String(L"11"));
}

TEST_F(RecordedReplies, OfSapVariables) {
  Read(Body("sap-bw/SAP_VARIABLES-1.row.xml"), kSAP_BW35, [](AgentProbe& agent) {
    std::vector<RefCnt<XmlACubeVariable>> rows;
    agent.GetVariablesOnCatalogCube(rows, L"q", L"c", L"d");
    EXPECT_EQ(rows.size(), 1u);
    const auto& row = rows.at(0);
    EXPECT_EQ(row->m_Name, String(L"[!V000002]"));
    EXPECT_EQ(row->m_Caption, String(L"日历日-区间"));
    EXPECT_EQ(row->m_type, XmlACubeVariable::SAP_VAR_TYPE_MEMBER);
    EXPECT_EQ(row->m_selectionType, XmlACubeVariable::SAP_VAR_SEL_TYPE_INTERVAL);
    EXPECT_EQ(row->m_entryType, XmlACubeVariable::SAP_VAR_INPUT_TYPE_OPTIONAL);
    EXPECT_EQ(row->m_referenceDimension, String(L"[0DOC_DATE]"));
    EXPECT_EQ(row->m_referenceHierarchy, String(L"[0DOC_DATE]"));
    EXPECT_EQ(row->m_defaultLow, String());
    return 0;
  });
}

}  // namespace
