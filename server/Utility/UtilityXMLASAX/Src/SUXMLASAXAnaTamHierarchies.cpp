#include <algorithm>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/HostConstants.h"
#include "Utility/Generic/SUStrUtil.h"
#include "Utility/Generic/VXAssert.h"
#include "Utility/XMLASAX/OTXMLAAnaTamImportAPI.h"
#include "Utility/XMLASAX/XMLADataTypes.h"

// The hierarchies of a cube: which are imported, and how each kind of provider names and shapes
// them.

namespace {

using BaseStringUtil::IsCaseInsensitiveMatch;

constexpr int kMessageVirtualHierarchy = 62011;
constexpr int kMessageMeasuresHierarchy = 62012;
constexpr int kMessageUnknownStructure = 62013;

constexpr std::size_t kGeneratedNameLimit = 128;  // characters
constexpr std::int16_t kUnwantedPropertyType = 1;

// Where the host's traces expect the one logic error of this import.
constexpr const wchar_t* kLogicErrorFile = L"SUXMLASAXAnaTamImport";
constexpr int kLogicErrorLine = 506;

/// The three kinds of provider, asked for once per import.
struct ProviderKind {
  bool analysisServices;
  bool sapBW;
  bool tamarind;
};

String WithoutBrackets(String name) {
  for (const wchar_t* bracket : {L"[", L"]"})
    BaseStringUtil::ReplacePatternInString(name, bracket, L"");
  return name;
}

/// A display name for an object without caption, from its bracket-free name.
String GeneratedName(String name) {
  for (const wchar_t* unwanted : {s_ksBlank, L"\t", L"\r", L".", L"*", L"?", L"'"})
    BaseStringUtil::ReplacePatternInString(name, unwanted, L"");
  return name.substr(0, kGeneratedNameLimit);
}

/// The number of the message that says why the hierarchy is left out, or 0 to import it.
int ReasonToSkip(const XmlAHierarchy& hierarchy, const ProviderKind& kind) {
  if (!hierarchy.NotMeasure() && !kind.tamarind) return kMessageMeasuresHierarchy;
  if (kind.analysisServices &&
      hierarchy.GetHierarchyType() == OTXMLAHierarchy::kHierarchyTypeUnknown)
    return kMessageUnknownStructure;
  if (hierarchy.Virtual()) return kMessageVirtualHierarchy;
  return 0;
}

OTXMLAUnit ImportProperty(const XmlALevel& level, unsigned int index, const ProviderKind& kind) {
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
  if (kind.tamarind) {
    unit.m_tamarindGenerationNumber = level.GetLevelPropertyGenerationNumber(index);
    unit.m_tamarindPropertyType = level.GetLevelPropertyType(index);
    unit.m_type = Tamarind2VXDataType(level.GetLevelPropertyDataType(index));
  } else if (kind.analysisServices &&
             XmlA2VXDataType(level.GetLevelPropertyDataType(index)) == VXDateData) {
    unit.m_type = VXDateData;
  }
  return unit;
}

OTXMLALevel ImportLevel(const XmlALevel& row, const ProviderKind& kind) {
  OTXMLALevel level;
  level.m_levelNumber = row.GetLevelNumber();
  const String name = row.GetLevelName();
  if (IsCaseInsensitiveMatch(name, L"(ALL)")) {
    level.m_levelName = row.GetUniqueName();
  } else {
    level.m_levelName = row.GetCaption();
    if (level.m_levelName.empty()) level.m_levelName = GeneratedName(WithoutBrackets(name));
  }
  level.m_level.m_name = level.m_levelName;
  level.m_externalName = name;
  level.m_level.m_externalName = name;
  const unsigned int properties = row.GetNumOfProperties();
  for (unsigned int i = 0; i < properties; ++i)
    level.m_memberProperties.push_back(ImportProperty(row, i, kind));
  return level;
}

/// The levels in ascending order of level number. Two levels with one number are a logic error.
OTXMLALevels ImportLevels(std::vector<RefCnt<XmlALevel>> rows, const ProviderKind& kind) {
  const auto number = [](const RefCnt<XmlALevel>& row) { return row->GetLevelNumber(); };
  std::stable_sort(rows.begin(), rows.end(),
                   [&](const auto& a, const auto& b) { return number(a) < number(b); });
  const auto same = std::adjacent_find(rows.begin(), rows.end(), [&](const auto& a, const auto& b) {
    return number(a) == number(b);
  });
  if (same != rows.end()) VXAssert::handleLogicError(kLogicErrorFile, kLogicErrorLine, s_ksBlank);
  OTXMLALevels levels;
  levels.reserve(rows.size());
  for (const RefCnt<XmlALevel>& row : rows) levels.push_back(ImportLevel(*row, kind));
  return levels;
}

/// Tamarind lists every property on every level: keeps those of the level's own generation, counted
/// from the top.
void KeepOwnGeneration(OTXMLALevels& levels) {
  if (levels.empty()) return;
  const int greatest = levels.back().m_levelNumber;
  for (OTXMLALevel& level : levels) {
    const int generation = greatest + 1 - level.m_levelNumber;
    std::erase_if(level.m_memberProperties, [&](const OTXMLAUnit& unit) {
      return unit.m_tamarindGenerationNumber != generation ||
             unit.m_tamarindPropertyType == kUnwantedPropertyType;
    });
  }
}

/// The type of the hierarchy's dimension row, which knows of attribute dimensions; the hierarchy's
/// own type when there is no such row.
int TamarindDimensionType(const XmlAHierarchy& hierarchy,
                          const std::vector<RefCnt<XmlADimension>>& dimensions) {
  const String name = hierarchy.GetDimensionUniqueName();
  const auto found = std::find_if(dimensions.begin(), dimensions.end(), [&](const auto& dimension) {
    return IsCaseInsensitiveMatch(dimension->GetDimensionUniqueName(), name);
  });
  return found == dimensions.end() ? hierarchy.GetDimensionType() : (*found)->GetDimensionType();
}

}  // namespace

