#include "diff/RecordRules.h"

#include <algorithm>

namespace {

using enum ChangeClass;
constexpr std::string_view kName[] = {"name"};
constexpr std::string_view kExternalName[] = {"externalName"};
constexpr std::string_view kPlaceOfCube[] = {"dataSource", "catalog", "cube"};

constexpr RecordRule kError{.kind = "error", .plural = "errors", .names = {}, .isMessage = true};
constexpr RecordRule kWarning{
    .kind = "warning", .plural = "warnings", .names = {}, .isMessage = true};

constexpr FieldRule kUnitFields[] = {
    {"name", "display name", kCosmetic},
    {"aggrType", "aggregation"},
    {"type", "type"},
    {"precision", "precision"},
    {"scale", "scale"},
    {"nullable", "empty values"},
    {"dimPropType", "use"},
    {"tamarindAttributeHierarchyName", "attribute hierarchy"},
    {"tamarindGenerationNumber", "generation"},
    {"tamarindPropertyType", "kind of property"},
};
constexpr RecordRule kMeasure{"measure", "measures", kExternalName, kUnitFields};
constexpr RecordRule kProperty{"property", "properties", kExternalName, kUnitFields};

constexpr FieldRule kLevelFields[] = {
    {"name", "display name", kCosmetic},
    {"number", "number"},
    {"unit.name", "column name", kCosmetic, "name"},
    {"unit.externalName", "server's column name", kBreaking, "externalName"},
    {"unit.aggrType", "aggregation"},
    {"unit.type", "type"},
    {"unit.precision", "precision"},
    {"unit.scale", "scale"},
    {"unit.nullable", "empty values"},
    {"unit.dimPropType", "use"},
    {"unit.tamarindAttributeHierarchyName", "attribute hierarchy"},
    {"unit.tamarindGenerationNumber", "generation"},
    {"unit.tamarindPropertyType", "kind of property"},
};
constexpr ListRule kLevelLists[] = {{"memberProperties", &kProperty}};
constexpr RecordRule kLevel{"level", "levels", kExternalName, kLevelFields, kLevelLists};

constexpr FieldRule kHierarchyFields[] = {
    {"name", "display name", kCosmetic},        {"dimensionUniqueName", "dimension"},
    {"memberType", "default member's kind"},    {"hierarchyType", "structure"},
    {"dimensionType", "dimension's kind"},      {"defaultMember", "default member"},
    {"alternateHierarchyNames", "other names"}, {"udas", "user-defined attributes"},
};
constexpr ListRule kHierarchyLists[] = {{"levels", &kLevel}};
constexpr RecordRule kHierarchy{"hierarchy", "hierarchies", kExternalName, kHierarchyFields,
                                kHierarchyLists};

constexpr FieldRule kVariableFields[] = {
    {"caption", "display name", kCosmetic},
    {"type", "type"},
    {"selectionType", "selection"},
    {"entryType", "entry"},
    {"referenceDimension", "dimension"},
    {"referenceHierarchy", "hierarchy"},
    {"defaultLow", "default"},
    {"defaultHigh", "upper default"},
    {"overrideDefaultLow", "own default"},
    {"overrideDefaultHigh", "own upper default"},
};
constexpr RecordRule kVariable{"variable", "variables", kName, kVariableFields};

constexpr ListRule kCubeLists[] = {
    {"hierarchies", &kHierarchy}, {"measures", &kMeasure}, {"sapVariables", &kVariable},
    {"errors", &kError},          {"warnings", &kWarning},
};
constexpr RecordRule kCube{"cube", "cubes", kPlaceOfCube, {}, kCubeLists};

constexpr FieldRule kImportFields[] = {
    {"provider.name", "server's name", kCosmetic},
    {"provider.version", "server's version", kCosmetic},
    {"provider.target", "server's kind", kCosmetic},
};
constexpr ListRule kImportLists[] = {
    {"cubes", &kCube}, {"errors", &kError}, {"warnings", &kWarning}};

// A cube in a tree has fewer fields, and other ids than a cube that was read.
constexpr FieldRule kCubeEntryFields[] = {
    {"secondName", "second name", kCosmetic},
    {"variables", "variables"},
    {"aliases", "aliases"},
    {"memberNameUnique", "unique member names"},
    {"dateFormat", "date format"},
};
constexpr ListRule kCubeEntryLists[] = {{"sapVariables", &kVariable}};
constexpr RecordRule kCubeEntry{"cube", "cubes", kName, kCubeEntryFields, kCubeEntryLists};

constexpr FieldRule kCatalogFields[] = {{"asoType", "storage"}, {"variables", "variables"}};
constexpr ListRule kCatalogLists[] = {{"cubes", &kCubeEntry}};
constexpr RecordRule kCatalog{"catalog", "catalogs", kName, kCatalogFields, kCatalogLists};

constexpr FieldRule kSourceFields[] = {{"variables", "variables"}};
constexpr ListRule kSourceLists[] = {{"catalogs", &kCatalog}};
constexpr RecordRule kSource{"data source", "data sources", kName, kSourceFields, kSourceLists};

constexpr ListRule kTreeLists[] = {
    {"dataSources", &kSource}, {"errors", &kError}, {"warnings", &kWarning}};

std::string Id(std::string_view words, std::string_view end) {
  std::string id(words);
  std::erase(id, '\'');
  std::ranges::replace(id, ' ', '-');
  return id + std::string(end);
}

void AddKinds(const RecordRule& rule, std::vector<ChangeKind>& kinds) {
  const auto add = [&kinds](std::string id, ChangeClass severity) {
    if (std::ranges::find(kinds, id, &ChangeKind::id) == kinds.end())
      kinds.push_back({std::move(id), severity});
  };
  for (const FieldRule& field : rule.fields) add(ChangedId(rule, field), field.severity);
  for (const ListRule& list : rule.lists) {
    const RecordRule& record = *list.record;
    add(RemovedId(record), record.isMessage ? kCosmetic : kBreaking);
    add(AddedId(record), record.isMessage ? kCosmetic : kAddition);
    if (!record.isMessage) add(ReorderedId(record), kCosmetic);
    AddKinds(record, kinds);
  }
}

}  // namespace

constexpr RecordRule kImportRule{"import", "imports", {}, kImportFields, kImportLists};
constexpr RecordRule kTreeRule{"tree", "trees", {}, {}, kTreeLists};

std::string RemovedId(const RecordRule& rule) { return Id(rule.kind, "-removed"); }
std::string AddedId(const RecordRule& rule) { return Id(rule.kind, "-added"); }
std::string ReorderedId(const RecordRule& rule) { return Id(rule.plural, "-reordered"); }
std::string ChangedId(const RecordRule& rule, const FieldRule& field) {
  return Id(std::string(rule.kind) + ' ' + std::string(field.what), "-changed");
}

std::vector<ChangeKind> ChangeKinds() {
  std::vector<ChangeKind> kinds;
  AddKinds(kImportRule, kinds);
  AddKinds(kTreeRule, kinds);
  return kinds;
}
