// Tests the row objects of dimensions and hierarchies.

#include <gtest/gtest.h>

#include "Import/OTXMLAHierarchy.h"
#include "Utility/XMLASAX/XmlADimension.h"
#include "Utility/XMLASAX/XmlAHierarchy.h"
#include "Utility/XMLASAX/XmlASaxDefs.h"
#include "support/Text.h"

namespace {

XmlAHierarchy Hierarchy(std::initializer_list<std::pair<const wchar_t*, const wchar_t*>> columns) {
  XmlAHierarchy row(ServerInfo::kTessera, ServerInfo::kCLIXMLA);
  for (const auto& [column, value] : columns) row.AppendValueName(column, value);
  return row;
}

TEST(DimensionRow, InitialTypeIsUnknown) {
  const XmlADimension row;
  EXPECT_EQ(row.GetDimensionType(), 0);
  EXPECT_EQ(row.GetDimensionUniqueName(), String());
  EXPECT_EQ(row.GetDefaultHierarchyUniqueName(), String());
}

TEST(DimensionRow, TakesColumnsInAnyCaseAndTheirLastValues) {
  XmlADimension row;
  row.AppendValueName(L"DIMENSION_UNIQUE_NAME", L"[A]");
  row.AppendValueName(L"dimension_unique_name", L"[B]");
  row.AppendValueName(L"DEFAULT_HIERARCHY", L"[A].[X]");
  row.AppendValueName(L"Default_Hierarchy", L"[A].[Y]");
  row.AppendValueName(L"DIMENSION_TYPE", L"1");
  row.AppendValueName(L"Dimension_Type", L"3");
  row.AppendValueName(L"DIMENSION_CAPTION", L"ignored");
  EXPECT_EQ(row.GetDimensionUniqueName(), String(L"[B]"));
  EXPECT_EQ(row.GetDefaultHierarchyUniqueName(), String(L"[A].[Y]"));
  EXPECT_EQ(row.GetDimensionType(), 3);
}

TEST(DimensionRow, TypeIsTheCodeIfItIsKnown) {
  for (int code = -300; code <= 300; ++code) {
    XmlADimension row;
    row.AppendValueName(L"DIMENSION_TYPE", support::Wide(std::to_string(code)));
    const bool known = (code >= 1 && code <= 16) || code == 256;
    EXPECT_EQ(row.GetDimensionType(), known ? code : 0) << code;
  }
}

TEST(DimensionRow, AttributeFlagIsNeverReset) {
  XmlADimension row;
  row.AppendValueName(L"DIMENSION_TYPE", L"1");
  for (const wchar_t* no : {L"false", L"", L"1", L"yes", L"true "}) {
    row.AppendValueName(L"KELVORA_DIMENSION_IS_ATTRIBUTE", no);
    EXPECT_EQ(row.GetDimensionType(), 1) << support::Narrow(no);
  }
  row.AppendValueName(L"KELVORA_DIMENSION_IS_ATTRIBUTE", L"TRUE");
  EXPECT_EQ(row.GetDimensionType(), 256);
  row.AppendValueName(L"KELVORA_DIMENSION_IS_ATTRIBUTE", L"false");
  EXPECT_EQ(row.GetDimensionType(), 256);
}

TEST(DimensionRow, AttributeDimensionNeedsNoType) {
  XmlADimension row;
  row.AppendValueName(L"kelvora_dimension_is_attribute", L"True");
  EXPECT_EQ(row.GetDimensionType(), XmlADimension::SMD_DIMTYPE_ATTRIBUTE);
}

TEST(DimensionRow, TypeCodesAreThoseOfTheRecords) {
  using D = XmlADimension;
  using H = OTXMLAHierarchy;
  EXPECT_EQ(int{D::SMD_DIMTYPE_TIME}, int{H::kDimensionTypeTime});
  EXPECT_EQ(int{D::SMD_DIMTYPE_MEASURE}, int{H::kDimensionTypeMeasure});
  EXPECT_EQ(int{D::SMD_DIMTYPE_OTHER}, int{H::kDimensionTypeOther});
  EXPECT_EQ(int{D::SMD_DIMTYPE_QUANTITATIVE}, int{H::kDimensionQuantitative});
  EXPECT_EQ(int{D::SMD_DIMTYPE_ACCOUNTS}, int{H::kDimensionAccounts});
  EXPECT_EQ(int{D::SMD_DIMTYPE_CUSTOMERS}, int{H::kDimensionCustomers});
  EXPECT_EQ(int{D::SMD_DIMTYPE_PRODUCTS}, int{H::kDimensionProducts});
  EXPECT_EQ(int{D::SMD_DIMTYPE_SCENARIO}, int{H::kDimensionScenario});
  EXPECT_EQ(int{D::SMD_DIMTYPE_UTILIY}, int{H::kDimensionUtiliy});
  EXPECT_EQ(int{D::SMD_DIMTYPE_CURRENCY}, int{H::kDimensionCurrency});
  EXPECT_EQ(int{D::SMD_DIMTYPE_RATES}, int{H::kDimensionRates});
  EXPECT_EQ(int{D::SMD_DIMTYPE_CHANNEL}, int{H::kDimensionChannel});
  EXPECT_EQ(int{D::SMD_DIMTYPE_PROMOTION}, int{H::kDimensionPromotion});
  EXPECT_EQ(int{D::SMD_DIMTYPE_ORGANIZATION}, int{H::kDimensionOrganization});
  EXPECT_EQ(int{D::SMD_DIMTYPE_BILL_OF_MATERIALS}, int{H::kDimensionBill_of_materials});
  EXPECT_EQ(int{D::SMD_DIMTYPE_GEOGRAPHY}, int{H::kDimensionGeography});
  EXPECT_EQ(int{D::SMD_DIMTYPE_ATTRIBUTE}, int{H::kDimensionAttribute});
}

TEST(HierarchyRow, KeepsItsColumnsInAnyCase) {
  const XmlAHierarchy row = Hierarchy({{L"hierarchy_unique_name", L"[T].[F]"},
                                       {L"Dimension_Unique_Name", L"[T]"},
                                       {L"HIERARCHY_CAPTION", L"Fiscal"},
                                       {L"DEFAULT_MEMBER", L"[T].[F].[All]"},
                                       {L"ALL_MEMBER", L"[T].[F].[Everything]"},
                                       {L"HIERARCHY_NAME", L"ignored"}});
  EXPECT_EQ(row.GetUniqueName(), String(L"[T].[F]"));
  EXPECT_EQ(row.GetDimensionUniqueName(), String(L"[T]"));
  EXPECT_EQ(row.GetCaption(), String(L"Fiscal"));
  EXPECT_EQ(row.GetDefaultMember(), String(L"[T].[F].[All]"));
  EXPECT_EQ(row.GetAllMember(), String(L"[T].[F].[Everything]"));
}

TEST(HierarchyRow, LastValueOfARepeatedColumnCounts) {
  const XmlAHierarchy row = Hierarchy({{L"HIERARCHY_CAPTION", L"a"}, {L"hierarchy_caption", L"b"}});
  EXPECT_EQ(row.GetCaption(), String(L"b"));
}

struct StructureCase {
  const wchar_t* structure;
  int type;
  bool fullyBalanced;
};

TEST(HierarchyRow, StructureDeterminesTheHierarchyType) {
  const StructureCase cases[] = {
      {L"0", OTXMLAHierarchy::kHierarchyFullyBalanced, true},
      {L"1", OTXMLAHierarchy::kHierarchyRaggedBalanced, false},
      {L"2", OTXMLAHierarchy::kHierarchyUnBalanced, false},
      {L"3", OTXMLAHierarchy::kHierarchyNetwork, false},
      {L"4", OTXMLAHierarchy::kHierarchyTypeUnknown, false},
      {L"-1", OTXMLAHierarchy::kHierarchyTypeUnknown, false},
      {L"99999", OTXMLAHierarchy::kHierarchyTypeUnknown, false},
      {L"ragged", OTXMLAHierarchy::kHierarchyFullyBalanced, true},  // reads as 0
      {L"", OTXMLAHierarchy::kHierarchyTypeUnknown, true},  // only the type asks for emptiness
  };
  for (const StructureCase& c : cases) {
    const XmlAHierarchy row = Hierarchy({{L"STRUCTURE", c.structure}});
    EXPECT_EQ(row.GetHierarchyType(), c.type) << support::Narrow(c.structure);
    EXPECT_EQ(row.FullyBalanced(), c.fullyBalanced) << support::Narrow(c.structure);
  }
}

TEST(HierarchyRow, DimensionTypeIsTimeMeasureOtherOrUnknown) {
  for (int code = -2; code <= 300; ++code) {
    const String text = support::Wide(std::to_string(code));
    const XmlAHierarchy row = Hierarchy({{L"DIMENSION_TYPE", text.c_str()}});
    EXPECT_EQ(row.GetDimensionType(), code >= 1 && code <= 3 ? code : 0) << code;
    EXPECT_EQ(row.NotMeasure(), code != 2) << code;
  }
  EXPECT_EQ(Hierarchy({}).GetDimensionType(), 0);
  EXPECT_TRUE(Hierarchy({}).NotMeasure());
}

TEST(HierarchyRow, IsVirtualByFlagOrPresenceOfAMaster) {
  EXPECT_FALSE(Hierarchy({}).Virtual());
  EXPECT_FALSE(Hierarchy({{L"IS_VIRTUAL", L"false"}}).Virtual());
  EXPECT_TRUE(Hierarchy({{L"IS_VIRTUAL", L"true"}}).Virtual());
  EXPECT_TRUE(Hierarchy({{L"is_virtual", L"TRUE"}, {L"IS_VIRTUAL", L"false"}}).Virtual());
  EXPECT_TRUE(Hierarchy({{L"DIMENSION_MASTER_UNIQUE_NAME", L""}}).Virtual());
  EXPECT_TRUE(Hierarchy({{L"dimension_master_unique_name", L"false"}}).Virtual());
}

TEST(HierarchyStructures, AreNamedByCode) {
  using XmlASaxDefsNameSpace::HierarchyStructures;
  EXPECT_EQ(String(HierarchyStructures[0]), String(L"MD_STRUCTURE_FULLYBALANCED"));
  EXPECT_EQ(String(HierarchyStructures[1]), String(L"MD_STRUCTURE_RAGGEDBALANCED"));
  EXPECT_EQ(String(HierarchyStructures[2]), String(L"MD_STRUCTURE_UNBALANCED"));
  EXPECT_EQ(String(HierarchyStructures[3]), String(L"MD_STRUCTURE_NETWORK"));
}

}  // namespace
