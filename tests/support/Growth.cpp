#include "support/Growth.h"

#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <thread>

#include "Utility/Generic/VXThread.h"
#include "support/Effort.h"
#include "support/Sanitized.h"

namespace support {
namespace {

constexpr double kTellable = 0.004;  // seconds; shorter times are noise
constexpr int kAttempts = 5;

double ProcessSeconds() {
  std::timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// The shortest time of some runs. A time of at most `enough` is not improved.
double Best(const Work& work, const std::function<double()>& cpuSeconds, double enough = 0) {
  double best = 1e9;
  double all = 0;
  for (int i = 0; i < 3 && all < 0.5 && best > enough; ++i) {
    const double begin = cpuSeconds();
    work();
    const double seconds = cpuSeconds() - begin;
    best = std::min(best, seconds);
    all += seconds;
  }
  return best;
}

/// The allocator returns large blocks to the system, and the next call must clear them again. This
/// makes a step in the time at some size, unrelated to growth.
void KeepMemory() {
  mallopt(M_MMAP_MAX, 0);
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  mallopt(M_TOP_PAD, 64 << 20);
}

using Clock = std::chrono::steady_clock;

double Since(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

double StopAfter(const Work& work, double seconds) {
  VXExecutionState state;
  Clock::time_point asked;
  std::thread canceller([&] {
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    asked = Clock::now();
    state.RequestCancellation(VXExecutionState::kCancelReasonHost);
  });
  Clock::time_point ended;
  {
    const VXExecutionState::Scope scope(state);
    work();
    ended = Clock::now();
  }
  canceller.join();
  return std::max(0.0, std::chrono::duration<double>(ended - asked).count());
}

}  // namespace

Growth MeasureGrowth(std::size_t least, std::size_t most,
                     const std::function<Work(std::size_t)>& make,
                     const std::function<double()>& cpuSeconds) {
  const std::function<double()> clock = cpuSeconds ? cpuSeconds : &ProcessSeconds;
  most = std::max(2 * least, most / (kIsSanitized ? 16 : IsLong() ? 1 : 4));
  KeepMemory();
  Growth growth;
  Work small = make(least);
  double smallSeconds = Best(small, clock);
  double formerRatio = 0;
  // Adds one step if the last one was slow, to see whether growth continues.
  for (std::size_t size = 2 * least; size <= most || formerRatio > kMostGrowth; size *= 2) {
    Work large = make(size);
    // Shorter times for the largest size could only lower its ratio. Those of other sizes are the
    // measure of the next one.
    const bool isLargest = 2 * size > most;
    double largeSeconds = Best(large, clock, isLargest ? kMostGrowth * smallSeconds : 0);
    double ratio = smallSeconds < kTellable ? 0 : largeSeconds / smallSeconds;
    for (int attempt = 1; attempt < kAttempts && ratio > kMostGrowth; ++attempt) {
      smallSeconds = Best(small, clock);
      largeSeconds = Best(large, clock);
      ratio = std::min(ratio, largeSeconds / smallSeconds);
    }
    growth.longestSeconds = largeSeconds;
    growth.lastingRatio = std::max(growth.lastingRatio, std::min(ratio, formerRatio));
    if (growth.lastingRatio > kMostGrowth) {
      char text[120];
      std::snprintf(text, sizeof text,
                    "size %zu takes %.4f s, and twice as much %.4f s: %.1f times", size / 2,
                    smallSeconds, largeSeconds, ratio);
      growth.violation = text;
      return growth;
    }
    if (size > most) break;
    formerRatio = ratio;
    small = std::move(large);
    smallSeconds = largeSeconds;
  }
  return growth;
}

double LongestStop(const Work& work, int moments, double allowed) {
  const Clock::time_point begin = Clock::now();
  work();
  const double whole = Since(begin);
  double longest = 0;
  for (int i = 0; i < moments; ++i) {
    double best = 1e9;
    for (int attempt = 0; attempt < 3 && best > allowed; ++attempt)
      best = std::min(best, StopAfter(work, whole * (i + 0.5) / moments));
    longest = std::max(longest, best);
  }
  return longest;
}

}  // namespace support
