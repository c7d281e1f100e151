#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace loopback {

/// After it was raised, every Sleep returns at once. Safe to use from several threads.
class StopSignal {
 public:
  void Raise();
  bool IsRaised() const;
  /// False if the signal was raised before the time was over.
  bool Sleep(std::chrono::milliseconds time) const;

 private:
  mutable std::mutex m_mutex;
  mutable std::condition_variable m_changed;
  bool m_isRaised = false;  ///< guarded by m_mutex
};

}  // namespace loopback
