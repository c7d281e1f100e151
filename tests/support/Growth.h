#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace support {

/// What is measured: done once for each call.
using Work = std::function<void()>;

/// How the CPU time of a piece of work grows with the size of its input.
struct Growth {
  /// The greatest factor by which the time grew twice in a row when the size was doubled. Once in a
  /// row means nothing: it grows so where the data no longer fit into a cache.
  double lastingRatio = 0;
  double longestSeconds = 0;  ///< of CPU time
  std::string complaint;      ///< empty when doubling the input never costs more than allowed
};

/// Doubles the size from `least` to `most`, and compares the CPU times from where they are long
/// enough to tell. `make` prepares the work for a size, which does not count. `cpuSeconds` is the
/// clock: that of this process unless given. The quick form of the tests
/// and a build with a sanitizer try smaller sizes.
inline constexpr double kMostGrowth = 2.5;
Growth MeasureGrowth(std::size_t least, std::size_t most,
                     const std::function<Work(std::size_t)>& make,
                     const std::function<double()>& cpuSeconds = {});

/// Runs the work in an execution state that is asked to stop at `moments` moments, spread over the
/// time that the work takes. The longest time in seconds from being asked to the end of the work. A
/// moment that took longer than `allowed` is tried again: the machine may have been busy.
double LongestStop(const Work& work, int moments, double allowed);

}  // namespace support
