#pragma once

/// \file
/// The import record of the variables of SAP BW cubes.

#include <tuple>
#include <vector>

#include "Utility/Generic/RefCnt.h"
#include "Utility/Generic/String.h"

/// A variable of an SAP BW query cube: a row of SAP_VARIABLES. The rowset reader creates
/// reference-counted objects; OTCube contains copies by value. The codes are stored as the provider
/// sends them and may be outside the enumerations.
class XmlACubeVariable : public RefCountable {
 private:
  auto Fields() const {
    return std::tie(m_Name, m_Caption, m_type, m_selectionType, m_entryType, m_referenceDimension,
                    m_referenceHierarchy, m_defaultLow, m_defaultHigh, m_overrideDefaultLow,
                    m_overrideDefaultHigh);
  }

 public:
  /// Codes of the column VARIABLE_TYPE.
  enum VariableType : int {
    SAP_VAR_TYPE_MEMBER = 1,
    SAP_VAR_TYPE_NUMERIC = 2,
    SAP_VAR_TYPE_HIERARCHY = 3,
  };
  /// Codes of the column VARIABLE_SELECTION_TYPE.
  enum VariableSelType : int {
    SAP_VAR_SEL_TYPE_VALUE = 1,
    SAP_VAR_SEL_TYPE_INTERVAL = 2,
    SAP_VAR_SEL_TYPE_COMPLEX = 3,
    SAP_VAR_SEL_TYPE_MULTI_SINGLE_VALUES = 4,
  };
  /// Codes of the column VARIABLE_ENTRY_TYPE.
  enum VariableEntryType : int {
    SAP_VAR_INPUT_TYPE_OPTIONAL = 0,
    SAP_VAR_INPUT_TYPE_MANDATORY = 1,
    SAP_VAR_INPUT_TYPE_MANDATORY_NOT_INITIAL = 2,
  };

  XmlACubeVariable() = default;
  /// Copies all fields and the reference count. The count has no meaning in a copy by value.
  XmlACubeVariable(const XmlACubeVariable&) = default;
  XmlACubeVariable& operator=(const XmlACubeVariable&) = default;
  ~XmlACubeVariable() override = default;

  /// Assigns all eleven fields.
  void CopyFrom(const XmlACubeVariable& other) { *this = other; }
  /// Compares all eleven fields.
  bool operator==(const XmlACubeVariable& other) const { return Fields() == other.Fields(); }

  String m_Name;                                                ///< VARIABLE_NAME
  String m_Caption;                                             ///< VARIABLE_CAPTION
  VariableType m_type = SAP_VAR_TYPE_MEMBER;                    ///< VARIABLE_TYPE
  VariableSelType m_selectionType = SAP_VAR_SEL_TYPE_VALUE;     ///< VARIABLE_SELECTION_TYPE
  VariableEntryType m_entryType = SAP_VAR_INPUT_TYPE_OPTIONAL;  ///< VARIABLE_ENTRY_TYPE
  String m_referenceDimension;                                  ///< REFERENCE_DIMENSION
  String m_referenceHierarchy;                                  ///< REFERENCE_HIERARCHY
  String m_defaultLow;                                          ///< DEFAULT_LOW
  String m_defaultHigh;                                         ///< DEFAULT_HIGH
  String m_overrideDefaultLow;                                  ///< no column; for the host
  String m_overrideDefaultHigh;                                 ///< no column; for the host
};

/// Variables of one cube, or of all cubes of a catalog (rows of SAP_VARIABLES), as values. See
/// OTXMLAImportAPI::GetSAPVariables.
using XmlACubeVariableVector = std::vector<XmlACubeVariable>;
