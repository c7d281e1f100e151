#pragma once

#include <array>
#include <cstddef>
#include <string>

#include "commands/Results.h"

/// Numbers of the objects in a result.
struct Totals {
  std::size_t dataSources = 0, catalogs = 0, cubes = 0, hierarchies = 0, levels = 0;
  std::size_t incompleteCubes = 0;
  std::size_t expectedCubes = 0;  ///< cubes to import; 0: unknown
  std::size_t properties = 0, measures = 0, variables = 0;
  std::array<std::size_t, 4> steps{};  ///< index: CheckStep::Status

  std::size_t breaking = 0, additions = 0, cosmetic = 0;  ///< changes

  void Add(const NoResult&) {}
  void Add(const DiffResult& result);
  void Add(const ServersResult&) {}
  void Add(const CompletionResult&) {}
  void Add(const SourcesResult& result);
  void Add(const TreeResult& result);
  void Add(const CubeResult& cube);
  void Add(const CheckStep& step) { ++steps[static_cast<std::size_t>(step.status)]; }
  static void Add(const CheckResult&) {}  // its steps are added one by one
  /// Its cubes are added one by one.
  void Add(const ImportResult& result) { expectedCubes = result.cubeCount; }

  /// Such as "1 cube, 3 hierarchies", without zeros; empty for an empty result.
  std::string Text() const;
};
