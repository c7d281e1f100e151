#pragma once

#include <span>
#include <string_view>

#include "SampleProvider.h"

// The schema rowsets that the provider serves, as the protocol lists them.
namespace sample {

enum class ColumnType { kText, kInt, kUnsigned, kShort, kUnsignedShort, kBool, kTime };

struct Column {
  std::string_view name;
  ColumnType type = ColumnType::kText;
  std::optional<Kind> only = std::nullopt;  // served by this kind alone
  bool repeated = false;                    // may stand in a row more than once
};

struct Rowset {
  std::string_view name;
  std::span<const Column> columns;  // in the order of the reply
  std::optional<Kind> only = std::nullopt;
};

// Null when no kind, or not this one, has a rowset of that name.
const Rowset* FindRowset(std::string_view name, Kind kind);
const Column* FindColumn(const Rowset& rowset, std::string_view name, Kind kind);
std::string_view SchemaTypeName(ColumnType type);

}  // namespace sample
