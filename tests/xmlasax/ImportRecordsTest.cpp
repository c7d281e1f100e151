// Tests the host's records and enumerations.

#include <gtest/gtest.h>

#include "Import/OTXMLAImportAPI.h"
#include "Utility/XMLASAX/XmlAHierarchy.h"
#include "support/FailingAllocation.h"
#include "support/Text.h"

namespace {

OTXMLAUnit Unit(const wchar_t* name) {
  OTXMLAUnit unit;
  unit.m_aggrType = OTXMLAUnit::kAggrMax;
  unit.m_name = name;
  unit.m_precision = 15;
  unit.m_type = VXDoubleData;
  unit.m_scale = 2;
  unit.m_nullable = 0;
  unit.m_externalName = L"external";
  unit.m_tamarindAttributeHierarchyName = L"attribute";
  unit.m_tamarindGenerationNumber = 3;
  unit.m_tamarindPropertyType = 4;
  unit.m_dimPropType = OTXMLAUnit::kDimPropUDA;
  return unit;
}

void ExpectSame(const OTXMLAUnit& a, const OTXMLAUnit& b) {
  EXPECT_EQ(a.m_aggrType, b.m_aggrType);
  EXPECT_EQ(a.m_name, b.m_name);
  EXPECT_EQ(a.m_precision, b.m_precision);
  EXPECT_EQ(a.m_type, b.m_type);
  EXPECT_EQ(a.m_scale, b.m_scale);
  EXPECT_EQ(a.m_nullable, b.m_nullable);
  EXPECT_EQ(a.m_externalName, b.m_externalName);
  EXPECT_EQ(a.m_tamarindAttributeHierarchyName, b.m_tamarindAttributeHierarchyName);
  EXPECT_EQ(a.m_tamarindGenerationNumber, b.m_tamarindGenerationNumber);
  EXPECT_EQ(a.m_tamarindPropertyType, b.m_tamarindPropertyType);
  EXPECT_EQ(a.m_dimPropType, b.m_dimPropType);
}

OTXMLALevel Level(std::int16_t number, std::size_t properties) {
  OTXMLALevel level;
  level.m_levelName = L"level";
  level.m_externalName = L"[level]";
  level.m_level = Unit(L"unit");
  level.m_memberProperties.assign(properties, Unit(L"property"));
  level.m_levelNumber = number;
  return level;
}

OTCube Cube() {
  OTCube cube;
  cube.first = L"cube";
  cube.second = L"second";
  cube.m_variables.push_back(L"variable");
  for (const wchar_t* name : {L"[!V1]", L"[!V2]"}) {
    XmlACubeVariable variable;
    variable.m_Name = name;
    variable.m_Caption = L"caption";
    variable.m_type = XmlACubeVariable::SAP_VAR_TYPE_NUMERIC;
    variable.m_defaultLow = L"1";
    variable.m_defaultHigh = L"9";
    cube.m_sapVariables.push_back(variable);
  }
  cube.m_aliases.push_back(L"alias");
  cube.m_bMemberNameUnique = true;
  cube.m_dateFormat = L"yyyy";
  return cube;
}

TEST(ImportRecords, InitialUnitIsANullableTextColumn) {
  const OTXMLAUnit unit;
  EXPECT_EQ(unit.m_aggrType, OTXMLAUnit::kAggrUnknown);
  EXPECT_EQ(unit.m_name, String());
  EXPECT_EQ(unit.m_precision, 128);
  EXPECT_EQ(unit.m_type, VXVarCharData);
  EXPECT_EQ(unit.m_scale, 0);
  EXPECT_EQ(unit.m_nullable, 1);
  EXPECT_EQ(unit.m_externalName, String());
  EXPECT_EQ(unit.m_tamarindAttributeHierarchyName, String());
  EXPECT_EQ(unit.m_tamarindGenerationNumber, 0);
  EXPECT_EQ(unit.m_tamarindPropertyType, 0);
  EXPECT_EQ(unit.m_dimPropType, OTXMLAUnit::kDimPropNone);
}

TEST(ImportRecords, OtherRecordsAreInitiallyEmpty) {
  const OTXMLAHierarchy hierarchy;
  EXPECT_EQ(hierarchy.m_memberType, OTXMLAHierarchy::kMemberTypeUnknown);
  EXPECT_EQ(hierarchy.m_hierarchyType, OTXMLAHierarchy::kHierarchyTypeUnknown);
  EXPECT_EQ(hierarchy.m_dimensionType, OTXMLAHierarchy::kDimensionTypeUnknown);
  EXPECT_TRUE(hierarchy.m_levels.empty() && hierarchy.m_udas.empty());
  EXPECT_EQ(OTXMLALevel().m_levelNumber, 0);
  EXPECT_FALSE(OTCatalog().m_bASOType);
  EXPECT_FALSE(OTCube().m_bMemberNameUnique);
  EXPECT_FALSE(OTXMLAImportOption().m_bFlatMeasureListFlag);
  EXPECT_FALSE(OTXMLAImportOption().m_bSkipDimensionUDA);
  EXPECT_TRUE(OTDataSource().m_catalogs.empty());
}

TEST(ImportRecords, CopiedUnitHasAllFieldsAndSharesTexts) {
  const OTXMLAUnit unit = Unit(L"name");
  const OTXMLAUnit copy(unit);
  ExpectSame(copy, unit);
  EXPECT_TRUE(copy.m_name.SharesBufferWith(unit.m_name));
  OTXMLAUnit assigned;
  assigned = unit;
  ExpectSame(assigned, unit);
}

TEST(ImportRecords, CopyingACubeCopiesItsVariables) {
  const OTCube cube = Cube();
  OTCube copy(cube);
  EXPECT_EQ(copy.first, cube.first);
  EXPECT_EQ(copy.second, cube.second);
  EXPECT_EQ(copy.m_variables, cube.m_variables);
  EXPECT_EQ(copy.m_aliases, cube.m_aliases);
  EXPECT_TRUE(copy.m_bMemberNameUnique);
  EXPECT_EQ(copy.m_dateFormat, cube.m_dateFormat);
  ASSERT_EQ(copy.m_sapVariables.size(), 2u);
  EXPECT_TRUE(copy.m_sapVariables == cube.m_sapVariables);
  copy.m_sapVariables[0].m_Name = L"changed";
  EXPECT_EQ(cube.m_sapVariables[0].m_Name, String(L"[!V1]"));
}

TEST(ImportRecords, CopyingAHierarchyKeepsLevelsWithoutProperties) {
  OTXMLAHierarchy hierarchy;
  hierarchy.m_hierarchyName = L"name";
  hierarchy.m_externalName = L"external";
  hierarchy.m_dimensionUniqueName = L"dimension";
  hierarchy.m_levels = {Level(0, 0), Level(1, 2), Level(2, 0)};
  hierarchy.m_memberType = OTXMLAHierarchy::kMemberTypeAll;
  hierarchy.m_hierarchyType = OTXMLAHierarchy::kHierarchyNetwork;
  hierarchy.m_dimensionType = OTXMLAHierarchy::kDimensionGeography;
  hierarchy.m_alternateHierarchyNames.push_back(L"alternate");
  hierarchy.m_udas.push_back(L"uda");
  hierarchy.m_defaultMember = L"member";
  const OTXMLAHierarchy copy(hierarchy);
  EXPECT_EQ(copy.m_hierarchyName, hierarchy.m_hierarchyName);
  EXPECT_EQ(copy.m_externalName, hierarchy.m_externalName);
  EXPECT_EQ(copy.m_dimensionUniqueName, hierarchy.m_dimensionUniqueName);
  EXPECT_EQ(copy.m_memberType, hierarchy.m_memberType);
  EXPECT_EQ(copy.m_hierarchyType, hierarchy.m_hierarchyType);
  EXPECT_EQ(copy.m_dimensionType, hierarchy.m_dimensionType);
  EXPECT_EQ(copy.m_alternateHierarchyNames, hierarchy.m_alternateHierarchyNames);
  EXPECT_EQ(copy.m_udas, hierarchy.m_udas);
  EXPECT_EQ(copy.m_defaultMember, hierarchy.m_defaultMember);
  ASSERT_EQ(copy.m_levels.size(), 3u);
  EXPECT_TRUE(copy.m_levels[0].m_memberProperties.empty());
  EXPECT_EQ(copy.m_levels[1].m_memberProperties.size(), 2u);
  ExpectSame(copy.m_levels[1].m_memberProperties[1], Unit(L"property"));
  ExpectSame(copy.m_levels[2].m_level, Unit(L"unit"));
  EXPECT_EQ(copy.m_levels[2].m_levelNumber, 2);
  EXPECT_EQ(copy.m_levels[2].m_levelName, String(L"level"));
  EXPECT_EQ(copy.m_levels[2].m_externalName, String(L"[level]"));
}

TEST(ImportRecords, CopyingADataSourceCopiesItsTree) {
  OTDataSource source;
  source.m_dataSourceName = L"source";
  source.m_variables.push_back(L"v");
  source.m_catalogs.resize(2);
  source.m_catalogs[1].m_catalogName = L"catalog";
  source.m_catalogs[1].m_bASOType = true;
  source.m_catalogs[1].m_cubes.push_back(Cube());
  OTDataSource copy;
  copy.m_catalogs.resize(5);
  copy = source;
  EXPECT_EQ(copy.m_dataSourceName, String(L"source"));
  EXPECT_EQ(copy.m_variables, source.m_variables);
  ASSERT_EQ(copy.m_catalogs.size(), 2u);
  EXPECT_TRUE(copy.m_catalogs[0].m_cubes.empty());
  EXPECT_TRUE(copy.m_catalogs[1].m_bASOType);
  ASSERT_EQ(copy.m_catalogs[1].m_cubes.size(), 1u);
  EXPECT_TRUE(copy.m_catalogs[1].m_cubes[0].m_sapVariables == Cube().m_sapVariables);
}

TEST(ImportRecords, AssigningAShorterListKeepsTheStorage) {
  OTXMLALevels levels(5, Level(0, 1));
  const OTXMLALevels shorter(2, Level(7, 0));
  const OTXMLALevel* const storage = levels.data();
  levels = shorter;
  ASSERT_EQ(levels.size(), 2u);
  EXPECT_EQ(levels.data(), storage);
  EXPECT_EQ(levels[1].m_levelNumber, 7);
  EXPECT_TRUE(levels[1].m_memberProperties.empty());
}

TEST(ImportRecords, ListGrowsToTwiceItsSizeByCopying) {
  OTXMLAUnits units;
  for (const std::size_t capacity : {1u, 2u, 4u, 4u, 8u, 8u, 8u, 8u, 16u}) {
    units.push_back(Unit(L"unit"));
    EXPECT_EQ(units.capacity(), capacity);
  }
  EXPECT_FALSE(std::is_nothrow_move_constructible_v<OTXMLALevel>);  // hence copied, not moved
}

TEST(ImportRecords, FailedAppendKeepsTheList) {
  if (!FailingAllocation::kIsPossible) GTEST_SKIP() << "allocations cannot be made to fail";
  const OTCube cube = Cube();
  unsigned int failures = 0;
  for (int nth = 1;; ++nth) {
    OTCubes cubes(2, cube);  // full, so that an append must grow it
    bool failed = false;
    try {
      const FailingAllocation failing(nth);
      cubes.push_back(cube);
    } catch (const std::bad_alloc&) {
      failed = true;
    }
    ASSERT_EQ(cubes.size(), failed ? 2u : 3u);
    for (const OTCube& kept : cubes) {
      EXPECT_EQ(kept.first, cube.first);
      EXPECT_TRUE(kept.m_sapVariables == cube.m_sapVariables);
    }
    if (!failed) break;
    ++failures;
  }
  EXPECT_GE(failures, 4u);  // the storage and the three lists inside a cube
}

TEST(ImportRecords, FailedCopyKeepsTheOriginal) {
  if (!FailingAllocation::kIsPossible) GTEST_SKIP() << "allocations cannot be made to fail";
  OTXMLAHierarchy hierarchy;
  hierarchy.m_levels = {Level(0, 2), Level(1, 3)};
  hierarchy.m_udas.push_back(L"uda");
  unsigned int failures = 0;
  for (int nth = 1;; ++nth) {
    bool failed = false;
    try {
      const FailingAllocation failing(nth);
      const OTXMLAHierarchy copy(hierarchy);
      failed = copy.m_levels.size() != 2;
    } catch (const std::bad_alloc&) {
      failed = true;
    }
    EXPECT_EQ(hierarchy.m_levels[1].m_memberProperties.size(), 3u);
    if (!failed) break;
    ++failures;
  }
  EXPECT_EQ(failures, 4u);  // levels, two property lists, attribute names
}

TEST(ImportRecords, StringVectorIsDeletedThroughItsOwnType) {
  struct Derived : VXStringVector {
    explicit Derived(bool& flag) : gone(flag) {}
    ~Derived() override { gone = true; }
    bool& gone;
  };
  bool gone = false;
  VXStringVector* const list = new Derived(gone);
  delete list;
  EXPECT_TRUE(gone);
}

TEST(ImportRecords, EnumeratorsHaveTheHostsValues) {
  using U = OTXMLAUnit;
  using H = OTXMLAHierarchy;
  const std::vector<std::pair<int, int>> values = {
      {U::kAggrUnknown, 0},
      {U::kAggrSum, 1},
      {U::kAggrCount, 2},
      {U::kAggrMin, 3},
      {U::kAggrMax, 4},
      {U::kAggrAvg, 5},
      {U::kAggrVar, 6},
      {U::kAggrStd, 7},
      {U::kAggrCalculated, 8},
      {U::kAggrExternal, 9},
      {U::kAggrDefault, 0},
      {U::kDefaultColumnLength, 128},
      {U::kTimeBalanceFirst, 256},
      {U::kTimeBalanceLast, 257},
      {U::kTimeBalanceAverage, 258},
      {U::kDimPropNone, 0},
      {U::kDimPropUDA, 1},
      {U::kDimPropMemnor, 2},
      {U::kDimPropAttribute, 3},
      {U::kDimPropOther, 4},
      {U::kDimPropAncestorRef, 5},
      {U::kDimPropMemberKey, 6},
      {U::kDimPropLevelNumber, 7},
      {U::kDimPropGenNumber, 8},
      {U::kDimPropParentRef, 9},
      {U::kDimPropLast, 9},
      {H::kMemberTypeUnknown, 0},
      {H::kMemberTypeRegular, 1},
      {H::kMemberTypeAll, 2},
      {H::kMemberTypeFormula, 3},
      {H::kMemberTypeMeasure, 4},
      {H::kMemberTypeDefault, 0},
      {H::kHierarchyTypeUnknown, 0},
      {H::kHierarchyFullyBalanced, 1},
      {H::kHierarchyUnBalanced, 2},
      {H::kHierarchyRaggedBalanced, 3},
      {H::kHierarchyNetwork, 4},
      {H::kHierarchyTypeDefault, 0},
      {H::kHierarchyTypeFirst, 0},
      {H::kHierarchyTypeLast, 4},
      {H::kHierarchyTypeValue, 256},
      {H::kNativeHierarchyTypeFirst, 256},
      {H::kNativeHierarchyTypeLast, 256},
      {H::kHierarchyTypeInvalid, 257},
      {H::kDimensionTypeUnknown, 0},
      {H::kDimensionTypeTime, 1},
      {H::kDimensionTypeMeasure, 2},
      {H::kDimensionTypeOther, 3},
      {H::kDimensionQuantitative, 4},
      {H::kDimensionAccounts, 5},
      {H::kDimensionCustomers, 6},
      {H::kDimensionProducts, 7},
      {H::kDimensionScenario, 8},
      {H::kDimensionUtiliy, 9},
      {H::kDimensionCurrency, 10},
      {H::kDimensionRates, 11},
      {H::kDimensionChannel, 12},
      {H::kDimensionPromotion, 13},
      {H::kDimensionOrganization, 14},
      {H::kDimensionBill_of_materials, 15},
      {H::kDimensionGeography, 16},
      {H::kDimensionAttribute, 256},
      {H::kDimensionTypeDefault, 0},
      {H::kDimensionInvalid, 1},
  };
  for (const auto& [enumerator, value] : values) EXPECT_EQ(enumerator, value);
}

TEST(ImportRecords, RowEnumeratorsHaveTheirFixedValues) {
  using V = XmlACubeVariable;
  using H = XmlAHierarchy;
  const std::vector<std::pair<int, int>> values = {
      {V::SAP_VAR_TYPE_MEMBER, 1},
      {V::SAP_VAR_TYPE_NUMERIC, 2},
      {V::SAP_VAR_TYPE_HIERARCHY, 3},
      {V::SAP_VAR_SEL_TYPE_VALUE, 1},
      {V::SAP_VAR_SEL_TYPE_INTERVAL, 2},
      {V::SAP_VAR_SEL_TYPE_COMPLEX, 3},
      {V::SAP_VAR_SEL_TYPE_MULTI_SINGLE_VALUES, 4},
      {V::SAP_VAR_INPUT_TYPE_OPTIONAL, 0},
      {V::SAP_VAR_INPUT_TYPE_MANDATORY, 1},
      {V::SAP_VAR_INPUT_TYPE_MANDATORY_NOT_INITIAL, 2},
      {H::SMD_STRUCTURE_FULLYBALANCED, 0},
      {H::SMD_STRUCTURE_RAGGEDBALANCED, 1},
      {H::SMD_STRUCTURE_UNBALANCED, 2},
      {H::SMD_STRUCTURE_NETWORK, 3},
      {H::SMD_DIMTYPE_TIME, 1},
      {H::SMD_DIMTYPE_MEASURE, 2},
      {H::SMD_DIMTYPE_OTHER, 3},
      {H::SMD_DIMTYPE_UNKNOWN, 4},
  };
  for (const auto& [enumerator, value] : values) EXPECT_EQ(enumerator, value);
}

TEST(ImportRecords, ListTheAggregationRulesInTheirOrder) {
  using U = OTXMLAUnit;
  const U::AggrType rules[] = {U::kAggrUnknown,    U::kAggrSum,     U::kAggrCount, U::kAggrMin,
                               U::kAggrMax,        U::kAggrAvg,     U::kAggrVar,   U::kAggrStd,
                               U::kAggrCalculated, U::kAggrExternal};
  ASSERT_EQ(U::GetNumberOfSupportedAggregationTypes(), std::size(rules));
  for (unsigned int i = 0; i < std::size(rules); ++i)
    EXPECT_EQ(U::GetSupportedAggregationType(i), rules[i]);
  EXPECT_EQ(U::GetSupportedAggregationType(10), U::kAggrUnknown);
  EXPECT_EQ(U::GetSupportedAggregationType(~0u), U::kAggrUnknown);
}

TEST(ImportRecords, ListTheHierarchyStructuresInTheirOrder) {
  using H = OTXMLAHierarchy;
  const std::pair<H::HierarchyType, const wchar_t*> structures[] = {
      {H::kHierarchyTypeUnknown, L"unknown"},   {H::kHierarchyFullyBalanced, L"fully balanced"},
      {H::kHierarchyUnBalanced, L"unbalanced"}, {H::kHierarchyRaggedBalanced, L"ragged balanced"},
      {H::kHierarchyNetwork, L"network"},
  };
  ASSERT_EQ(H::GetNumberOfSupportedHierarchyTypes(), std::size(structures));
  for (unsigned int i = 0; i < std::size(structures); ++i) {
    EXPECT_EQ(H::GetSupportedHierarchyType(i), structures[i].first);
    EXPECT_EQ(H::StringFromHierarchyType(structures[i].first), String(structures[i].second));
  }
  EXPECT_EQ(H::GetSupportedHierarchyType(5), H::kHierarchyTypeInvalid);
  EXPECT_EQ(H::GetSupportedHierarchyType(~0u), H::kHierarchyTypeInvalid);
  for (const H::HierarchyType type : {H::kHierarchyTypeValue, H::kHierarchyTypeInvalid})
    EXPECT_EQ(H::StringFromHierarchyType(type), String(L"invalid"));
}

}  // namespace
