#pragma once

#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "commands/Results.h"

/// Brings cubes that several threads read back into their order, and keeps the threads from getting
/// far ahead of it, so that few cubes are in memory. Safe to use from several threads.
class CubeOrder {
 public:
  /// `take` is called for one cube at a time, on one of the threads. When it throws, no cube is
  /// taken any more, and `onFailure` is called.
  CubeOrder(std::size_t count, std::size_t window, std::function<void(const CubeResult&)> take,
            std::function<void()> onFailure);

  /// Waits until the cube with this number may be read. False when the reading is to stop.
  bool AwaitTurn(std::size_t number);
  /// The cube with this number is as complete as it gets; null: it is left out.
  void Put(std::size_t number, std::unique_ptr<CubeResult> cube);
  /// To be called when all threads have ended: the cubes behind one that was never put are taken,
  /// too. Throws what `take` threw.
  void Finish();

 private:
  struct Slot {
    bool isPut = false;
    std::unique_ptr<CubeResult> cube;
  };

  /// Takes what is next, unless another thread does so.
  void TakeNext(std::unique_lock<std::mutex>& lock);

  const std::size_t m_window;
  const std::function<void(const CubeResult&)> m_take;
  const std::function<void()> m_onFailure;
  std::mutex m_mutex;
  std::condition_variable m_advanced;
  std::vector<Slot> m_slots;  // guarded, as is the rest
  std::size_t m_next = 0;     // the number of the cube to be taken
  bool m_isTaking = false;    // one thread does
  std::exception_ptr m_failure;
};
