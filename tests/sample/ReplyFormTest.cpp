#include <gmock/gmock.h>

#include "SampleClient.h"

namespace sample_test {
namespace {

using sample::Kind;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr const char* kTypes[] = {
    "DISCOVER_DATASOURCES", "DISCOVER_PROPERTIES",  "DBSCHEMA_CATALOGS", "MDSCHEMA_CUBES",
    "MDSCHEMA_DIMENSIONS",  "MDSCHEMA_HIERARCHIES", "MDSCHEMA_LEVELS",   "MDSCHEMA_PROPERTIES",
    "MDSCHEMA_MEASURES",    "MDSCHEMA_MEMBERS"};

TEST(ReplyForm, RowsetsAreWellFormedAndOrderedByTheirSchema) {
  const sample::Provider provider;
  for (const Kind kind : kKinds) {
    for (const char* type : kTypes) {
      SCOPED_TRACE(std::string(NameOfKind(kind)) + " " + type);
      const Document document = Parse(Discover(provider.Url(kind), type).body);
      EXPECT_TRUE(document.wellFormed) << document.reason;
      ASSERT_THAT(document.rows, Not(IsEmpty()));
      for (const std::vector<std::string>& columns : document.columnOrder) {
        auto at = document.schemaColumns.begin();
        for (const std::string& column : columns) {
          at = std::find(at, document.schemaColumns.end(), column);
          ASSERT_NE(at, document.schemaColumns.end()) << column;
        }
      }
    }
  }
}

TEST(ReplyForm, EachKindHasItsOwnEnvelope) {
  const sample::Provider provider;
  const auto body = [&](Kind kind) {
    return Discover(provider.Url(kind), "DISCOVER_DATASOURCES").body;
  };
  EXPECT_THAT(body(Kind::kAnalysisServices), StartsWith("<soap:Envelope"));
  EXPECT_THAT(body(Kind::kSapBw), StartsWith("<?xml version=\"1.0\"?>\n<SOAP-ENV:Envelope"));
  EXPECT_THAT(body(Kind::kTamarind), StartsWith("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"));
}

TEST(ReplyForm, EachKindHasItsOwnFault) {
  const sample::Provider provider;
  const auto body = [&](Kind kind) { return Discover(provider.Url(kind), "NONE").body; };
  EXPECT_THAT(body(Kind::kAnalysisServices), HasSubstr("<faultcode>XMLAnalysisError.0xc1"));
  EXPECT_THAT(body(Kind::kSapBw), HasSubstr("<faultactor>BW</faultactor>"));
  EXPECT_THAT(body(Kind::kTamarind), HasSubstr("<faultactor>Kelvora</faultactor>"));
}

TEST(ReplyForm, SchemaIsOmittedForDataContent) {
  const sample::Provider provider;
  for (const Kind kind : kKinds) {
    const Document document =
        Parse(Discover(provider.Url(kind), "DISCOVER_PROPERTIES", {}, {{"Content", "Data"}}).body);
    EXPECT_THAT(document.schemaColumns, IsEmpty());
    EXPECT_THAT(document.rows, Not(IsEmpty()));
  }
}

TEST(ReplyForm, EachKindHasItsIdentity) {
  const sample::Provider provider;
  const auto property = [&](Kind kind, const char* name) {
    return ColumnOf(Rows(provider.Url(kind), "DISCOVER_PROPERTIES", {{"PropertyName", name}}),
                    "Value");
  };
  const auto column = [&](Kind kind, const char* name) {
    return ColumnOf(Rows(provider.Url(kind), "DISCOVER_DATASOURCES"), name);
  };
  using Texts = std::vector<std::string>;
  EXPECT_EQ(property(Kind::kAnalysisServices, "ProviderName"),
            Texts{"Microsoft Analysis Services"});
  EXPECT_EQ(property(Kind::kAnalysisServices, "ProviderVersion"), Texts{"9.00.5000.00"});
  EXPECT_EQ(property(Kind::kSapBw, "ProviderName"), Texts{"SAP BW"});
  EXPECT_EQ(property(Kind::kSapBw, "ProviderVersion"), Texts{"7.4"});
  EXPECT_EQ(property(Kind::kTamarind, "ProviderName"), Texts{});
  EXPECT_EQ(property(Kind::kTamarind, "ProviderVersion"), Texts{"11.1.2.3"});
  EXPECT_EQ(column(Kind::kTamarind, "ProviderName"), (Texts{"Kelvora", "Kelvora", "Kelvora"}));
  EXPECT_EQ(column(Kind::kAnalysisServices, "DataSourceName"), Texts{"NORTHQUAY"});
  EXPECT_EQ(column(Kind::kAnalysisServices, "DataSourceInfo"), Texts{""});
  EXPECT_EQ(column(Kind::kAnalysisServices, "ProviderType"), Texts{"MDP|TDP|DMP"});
  EXPECT_EQ(column(Kind::kSapBw, "DataSourceInfo"), Texts{"default"});
}

}  // namespace
}  // namespace sample_test
