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

/// Two ways of one thing, called in turn so that both meet the same weather, such as the processors
/// on which the system has put a server and its client. Beyond one pair, a
/// first one that connects and warms up is not counted.
struct Pairs {
  double floor = 0;  ///< median seconds of one call
  double ours = 0;   ///< median seconds of one call
  double ratio = 0;  ///< median of the pairs' ratios
};
Pairs InPairs(int count, const std::function<void()>& floor, const std::function<void()>& ours);

/// While one exists, this process and those that it starts share one processor. How long another
/// one takes to wake up, which on a virtual machine is longer than a small exchange and changes by
/// the minute, is then no part of what is measured: the work is.
class OneProcessor {
 public:
  OneProcessor();
  ~OneProcessor();
  OneProcessor(const OneProcessor&) = delete;
  OneProcessor& operator=(const OneProcessor&) = delete;

 private:
  cpu_set_t m_former;
};

/// While one exists, every processor that this process may use has other work to do as well: a
/// process each that computes without end.
class BusyProcessors {
 public:
  BusyProcessors();
  ~BusyProcessors();
  BusyProcessors(const BusyProcessors&) = delete;
  BusyProcessors& operator=(const BusyProcessors&) = delete;

 private:
  std::vector<pid_t> m_children;
};

/// Heap allocations of all threads of this process during the call.
std::size_t Allocations(const std::function<void()>& work);

/// Calls `work` in a child process and returns the numbers that it returned, followed by the
/// child's peak memory in bytes. To be called while the process has one thread.
std::vector<double> InChild(const std::function<std::vector<double>()>& work);

/// Bytes that the heap holds now.
double HeldBytes();

}  // namespace measure
