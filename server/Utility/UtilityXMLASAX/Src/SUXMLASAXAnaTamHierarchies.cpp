#include <map>

#include "SUXMLASAXHierarchyRules.h"
#include "SUXMLASAXLevelImport.h"
#include "SUXMLASAXNames.h"
#include "SUXMLASAXProviderRules.h"
#include "SUXMLASAXStop.h"
#include "SUXMLASAXWarnings.h"
#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/ImportOperation.h"
#include "Utility/XMLASAX/OTXMLAAnaTamImportAPI.h"

// Import of the hierarchies of a cube.

namespace {

struct LessIgnoringCase {
  bool operator()(const String& a, const String& b) const {
    return BaseStringUtil::CaseInsensitiveCompare(a, b) < 0;
  }
};

/// Imports hierarchy rows of one cube.
class HierarchyImport {
 public:
  HierarchyImport(XmlADiscoverAgent& agent, const String& catalog, const String& cube,
                  const String& dataSource)
      : m_agent(agent), m_catalog(catalog), m_cube(cube), m_dataSource(dataSource) {}

  const ProviderRules& Rules() const { return m_rules; }

  /// Reads default hierarchies and dimension types from the dimensions, if the provider's rules say
  /// so.
  void ReadDimensions() {
    if (m_rules.hasDefaultHierarchies)
      m_agent.FindDefaultHierarchiesOnCatalogCube(m_defaults, m_catalog, m_cube, m_dataSource);
    if (!m_rules.attributesFromDimensions) return;
    std::vector<RefCnt<XmlADimension>> rows;
    m_agent.GetDimensionsOnCatalogCube(rows, m_catalog, m_cube, m_dataSource);
    // If several dimensions have the same name, the first one is used.
    for (RefCnt<XmlADimension>& row : rows) {
      ThrowIfStopped();
      m_dimensionTypes.emplace(row->GetDimensionUniqueName(), row->GetDimensionType());
      row = {};  // freeing a million rows at once would delay a cancellation
    }
  }

  OTXMLAHierarchy Import(const RefCnt<XmlAHierarchy>& row, Warnings& warnings) {
    OTXMLAHierarchy hierarchy;
    hierarchy.m_hierarchyName = row->GetCaption();
    hierarchy.m_externalName = WithoutBrackets(row->GetUniqueName());
    if (hierarchy.m_hierarchyName.empty())
      hierarchy.m_hierarchyName = GeneratedName(hierarchy.m_externalName);
    hierarchy.m_hierarchyType = Structure(*row);
    hierarchy.m_dimensionType = DimensionType(*row);
    hierarchy.m_dimensionUniqueName = WithoutBrackets(row->GetDimensionUniqueName());
    SetMemberType(hierarchy, *row, warnings);
    std::vector<RefCnt<XmlALevel>> levels;
    m_agent.GetLevelsOnCatalogCubeHierarchy(levels, m_catalog, m_cube, row, m_dataSource);
    hierarchy.m_levels = ImportLevels(std::move(levels), m_rules);
    return hierarchy;
  }

 private:
  OTXMLAHierarchy::HierarchyType Structure(const XmlAHierarchy& row) const {
    const auto type = static_cast<OTXMLAHierarchy::HierarchyType>(row.GetHierarchyType());
    const bool isDefault = m_defaults.contains(row.GetUniqueName());
    const bool isBalanced = m_rules.defaultHierarchiesAreBalanced &&
                            (isDefault || type == OTXMLAHierarchy::kHierarchyTypeUnknown);
    return isBalanced ? OTXMLAHierarchy::kHierarchyFullyBalanced : type;
  }

  OTXMLAHierarchy::DimensionType DimensionType(const XmlAHierarchy& row) const {
    const auto found = m_dimensionTypes.find(row.GetDimensionUniqueName());
    return static_cast<OTXMLAHierarchy::DimensionType>(
        found == m_dimensionTypes.end() ? row.GetDimensionType() : found->second);
  }

  /// Sets the type of the default member. If the look-up fails, adds a warning, and the type stays
  /// unknown. Throws if the operation must end.
  void SetMemberType(OTXMLAHierarchy& hierarchy, const XmlAHierarchy& row, Warnings& warnings) {
    if (!NeedsMemberLookup(row, m_rules)) {
      hierarchy.m_memberType = OTXMLAHierarchy::kMemberTypeAll;
      return;
    }
    try {
      const RefCnt<XmlAMember> member(new XmlAMember);
      member->SetUniqueName(row.GetDefaultMember());
      m_agent.GetMemberOnCatalogCubeHierarchy(member, m_catalog, m_cube, row.GetUniqueName(),
                                              m_dataSource);
      hierarchy.m_memberType = static_cast<OTXMLAHierarchy::MemberType>(member->GetMemberType());
    } catch (const ErrorMessage& error) {
      ThrowIfStopped();  // a cancellation is not a warning
      const ImportOperation* const operation = ImportOperation::Current();
      if (operation && operation->IsOver()) throw;
      warnings.Add(error);
    }
  }

  XmlADiscoverAgent& m_agent;
  const ProviderRules& m_rules = RulesOf(m_agent);
  const String& m_catalog;
  const String& m_cube;
  const String& m_dataSource;
  XmlADiscoverAgent::DefaultHierarchies m_defaults;
  std::map<String, int, LessIgnoringCase> m_dimensionTypes;
};

}  // namespace

void OTXMLAAnaTamImportAPI::GetHierarchies(std::vector<OTXMLAHierarchy>& hierarchies,
                                           String& errors, String& warnings) {
  hierarchies.clear();
  const ImportOperation operation;
  Warnings limitedWarnings(warnings);
  try {
    HierarchyImport import(*m_DiscoverAgent, m_choiceCatalog, m_choiceCube, m_choiceDataSource);
    import.ReadDimensions();
    std::vector<RefCnt<XmlAHierarchy>> rows;
    m_DiscoverAgent->GetHierarchiesOnCatalogCube(rows, m_choiceCatalog, m_choiceCube,
                                                 m_choiceDataSource);
    hierarchies.reserve(
        rows.size());  // records have no move constructor, so growing would copy them
    for (const RefCnt<XmlAHierarchy>& row : rows) {
      ThrowIfStopped();
      if (const int reason = SkipReason(*row, import.Rules())) {
        limitedWarnings.Add(
            reason, {row->GetUniqueName(), m_choiceDataSource, m_choiceCatalog, m_choiceCube});
      } else {
        hierarchies.push_back(import.Import(row, limitedWarnings));
      }
    }
  } catch (const ErrorMessage& error) {
    error.RetrieveErrorMessages(errors);
  } catch (...) {
    limitedWarnings.Finish();
    throw;
  }
  limitedWarnings.Finish();
}
