#include "SAX2ElementChannel.h"

#include <chrono>

#include "Utility/Generic/VXThread.h"

namespace {

constexpr std::size_t kBatchElements = 256;
constexpr std::size_t kBatchText = std::size_t{1} << 16;  // characters
constexpr std::size_t kReadyElements = 2048;
constexpr std::size_t kReadyText = std::size_t{1} << 20;  // characters

/// How long the reader sleeps before it looks at its execution state again: a signal handler can
/// set that state but wake nobody.
constexpr std::chrono::milliseconds kSlice{40};

bool IsReaderToStop() noexcept {
  const VXExecutionState* const state = VXExecutionState::Current();
  return state && state->IsCancellationRequested();
}

}  // namespace

SAX2ElementChannel::SAX2ElementChannel()
    : m_failedElement(new SAX2XmlElement(SAX2XmlElement::Kind::kError)),
      m_cancelledElement(new SAX2XmlElement(SAX2XmlElement::Kind::kCancelled)) {
  m_batch.reserve(kBatchElements);
  // A batch may be added while there is room, and the last one in any case.
  m_ready.reserve(kReadyElements + 2 * kBatchElements);
  m_reading.reserve(kReadyElements + 2 * kBatchElements);
}

void SAX2ElementChannel::AnnounceLocked() noexcept {
  ++m_lastTicket;
  m_live.store(m_lastTicket, std::memory_order_release);
  m_announced = true;
  m_stream = Stream::kOpen;
  m_ready.clear();
  m_readyText = 0;
  // A parser of an earlier parse that still waits for room sees that its ticket is gone.
  m_wakeParser.notify_all();
}

void SAX2ElementChannel::Announce() noexcept {
  const std::lock_guard lock(m_mutex);
  AnnounceLocked();
}

SAX2ElementChannel::Ticket SAX2ElementChannel::Begin() noexcept {
  const std::lock_guard lock(m_mutex);
  if (!m_announced) AnnounceLocked();
  m_announced = false;
  return m_live.load(std::memory_order_relaxed);
}

void SAX2ElementChannel::CancelLocked() noexcept {
  if (m_stream == Stream::kClosed || m_stream == Stream::kCancelled) return;
  m_stream = Stream::kCancelled;
  m_live.store(0, std::memory_order_release);
  m_ready.clear();
  m_readyText = 0;
  m_wakeParser.notify_all();
  m_wakeReader.notify_all();
}

void SAX2ElementChannel::Cancel() noexcept {
  const std::lock_guard lock(m_mutex);
  CancelLocked();
}

bool SAX2ElementChannel::Push(Ticket ticket, Element element, std::size_t textLength) noexcept {
  m_batch.push_back(std::move(element));
  m_batchText += textLength;
  if (m_batch.size() < kBatchElements && m_batchText < kBatchText) return !IsStopped(ticket);
  return HandOver(ticket);
}

bool SAX2ElementChannel::HandOver(Ticket ticket) noexcept {
  std::unique_lock lock(m_mutex);
  while (!IsStopped(ticket) && (m_ready.size() >= kReadyElements || m_readyText >= kReadyText)) {
    m_parserWaits = true;
    m_wakeParser.wait(lock);
    m_parserWaits = false;
  }
  if (IsStopped(ticket)) return false;
  MoveBatchLocked();
  return true;
}

void SAX2ElementChannel::MoveBatchLocked() noexcept {
  for (Element& element : m_batch) m_ready.push_back(std::move(element));
  m_readyText += m_batchText;
  DropBatch();
  if (m_readerWaits) m_wakeReader.notify_one();
}

void SAX2ElementChannel::DropBatch() noexcept {
  m_batch.clear();
  m_batchText = 0;
}

bool SAX2ElementChannel::End(Ticket ticket, bool failed) noexcept {
  const std::lock_guard lock(m_mutex);
  if (IsStopped(ticket)) {
    DropBatch();
    return false;
  }
  m_stream = failed ? Stream::kFailed : Stream::kComplete;
  MoveBatchLocked();
  return true;
}

SAX2ElementChannel::Element SAX2ElementChannel::Read() noexcept {
  if (m_next < m_reading.size() && !IsStopped(m_readingTicket) && !IsReaderToStop())
    return std::move(m_reading[m_next++]);
  return ReadSlowly();
}

SAX2ElementChannel::Element SAX2ElementChannel::ReadSlowly() noexcept {
  // Everything taken was read, or belongs to a parse that is stopped or is to be stopped now.
  m_reading.clear();
  m_next = 0;
  std::unique_lock lock(m_mutex);
  for (;;) {
    if (IsReaderToStop()) CancelLocked();
    if (m_stream == Stream::kOpen && m_ready.empty()) {
      m_readerWaits = true;
      if (VXExecutionState::Current())
        m_wakeReader.wait_for(lock, kSlice);
      else
        m_wakeReader.wait(lock);
      m_readerWaits = false;
      continue;
    }
    if (!m_ready.empty()) {
      m_reading.swap(m_ready);
      m_readyText = 0;
      m_readingTicket = m_lastTicket;
      if (m_parserWaits) m_wakeParser.notify_one();
      return std::move(m_reading[m_next++]);
    }
    const Stream ended = m_stream;
    m_stream = Stream::kClosed;
    if (ended == Stream::kFailed) return m_failedElement;
    if (ended == Stream::kCancelled) return m_cancelledElement;
    return Element();
  }
}
