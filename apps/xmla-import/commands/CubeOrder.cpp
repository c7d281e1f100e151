#include "commands/CubeOrder.h"

#include <chrono>
#include <utility>

#include "base/Interrupt.h"

CubeOrder::CubeOrder(std::size_t count, std::size_t window,
                     std::function<void(const CubeResult&)> take, std::function<void()> onFailure)
    : m_window(window),
      m_take(std::move(take)),
      m_onFailure(std::move(onFailure)),
      m_slots(count) {}

bool CubeOrder::AwaitTurn(std::size_t number) {
  constexpr std::chrono::milliseconds kSlice{
      50};  // a signal handler cannot notify the condition variable
  std::unique_lock lock(m_mutex);
  while (number >= m_next + m_window && !m_failure && !MustStop())
    m_advanced.wait_for(lock, kSlice);
  return !m_failure && !MustStop();
}

bool CubeOrder::MustWait(std::size_t number) {
  const std::lock_guard lock(m_mutex);
  return number >= m_next + m_window;
}

void CubeOrder::Put(std::size_t number, std::unique_ptr<CubeResult> cube) {
  std::unique_lock lock(m_mutex);
  m_slots[number] = {true, std::move(cube)};
  TakeNext(lock);
}

void CubeOrder::TakeNext(std::unique_lock<std::mutex>& lock) {
  if (m_isTaking) return;
  m_isTaking = true;
  while (m_next < m_slots.size() && m_slots[m_next].isPut) {
    std::unique_ptr<CubeResult> cube = std::move(m_slots[m_next].cube);
    const bool isWanted = cube && !m_failure;
    lock.unlock();
    std::exception_ptr failure;
    try {
      if (isWanted) m_take(*cube);
    } catch (...) {
      failure = std::current_exception();
      m_onFailure();
    }
    cube.reset();
    lock.lock();
    if (failure) m_failure = failure;
    ++m_next;
    m_advanced.notify_all();
  }
  m_isTaking = false;
}

void CubeOrder::Finish() {
  std::unique_lock lock(m_mutex);
  for (Slot& slot : m_slots) slot.isPut = true;
  TakeNext(lock);
  if (m_failure) std::rethrow_exception(m_failure);
}
