#include <unistd.h>

#include <algorithm>

#include "Utility/Generic/Cancellation.h"
#include "Utility/Generic/HTTPReadAhead.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPoll{40};  // between two checks for cancellation
/// A server usually notices within this time that a client has closed its connection.
constexpr std::chrono::milliseconds kUntilNoticed{500};
/// Requests without a sign of overload before their number grows again.
constexpr unsigned int kUntilDoubled = 32;

}  // namespace

HTTPPrediction::~HTTPPrediction() = default;

HTTPRequestBudget::HTTPRequestBudget(unsigned int requests, unsigned int imports) noexcept
    : m_process(getpid()),
      m_hasOnlyOne(requests <= 1),
      m_requests(std::max(1U, requests)),
      m_mostRequests(m_requests),
      m_imports(imports) {}

bool HTTPRequestBudget::IsOfThisProcess() const noexcept { return getpid() == m_process; }

void HTTPRequestBudget::EndImport() noexcept {
  if (!IsOfThisProcess()) return;
  const std::lock_guard lock(m_mutex);
  if (m_imports > 0) --m_imports;
  NotifyLocked();
}

void HTTPRequestBudget::BeginImport() noexcept {
  if (!IsOfThisProcess()) return;
  const std::lock_guard lock(m_mutex);
  ++m_imports;
}

void HTTPRequestBudget::Add(Listener& listener) {
  const std::lock_guard lock(m_mutex);
  m_listeners.push_back(&listener);
}

void HTTPRequestBudget::Remove(Listener& listener) noexcept {
  const std::lock_guard lock(m_mutex);
  std::erase(m_listeners, &listener);
}

unsigned int HTTPRequestBudget::MostAhead() const noexcept {
  const std::lock_guard lock(m_mutex);
  return m_requests - 1;
}

unsigned int HTTPRequestBudget::Limit() const noexcept {
  const std::lock_guard lock(m_mutex);
  return m_mostRequests;
}

bool HTTPRequestBudget::HasRoom() const noexcept {
  const std::lock_guard lock(m_mutex);
  return m_imports < m_requests;
}

HTTPRequestBudget::Permit HTTPRequestBudget::Take(bool isAlone) {
  std::unique_lock lock(m_mutex);
  ++m_waiting;
  if (isAlone) ++m_waitingAlone;
  bool isStopped = IsThreadToStop();
  while (!isStopped && !(isAlone ? IsQuietLocked() : IsFreeLocked())) {
    m_changed.wait_for(lock, kPoll);
    isStopped = IsThreadToStop();
  }
  --m_waiting;
  if (isAlone) --m_waitingAlone;
  Permit permit;
  if (!isStopped) {
    m_isAlone = isAlone;
    permit = PermitLocked(m_own);
  }
  NotifyLocked();  // TryTakeAhead fails while a call waits here
  return permit;
}

HTTPRequestBudget::Permit HTTPRequestBudget::TryTakeOwn() noexcept {
  const std::lock_guard lock(m_mutex);
  if (m_waiting > 0 || !IsFreeLocked() || m_imports + m_ahead > m_requests) return {};
  return PermitLocked(m_own);
}

HTTPRequestBudget::Permit HTTPRequestBudget::TryTakeAhead() noexcept {
  const std::lock_guard lock(m_mutex);
  if (m_waiting > 0 || !IsFreeLocked() || m_imports + m_ahead >= m_requests) {
    m_isWanted = true;
    return {};
  }
  return PermitLocked(m_ahead);
}

HTTPRequestBudget::Permit HTTPRequestBudget::PermitLocked(unsigned int& count) noexcept {
  Permit permit;
  permit.m_budget = this;
  permit.m_count = &count;
  permit.m_number = ++m_permits;
  permit.m_requests = m_requests;
  permit.m_wasFirst = IsQuietLocked();
  ++count;
  if (m_requests < m_mostRequests && ++m_sinceRefusal == kUntilDoubled) {
    m_requests = std::min(m_mostRequests, m_requests * 2);
    m_sinceRefusal = 0;
  }
  return permit;
}

bool HTTPRequestBudget::IsFreeLocked() const noexcept {
  return !m_isAlone && m_waitingAlone == 0 && m_own + m_ahead < m_requests && !IsPausedLocked();
}

/// True if the server works on no request.
bool HTTPRequestBudget::IsQuietLocked() const noexcept {
  return m_own + m_ahead == 0 && Clock::now() >= m_abandoned + kUntilNoticed && !IsPausedLocked();
}

bool HTTPRequestBudget::IsPausedLocked() const noexcept { return Clock::now() < m_pausedUntil; }

void HTTPRequestBudget::Pause(double seconds) {
  if (seconds <= 0) return;
  const std::lock_guard lock(m_mutex);
  m_pausedUntil =
      std::max(m_pausedUntil,
               Clock::now() + std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000)));
}

Clock::time_point HTTPRequestBudget::PausedUntil() const noexcept {
  const std::lock_guard lock(m_mutex);
  return m_pausedUntil;
}

void HTTPRequestBudget::NotifyLocked() noexcept {
  m_changed.notify_all();
  if (!m_isWanted || m_waiting > 0 || !IsFreeLocked() || m_imports + m_ahead >= m_requests) return;
  m_isWanted = false;
  for (Listener* const listener : m_listeners) listener->OnPlaceFree();
}

HTTPRequestBudget::Permit& HTTPRequestBudget::Permit::operator=(Permit&& other) noexcept {
  Return();
  m_budget = std::exchange(other.m_budget, nullptr);
  m_count = other.m_count;
  m_number = other.m_number;
  m_requests = other.m_requests;
  m_wasFirst = other.m_wasFirst;
  return *this;
}

void HTTPRequestBudget::Permit::Return() noexcept {
  HTTPRequestBudget* const budget = std::exchange(m_budget, nullptr);
  if (!budget || !budget->IsOfThisProcess()) return;
  const std::lock_guard lock(budget->m_mutex);
  --*m_count;
  budget->m_isAlone = false;
  budget->NotifyLocked();
}

void HTTPRequestBudget::Permit::Abandon() noexcept {
  if (m_budget && m_budget->IsOfThisProcess()) {
    const std::lock_guard lock(m_budget->m_mutex);
    m_budget->m_abandoned = Clock::now();
  }
  Return();
}

bool HTTPRequestBudget::Permit::IsBesideOthers() const noexcept {
  if (!m_budget) return false;
  const std::lock_guard lock(m_budget->m_mutex);
  return IsBesideOthersLocked();
}

bool HTTPRequestBudget::Permit::IsBesideOthersLocked() const noexcept {
  return !m_budget->m_hasOnlyOne && (!m_wasFirst || m_number != m_budget->m_permits);
}

void HTTPRequestBudget::Permit::Refuse(bool isLasting) noexcept {
  if (!m_budget) return;
  const std::lock_guard lock(m_budget->m_mutex);
  m_budget->m_sinceRefusal = 0;
  if (!IsBesideOthersLocked()) return;
  // Requests that were in progress together halve the same number.
  const unsigned int half = std::max(1U, m_requests / 2);
  m_budget->m_requests = std::min(m_budget->m_requests, half);
  if (isLasting) m_budget->m_mostRequests = std::min(m_budget->m_mostRequests, half);
}
