#pragma once

#include <cstdint>
#include <vector>

#include "Utility/Generic/RefCnt.h"
#include "Utility/Generic/ServerInfo.h"
#include "Utility/Generic/String.h"

/// A row of MDSCHEMA_PROPERTIES: a member property of a level.
class XmlALevelProperty : public RefCountable {
 public:
  /// Sets one column. Compares names ignoring case, and ignores unknown ones.
  void AppendValueName(const String& column, const String& value);
  /// The setter of a column, for use with many rows; null for an unknown column.
  using Setter = void (*)(XmlALevelProperty& row, const String& value);
  Setter FindColumn(const String& column) const;

  String GetName() const { return m_Name; }
  String GetCaption() const { return m_Caption; }
  String GetDataType() const { return m_DataType; }
  String GetPrecision() const { return m_Precision; }
  String GetScale() const { return m_Scale; }
  String GetHierarchyAttributeName() const { return m_HierarchyAttributeName; }
  /// -1 without that column.
  short GetGenerationNumber() const { return m_GenerationNumber; }
  /// -1 without that column.
  short GetPropertyType() const { return m_PropertyType; }

 private:
  String m_Name;                         // PROPERTY_NAME
  String m_Caption;                      // PROPERTY_CAPTION
  String m_DataType;                     // DATA_TYPE
  String m_Precision;                    // CHARACTER_MAXIMUM_LENGTH or NUMERIC_PRECISION
  String m_Scale;                        // NUMERIC_SCALE
  String m_HierarchyAttributeName;       // PROPERTY_ATTRIBUTE_HIERARCHY_NAME
  std::int16_t m_GenerationNumber = -1;  // KELVORA_ATTRIBUTE_GENERATION
  std::int16_t m_PropertyType = -1;      // KELVORA_PROPERTY_TYPE

  friend struct XmlALevelPropertyColumns;
};

using XmlALevelPropertyRefVector = std::vector<RefCnt<XmlALevelProperty>>;

/// A row of MDSCHEMA_LEVELS with its properties.
class XmlALevel : public RefCountable {
 public:
  XmlALevel(ServerInfo::TargetType targetType, ServerInfo::CLIType cliType)
      : m_TargetType(targetType), m_CLIType(cliType) {}

  /// Sets one column. Compares names ignoring case, and ignores unknown ones.
  void AppendValueName(const String& column, const String& value);
  /// The setter of a column, for use with many rows; null for an unknown column.
  using Setter = void (*)(XmlALevel& row, const String& value);
  Setter FindColumn(const String& column) const;
  /// Appends a property. The level shares it.
  void AppendLevelProperty(RefCnt<XmlALevelProperty> property);

  String GetDimensionUniqueName() const { return m_DimensionUniqueName; }
  String GetHierarchyUniqueName() const { return m_HierarchyUniqueName; }
  String GetUniqueName() const { return m_LevelUniqueName; }
  String GetLevelName() const { return m_LevelName; }
  String GetCaption() const { return m_Caption; }
  String GetDataType() const { return m_DataType; }
  String GetPrecision() const { return m_Precision; }
  /// One character whose code is the NUMERIC_SCALE number; empty without that column.
  String GetScale() const { return m_Scale; }
  short GetLevelNumber() const { return m_LevelNumber; }

  unsigned int GetNumOfProperties() const;
  // Data of the property at `index`. Requires index < GetNumOfProperties().
  String GetLevelPropertyCaption(unsigned int index) const;
  String GetLevelPropertyName(unsigned int index) const;
  String GetLevelPropertyDataType(unsigned int index) const;
  String GetLevelPropertyPrecision(unsigned int index) const;
  String GetLevelPropertyScale(unsigned int index) const;
  String GetLevelPropertyHierarchyAttributeName(unsigned int index) const;
  short GetLevelPropertyGenerationNumber(unsigned int index) const;
  short GetLevelPropertyType(unsigned int index) const;

 private:
  String m_LevelName;                       // LEVEL_NAME
  std::int16_t m_LevelNumber = 0;           // LEVEL_NUMBER
  String m_Caption;                         // LEVEL_CAPTION
  String m_DataType;                        // DATA_TYPE
  String m_Precision;                       // CHARACTER_MAXIMUM_LENGTH or NUMERIC_PRECISION
  String m_Scale;                           // NUMERIC_SCALE
  String m_DimensionUniqueName;             // DIMENSION_UNIQUE_NAME
  String m_HierarchyUniqueName;             // HIERARCHY_UNIQUE_NAME
  String m_LevelUniqueName;                 // LEVEL_UNIQUE_NAME
  XmlALevelPropertyRefVector m_Properties;  // rows of MDSCHEMA_PROPERTIES
  // The host's layout has these members. No function reads them.
  [[maybe_unused]] ServerInfo::TargetType m_TargetType;
  [[maybe_unused]] ServerInfo::CLIType m_CLIType;

  friend struct XmlALevelColumns;
};
