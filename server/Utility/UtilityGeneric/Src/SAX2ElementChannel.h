#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

#include "Utility/Generic/SAX2XmlReadDriver.h"

/// The hand-over of elements from the thread that parses to the thread that reads.
///
/// A wake-up costs as much as parsing hundreds of elements. So the parser collects a batch before
/// it takes the lock, the reader takes everything that is ready at once, and a small document is
/// handed over as a whole when it ends. What is ready is bounded by count and by text: beyond it
/// the parser waits until the reader has taken all.
///
/// Every parse has a ticket. A cancelled parse, or one that a newer announcement replaced, loses
/// its ticket: whatever its thread still does has no effect, so nothing of it reaches the next.
class SAX2ElementChannel {
 public:
  using Ticket = std::uint64_t;
  using Element = RefCnt<SAX2XmlElement>;

  SAX2ElementChannel();
  SAX2ElementChannel(const SAX2ElementChannel&) = delete;
  SAX2ElementChannel& operator=(const SAX2ElementChannel&) = delete;

  // Any thread.
  void Announce() noexcept;
  void Cancel() noexcept;

  // The parsing thread.
  /// The parse's ticket; 0 when the announced parse was cancelled before it began.
  Ticket Begin() noexcept;
  /// Adds an element; false when the parse is to end. `textLength` counts towards the bound.
  bool Push(Ticket ticket, Element element, std::size_t textLength) noexcept;
  /// True when the parse is to end. Cheap: to be asked between pieces of work.
  bool IsStopped(Ticket ticket) const noexcept {
    return m_live.load(std::memory_order_acquire) != ticket;
  }
  /// The parse is over: everything still kept is handed over, then the end, after an element with
  /// HasError when the parse failed. False when the parse had been stopped.
  bool End(Ticket ticket, bool failed) noexcept;

  // The reading thread.
  Element Read() noexcept;

 private:
  /// What the reader gets once everything ready is read.
  enum class Stream { kClosed, kOpen, kComplete, kFailed, kCancelled };

  void AnnounceLocked() noexcept;
  void CancelLocked() noexcept;
  bool HandOver(Ticket ticket) noexcept;
  void MoveBatchLocked() noexcept;
  void DropBatch() noexcept;
  Element ReadSlowly() noexcept;

  std::mutex m_mutex;
  std::condition_variable m_wakeReader;
  std::condition_variable m_wakeParser;
  Ticket m_lastTicket = 0;            // guarded; the ticket of the newest announcement
  bool m_announced = false;           // guarded; announced, and the parse has not begun
  bool m_readerWaits = false;         // guarded
  bool m_parserWaits = false;         // guarded
  Stream m_stream = Stream::kClosed;  // guarded
  std::vector<Element> m_ready;       // guarded; its capacity is set at the start and never grows
  std::size_t m_readyText = 0;        // guarded
  std::atomic<Ticket> m_live{0};  // the parse that may go on; 0 for none. Written under the lock

  std::vector<Element> m_batch;  // the parsing thread's
  std::size_t m_batchText = 0;

  std::vector<Element> m_reading;  // the reading thread's
  std::size_t m_next = 0;
  Ticket m_readingTicket = 0;

  const Element m_failedElement;  // made beforehand: ending a parse needs no memory
  const Element m_cancelledElement;
};
