#pragma once

/// What the tool's exit status tells a script.
enum class ExitStatus : int {
  kDone = 0,           ///< done; there may be warnings
  kFailed = 1,         ///< the import reported errors, or there is nothing to choose from
  kWrongCall = 2,      ///< unknown option, missing or contradictory value, unknown choice
  kPartly = 3,         ///< import: some cubes or part of the tree failed, the others are there
  kInterrupted = 130,  ///< asked to stop; what was complete is in the result
};
