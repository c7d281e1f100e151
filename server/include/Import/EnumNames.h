#pragma once

/// \file
/// The names of the enumerators in the import records, for output.

#include <cstddef>
#include <string_view>
#include <utility>

#include "Import/OTXMLAHierarchy.h"
#include "Import/OTXMLAUnit.h"
#include "Import/XmlACubeVariable.h"

/// What EnumName is made of.
namespace EnumNames {

/// The name of the first pair with this value; empty if there is none.
template <class Enum, std::size_t Count>
constexpr std::string_view First(const std::pair<Enum, std::string_view> (&names)[Count],
                                 Enum value) {
  for (const auto& [each, name] : names)
    if (each == value) return name;
  return {};
}

}  // namespace EnumNames

/// The name of an enumerator: EnumName(VXCharData) is "VXCharData". If several enumerators have
/// this value, the name of the one that is declared first. Empty if there is none, because servers
/// may send unknown codes. The result refers to a string literal. Call it from any thread.
/// @{
constexpr std::string_view EnumName(OTXMLAUnit::AggrType value) {
  constexpr std::pair<OTXMLAUnit::AggrType, std::string_view> kNames[] = {
      {OTXMLAUnit::kAggrUnknown, "kAggrUnknown"},
      {OTXMLAUnit::kAggrSum, "kAggrSum"},
      {OTXMLAUnit::kAggrCount, "kAggrCount"},
      {OTXMLAUnit::kAggrMin, "kAggrMin"},
      {OTXMLAUnit::kAggrMax, "kAggrMax"},
      {OTXMLAUnit::kAggrAvg, "kAggrAvg"},
      {OTXMLAUnit::kAggrVar, "kAggrVar"},
      {OTXMLAUnit::kAggrStd, "kAggrStd"},
      {OTXMLAUnit::kAggrCalculated, "kAggrCalculated"},
      {OTXMLAUnit::kAggrExternal, "kAggrExternal"},
      {OTXMLAUnit::kAggrDefault, "kAggrDefault"},
      {OTXMLAUnit::kDefaultColumnLength, "kDefaultColumnLength"},
      {OTXMLAUnit::kTimeBalanceFirst, "kTimeBalanceFirst"},
      {OTXMLAUnit::kTimeBalanceLast, "kTimeBalanceLast"},
      {OTXMLAUnit::kTimeBalanceAverage, "kTimeBalanceAverage"},
  };
  return EnumNames::First(kNames, value);
}

constexpr std::string_view EnumName(OTXMLAUnit::DimPropType value) {
  constexpr std::pair<OTXMLAUnit::DimPropType, std::string_view> kNames[] = {
      {OTXMLAUnit::kDimPropNone, "kDimPropNone"},
      {OTXMLAUnit::kDimPropUDA, "kDimPropUDA"},
      {OTXMLAUnit::kDimPropMemnor, "kDimPropMemnor"},
      {OTXMLAUnit::kDimPropAttribute, "kDimPropAttribute"},
      {OTXMLAUnit::kDimPropOther, "kDimPropOther"},
      {OTXMLAUnit::kDimPropAncestorRef, "kDimPropAncestorRef"},
      {OTXMLAUnit::kDimPropMemberKey, "kDimPropMemberKey"},
      {OTXMLAUnit::kDimPropLevelNumber, "kDimPropLevelNumber"},
      {OTXMLAUnit::kDimPropGenNumber, "kDimPropGenNumber"},
      {OTXMLAUnit::kDimPropParentRef, "kDimPropParentRef"},
      {OTXMLAUnit::kDimPropLast, "kDimPropLast"},
  };
  return EnumNames::First(kNames, value);
}

