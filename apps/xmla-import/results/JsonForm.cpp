#include <string_view>
#include <type_traits>

#include "Import/EnumNames.h"
#include "results/Form.h"
#include "results/JsonWriter.h"

namespace {

/// Writes each host record as an object with keys in fixed order.
class JsonForm : public Form {
 public:
  explicit JsonForm(ResultText& text) : Form(text), m_json(text) {}

  void Write(const NoResult& result) override {
    m_json.BeginObject();
    EndWith(result.messages);
  }

  void Write(const ServersResult& result) override {
    BeginObject().Add("servers", result.servers);
    EndWith(result.messages);
  }

  void Write(const SourcesResult& result) override {
    BeginObject().Add("dataSources", result.dataSources);
    EndWith(result.messages);
  }

  void Write(const TreeResult& result) override {
    BeginObject().Add("dataSources", result.dataSources);
    EndWith(result.messages);
  }

  void Write(const CubeResult& result) override {
    Element(result);
    Text().EndLine();
  }

  void BeginImport(const ImportResult& result) override {
    m_json.BeginObject();
    m_json.Key("provider");
    BeginObject()
        .Add("name", result.providerName)
        .Add("version", result.providerVersion)
        .Add("target", std::string_view(result.target))
        .EndObject();
    m_json.Key("cubes");
    m_json.BeginList();
  }

  void AddCube(const CubeResult& cube) override { Element(cube); }

  void EndImport(const ImportResult& result) override {
    m_json.EndList();
    EndWith(result.messages);
  }

  void BeginSteps(const CheckResult& result) override {
    BeginObject()
        .Add("url", std::string_view(result.url))
        .Add("target", std::string_view(result.target));
    m_json.Key("steps");
    m_json.BeginList();
  }

  void AddStep(const CheckStep& step) override {
    BeginObject()
        .Add("step", std::string_view(step.name))
        .Add("status", std::string_view(StatusName(step.status)))
        .Add("found", std::string_view(step.found))
        .Add("advice", std::string_view(step.advice));
    m_json.Key("seconds");
    if (step.seconds)
      m_json.Value(*step.seconds);
    else
      m_json.Null();
    EndObject();
  }

  void EndSteps(const CheckResult& result) override {
    m_json.EndList();
    EndWith(result.messages);
  }

 private:
  JsonForm& BeginObject() {
    m_json.BeginObject();
    return *this;
  }
  void EndObject() { m_json.EndObject(); }

  /// Writes a key and its value: an enumerator, text, record, list, number or flag.
  template <class Type>
  JsonForm& Add(std::string_view key, const Type& value) {
    m_json.Key(key);
    if constexpr (std::is_enum_v<Type>)
      Enumerator(value);
    else if constexpr (requires { Element(value); })
      Element(value);
    else if constexpr (requires { m_json.Value(value); })
      m_json.Value(value);
    else
      List(value);
    return *this;
  }

  /// Writes the enumerator's name, or the number if there is none.
  template <class Enum>
  void Enumerator(Enum value) {
    const std::string_view name = EnumName(value);
    if (name.empty())
      m_json.Value(static_cast<long long>(value));
    else
      m_json.Value(name);
  }

  template <class Items>
  void List(const Items& items) {
    m_json.BeginList();
    for (const auto& item : items) {
      if (MustStop()) break;
      Element(item);
    }
    m_json.EndList();
  }

  /// The last two members of every result.
  void Messages(const ::Messages& messages) {
    m_json.Key("errors");
    m_json.BeginList();
    for (const std::string& line : messages.errors) m_json.Value(std::string_view(line));
    if (IsCut()) m_json.Value(std::string_view(kCutShort));
    m_json.EndList();
    m_json.Key("warnings");
    m_json.BeginList();
    for (const std::string& line : messages.warnings) m_json.Value(std::string_view(line));
    m_json.EndList();
  }

  /// Ends the document.
  void EndWith(const ::Messages& messages) {
    Messages(messages);
    m_json.EndObject();
    Text().EndLine();
  }

  void Element(const String& text) { m_json.Value(text); }

