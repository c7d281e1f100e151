#include "Rowsets.h"

#include <algorithm>
#include <array>

namespace sample {
namespace {

using enum ColumnType;

constexpr Column kDataSources[] = {
    {"DataSourceName"},     {"DataSourceDescription"}, {"URL"},
    {"DataSourceInfo"},     {"ProviderName"},          {"ProviderType", kText, {}, true},
    {"AuthenticationMode"},
};

constexpr Column kProperties[] = {
    {"PropertyName"},       {"PropertyDescription"}, {"PropertyType"},
    {"PropertyAccessType"}, {"IsRequired", kBool},   {"Value"},
};

constexpr Column kCatalogs[] = {
    {"CATALOG_NAME"}, {"DESCRIPTION"}, {"ROLES"}, {"DATE_MODIFIED", kTime}};

constexpr Column kCubes[] = {
    {"CATALOG_NAME"},
    {"SCHEMA_NAME"},
    {"CUBE_NAME"},
    {"CUBE_TYPE"},
    {"CREATED_ON", kTime},
    {"LAST_SCHEMA_UPDATE", kTime},
    {"SCHEMA_UPDATED_BY"},
    {"LAST_DATA_UPDATE", kTime},
    {"DATA_UPDATED_BY"},
    {"DESCRIPTION"},
    {"IS_DRILLTHROUGH_ENABLED", kBool},
    {"IS_LINKABLE", kBool},
    {"IS_WRITE_ENABLED", kBool},
    {"IS_SQL_ENABLED", kBool},
    {"CUBE_CAPTION"},
    {"BASE_CUBE_NAME"},
    {"CUBE_SOURCE", kUnsignedShort, kAs},
};

constexpr Column kDimensions[] = {
    {"CATALOG_NAME"},
    {"SCHEMA_NAME"},
    {"CUBE_NAME"},
    {"DIMENSION_NAME"},
    {"DIMENSION_UNIQUE_NAME"},
    {"DIMENSION_CAPTION"},
    {"DIMENSION_ORDINAL", kUnsigned},
    {"DIMENSION_TYPE", kShort},
    {"DIMENSION_CARDINALITY", kUnsigned},
    {"DEFAULT_HIERARCHY"},
    {"DESCRIPTION"},
    {"IS_VIRTUAL", kBool},
    {"IS_READWRITE", kBool},
    {"DIMENSION_UNIQUE_SETTINGS", kInt},
    {"DIMENSION_MASTER_NAME"},
    {"DIMENSION_IS_VISIBLE", kBool},
    {"KELVORA_DIMENSION_IS_ATTRIBUTE", kBool, kKelvora},
};

constexpr Column kHierarchies[] = {
    {"CATALOG_NAME"},
    {"SCHEMA_NAME"},
    {"CUBE_NAME"},
    {"DIMENSION_UNIQUE_NAME"},
    {"HIERARCHY_NAME"},
    {"HIERARCHY_UNIQUE_NAME"},
    {"HIERARCHY_CAPTION"},
    {"DIMENSION_TYPE", kShort},
    {"HIERARCHY_CARDINALITY", kUnsigned},
    {"DEFAULT_MEMBER"},
    {"ALL_MEMBER"},
    {"DESCRIPTION"},
    {"STRUCTURE", kShort},
    {"IS_VIRTUAL", kBool},
    {"IS_READWRITE", kBool},
    {"DIMENSION_UNIQUE_SETTINGS", kInt},
    {"DIMENSION_MASTER_UNIQUE_NAME"},
    {"DIMENSION_IS_VISIBLE", kBool},
    {"HIERARCHY_ORDINAL", kUnsigned},
    {"DIMENSION_IS_SHARED", kBool},
    {"HIERARCHY_IS_VISIBLE", kBool},
    {"HIERARCHY_ORIGIN", kUnsignedShort, kAs},
    {"HIERARCHY_DISPLAY_FOLDER", kText, kAs},
    {"INSTANCE_SELECTION", kUnsignedShort, kAs},
};

constexpr Column kLevels[] = {
    {"CATALOG_NAME"},
    {"SCHEMA_NAME"},
    {"CUBE_NAME"},
    {"DIMENSION_UNIQUE_NAME"},
    {"HIERARCHY_UNIQUE_NAME"},
    {"LEVEL_NAME"},
    {"LEVEL_UNIQUE_NAME"},
    {"LEVEL_CAPTION"},
    {"LEVEL_NUMBER", kUnsigned},
    {"LEVEL_CARDINALITY", kUnsigned},
    {"LEVEL_TYPE", kInt},
    {"DESCRIPTION"},
    {"CUSTOM_ROLLUP_SETTINGS", kInt},
    {"LEVEL_UNIQUE_SETTINGS", kInt},
    {"LEVEL_IS_VISIBLE", kBool},
    {"LEVEL_ORDERING_PROPERTY", kText, kAs},
    {"LEVEL_DBTYPE", kInt, kAs},
    {"LEVEL_KEY_CARDINALITY", kUnsignedShort, kAs},
    {"LEVEL_ORIGIN", kUnsignedShort, kAs},
    {"DATA_TYPE"},
    {"CHARACTER_MAXIMUM_LENGTH", kUnsigned},
    {"NUMERIC_PRECISION", kUnsignedShort},
    {"NUMERIC_SCALE", kShort},
};

constexpr Column kLevelProperties[] = {
    {"CATALOG_NAME"},
    {"SCHEMA_NAME"},
    {"CUBE_NAME"},
    {"DIMENSION_UNIQUE_NAME"},
    {"HIERARCHY_UNIQUE_NAME"},
    {"LEVEL_UNIQUE_NAME"},
    {"MEMBER_UNIQUE_NAME"},
    {"PROPERTY_TYPE", kShort},
    {"PROPERTY_NAME"},
    {"PROPERTY_CAPTION"},
    {"DATA_TYPE", kUnsignedShort},
    {"CHARACTER_MAXIMUM_LENGTH", kUnsigned},
    {"CHARACTER_OCTET_LENGTH", kUnsigned},
    {"NUMERIC_PRECISION", kUnsignedShort},
    {"NUMERIC_SCALE", kShort},
    {"DESCRIPTION"},
    {"PROPERTY_CONTENT_TYPE", kShort},
    {"SQL_COLUMN_NAME"},
    {"PROPERTY_ORIGIN", kUnsignedShort, kAs},
    {"PROPERTY_ATTRIBUTE_HIERARCHY_NAME"},
    {"PROPERTY_CARDINALITY", kText, kAs},
    {"KELVORA_ATTRIBUTE_GENERATION", kShort, kKelvora},
    {"KELVORA_PROPERTY_TYPE", kShort, kKelvora},
};

constexpr Column kMeasures[] = {
    {"CATALOG_NAME"},
    {"SCHEMA_NAME"},
    {"CUBE_NAME"},
    {"MEASURE_NAME"},
    {"MEASURE_UNIQUE_NAME"},
    {"MEASURE_CAPTION"},
    {"MEASURE_AGGREGATOR", kInt},
    {"DATA_TYPE", kUnsignedShort},
    {"CHARACTER_MAXIMUM_LENGTH", kUnsigned},
    {"NUMERIC_PRECISION", kUnsignedShort},
    {"NUMERIC_SCALE", kShort},
    {"MEASURE_UNITS"},
    {"DESCRIPTION"},
    {"EXPRESSION"},
    {"MEASURE_IS_VISIBLE", kBool},
    {"LEVELS_LIST"},
    {"MEASUREGROUP_NAME", kText, kAs},
    {"MEASURE_DISPLAY_FOLDER", kText, kAs},
    {"DEFAULT_FORMAT_STRING", kText, kAs},
};

constexpr Column kMembers[] = {
    {"CATALOG_NAME"},
    {"SCHEMA_NAME"},
    {"CUBE_NAME"},
    {"DIMENSION_UNIQUE_NAME"},
    {"HIERARCHY_UNIQUE_NAME"},
    {"LEVEL_UNIQUE_NAME"},
    {"LEVEL_NUMBER", kUnsigned},
    {"MEMBER_ORDINAL", kUnsigned},
    {"MEMBER_NAME"},
    {"MEMBER_UNIQUE_NAME"},
    {"MEMBER_TYPE", kInt},
    {"MEMBER_CAPTION"},
    {"CHILDREN_CARDINALITY", kUnsigned},
    {"PARENT_LEVEL", kUnsigned},
    {"PARENT_UNIQUE_NAME"},
    {"PARENT_COUNT", kUnsigned},
};

constexpr Column kVariables[] = {
    {"CATALOG_NAME"},
    {"CUBE_NAME"},
    {"VARIABLE_NAME"},
    {"VARIABLE_CAPTION"},
    {"VARIABLE_GUID"},
    {"VARIABLE_ORDINAL", kShort},
    {"VARIABLE_TYPE", kShort},
    {"DATA_TYPE", kUnsignedShort},
    {"MAX_LENGTH", kUnsigned},
    {"VARIABLE_PROCESSING_TYPE", kUnsignedShort},
    {"VARIABLE_SELECTION_TYPE", kUnsignedShort},
    {"VARIABLE_ENTRY_TYPE", kUnsignedShort},
    {"REFERENCE_DIMENSION"},
    {"REFERENCE_HIERARCHY"},
    {"DEFAULT_LOW"},
    {"DEFAULT_HIGH"},
    {"DEFAULT_LOW_CAP"},
    {"DEFAULT_HIGH_CAP"},
    {"DESCRIPTION"},
};

constexpr Rowset kRowsets[] = {
    {"DISCOVER_DATASOURCES", kDataSources}, {"DISCOVER_PROPERTIES", kProperties},
    {"DBSCHEMA_CATALOGS", kCatalogs},       {"MDSCHEMA_CUBES", kCubes},
    {"MDSCHEMA_DIMENSIONS", kDimensions},   {"MDSCHEMA_HIERARCHIES", kHierarchies},
    {"MDSCHEMA_LEVELS", kLevels},           {"MDSCHEMA_PROPERTIES", kLevelProperties},
    {"MDSCHEMA_MEASURES", kMeasures},       {"MDSCHEMA_MEMBERS", kMembers},
    {"SAP_VARIABLES", kVariables, kBw},
};

}  // namespace

const Rowset* FindRowset(std::string_view name, Kind kind) {
  const auto* found = std::ranges::find(kRowsets, name, &Rowset::name);
  return found == std::end(kRowsets) || found->only.value_or(kind) != kind ? nullptr : found;
}

const Column* FindColumn(const Rowset& rowset, std::string_view name, Kind kind) {
  const auto found = std::ranges::find(rowset.columns, name, &Column::name);
  return found == rowset.columns.end() || found->only.value_or(kind) != kind ? nullptr : &*found;
}

std::string_view SchemaTypeName(ColumnType type) {
  static constexpr std::array<std::string_view, 7> kNames = {
      "xsd:string",        "xsd:int",     "xsd:unsignedInt", "xsd:short",
      "xsd:unsignedShort", "xsd:boolean", "xsd:dateTime"};
  return kNames.at(static_cast<std::size_t>(type));
}

}  // namespace sample
