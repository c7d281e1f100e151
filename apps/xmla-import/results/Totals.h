#pragma once

#include <cstddef>
#include <string>

#include "commands/Results.h"

/// Numbers of the objects in a result.
struct Totals {
  std::size_t dataSources = 0, catalogs = 0, cubes = 0, hierarchies = 0, levels = 0;
  std::size_t properties = 0, measures = 0, variables = 0;

  void Add(const NoResult&) {}
  void Add(const ServersResult&) {}
  void Add(const SourcesResult& result);
  void Add(const TreeResult& result);
  void Add(const CubeResult& cube);
  void Add(const ImportResult&) {}  // its cubes are added one by one

  /// Such as "1 cube, 3 hierarchies", without zeros; empty for an empty result.
  std::string Text() const;
};