constexpr std::string_view EnumName(VXDataType value) {
  constexpr std::pair<VXDataType, std::string_view> kNames[] = {
      {VXBitData, "VXBitData"},
      {VXCharData, "VXCharData"},
      {VXVarCharData, "VXVarCharData"},
      {VXLongVarCharData, "VXLongVarCharData"},
      {VXBinaryData, "VXBinaryData"},
      {VXVarBinaryData, "VXVarBinaryData"},
      {VXLongVarBinaryData, "VXLongVarBinaryData"},
      {VXInt1Data, "VXInt1Data"},
      {VXUInt1Data, "VXUInt1Data"},
      {VXInt2Data, "VXInt2Data"},
      {VXUInt2Data, "VXUInt2Data"},
      {VXInt4Data, "VXInt4Data"},
      {VXUInt4Data, "VXUInt4Data"},
      {VXFloatData, "VXFloatData"},
      {VXDoubleData, "VXDoubleData"},
      {VXMoneyData, "VXMoneyData"},
      {VXNumericData, "VXNumericData"},
      {VXDecimalData, "VXDecimalData"},
      {VXDateData, "VXDateData"},
      {VXTimeData, "VXTimeData"},
      {VXDateTimeData, "VXDateTimeData"},
      {VXTimeStampData, "VXTimeStampData"},
      {VXIntervalData, "VXIntervalData"},
      {VXObjectData, "VXObjectData"},
      {VXBoolean, "VXBoolean"},
      {VXUnknown, "VXUnknown"},
      {VXMaxType, "VXMaxType"},
  };
  return EnumNames::First(kNames, value);
}

constexpr std::string_view EnumName(OTXMLAHierarchy::MemberType value) {
  constexpr std::pair<OTXMLAHierarchy::MemberType, std::string_view> kNames[] = {
      {OTXMLAHierarchy::kMemberTypeUnknown, "kMemberTypeUnknown"},
      {OTXMLAHierarchy::kMemberTypeRegular, "kMemberTypeRegular"},
      {OTXMLAHierarchy::kMemberTypeAll, "kMemberTypeAll"},
      {OTXMLAHierarchy::kMemberTypeFormula, "kMemberTypeFormula"},
      {OTXMLAHierarchy::kMemberTypeMeasure, "kMemberTypeMeasure"},
      {OTXMLAHierarchy::kMemberTypeDefault, "kMemberTypeDefault"},
  };
  return EnumNames::First(kNames, value);
}

constexpr std::string_view EnumName(OTXMLAHierarchy::HierarchyType value) {
  constexpr std::pair<OTXMLAHierarchy::HierarchyType, std::string_view> kNames[] = {
      {OTXMLAHierarchy::kHierarchyTypeUnknown, "kHierarchyTypeUnknown"},
      {OTXMLAHierarchy::kHierarchyFullyBalanced, "kHierarchyFullyBalanced"},
      {OTXMLAHierarchy::kHierarchyUnBalanced, "kHierarchyUnBalanced"},
      {OTXMLAHierarchy::kHierarchyRaggedBalanced, "kHierarchyRaggedBalanced"},
      {OTXMLAHierarchy::kHierarchyNetwork, "kHierarchyNetwork"},
      {OTXMLAHierarchy::kHierarchyTypeDefault, "kHierarchyTypeDefault"},
      {OTXMLAHierarchy::kHierarchyTypeFirst, "kHierarchyTypeFirst"},
      {OTXMLAHierarchy::kHierarchyTypeLast, "kHierarchyTypeLast"},
      {OTXMLAHierarchy::kHierarchyTypeValue, "kHierarchyTypeValue"},
      {OTXMLAHierarchy::kNativeHierarchyTypeFirst, "kNativeHierarchyTypeFirst"},
      {OTXMLAHierarchy::kNativeHierarchyTypeLast, "kNativeHierarchyTypeLast"},
      {OTXMLAHierarchy::kHierarchyTypeInvalid, "kHierarchyTypeInvalid"},
  };
  return EnumNames::First(kNames, value);
}

