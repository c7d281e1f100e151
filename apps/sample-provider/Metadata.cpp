#include "Metadata.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>

#include "EmbeddedData.h"

namespace sample {
namespace {

using Json = nlohmann::json;

/// Per rowset: the list in the data file that contains its rows, the column that a plain string
/// sets, and the column that identifies a row for a planned fault.
struct ListKind {
  std::string_view key;
  std::string_view rowset;
  std::string_view name;
  std::string_view identity;
  std::vector<std::string_view> lists;  // lists that its rows may contain
};

const ListKind kLists[] = {
    {"catalogs", "DBSCHEMA_CATALOGS", "CATALOG_NAME", "CATALOG_NAME", {"cubes"}},
    {"cubes", "MDSCHEMA_CUBES", "CUBE_NAME", "CUBE_NAME", {"dimensions", "measures", "variables"}},
    {"dimensions",
     "MDSCHEMA_DIMENSIONS",
     "DIMENSION_NAME",
     "DIMENSION_UNIQUE_NAME",
     {"hierarchies"}},
    {"hierarchies", "MDSCHEMA_HIERARCHIES", "HIERARCHY_NAME", "HIERARCHY_UNIQUE_NAME", {"levels"}},
    {"levels", "MDSCHEMA_LEVELS", "LEVEL_NAME", "LEVEL_UNIQUE_NAME", {"properties", "members"}},
    {"properties", "MDSCHEMA_PROPERTIES", "PROPERTY_NAME", "PROPERTY_NAME", {}},
    {"members", "MDSCHEMA_MEMBERS", "MEMBER_NAME", "MEMBER_UNIQUE_NAME", {}},
    {"measures", "MDSCHEMA_MEASURES", "MEASURE_NAME", "MEASURE_UNIQUE_NAME", {}},
    {"variables", "SAP_VARIABLES", "VARIABLE_NAME", "VARIABLE_NAME", {}},
};

constexpr std::string_view kInherited[] = {
    "CATALOG_NAME",          "CUBE_NAME",         "DIMENSION_UNIQUE_NAME", "DIMENSION_TYPE",
    "HIERARCHY_UNIQUE_NAME", "LEVEL_UNIQUE_NAME", "LEVEL_NUMBER"};

bool IsListKey(std::string_view key) {
  return std::ranges::find(kLists, key, &ListKind::key) != std::end(kLists);
}

std::string ScalarText(const Json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_boolean() || value.is_number_integer()) return value.dump();
  throw std::runtime_error("a column must be a text, an integer, a boolean or null, not " +
                           value.dump());
}

class Loader {
 public:
  Loader(const Json& file, Kind kind) : m_file(file), m_kind(kind) {}

  Metadata Load() {
    Metadata metadata;
    if (m_file.contains("properties")) {
      for (const Json& property : m_file["properties"]) {
        const Scope scope{&property, nullptr, FieldsOf("DISCOVER_PROPERTIES"), "PropertyName", 0};
        metadata.properties.push_back(MakeRow(scope));
      }
    }
    for (const Json& entry : m_file.at("sources")) {
      m_source = &metadata.sources.emplace_back();
      const Scope scope{&entry, nullptr, FieldsOf("DISCOVER_DATASOURCES"), "DataSourceName", 0};
      m_source->row = MakeRow(scope);
      LoadList(scope, "catalogs");
    }
    return metadata;
  }

 private:
  /// A column that this kind of server has.
  struct Field {
    const Column* column;
    const Json* fallback;  // null if the column has no default
    bool inherits;
  };

  /// What the rows of a rowset have in common.
  struct Fields {
    std::string_view name;
    const Rowset* rowset;  // null if this kind of server has none of that name
    const Json* defaults;  // null if there are none
    std::vector<Field> fields;
  };

  struct Scope {
    const Json* entry;
    const Scope* parent;
    const Fields& rowset;
    std::string_view nameColumn;
    std::size_t index;
  };

  [[noreturn]] void Fail(const Scope& scope, const std::string& what) const {
    std::string place;
    for (const Scope* at = &scope; at; at = at->parent) {
      place = std::string(at->rowset.name) + " " + std::to_string(at->index) +
              (place.empty() ? "" : ", ") + place;
    }
    throw std::runtime_error("sample data, at " + place + ": " + what);
  }

  static const Json* Find(const Json* object, std::string_view key) {
    if (!object) return nullptr;
    const auto found = object->find(key);
    return found == object->end() ? nullptr : &*found;
  }

