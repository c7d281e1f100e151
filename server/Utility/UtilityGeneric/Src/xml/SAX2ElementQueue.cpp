#include "xml/SAX2ElementQueue.h"

#include <chrono>
#include <utility>

#include "Utility/Generic/Cancellation.h"

namespace {

/// The parser waits when this many bytes are queued, and continues when half of them were read.
constexpr std::size_t kMaxQueuedBytes = std::size_t{128} << 10;

/// Longest wait between two checks for cancellation. A signal handler can request cancellation, but
/// cannot wake the reader.
constexpr std::chrono::milliseconds kWaitInterval{40};

}  // namespace

// In a forked child, the destructor of a condition variable would never return: it waits for
// threads that exist only in the parent.
SAX2ElementQueue::~SAX2ElementQueue() {
  if (m_process != getpid()) static_cast<void>(m_conditions.release());
}

void SAX2ElementQueue::AnnounceLocked() noexcept {
  m_current.store(++m_last, std::memory_order_release);
  m_announced = true;
  m_state = State::kOpen;
  m_blocks.clear();
  m_bytes = 0;
  m_conditions->parser.notify_all();  // end an earlier parse that waits for room
}

void SAX2ElementQueue::Announce() noexcept {
  const std::lock_guard lock(m_mutex);
  AnnounceLocked();
}

void SAX2ElementQueue::CancelLocked() noexcept {
  if (m_state == State::kIdle || m_state == State::kCancelled) return;
  m_current.store(kNone, std::memory_order_release);
  m_state = State::kCancelled;
  m_blocks.clear();
  m_bytes = 0;
  m_conditions->parser.notify_all();
  m_conditions->reader.notify_all();
}

void SAX2ElementQueue::Cancel() noexcept {
  const std::lock_guard lock(m_mutex);
  CancelLocked();
}

SAX2ElementQueue::Generation SAX2ElementQueue::Begin() noexcept {
  const std::lock_guard lock(m_mutex);
  if (!m_announced) AnnounceLocked();
  m_announced = false;
  return m_current.load(std::memory_order_relaxed);
}

void SAX2ElementQueue::AddLocked(Block block) {
  const std::size_t bytes = block->Bytes();
  m_blocks.push_back(std::move(block));
  m_bytes += bytes;
}

bool SAX2ElementQueue::Push(Generation parse, Block block) {
  std::unique_lock lock(m_mutex);
  if (m_bytes >= kMaxQueuedBytes) {
    m_conditions->parser.wait(lock,
                              [&] { return !IsCurrent(parse) || m_bytes <= kMaxQueuedBytes / 2; });
  }
  if (!IsCurrent(parse)) return false;
  AddLocked(std::move(block));
  lock.unlock();
  m_conditions->reader.notify_one();
  return true;
}

void SAX2ElementQueue::PushLast(Generation parse, Block block) {
  const std::lock_guard lock(m_mutex);
  if (IsCurrent(parse)) AddLocked(std::move(block));
}

bool SAX2ElementQueue::End(Generation parse, bool failed) noexcept {
  {
    const std::lock_guard lock(m_mutex);
    if (!IsCurrent(parse)) return false;
    m_state = failed ? State::kFailed : State::kComplete;
  }
  m_conditions->reader.notify_one();
  return true;
}

SAX2ElementQueue::TakeResult SAX2ElementQueue::Take(Block& block, Generation& parse) {
  std::unique_lock lock(m_mutex);
  for (;;) {
    if (IsThreadToStop()) CancelLocked();
    if (!m_blocks.empty() || m_state != State::kOpen) break;
    m_conditions->reader.wait_for(lock, kWaitInterval);
  }
  if (m_blocks.empty()) {
    const State ended = std::exchange(m_state, State::kIdle);
    if (ended == State::kFailed) return TakeResult::kFailure;
    return ended == State::kCancelled ? TakeResult::kCancellation : TakeResult::kEnd;
  }
  block = std::move(m_blocks.front());
  m_blocks.pop_front();
  m_bytes -= block->Bytes();
  parse = m_last;
  if (m_bytes <= kMaxQueuedBytes / 2) {
    lock.unlock();
    m_conditions->parser.notify_one();
  }
  return TakeResult::kBlock;
}