constexpr std::string_view EnumName(OTXMLAHierarchy::DimensionType value) {
  constexpr std::pair<OTXMLAHierarchy::DimensionType, std::string_view> kNames[] = {
      {OTXMLAHierarchy::kDimensionTypeUnknown, "kDimensionTypeUnknown"},
      {OTXMLAHierarchy::kDimensionTypeTime, "kDimensionTypeTime"},
      {OTXMLAHierarchy::kDimensionTypeMeasure, "kDimensionTypeMeasure"},
      {OTXMLAHierarchy::kDimensionTypeOther, "kDimensionTypeOther"},
      {OTXMLAHierarchy::kDimensionQuantitative, "kDimensionQuantitative"},
      {OTXMLAHierarchy::kDimensionAccounts, "kDimensionAccounts"},
      {OTXMLAHierarchy::kDimensionCustomers, "kDimensionCustomers"},
      {OTXMLAHierarchy::kDimensionProducts, "kDimensionProducts"},
      {OTXMLAHierarchy::kDimensionScenario, "kDimensionScenario"},
      {OTXMLAHierarchy::kDimensionUtiliy, "kDimensionUtiliy"},
      {OTXMLAHierarchy::kDimensionCurrency, "kDimensionCurrency"},
      {OTXMLAHierarchy::kDimensionRates, "kDimensionRates"},
      {OTXMLAHierarchy::kDimensionChannel, "kDimensionChannel"},
      {OTXMLAHierarchy::kDimensionPromotion, "kDimensionPromotion"},
      {OTXMLAHierarchy::kDimensionOrganization, "kDimensionOrganization"},
      {OTXMLAHierarchy::kDimensionBill_of_materials, "kDimensionBill_of_materials"},
      {OTXMLAHierarchy::kDimensionGeography, "kDimensionGeography"},
      {OTXMLAHierarchy::kDimensionAttribute, "kDimensionAttribute"},
      {OTXMLAHierarchy::kDimensionTypeDefault, "kDimensionTypeDefault"},
      {OTXMLAHierarchy::kDimensionInvalid, "kDimensionInvalid"},
  };
  return EnumNames::First(kNames, value);
}

constexpr std::string_view EnumName(XmlACubeVariable::VariableType value) {
  constexpr std::pair<XmlACubeVariable::VariableType, std::string_view> kNames[] = {
      {XmlACubeVariable::SAP_VAR_TYPE_MEMBER, "SAP_VAR_TYPE_MEMBER"},
      {XmlACubeVariable::SAP_VAR_TYPE_NUMERIC, "SAP_VAR_TYPE_NUMERIC"},
      {XmlACubeVariable::SAP_VAR_TYPE_HIERARCHY, "SAP_VAR_TYPE_HIERARCHY"},
  };
  return EnumNames::First(kNames, value);
}

constexpr std::string_view EnumName(XmlACubeVariable::VariableSelType value) {
  constexpr std::pair<XmlACubeVariable::VariableSelType, std::string_view> kNames[] = {
      {XmlACubeVariable::SAP_VAR_SEL_TYPE_VALUE, "SAP_VAR_SEL_TYPE_VALUE"},
      {XmlACubeVariable::SAP_VAR_SEL_TYPE_INTERVAL, "SAP_VAR_SEL_TYPE_INTERVAL"},
      {XmlACubeVariable::SAP_VAR_SEL_TYPE_COMPLEX, "SAP_VAR_SEL_TYPE_COMPLEX"},
      {XmlACubeVariable::SAP_VAR_SEL_TYPE_MULTI_SINGLE_VALUES,
       "SAP_VAR_SEL_TYPE_MULTI_SINGLE_VALUES"},
  };
  return EnumNames::First(kNames, value);
}

constexpr std::string_view EnumName(XmlACubeVariable::VariableEntryType value) {
  constexpr std::pair<XmlACubeVariable::VariableEntryType, std::string_view> kNames[] = {
      {XmlACubeVariable::SAP_VAR_INPUT_TYPE_OPTIONAL, "SAP_VAR_INPUT_TYPE_OPTIONAL"},
      {XmlACubeVariable::SAP_VAR_INPUT_TYPE_MANDATORY, "SAP_VAR_INPUT_TYPE_MANDATORY"},
      {XmlACubeVariable::SAP_VAR_INPUT_TYPE_MANDATORY_NOT_INITIAL,
       "SAP_VAR_INPUT_TYPE_MANDATORY_NOT_INITIAL"},
  };
  return EnumNames::First(kNames, value);
}
/// @}