  const Json* OwnValue(const Scope& scope, std::string_view column) const {
    if (scope.entry->is_string()) return column == scope.nameColumn ? scope.entry : nullptr;
    return Find(scope.entry, column);
  }

  const Fields& FieldsOf(std::string_view name) {
    const auto [at, isNew] = m_fields.try_emplace(name);
    Fields& made = at->second;
    if (!isNew) return made;
    made = {name, FindRowset(name, m_kind), Find(Find(&m_file, "defaults"), name), {}};
    if (!made.rowset) return made;
    for (const Column& column : made.rowset->columns) {
      if (column.only.value_or(m_kind) != m_kind) continue;
      const bool inherits = std::ranges::find(kInherited, column.name) != std::end(kInherited);
      made.fields.push_back({&column, Find(made.defaults, column.name), inherits});
    }
    return made;
  }

  // The column's text in the row of the scope. Names are also searched in enclosing rows.
  std::optional<std::string> Value(const Scope& scope, std::string_view column, int depth) const {
    if (depth > 32) Fail(scope, "circular reference in the defaults");
    if (const Json* own = OwnValue(scope, column)) return OwnText(*own);
    if (const Json* value = Find(scope.rowset.defaults, column)) return Fill(scope, *value, depth);
    if (scope.parent) return Value(*scope.parent, column, depth + 1);
    return std::nullopt;
  }

  static std::optional<std::string> OwnText(const Json& value) {
    return value.is_null() ? std::nullopt : std::optional(ScalarText(value));
  }

  // The text of a default, or nullopt if it refers to an absent column.
  std::optional<std::string> Fill(const Scope& scope, const Json& fallback, int depth) const {
    if (!fallback.is_string()) return ScalarText(fallback);
    const auto& text = fallback.get_ref<const std::string&>();
    std::string out;
    std::size_t at = 0;
    while (at < text.size()) {
      const std::size_t open = text.find('{', at);
      const std::size_t close = open == std::string::npos ? open : text.find('}', open);
      if (close == std::string::npos) break;
      out.append(text, at, open - at);
      const std::string column = text.substr(open + 1, close - open - 1);
      std::optional<std::string> value =
          column == "#" ? std::to_string(scope.index) : Value(scope, column, depth + 1);
      if (!value) return std::nullopt;
      const bool bracketed = open > 0 && text[open - 1] == '[';
      for (const char c : *value) out.append(bracketed && c == ']' ? 2 : 1, c);
      at = close + 1;
    }
    return out + text.substr(at);
  }

  Row MakeRow(const Scope& scope) const {
    const Rowset* rowset = scope.rowset.rowset;
    if (!rowset) Fail(scope, "this kind of server has no such rowset");
    if (scope.entry->is_object()) {
      for (const auto& [key, value] : scope.entry->items()) {
        const bool structural = IsListKey(key) || key == "use" || key == "faults";
        if (!structural && !FindColumn(*rowset, key, m_kind)) Fail(scope, "no column " + key);
      }
    } else if (!scope.entry->is_string()) {
      Fail(scope, "a row must be an object or a text");
    }
    Row row;
    for (const auto& [column, fallback, inherits] : scope.rowset.fields) {
      const Json* const own = OwnValue(scope, column->name);
      const Json* const known = own ? own : fallback;
      if (known && known->is_array() && column->repeated) {
        for (const Json& value : *known) row.cells.push_back({column, ScalarText(value)});
        continue;
      }
      std::optional<std::string> text;
      if (own)
        text = OwnText(*own);
      else if (fallback)
        text = Fill(scope, *fallback, 0);
      else if (inherits && scope.parent)
        text = Value(*scope.parent, column->name, 0);
      if (text) row.cells.push_back({column, *std::move(text)});
    }
    return row;
  }

  void PlanFaults(const Scope& scope, const ListKind& list, const Row& row) {
    if (!scope.entry->is_object() || !scope.entry->contains("faults")) return;
    for (const auto& [rowset, text] : scope.entry->at("faults").items()) {
      PlannedFault fault{rowset, {}, text.get<std::string>()};
      for (const std::string_view column :
           {std::string_view("CATALOG_NAME"), std::string_view("CUBE_NAME"), list.identity}) {
        if (const std::string* value = row.Find(column)) fault.values.emplace(column, *value);
      }
      m_source->faults.push_back(std::move(fault));
    }
  }

