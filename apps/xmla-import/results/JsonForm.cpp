#include <string_view>

#include "results/EnumNames.h"
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

  void Write(const SourcesResult& result) override {
    m_json.BeginObject();
    List("dataSources", result.dataSources);
    EndWith(result.messages);
  }

  void Write(const TreeResult& result) override {
    m_json.BeginObject();
    List("dataSources", result.dataSources);
    EndWith(result.messages);
  }

  void Write(const CubeResult& result) override {
    Element(result);
    Text().Append('\n');
  }

  void BeginImport(const ImportResult& result) override {
    m_json.BeginObject();
    m_json.Key("provider");
    m_json.BeginObject();
    Member("name", result.providerName);
    Member("version", result.providerVersion);
    Member("target", std::string_view(result.target));
    m_json.EndObject();
    m_json.Key("cubes");
    m_json.BeginList();
  }

  void AddCube(const CubeResult& cube) override { Element(cube); }

  void EndImport(const ImportResult& result) override {
    m_json.EndList();
    EndWith(result.messages);
  }

 private:
  template <class Type>
  void Member(std::string_view key, const Type& value) {
    m_json.Key(key);
    m_json.Value(value);
  }

  /// Writes the enumerator's name, or the number if there is none.
  template <class Enum>
  void Named(std::string_view key, Enum value) {
    m_json.Key(key);
    const std::string_view name = EnumName(value);
    if (name.empty())
      m_json.Value(static_cast<long long>(value));
    else
      m_json.Value(name);
  }

  template <class Items>
  void List(std::string_view key, const Items& items) {
    m_json.Key(key);
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
    Text().Append('\n');
  }

  void Element(const String& text) { m_json.Value(text); }

  void Element(const CubeResult& cube) {
    m_json.BeginObject();
    Member("dataSource", cube.dataSource);
    Member("catalog", cube.catalog);
    Member("cube", cube.cube);
    List("hierarchies", cube.hierarchies);
    List("measures", cube.measures);
    List("sapVariables", cube.sapVariables);
    Messages(cube.messages);
    m_json.EndObject();
  }

  void Element(const OTDataSource& source) {
    m_json.BeginObject();
    Member("name", source.m_dataSourceName);
    List("variables", source.m_variables);
    List("catalogs", source.m_catalogs);
    m_json.EndObject();
  }

  void Element(const OTCatalog& catalog) {
    m_json.BeginObject();
    Member("name", catalog.m_catalogName);
    Member("asoType", catalog.m_bASOType);
    List("variables", catalog.m_variables);
    List("cubes", catalog.m_cubes);
    m_json.EndObject();
  }

  void Element(const OTCube& cube) {
    m_json.BeginObject();
    Member("name", cube.first);
    Member("secondName", cube.second);
    List("variables", cube.m_variables);
    List("aliases", cube.m_aliases);
    Member("memberNameUnique", cube.m_bMemberNameUnique);
    Member("dateFormat", cube.m_dateFormat);
    List("sapVariables", cube.m_sapVariables);
    m_json.EndObject();
  }

  void Element(const OTXMLAHierarchy& hierarchy) {
    m_json.BeginObject();
    Member("name", hierarchy.m_hierarchyName);
    Member("externalName", hierarchy.m_externalName);
    Member("dimensionUniqueName", hierarchy.m_dimensionUniqueName);
    Named("memberType", hierarchy.m_memberType);
    Named("hierarchyType", hierarchy.m_hierarchyType);
    Named("dimensionType", hierarchy.m_dimensionType);
    Member("defaultMember", hierarchy.m_defaultMember);
    List("alternateHierarchyNames", hierarchy.m_alternateHierarchyNames);
    List("udas", hierarchy.m_udas);
    List("levels", hierarchy.m_levels);
    m_json.EndObject();
  }

  void Element(const OTXMLALevel& level) {
    m_json.BeginObject();
    Member("name", level.m_levelName);
    Member("externalName", level.m_externalName);
    Member("number", level.m_levelNumber);
    m_json.Key("unit");
    Element(level.m_level);
    List("memberProperties", level.m_memberProperties);
    m_json.EndObject();
  }

  void Element(const OTXMLAUnit& unit) {
    m_json.BeginObject();
    Member("name", unit.m_name);
    Member("externalName", unit.m_externalName);
    Named("aggrType", unit.m_aggrType);
    Named("type", unit.m_type);
    Member("precision", unit.m_precision);
    Member("scale", unit.m_scale);
    Member("nullable", unit.m_nullable);
    Named("dimPropType", unit.m_dimPropType);
    Member("tamarindAttributeHierarchyName", unit.m_tamarindAttributeHierarchyName);
    Member("tamarindGenerationNumber", unit.m_tamarindGenerationNumber);
    Member("tamarindPropertyType", unit.m_tamarindPropertyType);
    m_json.EndObject();
  }

  void Element(const XmlACubeVariable& variable) {
    m_json.BeginObject();
    Member("name", variable.m_Name);
    Member("caption", variable.m_Caption);
    Named("type", variable.m_type);
    Named("selectionType", variable.m_selectionType);
    Named("entryType", variable.m_entryType);
    Member("referenceDimension", variable.m_referenceDimension);
    Member("referenceHierarchy", variable.m_referenceHierarchy);
    Member("defaultLow", variable.m_defaultLow);
    Member("defaultHigh", variable.m_defaultHigh);
    Member("overrideDefaultLow", variable.m_overrideDefaultLow);
    Member("overrideDefaultHigh", variable.m_overrideDefaultHigh);
    m_json.EndObject();
  }

  JsonWriter m_json;
};

}  // namespace

std::unique_ptr<Form> MakeJsonForm(ResultText& text) { return std::make_unique<JsonForm>(text); }
