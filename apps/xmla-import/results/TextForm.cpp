#include <string>
#include <string_view>

#include "base/TerminalText.h"
#include "call/TargetNames.h"
#include "results/EnumNames.h"
#include "results/Form.h"

namespace {

/// Converts an enumerator's name to words without its prefix: kHierarchyFullyBalanced becomes
/// "fully balanced". A value without a name becomes "code N".
template <class Enum>
std::string ToWords(Enum value, std::string_view prefix) {
  std::string_view name = EnumName(value);
  if (name.empty()) return "code " + std::to_string(static_cast<long long>(value));
  if (name.starts_with(prefix)) name.remove_prefix(prefix.size());
  std::string words;
  bool isAfterLowerCase = false;  // the last character is lower case, so a capital starts a word
  for (const char c : name) {
    const bool isCapital = 'A' <= c && c <= 'Z';
    if (isCapital && isAfterLowerCase) words += ' ';
    words += c == '_' ? ' ' : isCapital ? static_cast<char>(c - 'A' + 'a') : c;
    isAfterLowerCase = 'a' <= c && c <= 'z';
  }
  return words;
}

std::string Structure(OTXMLAHierarchy::HierarchyType type) {
  return type == OTXMLAHierarchy::kHierarchyUnBalanced ? "unbalanced" : ToWords(type, "kHierarchy");
}

class TextForm : public Form {
 public:
  using Form::Form;

  void Write(const NoResult&) override {}

  void Write(const SourcesResult& result) override {
    for (const String& name : result.dataSources)
      if (!MustStop()) Line(0, name);
  }

  void Write(const TreeResult& result) override {
    for (const OTDataSource& source : result.dataSources) {
      Line(0, source.m_dataSourceName);
      for (const OTCatalog& catalog : source.m_catalogs) {
        Line(1, catalog.m_catalogName);
        for (const OTCube& cube : catalog.m_cubes) {
          if (MustStop()) return;
          Line(2, cube.first);
        }
      }
    }
  }

  void Write(const CubeResult& result) override {
    if (result.hierarchies.empty() && result.measures.empty() && result.sapVariables.empty())
      return;
    Line(0, "cube ", result.cube, result.messages.errors.empty() ? "" : " (incomplete)");
    Line(1, "data source ", result.dataSource, ", catalog ", result.catalog);
    for (const OTXMLAHierarchy& hierarchy : result.hierarchies) Hierarchy(hierarchy);
    if (!result.measures.empty()) Line(1, "measures");
    for (const OTXMLAUnit& measure : result.measures) {
      if (MustStop()) return;
      Line(2, Named{measure.m_name, measure.m_externalName}, ": ",
           ToWords(measure.m_aggrType, "kAggr"), ", ", Column(measure));
    }
    if (!result.sapVariables.empty()) Line(1, "variables");
    for (const XmlACubeVariable& variable : result.sapVariables)
      if (!MustStop()) Variable(variable);
  }

  void BeginImport(const ImportResult& result) override {
    if (!result.target.empty())
      Line(0, "provider ", result.providerName, ", version ", result.providerVersion,
           ", imported as ", ExplainedTarget(result.target));
  }

  void AddCube(const CubeResult& cube) override { Write(cube); }

  void EndImport(const ImportResult&) override {}

 private:
  /// A display name, followed by the provider's name if that is different.
  struct Named {
    const String& name;
    const String& externalName;
  };

  template <class... Parts>
  void Line(std::size_t depth, const Parts&... parts) {
    Text().AppendBlanks(2 * depth);
    (Put(parts), ...);
    Text().EndLine();
  }
  void Put(std::string_view ours) { Text().Append(ours); }
  void Put(const String& name) { Text().AppendName(name); }
  void Put(const Named& named) {
    if (named.name.empty() || named.name == named.externalName) return Put(named.externalName);
    Put(named.name);
    Put(" (");
    Put(named.externalName);
    Put(")");
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
    if (MustStop()) return;
    Line(1, "hierarchy ", Named{hierarchy.m_hierarchyName, hierarchy.m_externalName}, ": ",
         Structure(hierarchy.m_hierarchyType), ", dimension ", hierarchy.m_dimensionUniqueName,
         " of kind ", DimensionKind(hierarchy.m_dimensionType), ", default member of kind ",
         ToWords(hierarchy.m_memberType, "kMemberType"));
    for (const OTXMLALevel& level : hierarchy.m_levels) {
      Line(2, std::to_string(level.m_levelNumber), " ",
           Named{level.m_levelName, level.m_externalName});
      for (const OTXMLAUnit& property : level.m_memberProperties) {
        if (MustStop()) return;
        Line(3, "property ", Named{property.m_name, property.m_externalName}, ": ",
             Column(property));
      }
    }
  }
  static std::string DimensionKind(OTXMLAHierarchy::DimensionType type) {
    const bool typed = EnumName(type).starts_with("kDimensionType");
    return ToWords(type, typed ? "kDimensionType" : "kDimension");
  }
  void Variable(const XmlACubeVariable& variable) {
    Text().AppendBlanks(4);
    Put(Named{variable.m_Caption.empty() ? variable.m_Name : variable.m_Caption, variable.m_Name});
    Put(": " + ToWords(variable.m_type, "SAP_VAR_TYPE_") + ", " +
        ToWords(variable.m_selectionType, "SAP_VAR_SEL_TYPE_") + ", " +
        ToWords(variable.m_entryType, "SAP_VAR_INPUT_TYPE_"));
    const bool isOfHierarchy = !variable.m_referenceHierarchy.empty();
    PutIfNotEmpty(", of ",
                  isOfHierarchy ? variable.m_referenceHierarchy : variable.m_referenceDimension);
    PutIfNotEmpty(", default ", variable.m_defaultLow);
    PutIfNotEmpty(" to ", variable.m_defaultHigh);
    Text().EndLine();
  }
  void PutIfNotEmpty(std::string_view words, const String& name) {
    if (name.empty()) return;
    Put(words);
    Put(name);
  }
};

}  // namespace

std::unique_ptr<Form> MakeTextForm(ResultText& text) { return std::make_unique<TextForm>(text); }
