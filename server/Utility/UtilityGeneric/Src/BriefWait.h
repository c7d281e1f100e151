#pragma once

#include <chrono>
#include <thread>

/// Gives a condition that another thread is about to fulfil a moment to come true while the
/// processor stays awake: putting it to sleep and waking it again takes longer than the parse of a
/// small reply. Threads that have work get the processor in between. `isDone` needs no lock;
/// whoever calls looks again under its own.
template <class IsDone>
void WaitBriefly(IsDone isDone) {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::microseconds kMoment{100};
  for (const auto end = Clock::now() + kMoment; !isDone() && Clock::now() < end;)
    std::this_thread::yield();
}
