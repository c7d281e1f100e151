#include "SUXMLASAXColumnMap.h"
#include "Utility/XMLASAX/XmlACubeVariableUtility.h"

namespace {

using Row = XmlACubeVariable;

template <String Row::*field>
constexpr auto kText = &SetText<Row, field>;

template <class Code, Code Row::*field>
void SetCode(Row& row, const String& value) {
  row.*field = static_cast<Code>(BaseStringUtil::Int16From(value));
}

constexpr Column<Row> kMap[] = {
    {L"VARIABLE_NAME", kText<&Row::m_Name>},
    {L"VARIABLE_CAPTION", kText<&Row::m_Caption>},
    {L"VARIABLE_TYPE", &SetCode<Row::VariableType, &Row::m_type>},
    {L"VARIABLE_SELECTION_TYPE", &SetCode<Row::VariableSelType, &Row::m_selectionType>},
    {L"VARIABLE_ENTRY_TYPE", &SetCode<Row::VariableEntryType, &Row::m_entryType>},
    {L"REFERENCE_DIMENSION", kText<&Row::m_referenceDimension>},
    {L"REFERENCE_HIERARCHY", kText<&Row::m_referenceHierarchy>},
    {L"DEFAULT_LOW", kText<&Row::m_defaultLow>},
    {L"DEFAULT_HIGH", kText<&Row::m_defaultHigh>},
};

}  // namespace

void XmlACubeVariableUtility::AppendValueName(XmlACubeVariable& variable, const String& column,
                                              const String& value) {
  if (const Setter set = FindColumn(column)) set(variable, value);
}

XmlACubeVariableUtility::Setter XmlACubeVariableUtility::FindColumn(const String& column) {
  return FindSetter(kMap, column);
}
