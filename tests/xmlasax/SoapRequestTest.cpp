// Tests the bytes of requests.

#include <gmock/gmock.h>

#include "DiscoverText.h"
#include "Utility/Generic/HostConstants.h"
#include "Utility/XMLASAX/XmlASaxDefs.h"
#include "Utility/XMLASAX/XmlASoapRequest.h"
#include "support/Text.h"

namespace {

struct RequestCase {
  std::string name;
  std::function<void(XmlASoapRequest&)> fill;
  std::string type;
  std::string rest;  // what follows the request type's line
};

void PrintTo(const RequestCase& c, std::ostream* out) { *out << c.name; }

using R = XmlASoapRequest;

const RequestCase kCases[] = {
    {"nothing at all", [](R&) {}, "", "<Restrictions></Restrictions><Properties></Properties>"},
    {"request type alone", [](R& r) { r.SetRequestType(L"DISCOVER_DATASOURCES"); },
     "DISCOVER_DATASOURCES", "<Restrictions></Restrictions><Properties></Properties>"},
    {"one catalog with data source",
     [](R& r) {
       r.SetRequestType(L"MDSCHEMA_CUBES");
       r.SetDataSourceInfo(L"D");
       r.PushCatalogRestriction(L"C");
     },
     "MDSCHEMA_CUBES",
     "<Restrictions><RestrictionList><CATALOG_NAME>C</CATALOG_NAME></RestrictionList>"
     "</Restrictions><Properties><PropertyList><DataSourceInfo>D</DataSourceInfo>"
     "<Catalog>C</Catalog></PropertyList></Properties>"},
    {"catalog without data source writes no property", [](R& r) { r.PushCatalogRestriction(L"C"); },
     "",
     "<Restrictions><RestrictionList><CATALOG_NAME>C</CATALOG_NAME></RestrictionList>"
     "</Restrictions><Properties></Properties>"},
    {"data source without catalog", [](R& r) { r.SetDataSourceInfo(L"D"); }, "",
     "<Restrictions></Restrictions><Properties><PropertyList><DataSourceInfo>D</DataSourceInfo>"
     "</PropertyList></Properties>"},
    {"empty data source writes no property", [](R& r) { r.SetDataSourceInfo(L""); }, "",
     "<Restrictions></Restrictions><Properties></Properties>"},
    {"two catalogs, only the first is the property",
     [](R& r) {
       r.SetDataSourceInfo(L"D");
       r.PushCatalogRestriction(L"C1");
       r.PushCatalogRestriction(L"C2");
     },
     "",
     "<Restrictions><RestrictionList><CATALOG_NAME>C1</CATALOG_NAME><CATALOG_NAME>C2</CATALOG_NAME>"
     "</RestrictionList></Restrictions><Properties><PropertyList><DataSourceInfo>D</DataSourceInfo>"
     "<Catalog>C1</Catalog></PropertyList></Properties>"},
    {"every restriction, given in the opposite order",
     [](R& r) {
       r.PushPropertyRestriction(L"p1");
       r.PushPropertyRestriction(L"p2");
       r.PushMemberRestriction(L"m");
       r.PushLevelRestriction(L"l");
       r.PushHierarchyRestriction(L"h1");
       r.PushHierarchyRestriction(L"h2");
       r.PushDimensionRestriction(L"d1");
       r.PushDimensionRestriction(L"d2");
       r.PushCubeRestriction(L"q1");
       r.PushCubeRestriction(L"q2");
       r.PushCatalogRestriction(L"c1");
       r.PushCatalogRestriction(L"c2");
     },
     "",
     "<Restrictions><RestrictionList><CATALOG_NAME>c1</CATALOG_NAME><CATALOG_NAME>c2</CATALOG_NAME>"
     "<CUBE_NAME>q1</CUBE_NAME><CUBE_NAME>q2</CUBE_NAME>"
     "<DIMENSION_UNIQUE_NAME>d1</DIMENSION_UNIQUE_NAME>"
     "<DIMENSION_UNIQUE_NAME>d2</DIMENSION_UNIQUE_NAME>"
     "<HIERARCHY_UNIQUE_NAME>h1</HIERARCHY_UNIQUE_NAME>"
     "<HIERARCHY_UNIQUE_NAME>h2</HIERARCHY_UNIQUE_NAME>"
     "<LEVEL_UNIQUE_NAME>l</LEVEL_UNIQUE_NAME><MEMBER_UNIQUE_NAME>m</MEMBER_UNIQUE_NAME>"
     "<PropertyName>p1</PropertyName><PropertyName>p2</PropertyName>"
     "</RestrictionList></Restrictions><Properties></Properties>"},
    {"empty list restrictions make elements",
     [](R& r) {
       r.PushCatalogRestriction(L"");
       r.PushCubeRestriction(L"");
       r.PushDimensionRestriction(L"");
       r.PushHierarchyRestriction(L"");
       r.PushPropertyRestriction(L"");
     },
     "",
     "<Restrictions><RestrictionList><CATALOG_NAME></CATALOG_NAME><CUBE_NAME></CUBE_NAME>"
     "<DIMENSION_UNIQUE_NAME></DIMENSION_UNIQUE_NAME><HIERARCHY_UNIQUE_NAME></"
     "HIERARCHY_UNIQUE_NAME>"
     "<PropertyName></PropertyName></RestrictionList></Restrictions><Properties></Properties>"},
    {"empty level and member make nothing",
     [](R& r) {
       r.PushLevelRestriction(L"");
       r.PushMemberRestriction(L"");
     },
     "", "<Restrictions></Restrictions><Properties></Properties>"},
    {"a second level or member replaces the first",
     [](R& r) {
       r.PushLevelRestriction(L"l1");
       r.PushLevelRestriction(L"l2");
       r.PushMemberRestriction(L"m1");
       r.PushMemberRestriction(L"m2");
     },
     "",
     "<Restrictions><RestrictionList><LEVEL_UNIQUE_NAME>l2</LEVEL_UNIQUE_NAME>"
     "<MEMBER_UNIQUE_NAME>m2</MEMBER_UNIQUE_NAME></RestrictionList></Restrictions>"
     "<Properties></Properties>"},
    {"a member alone is a restriction", [](R& r) { r.PushMemberRestriction(L"m"); }, "",
     "<Restrictions><RestrictionList><MEMBER_UNIQUE_NAME>m</MEMBER_UNIQUE_NAME></RestrictionList>"
     "</Restrictions><Properties></Properties>"},
    {"values are escaped once, the request type never",
     [](R& r) {
       r.SetRequestType(L"A&B<C");
       r.SetDataSourceInfo(L"d&<>\"'");
       r.PushCatalogRestriction(L"&amp;");
       r.PushLevelRestriction(L"<");
       r.PushMemberRestriction(L"&");
     },
     "A&B<C",
     "<Restrictions><RestrictionList><CATALOG_NAME>&amp;amp;</CATALOG_NAME>"
     "<LEVEL_UNIQUE_NAME>&lt;</LEVEL_UNIQUE_NAME><MEMBER_UNIQUE_NAME>&amp;</MEMBER_UNIQUE_NAME>"
     "</RestrictionList></Restrictions><Properties><PropertyList>"
     "<DataSourceInfo>d&amp;&lt;&gt;&quot;&apos;</DataSourceInfo><Catalog>&amp;amp;</Catalog>"
     "</PropertyList></Properties>"},
};

class SoapRequest : public testing::TestWithParam<RequestCase> {};

TEST_P(SoapRequest, HasExactlyTheseBytes) {
  XmlASoapRequest request;
  GetParam().fill(request);
  EXPECT_EQ(support::Narrow(request.GetContent()), Discover(GetParam().type, GetParam().rest));
}

INSTANTIATE_TEST_SUITE_P(Cases, SoapRequest, testing::ValuesIn(kCases));

TEST(SoapRequestBuilder, EachListRestrictionCountsEvenIfEmpty) {
  using Push = void (XmlASoapRequest::*)(const String&);
  for (const Push push :
       {&R::PushCatalogRestriction, &R::PushCubeRestriction, &R::PushDimensionRestriction,
        &R::PushHierarchyRestriction, &R::PushPropertyRestriction}) {
    XmlASoapRequest request;
    EXPECT_FALSE(request.HasRestriction());
    (request.*push)(L"");
    EXPECT_TRUE(request.HasRestriction());
  }
}

TEST(SoapRequestBuilder, EveryRestrictionIsEscapedOnce) {
  using Push = void (XmlASoapRequest::*)(const String&);
  for (const Push push :
       {&R::PushCatalogRestriction, &R::PushCubeRestriction, &R::PushDimensionRestriction,
        &R::PushHierarchyRestriction, &R::PushPropertyRestriction, &R::PushLevelRestriction,
        &R::PushMemberRestriction}) {
    XmlASoapRequest request;
    (request.*push)(L"R&D <x> &lt;");
    EXPECT_THAT(support::Narrow(request.GetContent()),
                testing::HasSubstr(">R&amp;D &lt;x&gt; &amp;lt;</"));
  }
}

TEST(SoapRequestBuilder, LevelAndMemberCountOnlyIfNotEmpty) {
  XmlASoapRequest request;
  request.PushLevelRestriction(L"");
  request.PushMemberRestriction(L"");
  EXPECT_FALSE(request.HasRestriction());
  request.PushLevelRestriction(L"l");
  EXPECT_TRUE(request.HasRestriction());
  request.ClearRestrictions();
  request.PushMemberRestriction(L"m");
  EXPECT_TRUE(request.HasRestriction());
}

TEST(SoapRequestBuilder, SecondGetContentIsEmpty) {
  XmlASoapRequest request;
  request.SetRequestType(L"MDSCHEMA_CUBES");
  request.SetDataSourceInfo(L"D");
  request.PushCatalogRestriction(L"C");
  request.PushLevelRestriction(L"L");
  request.GetContent();
  EXPECT_FALSE(request.HasRestriction());
  EXPECT_EQ(request.GetContent(), XmlASoapRequest().GetContent());
}

TEST(SoapRequestBuilder, ClearRestrictionsEmptiesTypeAndDataSourceToo) {
  XmlASoapRequest request;
  request.SetRequestType(L"T");
  request.SetDataSourceInfo(L"D");
  request.PushMemberRestriction(L"M");
  request.ClearRestrictions();
  EXPECT_EQ(request.GetContent(), XmlASoapRequest().GetContent());
}

TEST(SoapRequestBuilder, CatalogElementIsTheHostsConstant) {
  EXPECT_EQ(String(XmlASaxDefsNameSpace::CatalogName), String(S_CATALOG_NAME));
  EXPECT_EQ(String(XmlASaxDefsNameSpace::CatalogName), String(L"CATALOG_NAME"));
}

}  // namespace
