#pragma once

#include <cstddef>

#include "commands/Results.h"

/// Takes the cubes of an import while it goes on. BeginCube and EndCube are called on the threads
/// that read, the others on one thread at a time.
class CubeReceiver {
 public:
  virtual ~CubeReceiver() = default;
  /// So many cubes will be read; what else the result says is known as far as it is filled.
  virtual void BeginCubes(ImportResult& result, std::size_t count) = 0;
  /// A cube is being read.
  virtual void BeginCube(const String& name) = 0;
  /// One is read, or has failed.
  virtual void EndCube() = 0;
  /// The cubes come in the provider's order, each as soon as it and all before it are read. False
  /// when it is too late for this one, since the import was interrupted.
  virtual bool Take(const CubeResult& cube) = 0;
};
