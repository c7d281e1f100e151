#pragma once

#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "commands/Results.h"

/// Passes on cubes in order while several threads read them. Limits how far threads read ahead, so
/// that few cubes are in memory. Thread-safe.
class CubeOrder {
 public:
  /// Calls `take` for one cube at a time, on any of the threads. If it throws, `onFailure` is
  /// called and no further cube is taken.
  CubeOrder(std::size_t count, std::size_t window, std::function<void(const CubeResult&)> take,
            std::function<void()> onFailure);

  /// Waits until the cube with this number may be read. False if reading must stop.
  bool AwaitTurn(std::size_t number);
  /// True if AwaitTurn would wait.
  bool MustWait(std::size_t number);
  /// Hands over the cube with this number. Null means that the result does not contain it.
  void Put(std::size_t number, std::unique_ptr<CubeResult> cube);
  /// Call after all threads have ended. Also takes the cubes that follow a missing one. Rethrows
  /// the exception of `take`.
  void Finish();

 private:
  struct Slot {
    bool isPut = false;
    std::unique_ptr<CubeResult> cube;
  };

  /// Takes all cubes that are next in order, unless another thread is doing so.
  void TakeNext(std::unique_lock<std::mutex>& lock);

  const std::size_t m_window;
  const std::function<void(const CubeResult&)> m_take;
  const std::function<void()> m_onFailure;
  std::mutex m_mutex;
  std::condition_variable m_advanced;
  std::vector<Slot> m_slots;  // guarded by m_mutex, like the members below
  std::size_t m_next = 0;     // number of the next cube to take
  bool m_isTaking = false;    // a thread is in TakeNext
  std::exception_ptr m_failure;
};
