#include "SAX2ElementChannel.h"

#include <chrono>
#include <utility>

#include "Cancellation.h"

namespace {

constexpr std::size_t kBatchElements = 256;
constexpr std::size_t kBatchText = std::size_t{1} << 16;  // bytes
constexpr std::size_t kReusedText = 2 * kBatchText;       // longer ones are let go
constexpr std::size_t kReadyElements = 2048;
constexpr std::size_t kReadyText = std::size_t{1} << 20;  // bytes
/// A block has so many elements or so much text, but for the last one.
constexpr std::size_t kReadyBlocks = kReadyElements / kBatchElements + kReadyText / kBatchText + 2;

/// How long the reader sleeps before it looks at its execution state again: a signal handler can
/// set that state but wake nobody.
constexpr std::chrono::milliseconds kSlice{40};

}  // namespace

SAX2ElementChannel::SAX2ElementChannel()
    : m_failedElement(new SAX2XmlElement(SAX2XmlElement::Kind::kError)),
      m_cancelledElement(new SAX2XmlElement(SAX2XmlElement::Kind::kCancelled)) {
  // The three lists change places, so each has the room.
  for (SAX2ElementBlocks* blocks : {&m_ready, &m_reading, &m_kept}) blocks->reserve(kReadyBlocks);
}

void SAX2ElementChannel::DropReadyLocked() noexcept {
  m_ready.clear();
  m_readyElements = 0;
  m_readyText = 0;
}

