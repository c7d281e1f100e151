#pragma once

/// Exit status of the tool.
enum class ExitStatus : int {
  kDone = 0,       ///< done; there may be warnings
  kFailed = 1,     ///< the import reported errors, or there is nothing to choose from
  kWrongCall = 2,  ///< usage error: unknown option, missing or contradictory value, unknown name
  kPartly = 3,     ///< import: some cubes or part of the tree failed
  kInterrupted = 130,  ///< the result contains what was complete
};
