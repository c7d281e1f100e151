#pragma once

#include <functional>
#include <vector>

#include "results/Cells.h"

// The tables of a cube in formats for people. Each row names what it belongs to.

enum class Table { kHierarchies, kLevels, kProperties, kMeasures, kVariables };
inline constexpr Table kTables[] = {Table::kHierarchies, Table::kLevels, Table::kProperties,
                                    Table::kMeasures, Table::kVariables};

/// Such as "hierarchies".
const char* NameOf(Table table);
/// The keys of its columns.
std::vector<std::string_view> KeysOf(Table table);
/// Calls `use` for each row, in order, until it returns false. The cells refer to the cube.
void ForEachRow(const CubeResult& cube, Table table, const std::function<bool(const Row&)>& use);
