#pragma once

#include "Utility/Generic/RefCnt.h"
#include "Utility/Generic/ServerInfo.h"
#include "Utility/Generic/String.h"

/// A row of MDSCHEMA_HIERARCHIES.
class XmlAHierarchy : public RefCountable {
 public:
  /// Codes of the STRUCTURE column.
  enum XmlAHierarchyStructures : int {
    SMD_STRUCTURE_FULLYBALANCED = 0,
    SMD_STRUCTURE_RAGGEDBALANCED = 1,
    SMD_STRUCTURE_UNBALANCED = 2,
    SMD_STRUCTURE_NETWORK = 3,
  };
  /// Codes of the DIMENSION_TYPE column of a hierarchy row.
  enum XmlADimensionType : int {
    SMD_DIMTYPE_TIME = 1,
    SMD_DIMTYPE_MEASURE = 2,
    SMD_DIMTYPE_OTHER = 3,
    SMD_DIMTYPE_UNKNOWN = 4,
  };

  XmlAHierarchy(ServerInfo::TargetType targetType, ServerInfo::CLIType cliType)
      : m_TargetType(targetType), m_CLIType(cliType) {}

  /// Sets one column. Compares names ignoring case, and ignores unknown ones.
  void AppendValueName(const String& column, const String& value);
  /// The setter of a column, for use with many rows; null for an unknown column.
  using Setter = void (*)(XmlAHierarchy& row, const String& value);
  Setter FindColumn(const String& column) const;

  String GetUniqueName() const { return m_UniqueName; }
  String GetCaption() const { return m_Caption; }
  String GetDefaultMember() const { return m_DefaultMemberName; }
  String GetAllMember() const { return m_AllMemberName; }
  String GetDimensionUniqueName() const { return m_DimensionUniqueName; }
  /// A value of OTXMLAHierarchy::HierarchyType; unknown if STRUCTURE is missing or not 0 to 3.
  int GetHierarchyType() const;
  /// A value of OTXMLAHierarchy::DimensionType: time, measure, other or unknown.
  int GetDimensionType() const;
  bool FullyBalanced() const;
  /// False for a hierarchy of the measures dimension (DIMENSION_TYPE 2).
  bool NotMeasure() const;
  bool Virtual() const { return m_IsVirtual; }

 private:
  String m_DimensionType;        // DIMENSION_TYPE
  String m_HierarchyStructure;   // STRUCTURE
  String m_UniqueName;           // HIERARCHY_UNIQUE_NAME
  String m_Caption;              // HIERARCHY_CAPTION
  String m_DefaultMemberName;    // DEFAULT_MEMBER
  String m_AllMemberName;        // ALL_MEMBER
  String m_DimensionUniqueName;  // DIMENSION_UNIQUE_NAME
  bool m_IsVirtual = false;      // IS_VIRTUAL, DIMENSION_MASTER_UNIQUE_NAME
  // The host's layout has these members. No function reads them.
  [[maybe_unused]] ServerInfo::TargetType m_TargetType;
  [[maybe_unused]] ServerInfo::CLIType m_CLIType;

  friend struct XmlAHierarchyColumns;
};
