#pragma once

#include "commands/Results.h"

// Sorts lists by display name, then by external name, in the order of code points, which does not
// depend on the locale. Levels and variables keep their order, and so do equal names.

/// Sorts the catalogs of each data source, and the cubes of each catalog.
void Sort(std::vector<OTDataSource>& tree);
/// Sorts hierarchies, properties and measures.
void Sort(CubeResult& cube);
