#pragma once

#include <string_view>

#include "Import/OTXMLAHierarchy.h"
#include "Import/OTXMLAUnit.h"
#include "Import/XmlACubeVariable.h"

// The name of the first enumerator with this value, in declaration order. Empty if there is none:
// providers may send unknown codes.

std::string_view EnumName(OTXMLAUnit::AggrType value);
std::string_view EnumName(OTXMLAUnit::DimPropType value);
std::string_view EnumName(VXDataType value);
std::string_view EnumName(OTXMLAHierarchy::MemberType value);
std::string_view EnumName(OTXMLAHierarchy::HierarchyType value);
std::string_view EnumName(OTXMLAHierarchy::DimensionType value);
std::string_view EnumName(XmlACubeVariable::VariableType value);
std::string_view EnumName(XmlACubeVariable::VariableSelType value);
std::string_view EnumName(XmlACubeVariable::VariableEntryType value);
