#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Import/OTXMLAHierarchy.h"
#include "Import/OTXMLAUnit.h"
#include "Import/XmlACubeVariable.h"
#include "base/LegendEntry.h"

/// The words of the text format in the order in which they appear. In two columns, the lines have
/// at most 80 characters.
std::span<const LegendEntry> TextLegend();

struct EnumeratorWord {
  std::string_view enumerator;  ///< its name in JSON
  LegendEntry entry;
};
/// The words for values.
std::vector<EnumeratorWord> EnumeratorWords();

// The word for a value, or "code N" if there is none: servers may send unknown codes.

std::string Word(OTXMLAUnit::AggrType value);
std::string Word(OTXMLAHierarchy::MemberType value);
std::string Word(OTXMLAHierarchy::HierarchyType value);
/// Empty for an unknown or ordinary dimension.
std::string Word(OTXMLAHierarchy::DimensionType value);
std::string Word(XmlACubeVariable::VariableType value);
std::string Word(XmlACubeVariable::VariableSelType value);
std::string Word(XmlACubeVariable::VariableEntryType value);
