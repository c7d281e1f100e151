#pragma once

/// Exit status of the tool.
enum class ExitStatus : int {
  kDone = 0,       ///< complete; there may be warnings
  kFailed = 1,     ///< nothing was imported
  kWrongCall = 2,  ///< usage error: unknown option, missing or contradictory value, no known name
  kPartly = 3,     ///< the result is incomplete: a part failed, or a requested name does not exist
  kDiffers = 4,    ///< the compared documents differ
  kInterrupted = 130,  ///< the result contains what was read
};
