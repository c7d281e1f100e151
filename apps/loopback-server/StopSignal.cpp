#include "loopback-server/StopSignal.h"

namespace loopback {

void StopSignal::Raise() {
  const std::lock_guard lock(m_mutex);
  m_isRaised = true;
  m_changed.notify_all();
}

bool StopSignal::IsRaised() const {
  const std::lock_guard lock(m_mutex);
  return m_isRaised;
}

bool StopSignal::Sleep(std::chrono::milliseconds time) const {
  std::unique_lock lock(m_mutex);
  return !m_changed.wait_for(lock, time, [this] { return m_isRaised; });
}

}  // namespace loopback