  void LoadList(const Scope& parent, std::string_view key) {
    if (!parent.entry->is_object() || !parent.entry->contains(key)) return;
    const ListKind& list = *std::ranges::find(kLists, key, &ListKind::key);
    const Fields& fields = FieldsOf(list.rowset);
    std::size_t index = 0;
    for (const Json& written : parent.entry->at(std::string(key))) {
      const std::optional<Json> merged = WithShared(written);
      const Json& entry = merged ? *merged : written;
      const Scope scope{&entry, &parent, fields, list.name, index++};
      Row row = MakeRow(scope);
      PlanFaults(scope, list, row);
      m_source->rows[std::string(list.rowset)].push_back(std::move(row));
      for (const std::string_view below : list.lists) LoadList(scope, below);
    }
  }

  // Nullopt if the row does not refer to a shared one.
  std::optional<Json> WithShared(const Json& written) const {
    if (!written.is_object() || !written.contains("use")) return std::nullopt;
    Json entry = m_file.at("shared").at(written["use"].get<std::string>());
    for (const auto& [key, value] : written.items()) entry[key] = value;
    return entry;
  }

  const Json& m_file;
  Kind m_kind;
  std::map<std::string_view, Fields> m_fields;
  DataSource* m_source = nullptr;
};

}  // namespace

const std::string* Row::Find(std::string_view column) const {
  const auto found = std::ranges::find(cells, column, [](const Cell& c) { return c.column->name; });
  return found == cells.end() ? nullptr : &found->text;
}

Metadata LoadMetadata(std::string_view json, Kind kind) {
  try {
    const Json file = Json::parse(json);
    return Loader(file, kind).Load();
  } catch (const Json::exception& error) {
    throw std::runtime_error(std::string("sample data: ") + error.what());
  }
}

Metadata MetadataWithWideCube(Kind kind) {
  constexpr int kDimensions = 25;
  constexpr int kHierarchies = 7;
  const auto numbered = [](const char* name, int number) {
    return std::string(name) + ' ' + std::to_string(number);
  };
  Json file = Json::parse(EmbeddedData(kind));
  Json dimensions = Json::array();
  for (int i = 1; i <= kDimensions; ++i) {
    Json hierarchies = Json::array();
    for (int j = 1; j <= kHierarchies; ++j) {
      const std::string name = numbered(numbered("Hierarchy", i).c_str(), j);
      const std::string all = "[" + name + "].[All]";
      Json levels = Json::array();
      for (const char* const level : {"(All)", "Group", "Item"})
        levels.push_back(Json{{"LEVEL_NAME", level},
                              {"LEVEL_UNIQUE_NAME", "[" + name + "].[" + level + "]"},
                              {"properties", {"Code", "Colour"}}});
      // Compilers differ about a list of one element in braces.
      levels[0]["members"] = Json::array();
      levels[0]["members"].push_back(
          Json{{"MEMBER_NAME", "All"}, {"MEMBER_UNIQUE_NAME", all}, {"MEMBER_TYPE", 2}});
      hierarchies.push_back(Json{{"HIERARCHY_NAME", name},
                                 {"HIERARCHY_UNIQUE_NAME", "[" + name + "]"},
                                 {"DEFAULT_MEMBER", all},
                                 {"ALL_MEMBER", all},
                                 {"levels", std::move(levels)}});
    }
    dimensions.push_back(Json{{"DIMENSION_NAME", numbered("Dimension", i)},
                              {"hierarchies", std::move(hierarchies)}});
  }
  file["sources"][0]["catalogs"][0]["cubes"].push_back(Json{{"CUBE_NAME", kWideCube},
                                                            {"dimensions", std::move(dimensions)},
                                                            {"measures", Json::array({"Sales"})}});
  return Loader(file, kind).Load();
}

const Metadata& MetadataOf(Kind kind) {
  switch (kind) {
    case Kind::kAnalysisServices: {
      static const Metadata metadata = LoadMetadata(EmbeddedData(kind), kind);
      return metadata;
    }
    case Kind::kSapBw: {
      static const Metadata metadata = LoadMetadata(EmbeddedData(kind), kind);
      return metadata;
    }
    case Kind::kTamarind:
      break;
  }
  static const Metadata metadata = LoadMetadata(EmbeddedData(Kind::kTamarind), Kind::kTamarind);
  return metadata;
}

}  // namespace sample
