#include "Measure.h"

#include <malloc.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace {

std::atomic<bool> g_counting{false};
std::atomic<std::size_t> g_allocations{0};

void Count() {
  if (g_counting.load(std::memory_order_relaxed))
    g_allocations.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace

// The C library's allocator under its internal names. The definitions below replace malloc for all
// modules of the process.
extern "C" {
// NOLINTBEGIN(readability-identifier-naming): names of the C library
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
// NOLINTEND(readability-identifier-naming)

void* malloc(std::size_t bytes) {
  Count();
  return __libc_malloc(bytes);
}
void* calloc(std::size_t count, std::size_t bytes) {
  Count();
  return __libc_calloc(count, bytes);
}
void* realloc(void* block, std::size_t bytes) {
  Count();
  return __libc_realloc(block, bytes);
}
}

namespace measure {

double Seconds(const std::function<void()>& work) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point begin = Clock::now();
  work();
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

double Median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

Pairs InPairs(int count, const std::function<void()>& baseline, const std::function<void()>& work) {
  std::vector<double> baselines;
  std::vector<double> times;
  std::vector<double> ratios;
  for (int i = count > 1 ? -1 : 0; i < count; ++i) {
    const double first = Seconds(baseline);
    const double second = Seconds(work);
    if (i < 0) continue;
    baselines.push_back(first);
    times.push_back(second);
    ratios.push_back(second / first);
  }
  return {Median(baselines), Median(times), Median(ratios)};
}

OneProcessor::OneProcessor() {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(sched_getcpu(), &one);
  if (sched_getaffinity(0, sizeof m_former, &m_former) != 0 ||
      sched_setaffinity(0, sizeof one, &one) != 0)
    throw std::runtime_error("cannot pin the process to one processor");
}

OneProcessor::~OneProcessor() { sched_setaffinity(0, sizeof m_former, &m_former); }

BusyProcessors::BusyProcessors() {
  cpu_set_t usable;
  if (sched_getaffinity(0, sizeof usable, &usable) != 0)
    throw std::runtime_error("cannot read the processors of this process");
  for (int processor = 0; processor < CPU_SETSIZE; ++processor) {
    if (!CPU_ISSET(processor, &usable)) continue;
    const pid_t child = fork();
    if (child < 0) throw std::runtime_error("cannot create a process");
    if (child > 0) {
      m_children.push_back(child);
      continue;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(processor, &one);
    if (sched_setaffinity(0, sizeof one, &one) != 0) _exit(1);
    for (volatile unsigned work = 0;;) work = work + 1;
  }
}

BusyProcessors::~BusyProcessors() {
  for (const pid_t child : m_children) {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }
}

std::size_t Allocations(const std::function<void()>& work) {
  g_allocations = 0;
  g_counting = true;
  work();
  g_counting = false;
  return g_allocations;
}

std::vector<double> InChild(const std::function<std::vector<double>()>& work) {
  int ends[2];
  std::fflush(stdout);
  if (pipe(ends) != 0) throw std::runtime_error("cannot create a pipe");
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("cannot create a process");
  if (child == 0) {
    int status = 0;
    try {
      for (const double value : work())
        if (write(ends[1], &value, sizeof value) != sizeof value) status = 1;
    } catch (const std::exception& error) {
      std::fprintf(stderr, "%s\n", error.what());
      status = 1;
    }
    _exit(status);
  }
  close(ends[1]);
  std::vector<double> values;
  double value;
  while (read(ends[0], &value, sizeof value) == sizeof value) values.push_back(value);
  close(ends[0]);
  int status = 0;
  rusage usage{};
  wait4(child, &status, 0, &usage);
  if (status != 0) throw std::runtime_error("the child process of a measurement failed");
  values.push_back(static_cast<double>(usage.ru_maxrss) * 1024);
  return values;
}

double HeldBytes() {
  const struct mallinfo2 info = mallinfo2();
  return static_cast<double>(info.uordblks + info.hblkhd);
}

}  // namespace measure