void OTXMLAAnaTamImportAPI::GetHierarchies(std::vector<OTXMLAHierarchy>& hierarchies,
                                           String& errors, String& warnings) {
  hierarchies.clear();
  XmlADiscoverAgent& agent = *m_DiscoverAgent;
  const ProviderKind kind{agent.IsAnalysisServices(), agent.IsSAPBW(), agent.IsTamarind()};
  try {
    XmlADiscoverAgent::DefaultHierarchies defaults;
    if (kind.sapBW) {
      agent.FindDefaultHierarchiesOnCatalogCube(defaults, m_choiceCatalog, m_choiceCube,
                                                m_choiceDataSource);
    }
    std::vector<RefCnt<XmlADimension>> dimensions;
    if (kind.tamarind) {
      agent.GetDimensionsOnCatalogCube(dimensions, m_choiceCatalog, m_choiceCube,
                                       m_choiceDataSource);
    }
    std::vector<RefCnt<XmlAHierarchy>> rows;
    agent.GetHierarchiesOnCatalogCube(rows, m_choiceCatalog, m_choiceCube, m_choiceDataSource);
    // A record moves by copying all it holds.
    hierarchies.reserve(rows.size());

    for (const RefCnt<XmlAHierarchy>& row : rows) {
      if (const int reason = ReasonToSkip(*row, kind)) {
        warnings += SUStrUtil::LoadMsgStringOnly(
            reason, {row->GetUniqueName(), m_choiceDataSource, m_choiceCatalog, m_choiceCube});
        warnings += L"\n";
        continue;
      }
      OTXMLAHierarchy hierarchy;
      hierarchy.m_hierarchyName = row->GetCaption();
      hierarchy.m_externalName = WithoutBrackets(row->GetUniqueName());
      hierarchy.m_hierarchyType =
          static_cast<OTXMLAHierarchy::HierarchyType>(row->GetHierarchyType());
      if (hierarchy.m_hierarchyName.empty())
        hierarchy.m_hierarchyName = GeneratedName(hierarchy.m_externalName);
      hierarchy.m_dimensionType = static_cast<OTXMLAHierarchy::DimensionType>(
          kind.tamarind ? TamarindDimensionType(*row, dimensions) : row->GetDimensionType());
      hierarchy.m_dimensionUniqueName = WithoutBrackets(row->GetDimensionUniqueName());
      if (kind.sapBW) {
        // Default hierarchies are balanced by nature, and the others unless the provider says more.
        const auto found = defaults.find(row->GetUniqueName());
        if ((found != defaults.end() && found->second) ||
            hierarchy.m_hierarchyType == OTXMLAHierarchy::kHierarchyTypeUnknown)
          hierarchy.m_hierarchyType = OTXMLAHierarchy::kHierarchyFullyBalanced;
      }

      if (kind.tamarind && IsCaseInsensitiveMatch(row->GetDefaultMember(), row->GetAllMember())) {
        hierarchy.m_memberType = OTXMLAHierarchy::kMemberTypeAll;
      } else {
        try {
          const RefCnt<XmlAMember> member(new XmlAMember);
          member->SetUniqueName(row->GetDefaultMember());
          agent.GetMemberOnCatalogCubeHierarchy(member, m_choiceCatalog, m_choiceCube,
                                                row->GetUniqueName(), m_choiceDataSource);
          hierarchy.m_memberType =
              static_cast<OTXMLAHierarchy::MemberType>(member->GetMemberType());
        } catch (const ErrorMessage& error) {
          error.RetrieveErrorMessages(warnings);
          warnings += L"\n";
        }
      }

      std::vector<RefCnt<XmlALevel>> levels;
      agent.GetLevelsOnCatalogCubeHierarchy(levels, m_choiceCatalog, m_choiceCube, row,
                                            m_choiceDataSource);
      hierarchy.m_levels = ImportLevels(std::move(levels), kind);
      if (kind.tamarind) KeepOwnGeneration(hierarchy.m_levels);
      hierarchies.push_back(hierarchy);
    }
  } catch (const ErrorMessage& error) {
    error.RetrieveErrorMessages(errors);
  }
}
