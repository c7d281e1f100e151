#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <span>
#include <string_view>

#include "SAX2ElementBlock.h"
#include "SAX2ElementCursor.h"

/// The hand-over of elements from the thread that parses to the thread that reads.
///
/// A wake-up costs as much as parsing hundreds of elements. So the parser collects a block before
/// it takes the lock, the reader takes everything that is ready at once, and a small document is
/// handed over as a whole when it ends. What is ready is bounded by count and by text: beyond it
/// the parser waits until the reader has taken all.
///
/// Every parse has a ticket. A cancelled parse, or one that a newer announcement replaced, loses
/// its ticket: whatever its thread still does has no effect, so nothing of it reaches the next.
///
/// Blocks that were read can be kept and delivered once more: a document that is read twice is
/// parsed once.
class SAX2ElementChannel {
 public:
  using Ticket = std::uint64_t;
  using Element = RefCnt<SAX2XmlElement>;

  /// An element name of the parsing thread, and where it stands in the block being filled.
  struct Name {
    String text;
    std::uint64_t block = 0;
    std::uint32_t index = 0;
  };

  SAX2ElementChannel();
  SAX2ElementChannel(const SAX2ElementChannel&) = delete;
  SAX2ElementChannel& operator=(const SAX2ElementChannel&) = delete;

  // Any thread.
  void Announce() noexcept;
  void Cancel() noexcept;

  // The parsing thread. Push and Close throw std::bad_alloc.
  /// The parse's ticket; 0 when the announced parse was cancelled before it began.
  Ticket Begin() noexcept;
  /// Lets the parse use the memory of a block that was read. No other parse is on its way out.
  void TakeSpare() noexcept;
  /// Adds an element with a well-formed UTF-8 value; false when the parse is to end.
  bool Push(Ticket ticket, Name& name, std::string_view value);
  /// True when the parse is to end. Cheap: to be asked between pieces of work.
  bool IsStopped(Ticket ticket) const noexcept {
    return m_live.load(std::memory_order_acquire) != ticket;
  }
  /// Makes what was pushed last ready to be handed over by End.
  void Close();
  /// The parse is over: the reader gets what was closed, then the end, after an element with
  /// HasError when the parse failed. False when the parse had been stopped.
  bool End(Ticket ticket, bool failed) noexcept;

  // The reading thread. Read throws std::bad_alloc.
  /// `wanted`: elements whose name is none of these, ignoring case, may be passed over.
  Element Read(std::span<const String::View> wanted = {});
  /// What is read of the next parse is kept. Lets go what was kept before.
  void KeepNext() noexcept;
  /// What was kept is delivered once more, and kept no longer; false, and nothing happens, unless
  /// the parse that was kept has been read to its end.
  bool ReadAgain() noexcept;

 private:
  /// What the reader gets once everything ready is read.
  enum class Stream { kClosed, kOpen, kComplete, kFailed, kCancelled };

  void AnnounceLocked() noexcept;
  void CancelLocked() noexcept;
  void DropReadyLocked() noexcept;
  bool IsFullLocked() const noexcept;
  bool HandOverLocked() noexcept;
  void ResetBatch() noexcept;
  void LeaveBlock();
  bool TakeReadyLocked(std::unique_lock<std::mutex>& lock);
  Element ReadEndLocked() noexcept;

  std::mutex m_mutex;
  std::condition_variable m_wakeReader;
  std::condition_variable m_wakeParser;
  Ticket m_lastTicket = 0;            // guarded; the ticket of the newest announcement
  Ticket m_keptTicket = 0;            // guarded; the parse whose blocks are kept
  bool m_keepNext = false;            // guarded; that will be the next one
  bool m_announced = false;           // guarded; announced, and the parse has not begun
  bool m_readerWaits = false;         // guarded
  bool m_parserWaits = false;         // guarded
  Stream m_stream = Stream::kClosed;  // guarded
  SAX2ElementBlocks m_ready;          // guarded; room for all there may be is there from the start
  std::size_t m_readyElements = 0;    // guarded
  std::size_t m_readyText = 0;        // guarded
  std::unique_ptr<SAX2ElementBlock> m_spare;  // guarded; was read, and waits to be filled again
  std::atomic<Ticket> m_live{0};  // the parse that may go on; 0 for none. Written under the lock

  SAX2ElementBlock m_batch;  // the parsing thread's
  std::uint64_t m_batchNumber = 1;
  std::unique_ptr<SAX2ElementBlock> m_closed;  // made of the batch, to be handed over next
  std::unique_ptr<SAX2ElementBlock> m_empty;   // with the memory of an earlier block

  SAX2ElementBlocks m_reading;  // the reading thread's
  std::size_t m_nextBlock = 0;
  SAX2ElementCursor m_cursor;
  Ticket m_readingTicket = 0;
  bool m_keepReading = false;
  std::unique_ptr<SAX2ElementBlock> m_used;  // the block read last
  SAX2ElementBlocks m_kept;
  bool m_keptToEnd = false;

  const Element m_failedElement;  // made beforehand: ending a parse needs no memory
  const Element m_cancelledElement;
};
