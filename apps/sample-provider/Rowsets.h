#pragma once

#include <span>
#include <string_view>

#include "SampleProvider.h"

/// The schema rowsets of the provider.
namespace sample {

inline constexpr Kind kAs = Kind::kAnalysisServices;
inline constexpr Kind kBw = Kind::kSapBw;
inline constexpr Kind kKelvora = Kind::kTamarind;

enum class ColumnType { kText, kInt, kUnsigned, kShort, kUnsignedShort, kBool, kTime };

struct Column {
  std::string_view name;
  ColumnType type = ColumnType::kText;
  std::optional<Kind> only = std::nullopt;  ///< only this kind has the column
  bool repeated = false;                    ///< may occur several times in a row
};

struct Rowset {
  std::string_view name;
  std::span<const Column> columns;  ///< in the order of the reply
  std::optional<Kind> only = std::nullopt;
};

/// Null if this kind has no rowset of that name. Without a kind: if no kind has it.
const Rowset* FindRowset(std::string_view name, Kind kind);
const Column* FindColumn(const Rowset& rowset, std::string_view name, Kind kind);
std::string_view SchemaTypeName(ColumnType type);

}  // namespace sample
