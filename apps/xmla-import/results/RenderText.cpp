#include <string>

#include "base/TerminalText.h"
#include "base/Text.h"
#include "results/EnumNames.h"
#include "results/Rendering.h"

namespace {

/// An enumerator's name in words: kHierarchyFullyBalanced is "fully balanced" once the prefix of
/// its family is taken off. A code without a name is shown as the number.
template <class Enum>
std::string Words(Enum value, std::string_view prefix) {
  std::string_view name = EnumName(value);
  if (name.empty()) return "code " + std::to_string(static_cast<long long>(value));
  if (name.starts_with(prefix)) name.remove_prefix(prefix.size());
  std::string words;
  bool small = false;  // a small letter before: the next capital begins a word
  for (const char c : name) {
    const bool capital = 'A' <= c && c <= 'Z';
    if (capital && small) words += ' ';
    words += c == '_' ? ' ' : capital ? static_cast<char>(c - 'A' + 'a') : c;
    small = 'a' <= c && c <= 'z';
  }
  return words;
}

std::string Structure(OTXMLAHierarchy::HierarchyType type) {
  return type == OTXMLAHierarchy::kHierarchyUnBalanced ? "unbalanced" : Words(type, "kHierarchy");
}

class TextWriter {
 public:
  TextWriter(bool forTerminal, const StopCheck& isToStop)
      : m_forTerminal(forTerminal), m_isToStop(isToStop) {}

  std::string Take() { return std::move(m_text); }

  void Write(const NoResult&) {}

  void Write(const SourcesResult& result) {
    for (const String& name : result.dataSources) Line(0, Name(name));
  }

  void Write(const TreeResult& result) {
    for (const OTDataSource& source : result.dataSources) {
      Line(0, Name(source.m_dataSourceName));
      for (const OTCatalog& catalog : source.m_catalogs) {
        Line(1, Name(catalog.m_catalogName));
        for (const OTCube& cube : catalog.m_cubes) Line(2, Name(cube.first));
      }
    }
  }

  void Write(const CubeResult& result) {
    if (result.hierarchies.empty() && result.measures.empty() && result.sapVariables.empty())
      return;
    Line(0,
         "cube " + Name(result.cube) +
             (result.messages.errors.empty() ? "" : " (incomplete: it could not be read whole)"));
    Line(1, "data source " + Name(result.dataSource) + ", catalog " + Name(result.catalog));
    for (const OTXMLAHierarchy& hierarchy : result.hierarchies) Hierarchy(hierarchy);
    if (!result.measures.empty()) Line(1, "measures");
    for (const OTXMLAUnit& measure : result.measures)
      Line(2, Named(measure.m_name, measure.m_externalName) + ": " +
                  Words(measure.m_aggrType, "kAggr") + ", " + Column(measure));
    if (!result.sapVariables.empty()) Line(1, "variables");
    for (const XmlACubeVariable& variable : result.sapVariables) Variable(variable);
  }

  void Write(const ImportResult& result) {
    if (!result.target.empty())
      Line(0, "provider " + Name(result.providerName) + ", version " +
                  Name(result.providerVersion) + ", imported as " + result.target);
    for (const CubeResult& cube : result.cubes) Write(cube);
  }

 private:
  void Line(int depth, const std::string& text) {
    if (m_isToStop()) throw RenderingStopped();
    m_text.append(2 * static_cast<std::size_t>(depth), ' ').append(text).append("\n");
  }
  std::string Name(const String& name) const {
    return m_forTerminal ? HarmlessOnTerminal(Utf8(name)) : Utf8(name);
  }
  /// A display name, with the provider's own name behind it where that differs.
  std::string Named(const String& name, const String& externalName) const {
    if (name.empty() || name == externalName) return Name(externalName);
    return Name(name) + " (" + Name(externalName) + ")";
  }
  static std::string Column(const OTXMLAUnit& unit) {
    std::string_view type = EnumName(unit.m_type);
    if (type.starts_with("VX")) type.remove_prefix(2);
    if (type.ends_with("Data")) type.remove_suffix(4);
    std::string text = std::string(type) + "(" + std::to_string(unit.m_precision);
    if (unit.m_scale != 0) text += ", " + std::to_string(unit.m_scale);
    return text + ")";
  }
  void Hierarchy(const OTXMLAHierarchy& hierarchy) {
    Line(1, "hierarchy " + Named(hierarchy.m_hierarchyName, hierarchy.m_externalName) + ": " +
                Structure(hierarchy.m_hierarchyType) + ", dimension " +
                Name(hierarchy.m_dimensionUniqueName) + " of kind " +
                DimensionKind(hierarchy.m_dimensionType) + ", default member of kind " +
                Words(hierarchy.m_memberType, "kMemberType"));
    for (const OTXMLALevel& level : hierarchy.m_levels) {
      Line(2, std::to_string(level.m_levelNumber) + " " +
                  Named(level.m_levelName, level.m_externalName));
      for (const OTXMLAUnit& property : level.m_memberProperties)
        Line(3, "property " + Named(property.m_name, property.m_externalName) + ": " +
                    Column(property));
    }
  }
  static std::string DimensionKind(OTXMLAHierarchy::DimensionType type) {
    const bool typed = EnumName(type).starts_with("kDimensionType");
    return Words(type, typed ? "kDimensionType" : "kDimension");
  }
  void Variable(const XmlACubeVariable& variable) {
    std::string text =
        Named(variable.m_Caption.empty() ? variable.m_Name : variable.m_Caption, variable.m_Name) +
        ": " + Words(variable.m_type, "SAP_VAR_TYPE_") + ", " +
        Words(variable.m_selectionType, "SAP_VAR_SEL_TYPE_") + ", " +
        Words(variable.m_entryType, "SAP_VAR_INPUT_TYPE_");
    if (!variable.m_referenceHierarchy.empty())
      text += ", of " + Name(variable.m_referenceHierarchy);
    else if (!variable.m_referenceDimension.empty())
      text += ", of " + Name(variable.m_referenceDimension);
    if (!variable.m_defaultLow.empty()) text += ", default " + Name(variable.m_defaultLow);
    if (!variable.m_defaultHigh.empty()) text += " to " + Name(variable.m_defaultHigh);
    Line(2, text);
  }

  bool m_forTerminal;
  const StopCheck& m_isToStop;
  std::string m_text;
};

}  // namespace

std::string RenderText(const Result& result, bool forTerminal, const StopCheck& isToStop) {
  TextWriter writer(forTerminal, isToStop);
  std::visit([&writer](const auto& any) { writer.Write(any); }, result);
  return writer.Take();
}
