#pragma once

#include <string_view>

#include "commands/Results.h"

// Sorts lists by display name, then by external name, in the order of code points, which does not
// depend on the locale. Levels and variables keep their order, and so do equal names.

/// What the functions below may change, as ids of changes.
inline constexpr std::string_view kSortedLists[] = {"catalogs-reordered", "cubes-reordered",
                                                    "hierarchies-reordered", "properties-reordered",
                                                    "measures-reordered"};

/// Sorts the catalogs of each data source, and the cubes of each catalog.
void Sort(std::vector<OTDataSource>& tree);
/// Sorts hierarchies, properties and measures.
void Sort(CubeResult& cube);
