#include <algorithm>

#include "Utility/Generic/HTTPReadAhead.h"

HTTPPrediction::~HTTPPrediction() = default;

void HTTPRequestBudget::EndImport() noexcept {
  const std::lock_guard lock(m_mutex);
  if (m_imports > 0) --m_imports;
  NotifyLocked();
}

unsigned int HTTPRequestBudget::MostAhead() const noexcept {
  const std::lock_guard lock(m_mutex);
  return m_requests > 1 ? m_requests - 1 : 0;
}

void HTTPRequestBudget::Add(Listener& listener) {
  const std::lock_guard lock(m_mutex);
  m_listeners.push_back(&listener);
}

void HTTPRequestBudget::Remove(Listener& listener) noexcept {
  const std::lock_guard lock(m_mutex);
  std::erase(m_listeners, &listener);
}

bool HTTPRequestBudget::HasRoom() const noexcept {
  const std::lock_guard lock(m_mutex);
  return m_imports < m_requests;
}

bool HTTPRequestBudget::TryTake() noexcept {
  const std::lock_guard lock(m_mutex);
  if (m_imports + m_ahead >= m_requests) {
    m_isWanted = true;
    return false;
  }
  ++m_ahead;
  return true;
}

bool HTTPRequestBudget::MaySendOnOwn() const noexcept {
  const std::lock_guard lock(m_mutex);
  return m_imports + m_ahead <= m_requests;
}

void HTTPRequestBudget::Return() noexcept {
  const std::lock_guard lock(m_mutex);
  --m_ahead;
  NotifyLocked();
}

unsigned int HTTPRequestBudget::Halvings() const noexcept {
  const std::lock_guard lock(m_mutex);
  return m_halvings;
}

void HTTPRequestBudget::Halve(unsigned int halvings) noexcept {
  const std::lock_guard lock(m_mutex);
  if (halvings != m_halvings) return;
  ++m_halvings;
  m_requests = std::max(1U, m_requests / 2);
}

void HTTPRequestBudget::NotifyLocked() noexcept {
  if (!m_isWanted || m_imports + m_ahead >= m_requests) return;
  m_isWanted = false;
  for (Listener* const listener : m_listeners) listener->OnPlaceFree();
}
