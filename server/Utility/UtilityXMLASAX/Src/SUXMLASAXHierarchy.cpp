#include <iterator>

#include "Import/OTXMLAHierarchy.h"
#include "SUXMLASAXColumnMap.h"
#include "Utility/XMLASAX/XmlAHierarchy.h"
#include "Utility/XMLASAX/XmlASaxDefs.h"

struct XmlAHierarchyColumns {
  using Row = XmlAHierarchy;
  template <String Row::*field>
  static constexpr auto kText = &SetText<Row, field>;

  // A dimension with a master dimension is virtual, even if the master's name is empty.
  static void SetMaster(Row& row, const String&) { row.m_IsVirtual = true; }
  static void SetIsVirtual(Row& row, const String& value) {
    if (BaseStringUtil::IsCaseInsensitiveMatch(value, L"TRUE")) row.m_IsVirtual = true;
  }

  static constexpr Column<Row> kMap[] = {
      {L"HIERARCHY_UNIQUE_NAME", kText<&Row::m_UniqueName>},
      {L"DIMENSION_UNIQUE_NAME", kText<&Row::m_DimensionUniqueName>},
      {L"HIERARCHY_CAPTION", kText<&Row::m_Caption>},
      {L"DEFAULT_MEMBER", kText<&Row::m_DefaultMemberName>},
      {L"ALL_MEMBER", kText<&Row::m_AllMemberName>},
      {L"STRUCTURE", kText<&Row::m_HierarchyStructure>},
      {L"DIMENSION_TYPE", kText<&Row::m_DimensionType>},
      {L"DIMENSION_MASTER_UNIQUE_NAME", &SetMaster},
      {L"IS_VIRTUAL", &SetIsVirtual},
  };
};

namespace {

// Index: STRUCTURE code.
constexpr OTXMLAHierarchy::HierarchyType kHierarchyTypes[] = {
    OTXMLAHierarchy::kHierarchyFullyBalanced,
    OTXMLAHierarchy::kHierarchyRaggedBalanced,
    OTXMLAHierarchy::kHierarchyUnBalanced,
    OTXMLAHierarchy::kHierarchyNetwork,
};

}  // namespace

XmlAHierarchy::Setter XmlAHierarchy::FindColumn(const String& column) const {
  return FindSetter(XmlAHierarchyColumns::kMap, column);
}

void XmlAHierarchy::AppendValueName(const String& column, const String& value) {
  SetColumn(*this, column, value);
}

int XmlAHierarchy::GetHierarchyType() const {
  if (m_HierarchyStructure.empty()) return OTXMLAHierarchy::kHierarchyTypeUnknown;
  const int code = BaseStringUtil::Int16From(m_HierarchyStructure);
  if (code < 0 || code >= int{std::size(kHierarchyTypes)})
    return OTXMLAHierarchy::kHierarchyTypeUnknown;
  return kHierarchyTypes[code];
}

int XmlAHierarchy::GetDimensionType() const {
  if (m_DimensionType.empty()) return OTXMLAHierarchy::kDimensionTypeUnknown;
  switch (BaseStringUtil::Int16From(m_DimensionType)) {
    case SMD_DIMTYPE_TIME:
      return OTXMLAHierarchy::kDimensionTypeTime;
    case SMD_DIMTYPE_MEASURE:
      return OTXMLAHierarchy::kDimensionTypeMeasure;
    case SMD_DIMTYPE_OTHER:
      return OTXMLAHierarchy::kDimensionTypeOther;
    default:
      return OTXMLAHierarchy::kDimensionTypeUnknown;
  }
}

bool XmlAHierarchy::FullyBalanced() const {
  const int code = BaseStringUtil::Int16From(m_HierarchyStructure);
  if (code < 0 || code >= int{std::size(XmlASaxDefsNameSpace::HierarchyStructures)}) return false;
  return BaseStringUtil::IsCaseInsensitiveMatch(XmlASaxDefsNameSpace::HierarchyStructures[code],
                                                L"MD_STRUCTURE_FULLYBALANCED");
}

bool XmlAHierarchy::NotMeasure() const {
  return BaseStringUtil::Int16From(m_DimensionType) != SMD_DIMTYPE_MEASURE;
}