  void Element(const CubeResult& cube) {
    BeginObject()
        .Add("dataSource", cube.dataSource)
        .Add("catalog", cube.catalog)
        .Add("cube", cube.cube)
        .Add("hierarchies", cube.hierarchies)
        .Add("measures", cube.measures)
        .Add("sapVariables", cube.sapVariables);
    Messages(cube.messages);
    m_json.EndObject();
  }

  void Element(const ServersResult::Entry& server) {
    BeginObject().Add("name", server.name).Add("url", server.url).EndObject();
  }

  void Element(const OTDataSource& source) {
    BeginObject()
        .Add("name", source.m_dataSourceName)
        .Add("variables", source.m_variables)
        .Add("catalogs", source.m_catalogs)
        .EndObject();
  }

  void Element(const OTCatalog& catalog) {
    BeginObject()
        .Add("name", catalog.m_catalogName)
        .Add("asoType", catalog.m_bASOType)
        .Add("variables", catalog.m_variables)
        .Add("cubes", catalog.m_cubes)
        .EndObject();
  }

  void Element(const OTCube& cube) {
    BeginObject()
        .Add("name", cube.first)
        .Add("secondName", cube.second)
        .Add("variables", cube.m_variables)
        .Add("aliases", cube.m_aliases)
        .Add("memberNameUnique", cube.m_bMemberNameUnique)
        .Add("dateFormat", cube.m_dateFormat)
        .Add("sapVariables", cube.m_sapVariables)
        .EndObject();
  }

  void Element(const OTXMLAHierarchy& hierarchy) {
    BeginObject()
        .Add("name", hierarchy.m_hierarchyName)
        .Add("externalName", hierarchy.m_externalName)
        .Add("dimensionUniqueName", hierarchy.m_dimensionUniqueName)
        .Add("memberType", hierarchy.m_memberType)
        .Add("hierarchyType", hierarchy.m_hierarchyType)
        .Add("dimensionType", hierarchy.m_dimensionType)
        .Add("defaultMember", hierarchy.m_defaultMember)
        .Add("alternateHierarchyNames", hierarchy.m_alternateHierarchyNames)
        .Add("udas", hierarchy.m_udas)
        .Add("levels", hierarchy.m_levels)
        .EndObject();
  }

  void Element(const OTXMLALevel& level) {
    BeginObject()
        .Add("name", level.m_levelName)
        .Add("externalName", level.m_externalName)
        .Add("number", level.m_levelNumber)
        .Add("unit", level.m_level)
        .Add("memberProperties", level.m_memberProperties)
        .EndObject();
  }

  void Element(const OTXMLAUnit& unit) {
    BeginObject()
        .Add("name", unit.m_name)
        .Add("externalName", unit.m_externalName)
        .Add("aggrType", unit.m_aggrType)
        .Add("type", unit.m_type)
        .Add("precision", unit.m_precision)
        .Add("scale", unit.m_scale)
        .Add("nullable", unit.m_nullable)
        .Add("dimPropType", unit.m_dimPropType)
        .Add("tamarindAttributeHierarchyName", unit.m_tamarindAttributeHierarchyName)
        .Add("tamarindGenerationNumber", unit.m_tamarindGenerationNumber)
        .Add("tamarindPropertyType", unit.m_tamarindPropertyType)
        .EndObject();
  }

  void Element(const XmlACubeVariable& variable) {
    BeginObject()
        .Add("name", variable.m_Name)
        .Add("caption", variable.m_Caption)
        .Add("type", variable.m_type)
        .Add("selectionType", variable.m_selectionType)
        .Add("entryType", variable.m_entryType)
        .Add("referenceDimension", variable.m_referenceDimension)
        .Add("referenceHierarchy", variable.m_referenceHierarchy)
        .Add("defaultLow", variable.m_defaultLow)
        .Add("defaultHigh", variable.m_defaultHigh)
        .Add("overrideDefaultLow", variable.m_overrideDefaultLow)
        .Add("overrideDefaultHigh", variable.m_overrideDefaultHigh)
        .EndObject();
  }

  JsonWriter m_json;
};

}  // namespace

std::unique_ptr<Form> MakeJsonForm(ResultText& text) { return std::make_unique<JsonForm>(text); }
