#include <algorithm>
#include <atomic>
#include <future>
#include <nlohmann/json.hpp>
#include <system_error>

#include "base/Text.h"
#include "results/EnumNames.h"
#include "results/Rendering.h"

namespace {

using Json = nlohmann::ordered_json;

Json JsonOf(const OTXMLAUnit& unit);
Json JsonOf(const OTXMLALevel& level);
Json JsonOf(const OTXMLAHierarchy& hierarchy);
Json JsonOf(const XmlACubeVariable& variable);
Json JsonOf(const OTCube& cube);
Json JsonOf(const OTCatalog& catalog);
Json JsonOf(const OTDataSource& source);
Json JsonOf(const CubeResult& result);
Json JsonOf(const String& text) { return Utf8(text); }

template <class List>
Json ListOf(const List& list) {
  Json json = Json::array();
  for (const auto& item : list) json.push_back(JsonOf(item));
  return json;
}

template <class Enum>
Json EnumOf(Enum value) {
  const std::string_view name = EnumName(value);
  if (name.empty()) return static_cast<long long>(value);
  return std::string(name);
}

Json JsonOf(const XmlACubeVariable& variable) {
  return {{"name", JsonOf(variable.m_Name)},
          {"caption", JsonOf(variable.m_Caption)},
          {"type", EnumOf(variable.m_type)},
          {"selectionType", EnumOf(variable.m_selectionType)},
          {"entryType", EnumOf(variable.m_entryType)},
          {"referenceDimension", JsonOf(variable.m_referenceDimension)},
          {"referenceHierarchy", JsonOf(variable.m_referenceHierarchy)},
          {"defaultLow", JsonOf(variable.m_defaultLow)},
          {"defaultHigh", JsonOf(variable.m_defaultHigh)},
          {"overrideDefaultLow", JsonOf(variable.m_overrideDefaultLow)},
          {"overrideDefaultHigh", JsonOf(variable.m_overrideDefaultHigh)}};
}

Json JsonOf(const OTXMLAUnit& unit) {
  return {{"name", JsonOf(unit.m_name)},
          {"externalName", JsonOf(unit.m_externalName)},
          {"aggrType", EnumOf(unit.m_aggrType)},
          {"type", EnumOf(unit.m_type)},
          {"precision", unit.m_precision},
          {"scale", unit.m_scale},
          {"nullable", static_cast<int>(unit.m_nullable)},
          {"dimPropType", EnumOf(unit.m_dimPropType)},
          {"tamarindAttributeHierarchyName", JsonOf(unit.m_tamarindAttributeHierarchyName)},
          {"tamarindGenerationNumber", unit.m_tamarindGenerationNumber},
          {"tamarindPropertyType", unit.m_tamarindPropertyType}};
}

Json JsonOf(const OTXMLALevel& level) {
  return {{"name", JsonOf(level.m_levelName)},
          {"externalName", JsonOf(level.m_externalName)},
          {"number", level.m_levelNumber},
          {"unit", JsonOf(level.m_level)},
          {"memberProperties", ListOf(level.m_memberProperties)}};
}

Json JsonOf(const OTXMLAHierarchy& hierarchy) {
  return {{"name", JsonOf(hierarchy.m_hierarchyName)},
          {"externalName", JsonOf(hierarchy.m_externalName)},
          {"dimensionUniqueName", JsonOf(hierarchy.m_dimensionUniqueName)},
          {"memberType", EnumOf(hierarchy.m_memberType)},
          {"hierarchyType", EnumOf(hierarchy.m_hierarchyType)},
          {"dimensionType", EnumOf(hierarchy.m_dimensionType)},
          {"defaultMember", JsonOf(hierarchy.m_defaultMember)},
          {"alternateHierarchyNames", ListOf(hierarchy.m_alternateHierarchyNames)},
          {"udas", ListOf(hierarchy.m_udas)},
          {"levels", ListOf(hierarchy.m_levels)}};
}

Json JsonOf(const OTCube& cube) {
  return {{"name", JsonOf(cube.first)},
          {"secondName", JsonOf(cube.second)},
          {"variables", ListOf(cube.m_variables)},
          {"aliases", ListOf(cube.m_aliases)},
          {"memberNameUnique", cube.m_bMemberNameUnique},
          {"dateFormat", JsonOf(cube.m_dateFormat)},
          {"sapVariables", ListOf(cube.m_sapVariables)}};
}

/// Without its cubes.
Json JsonOf(const OTCatalog& catalog) {
  return {{"name", JsonOf(catalog.m_catalogName)},
          {"asoType", catalog.m_bASOType},
          {"variables", ListOf(catalog.m_variables)},
          {"cubes", nullptr}};
}

/// Without its catalogs.
Json JsonOf(const OTDataSource& source) {
  return {{"name", JsonOf(source.m_dataSourceName)},
          {"variables", ListOf(source.m_variables)},
          {"catalogs", nullptr}};
}

/// A document's last two keys.
Json With(Json json, const Messages& messages) {
  json["errors"] = messages.errors;
  json["warnings"] = messages.warnings;
  return json;
}

Json JsonOf(const NoResult& result) { return With(Json::object(), result.messages); }

/// Without its list.
Json JsonOf(const SourcesResult& result) {
  return With({{"dataSources", nullptr}}, result.messages);
}

/// Without its list.
Json JsonOf(const TreeResult& result) { return With({{"dataSources", nullptr}}, result.messages); }

/// Without its long lists.
Json JsonOf(const CubeResult& result) {
  return With({{"dataSource", JsonOf(result.dataSource)},
               {"catalog", JsonOf(result.catalog)},
               {"cube", JsonOf(result.cube)},
               {"hierarchies", nullptr},
               {"measures", nullptr},
               {"sapVariables", ListOf(result.sapVariables)}},
              result.messages);
}

/// Without its cubes.
Json JsonOf(const ImportResult& result) {
  return With({{"provider",
                {{"name", JsonOf(result.providerName)},
                 {"version", JsonOf(result.providerVersion)},
                 {"target", result.target}}},
               {"cubes", nullptr}},
              result.messages);
}

std::string Dump(const Json& json) {
  // Nothing but the library's own texts can be ill-formed here; a document is due in any case.
  return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

/// Adds an element to a list that stands in an object, two levels in. A line feed in the element
/// begins a line of its own, since those in texts are escaped.
void AddElement(std::string& list, std::string_view element) {
  list += list.empty() ? "[\n    " : ",\n    ";
  for (const char character : element) {
    list += character;
    if (character == '\n') list += "    ";
  }
}

/// Puts a list in the place of the null that the object has for it.
void PutList(std::string& object, std::string_view key, std::string_view elements) {
  constexpr std::string_view kNull = "null";
  const std::string begin = "\n  \"" + std::string(key) + "\": ";
  const std::size_t place = object.find(begin) + begin.size();
  object.replace(place, kNull.size(), elements.empty() ? "[]" : std::string(elements) + "\n  ]");
}

/// Writes a document with its long lists, element by element: JSON values take many times the
/// memory of their text, and whoever stops the rendering need not wait for long.
class Writer {
 public:
  /// Of an import's cubes, `jobs` are rendered at a time.
  Writer(const StopCheck& isToStop, int jobs)
      : m_isToStop(isToStop), m_jobs(static_cast<std::size_t>(jobs)) {}

  std::string TextOf(const NoResult& result) const { return Dump(JsonOf(result)); }

  template <class Listing>  // SourcesResult, TreeResult
  std::string TextOf(const Listing& result) const {
    std::string text = Dump(JsonOf(result));
    PutList(text, "dataSources", Elements(result.dataSources));
    return text;
  }

  std::string TextOf(const CubeResult& cube) const {
    std::string text = Dump(JsonOf(cube));
    PutList(text, "hierarchies", Elements(cube.hierarchies));
    PutList(text, "measures", Elements(cube.measures));
    return text;
  }

  std::string TextOf(const ImportResult& result) const {
    std::vector<std::string> texts(result.cubes.size());
    std::atomic<std::size_t> next{0};
    const auto work = [&] {
      for (std::size_t i = next++; i < texts.size(); i = next++) texts[i] = TextOf(result.cubes[i]);
    };
    const std::size_t workers = std::min(m_jobs, texts.size());
    std::vector<std::future<void>> others;
    try {
      for (std::size_t i = 1; i < workers; ++i)
        others.push_back(std::async(std::launch::async, work));
    } catch (const std::system_error&) {
      // No thread is left: those that there are do the work.
    }
    work();
    for (std::future<void>& other : others) other.get();
    std::string elements;
    for (std::string& text : texts) {
      Check();
      AddElement(elements, text);
      text = std::string();
    }
    std::string text = Dump(JsonOf(result));
    PutList(text, "cubes", elements);
    return text;
  }

 private:
  void Check() const {
    if (m_isToStop()) throw RenderingStopped();
  }

  template <class Item>
  std::string ElementOf(const Item& item) const {
    return Dump(JsonOf(item));
  }
  std::string ElementOf(const OTDataSource& source) const {
    std::string text = Dump(JsonOf(source));
    PutList(text, "catalogs", Elements(source.m_catalogs));
    return text;
  }
  std::string ElementOf(const OTCatalog& catalog) const {
    std::string text = Dump(JsonOf(catalog));
    PutList(text, "cubes", Elements(catalog.m_cubes));
    return text;
  }

  template <class List>
  std::string Elements(const List& list) const {
    std::string elements;
    for (const auto& item : list) {
      Check();
      AddElement(elements, ElementOf(item));
    }
    return elements;
  }

  const StopCheck& m_isToStop;
  const std::size_t m_jobs;
};

}  // namespace

std::string RenderJson(const Result& result, int jobs, const StopCheck& isToStop) {
  const Writer writer(isToStop, jobs);
  return std::visit([&](const auto& any) { return writer.TextOf(any); }, result) + "\n";
}
