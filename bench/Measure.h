#pragma once

#include <sched.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace measure {

/// Wall time of one call in seconds.
double Seconds(const std::function<void()>& work);

double Median(std::vector<double> values);

/// Runs two implementations alternately, so that noise of the machine affects both equally. With
/// more than one pair, an additional first pair (connecting, warming up) is not counted.
struct Pairs {
  double baseline = 0;  ///< median seconds per call
  double cost = 0;      ///< median seconds per call
  double ratio = 0;     ///< median of the ratios of the pairs
};
Pairs InPairs(int count, const std::function<void()>& baseline, const std::function<void()>& work);

/// Pins this process and its children to one processor during the object's life. This excludes the
/// time to wake up another processor, which on a virtual machine varies and can exceed the time of
/// a small exchange.
class OneProcessor {
 public:
  OneProcessor();
  ~OneProcessor();
  OneProcessor(const OneProcessor&) = delete;
  OneProcessor& operator=(const OneProcessor&) = delete;

 private:
  cpu_set_t m_former;
};

/// Keeps every processor of this process busy during the object's life, with one computing child
/// process each.
class BusyProcessors {
 public:
  BusyProcessors();
  ~BusyProcessors();
  BusyProcessors(const BusyProcessors&) = delete;
  BusyProcessors& operator=(const BusyProcessors&) = delete;

 private:
  std::vector<pid_t> m_children;
};

/// Number of heap allocations of all threads of this process during the call.
std::size_t Allocations(const std::function<void()>& work);

/// Calls `work` in a child process. Returns the numbers that `work` returned, followed by the
/// child's peak memory in bytes. Requires that the process has one thread.
std::vector<double> InChild(const std::function<std::vector<double>()>& work);

/// Number of bytes allocated on the heap.
double HeldBytes();

}  // namespace measure