void SAX2ElementChannel::AnnounceLocked() noexcept {
  ++m_lastTicket;
  m_live.store(m_lastTicket, std::memory_order_release);
  if (std::exchange(m_keepNext, false)) m_keptTicket = m_lastTicket;
  m_announced = true;
  m_stream = Stream::kOpen;
  DropReadyLocked();
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

void SAX2ElementChannel::TakeSpare() noexcept {
  const std::lock_guard lock(m_mutex);
  if (m_spare) m_empty = std::move(m_spare);
}

void SAX2ElementChannel::CancelLocked() noexcept {
  if (m_stream == Stream::kClosed || m_stream == Stream::kCancelled) return;
  m_stream = Stream::kCancelled;
  m_live.store(0, std::memory_order_release);
  DropReadyLocked();
  m_wakeParser.notify_all();
  m_wakeReader.notify_all();
}

void SAX2ElementChannel::Cancel() noexcept {
  const std::lock_guard lock(m_mutex);
  CancelLocked();
}

bool SAX2ElementChannel::Push(Ticket ticket, Name& name, std::string_view value) {
  if (name.block != m_batchNumber) {
    m_batch.names.push_back(name.text);
    name.index = static_cast<std::uint32_t>(m_batch.names.size() - 1);
    name.block = m_batchNumber;
  }
  m_batch.text.append(value);
  m_batch.records.push_back({name.index, static_cast<std::uint32_t>(value.size())});
  if (m_batch.records.size() < kBatchElements && m_batch.text.size() < kBatchText)
    return !IsStopped(ticket);
  Close();
  std::unique_lock lock(m_mutex);
  while (!IsStopped(ticket) && IsFullLocked()) {
    m_parserWaits = true;
    m_wakeParser.wait(lock);
    m_parserWaits = false;
  }
  if (IsStopped(ticket)) return false;
  const bool wake = HandOverLocked();
  lock.unlock();
  if (wake) m_wakeReader.notify_one();
  return true;
}

bool SAX2ElementChannel::IsFullLocked() const noexcept {
  return m_readyElements >= kReadyElements || m_readyText >= kReadyText;
}

void SAX2ElementChannel::Close() {
  if (!m_batch.records.empty()) {
    if (m_empty) {
      // Short replies, one after the other, fill the same two blocks in turn.
      std::swap(*m_empty, m_batch);
      m_closed = std::move(m_empty);
    } else {
      // A copy has memory of the right size, which matters when it is kept, and leaves the batch
      // its own to be filled again.
      m_closed = std::make_unique<SAX2ElementBlock>(m_batch);
    }
  }
  ResetBatch();
}

void SAX2ElementChannel::ResetBatch() noexcept {
  m_batch.names.clear();
  m_batch.records.clear();
  m_batch.text.clear();
  if (m_batch.text.capacity() > kReusedText) std::string().swap(m_batch.text);
  ++m_batchNumber;
}

/// True when the reader is to be woken, which is to be done without the lock: it takes it first.
bool SAX2ElementChannel::HandOverLocked() noexcept {
  if (m_closed) {
    m_readyElements += m_closed->records.size();
    m_readyText += m_closed->text.size();
    m_ready.push_back(std::move(m_closed));
  }
  return m_readerWaits;
}

bool SAX2ElementChannel::End(Ticket ticket, bool failed) noexcept {
  ResetBatch();
  std::unique_lock lock(m_mutex);
  if (IsStopped(ticket)) {
    m_closed.reset();
    return false;
  }
  m_stream = failed ? Stream::kFailed : Stream::kComplete;
  const bool wake = HandOverLocked();
  lock.unlock();
  if (wake) m_wakeReader.notify_one();
  return true;
}

void SAX2ElementChannel::KeepNext() noexcept {
  m_kept.clear();
  m_keptToEnd = false;
  const std::lock_guard lock(m_mutex);
  m_keepNext = true;
}

bool SAX2ElementChannel::ReadAgain() noexcept {
  const std::lock_guard lock(m_mutex);
  if (m_stream != Stream::kClosed || !std::exchange(m_keptToEnd, false)) return false;
  ++m_lastTicket;
  m_live.store(m_lastTicket, std::memory_order_release);
  m_stream = Stream::kComplete;
  m_ready.swap(m_kept);
  return true;
}

SAX2ElementChannel::Element SAX2ElementChannel::Read(std::span<const String::View> wanted) {
  for (;;) {
    if (IsStopped(m_readingTicket) || IsThreadToStop()) {
      // What was taken belongs to a parse that is stopped or is to be stopped now.
      m_keepReading = false;
      m_cursor.Leave();
      m_reading.clear();
      m_nextBlock = 0;
    } else if (m_cursor.HasNext()) {
      return m_cursor.Next();
    }
    LeaveBlock();
    if (m_nextBlock == m_reading.size()) {
      std::unique_lock lock(m_mutex);
      if (!TakeReadyLocked(lock)) return ReadEndLocked();
    }
    m_cursor.Enter(std::move(m_reading[m_nextBlock++]));
    if (!wanted.empty()) m_cursor.PassOverUnless(wanted);
  }
}

void SAX2ElementChannel::LeaveBlock() {
  auto block = m_cursor.Leave();
  if (!block) return;
  if (m_keepReading)
    m_kept.push_back(std::move(block));
  else if (block->text.capacity() <= kReusedText) {
    block->names.clear();  // which may be long as well
    m_used = std::move(block);
  }
}

/// Waits for elements, and takes all there are; false at the end.
bool SAX2ElementChannel::TakeReadyLocked(std::unique_lock<std::mutex>& lock) {
  m_reading.clear();
  m_nextBlock = 0;
  for (;;) {
    if (IsThreadToStop()) CancelLocked();
    if (!m_ready.empty()) break;
    if (m_stream != Stream::kOpen) return false;
    m_readerWaits = true;
    if (VXExecutionState::Current())
      m_wakeReader.wait_for(lock, kSlice);
    else
      m_wakeReader.wait(lock);
    m_readerWaits = false;
  }
  m_reading.swap(m_ready);
  m_readyElements = 0;
  m_readyText = 0;
  if (std::exchange(m_readingTicket, m_lastTicket) != m_lastTicket) {
    m_kept.clear();
    m_keepReading = m_keptTicket == m_lastTicket;
  }
  if (m_parserWaits) m_wakeParser.notify_one();
  return true;
}

SAX2ElementChannel::Element SAX2ElementChannel::ReadEndLocked() noexcept {
  const Stream ended = m_stream;
  m_stream = Stream::kClosed;
  if (m_used) m_spare = std::move(m_used);
  m_keptToEnd = ended == Stream::kComplete && m_keepReading && m_readingTicket == m_lastTicket;
  if (ended == Stream::kFailed) return m_failedElement;
  if (ended == Stream::kCancelled) return m_cancelledElement;
  return Element();
}
