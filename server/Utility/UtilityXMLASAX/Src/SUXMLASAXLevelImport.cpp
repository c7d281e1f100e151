#include "SUXMLASAXLevelImport.h"

#include <algorithm>

#include "SUXMLASAXNames.h"
#include "SUXMLASAXStop.h"
#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/HostConstants.h"
#include "Utility/Generic/VXAssert.h"

namespace {

constexpr std::int16_t kSkippedPropertyType = 1;

// File and line of the logic error, as the host's traces expect them.
constexpr const wchar_t* kLogicErrorFile = L"SUXMLASAXAnaTamImport";
constexpr int kLogicErrorLine = 506;

OTXMLAUnit ImportProperty(const XmlALevel& level, unsigned int index, const ProviderRules& rules) {
  OTXMLAUnit unit;
  unit.m_name = level.GetLevelPropertyCaption(index);
  unit.m_externalName = WithoutBrackets(level.GetLevelPropertyName(index));
  if (unit.m_name.empty()) unit.m_name = GeneratedName(unit.m_externalName);
  const String precision = level.GetLevelPropertyPrecision(index);
  if (!precision.empty()) unit.m_precision = BaseStringUtil::IntFrom(precision);
  const String scale = level.GetLevelPropertyScale(index);
  if (!scale.empty()) unit.m_scale = BaseStringUtil::Int16From(scale);
  const String attribute = level.GetLevelPropertyHierarchyAttributeName(index);
  if (!attribute.empty()) unit.m_tamarindAttributeHierarchyName = attribute;
  unit.m_type = rules.propertyType(level.GetLevelPropertyDataType(index));
  if (rules.propertiesHaveGenerations) {
    unit.m_tamarindGenerationNumber = level.GetLevelPropertyGenerationNumber(index);
    unit.m_tamarindPropertyType = level.GetLevelPropertyType(index);
  }
  return unit;
}

OTXMLALevel ImportLevel(const XmlALevel& row, const ProviderRules& rules) {
  OTXMLALevel level;
  level.m_levelNumber = row.GetLevelNumber();
  const String name = row.GetLevelName();
  if (BaseStringUtil::IsCaseInsensitiveMatch(name, L"(ALL)")) {
    level.m_levelName = row.GetUniqueName();
  } else {
    level.m_levelName = row.GetCaption();
    if (level.m_levelName.empty()) level.m_levelName = GeneratedName(WithoutBrackets(name));
  }
  level.m_level.m_name = level.m_levelName;
  level.m_externalName = name;
  level.m_level.m_externalName = name;
  const unsigned int properties = row.GetNumOfProperties();
  for (unsigned int i = 0; i < properties; ++i) {
    ThrowIfStopped();
    level.m_memberProperties.push_back(ImportProperty(row, i, rules));
  }
  return level;
}

/// Each level lists the properties of all levels. Keeps those of the level's own generation.
void KeepOwnGeneration(OTXMLALevels& levels) {
  if (levels.empty()) return;
  const int greatest = levels.back().m_levelNumber;
  for (OTXMLALevel& level : levels) {
    const int generation = greatest + 1 - level.m_levelNumber;
    std::erase_if(level.m_memberProperties, [&](const OTXMLAUnit& unit) {
      return unit.m_tamarindGenerationNumber != generation ||
             unit.m_tamarindPropertyType == kSkippedPropertyType;
    });
  }
}

}  // namespace

OTXMLALevels ImportLevels(std::vector<RefCnt<XmlALevel>> rows, const ProviderRules& rules) {
  const auto number = [](const RefCnt<XmlALevel>& row) { return row->GetLevelNumber(); };
  std::stable_sort(rows.begin(), rows.end(),
                   [&](const auto& a, const auto& b) { return number(a) < number(b); });
  const auto same = std::adjacent_find(rows.begin(), rows.end(), [&](const auto& a, const auto& b) {
    return number(a) == number(b);
  });
  if (same != rows.end()) VXAssert::handleLogicError(kLogicErrorFile, kLogicErrorLine, s_ksBlank);
  OTXMLALevels levels;
  levels.reserve(rows.size());
  for (const RefCnt<XmlALevel>& row : rows) levels.push_back(ImportLevel(*row, rules));
  if (rules.propertiesHaveGenerations) KeepOwnGeneration(levels);
  return levels;
}
