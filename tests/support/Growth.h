#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace support {

/// The measured work: called once per measurement.
using Work = std::function<void()>;

/// Growth of the CPU time of some work with the size of its input.
struct Growth {
  /// Largest factor by which the time grew twice in a row when the size doubled. A single step is
  /// ignored, since the time jumps where data exceed a cache.
  double lastingRatio = 0;
  double longestSeconds = 0;  ///< of CPU time
  std::string violation;  ///< description of a violation; empty if doubling the input never costs
                          ///< more than allowed
};

/// Doubles the size from `least` to `most` and compares CPU times, starting where they are long
/// enough to measure. `make` prepares the work for a size and is not measured. `cpuSeconds` is the
/// clock; by default that of this process. The quick form and builds with a sanitizer use smaller
/// sizes.
inline constexpr double kMostGrowth = 2.5;
Growth MeasureGrowth(std::size_t least, std::size_t most,
                     const std::function<Work(std::size_t)>& make,
                     const std::function<double()>& cpuSeconds = {});

/// Runs the work under an execution state and cancels it at `moments` moments, spread over its
/// duration. Returns the longest time in seconds from cancellation to the end of the work. Repeats
/// a moment that took longer than `allowed`, since the machine may be busy.
double LongestStop(const Work& work, int moments, double allowed);

}  // namespace support
