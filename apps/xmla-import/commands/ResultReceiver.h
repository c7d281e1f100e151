#pragma once

#include <cstddef>

#include "commands/Results.h"

/// Receives the cubes of a running import, and the steps of a check. BeginCube and EndCube are
/// called on the reading threads, the other operations on one thread at a time.
class ResultReceiver {
 public:
  virtual ~ResultReceiver() = default;
  /// Called once, with the number of cubes. `result` already has the provider's identity.
  virtual void BeginCubes(ImportResult& result, std::size_t count) = 0;
  /// The part of BeginCubes that is about progress.
  virtual void CountCubes(std::size_t count) = 0;
  /// Reading of a cube starts.
  virtual void BeginCube(const String& name) = 0;
  /// Reading of a cube has ended, with or without error.
  virtual void EndCube() = 0;
  /// Called in the provider's order, for each cube as soon as it and all cubes before it are read.
  /// False if the cube was dropped because the import was interrupted.
  virtual bool Take(const CubeResult& cube) = 0;

  /// Called once, before the steps. `result` already has the service.
  virtual void BeginSteps(const CheckResult& result) = 0;
  /// Called in the order of the steps.
  virtual void Take(const CheckStep& step) = 0;
};
