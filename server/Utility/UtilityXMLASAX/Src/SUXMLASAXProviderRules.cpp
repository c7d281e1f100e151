#include "SUXMLASAXProviderRules.h"

#include "Utility/XMLASAX/XMLADataTypes.h"
#include "Utility/XMLASAX/XmlADiscoverAgent.h"

namespace {

using Family = ProviderRules::Family;

VXDataType AlwaysText(const String&) { return VXVarCharData; }

/// Only dates keep their type. The host compares all other properties as texts.
VXDataType DateOrText(const String& dataType) {
  return XmlA2VXDataType(dataType) == VXDateData ? VXDateData : VXVarCharData;
}

// Analysis Services 2000, and every provider that is not recognised.
constexpr ProviderRules kAnalysisServices = {
    .family = Family::kAnalysisServices,
    .hasNameProperty = true,
    .skipsMeasuresHierarchy = true,
    .skipsUnknownStructure = true,
    .propertyType = &DateOrText,
    .measureType = &XmlA2VXDataType,
};

// Analysis Services 2005 to 2012.
constexpr ProviderRules kModernAnalysisServices = [] {
  ProviderRules rules = kAnalysisServices;
  rules.namesDataSources = true;
  rules.prependsDeclaration = true;
  return rules;
}();

constexpr ProviderRules kSapBw = {
    .family = Family::kSapBw,
    .hasNameProperty = true,
    .measuresByUniqueName = true,
    .hasDefaultHierarchies = true,
    .defaultHierarchiesAreBalanced = true,
    .skipsMeasuresHierarchy = true,
    .propertyType = &AlwaysText,
    .measureType = &SAPBW2VXDataType,
};

constexpr ProviderRules kTamarind = {
    .family = Family::kTamarind,
    .attributesFromDimensions = true,
    .allMemberNeedsNoLookup = true,
    .propertiesHaveGenerations = true,
    .firstMeasureIsDimension = true,
    .propertyType = &Tamarind2VXDataType,
    .measureType = &XmlA2VXDataType,
};

// For numbers that are not a TargetType.
constexpr ProviderRules kOther = {
    .family = Family::kOther,
    .hasNameProperty = true,
    .skipsMeasuresHierarchy = true,
    .propertyType = &AlwaysText,
    .measureType = &XmlA2VXDataType,
};

constexpr struct {
  ServerInfo::TargetType target;
  const ProviderRules& rules;
} kTargets[] = {
    {ServerInfo::kAnalysisServices2000, kAnalysisServices},
    {ServerInfo::kAnalysisServices2005, kModernAnalysisServices},
    {ServerInfo::kAnalysisServices2008, kModernAnalysisServices},
    {ServerInfo::kAnalysisServices2012, kModernAnalysisServices},
    {ServerInfo::kTessera, kAnalysisServices},
    {ServerInfo::kSAP_BW, kSapBw},
    {ServerInfo::kSAP_BW35, kSapBw},
    {ServerInfo::kTamarind7, kTamarind},
    {ServerInfo::kTamarind9, kTamarind},
    {ServerInfo::kTamarind11, kTamarind},
    {ServerInfo::kTamarind11_1_2_3_500, kTamarind},
};

}  // namespace

const ProviderRules& RulesFor(ServerInfo::TargetType target) noexcept {
  for (const auto& entry : kTargets)
    if (entry.target == target) return entry.rules;
  return kOther;
}

const ProviderRules& RulesOf(const XmlADiscoverAgent& agent) {
  if (agent.IsAnalysisServices()) return kAnalysisServices;
  if (agent.IsSAPBW()) return kSapBw;
  return agent.IsTamarind() ? kTamarind : kOther;
}
