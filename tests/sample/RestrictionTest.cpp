#include <gmock/gmock.h>

#include "SampleClient.h"

namespace sample_test {
namespace {

using sample::Kind;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class Restriction : public testing::Test {
 protected:
  static void SetUpTestSuite() { m_provider = new sample::Provider; }
  static void TearDownTestSuite() {
    delete m_provider;
    m_provider = nullptr;
  }
  static std::string Url(Kind kind) { return m_provider->Url(kind); }

  static sample::Provider* m_provider;
};
sample::Provider* Restriction::m_provider = nullptr;

const Pairs kSales = {{"CATALOG_NAME", "Larkspur Retail"}, {"CUBE_NAME", "Sales"}};

Pairs With(Pairs pairs, const Pairs& more) {
  pairs.insert(pairs.end(), more.begin(), more.end());
  return pairs;
}

TEST_F(Restriction, CatalogsAreThoseOfTheDataSource) {
  EXPECT_THAT(ColumnOf(Rows(Url(Kind::kAnalysisServices), "DBSCHEMA_CATALOGS", {},
                            {{"DataSourceInfo", "NORTHQUAY"}}),
                       "CATALOG_NAME"),
              ElementsAre("Larkspur Retail", "Larkspur Finance", "Larkspur Staging"));
  const std::string tamarind = Url(Kind::kTamarind);
  const auto catalogs = [&](const std::string& server) {
    return ColumnOf(Rows(tamarind, "DBSCHEMA_CATALOGS", {},
                         {{"DataSourceInfo", "Provider=Kelvora;Data Source=" + server}}),
                    "CATALOG_NAME");
  };
  EXPECT_THAT(catalogs("localhost"), ElementsAre("Ferries", "Crews", "Workshop"));
  EXPECT_THAT(catalogs("archive"), ElementsAre("Steamers"));
  EXPECT_THAT(catalogs("rehearsal"), IsEmpty());
}

TEST_F(Restriction, CubesAreThoseOfTheCatalog) {
  const auto cubes = [](const std::string& url, const std::string& catalog) {
    return ColumnOf(Rows(url, "MDSCHEMA_CUBES", {{"CATALOG_NAME", catalog}}), "CUBE_NAME");
  };
  EXPECT_THAT(cubes(Url(Kind::kAnalysisServices), "Larkspur Retail"),
              ElementsAre("Sales", "Stock", "R&D <Größe> \"5'9\" [Maß] 売上"));
  EXPECT_THAT(cubes(Url(Kind::kAnalysisServices), "Larkspur Staging"), IsEmpty());
  EXPECT_THAT(cubes(Url(Kind::kSapBw), "$INFOCUBE"), ElementsAre("$ZVMILK", "$/VEST/COSTS"));
  EXPECT_THAT(cubes(Url(Kind::kSapBw), "ZVSALES"),
              ElementsAre("ZVSALES/ZVSALES_Q001", "ZVSALES/ZVSALES_Q002"));
  EXPECT_THAT(cubes(Url(Kind::kTamarind), "Ferries"), ElementsAre("Traffic", "Budget"));
}

TEST_F(Restriction, EachRestrictionFiltersTheRows) {
  struct Case {
    std::string type;
    Pairs restrictions;
    std::string column;
    std::vector<std::string> expected;
  };
  const Pairs range = With(kSales, {{"HIERARCHY_UNIQUE_NAME", "[Product].[Range]"}});
  const Pairs article = With(range, {{"DIMENSION_UNIQUE_NAME", "[Product]"},
                                     {"LEVEL_UNIQUE_NAME", "[Product].[Range].[Product]"}});
  const Case cases[] = {
      {"MDSCHEMA_DIMENSIONS",
       With(kSales, {{"DIMENSION_UNIQUE_NAME", "[Store]"}}),
       "DIMENSION_NAME",
       {"Store"}},
      {"MDSCHEMA_HIERARCHIES",
       With(kSales, {{"DIMENSION_UNIQUE_NAME", "[Customer]"}}),
       "HIERARCHY_NAME",
       {"Address", "Club Card"}},
      {"MDSCHEMA_LEVELS", range, "LEVEL_NAME", {"(All)", "Category", "Subcategory", "Product"}},
      {"MDSCHEMA_LEVELS",
       With(range, {{"LEVEL_UNIQUE_NAME", "[Product].[Range].[Category]"}}),
       "LEVEL_NUMBER",
       {"1"}},
      {"MDSCHEMA_PROPERTIES",
       With(kSales, {{"LEVEL_UNIQUE_NAME", "[Date].[Calendar].[Month]"}}),
       "PROPERTY_NAME",
       {"First Day", "Trading Days"}},
      {"MDSCHEMA_PROPERTIES", With(article, {{"DIMENSION_UNIQUE_NAME", "[Store]"}}),
       "DIMENSION_UNIQUE_NAME", std::vector<std::string>(19, "[Product]")},
      {"MDSCHEMA_MEMBERS",
       With(range, {{"MEMBER_UNIQUE_NAME", "[Product].[Range].[All Products]"}}),
       "MEMBER_TYPE",
       {"2"}},
      {"MDSCHEMA_MEMBERS",
       With(range, {{"MEMBER_UNIQUE_NAME", "[Product].[Range].[None]"}}),
       "MEMBER_TYPE",
       {}},
      {"MDSCHEMA_LEVELS", With(kSales, {{"HIERARCHY_UNIQUE_NAME", "[No such]"}}), "LEVEL_NAME", {}},
      {"DISCOVER_PROPERTIES", {{"PropertyName", "ProviderVersion"}}, "Value", {"9.00.5000.00"}},
      {"DISCOVER_PROPERTIES", {{"PropertyName", "No such"}}, "Value", {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.type + " " + Envelope(c.type, c.restrictions));
    EXPECT_EQ(ColumnOf(Rows(Url(Kind::kAnalysisServices), c.type, c.restrictions), c.column),
              c.expected);
  }
}

TEST_F(Restriction, RowsOfOtherCubesAreAbsent) {
  for (const Kind kind : kKinds) {
    for (const RowTexts& cube : Rows(Url(kind), "MDSCHEMA_CUBES")) {
      const Pairs one = {{"CATALOG_NAME", cube.at("CATALOG_NAME")},
                         {"CUBE_NAME", cube.at("CUBE_NAME")}};
      for (const char* type : {"MDSCHEMA_DIMENSIONS", "MDSCHEMA_HIERARCHIES", "MDSCHEMA_LEVELS",
                               "MDSCHEMA_PROPERTIES", "MDSCHEMA_MEASURES", "MDSCHEMA_MEMBERS"}) {
        const std::vector<RowTexts> rows = Rows(Url(kind), type, one);
        EXPECT_THAT(ColumnOf(rows, "CUBE_NAME"), Each(cube.at("CUBE_NAME")));
        EXPECT_THAT(ColumnOf(rows, "CATALOG_NAME"), Each(cube.at("CATALOG_NAME")));
      }
    }
  }
}

TEST_F(Restriction, WithoutCubeGivesTheWholeCatalog) {
  const std::vector<std::string> whole = ColumnOf(
      Rows(Url(Kind::kSapBw), "SAP_VARIABLES", {{"CATALOG_NAME", "ZVSALES"}}), "VARIABLE_NAME");
  EXPECT_EQ(whole.size(), 8U);
  const Pairs emptyCube = {{"CATALOG_NAME", "ZVSALES"}, {"CUBE_NAME", ""}};
  EXPECT_EQ(Rows(Url(Kind::kSapBw), "SAP_VARIABLES", emptyCube).size(), 8U);
  EXPECT_EQ(Rows(Url(Kind::kSapBw), "SAP_VARIABLES",
                 {{"CATALOG_NAME", "ZVSALES"}, {"CUBE_NAME", "ZVSALES/ZVSALES_Q002"}})
                .size(),
            1U);
}

TEST_F(Restriction, CatalogPropertySelectsTheCatalog) {
  EXPECT_THAT(ColumnOf(Rows(Url(Kind::kAnalysisServices), "MDSCHEMA_CUBES", {},
                            {{"Catalog", "Larkspur Finance"}}),
                       "CUBE_NAME"),
              ElementsAre("Ledger", "Ledger Summary"));
}

TEST_F(Restriction, UnknownObjectsAreFaults) {
  struct Case {
    const char* what;
    std::string type;
    Pairs restrictions;
    Pairs properties;
  };
  const Case cases[] = {
      {"request type", "MDSCHEMA_NOTHING", {}, {}},
      {"catalog", "MDSCHEMA_CUBES", {{"CATALOG_NAME", "Nowhere"}}, {}},
      {"catalog property", "DBSCHEMA_CATALOGS", {}, {{"Catalog", "Nowhere"}}},
      {"cube", "MDSCHEMA_MEASURES", {{"CUBE_NAME", "Nowhere"}}, {}},
      {"data source", "DBSCHEMA_CATALOGS", {}, {{"DataSourceInfo", "Nowhere"}}},
  };
  for (const Kind kind : kKinds) {
    for (const Case& c : cases) {
      SCOPED_TRACE(std::string(NameOfKind(kind)) + ", " + c.what);
      const Reply reply = Discover(Url(kind), c.type, c.restrictions, c.properties);
      EXPECT_EQ(reply.status, kind == Kind::kAnalysisServices ? 500 : 200);
      const Document document = Parse(reply.body);
      EXPECT_TRUE(document.wellFormed) << document.reason;
      EXPECT_NE(document.faultCode, "");
      EXPECT_THAT(document.faultText,
                  HasSubstr(c.type == "MDSCHEMA_NOTHING" ? "MDSCHEMA_NOTHING" : "Nowhere"));
      EXPECT_THAT(document.rows, IsEmpty());
    }
  }
}

TEST_F(Restriction, CubeOfAnotherCatalogIsAFault) {
  const Reply reply = Discover(Url(Kind::kAnalysisServices), "MDSCHEMA_MEASURES",
                               {{"CATALOG_NAME", "Larkspur Finance"}, {"CUBE_NAME", "Sales"}});
  EXPECT_EQ(reply.status, 500);
}

TEST_F(Restriction, OnlySapBwHasVariables) {
  EXPECT_EQ(Discover(Url(Kind::kAnalysisServices), "SAP_VARIABLES").status, 500);
  EXPECT_THAT(Parse(Discover(Url(Kind::kTamarind), "SAP_VARIABLES").body).faultText,
              HasSubstr("SAP_VARIABLES"));
}

TEST_F(Restriction, OtherCallsThanDiscoverAreFaults) {
  struct Case {
    std::string body;
    const char* text;
  };
  const Case cases[] = {
      {"", "well-formed"},
      {"hello", "well-formed"},
      {"<a/>", "not a Discover call"},
      {"<E:Envelope xmlns:E='e'><E:Body/></E:Envelope>", "not a Discover call"},
      {"<E:Envelope xmlns:E='e'><E:Body><Execute/></E:Body></E:Envelope>", "not a Discover call"},
      {"<E:Envelope xmlns:E='e'><E:Body><Discover/></E:Body></E:Envelope>", "RequestType"},
      {"<!DOCTYPE a [<!ENTITY e 'x'>]><E:Envelope xmlns:E='e'><E:Body><Discover><RequestType>"
       "DISCOVER_DATASOURCES</RequestType></Discover></E:Body></E:Envelope>",
       "document type"},
  };
  for (const Kind kind : kKinds) {
    for (const Case& c : cases) {
      const Document document = Parse(Post(Url(kind), c.body).body);
      EXPECT_TRUE(document.wellFormed) << c.body;
      EXPECT_NE(document.faultCode, "") << c.body;
      EXPECT_THAT(document.faultText, HasSubstr(c.text)) << c.body;
    }
  }
}

TEST_F(Restriction, BrokenHierarchyFaultsOnlyForItsMembers) {
  const Pairs card = With(kSales, {{"HIERARCHY_UNIQUE_NAME", "[Customer].[Club Card]"}});
  const Reply reply = Discover(Url(Kind::kAnalysisServices), "MDSCHEMA_MEMBERS", card);
  EXPECT_THAT(Parse(reply.body).faultText, HasSubstr("attribute key cannot be found"));
  EXPECT_THAT(Rows(Url(Kind::kAnalysisServices), "MDSCHEMA_LEVELS", card), Not(IsEmpty()));
  EXPECT_THAT(Rows(Url(Kind::kAnalysisServices), "MDSCHEMA_MEMBERS",
                   With(kSales, {{"HIERARCHY_UNIQUE_NAME", "[Customer].[Address]"}})),
              Not(IsEmpty()));
}

}  // namespace
}  // namespace sample_test
