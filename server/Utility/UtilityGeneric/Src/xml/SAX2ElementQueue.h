#pragma once

#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>

#include "xml/SAX2ElementBlock.h"

/// The bounded queue between the thread that parses and the thread that reads.
///
/// Every parse is a generation. A parse that is cancelled, or replaced by a newer one, is no longer
/// current: whatever its thread still does has no effect, so nothing of it reaches the next parse.
class SAX2ElementQueue {
 public:
  using Generation = std::uint64_t;
  using Block = std::unique_ptr<SAX2ElementBlock>;
  static constexpr Generation kNone = 0;

  SAX2ElementQueue() = default;
  ~SAX2ElementQueue();
  SAX2ElementQueue(const SAX2ElementQueue&) = delete;
  SAX2ElementQueue& operator=(const SAX2ElementQueue&) = delete;

  /// What the reader gets from Take.
  enum class TakeResult { kBlock, kEnd, kFailure, kCancellation };

  // Any thread.

  /// A parse is about to begin: Take waits for it. Replaces an earlier parse.
  void Announce() noexcept;
  /// Ends the announced or running parse: what is not read yet is dropped.
  void Cancel() noexcept;
  /// False when the parse has nothing more to do. Cheap.
  bool IsCurrent(Generation parse) const noexcept {
    return m_current.load(std::memory_order_acquire) == parse;
  }

  // The parsing thread.

  /// The generation of the announced parse, or of a new one if none was announced; kNone if the
  /// announced parse was cancelled before it began.
  Generation Begin() noexcept;
  /// Waits for room and adds the block. False when the parse is no longer current. Throws
  /// std::bad_alloc.
  bool Push(Generation parse, Block block);
  /// Adds the last block without waiting. Throws std::bad_alloc.
  void PushLast(Generation parse, Block block);
  /// The parse is over: after the blocks the reader gets the end, or the failure. False when the
  /// parse was no longer current.
  bool End(Generation parse, bool failed) noexcept;

  // The reading thread.

  /// Waits for the next block, or for the end of the parse. The end is delivered once; after it,
  /// and when no parse was announced, the delivery is kEnd. A stop request for the calling thread
  /// cancels the parse.
  TakeResult Take(Block& block, Generation& parse);

 private:
  enum class State { kIdle, kOpen, kComplete, kFailed, kCancelled };

  void AnnounceLocked() noexcept;
  void CancelLocked() noexcept;
  void AddLocked(Block block);

  struct Conditions {
    std::condition_variable reader;  // for a block or the end
    std::condition_variable parser;  // for room
  };

  const pid_t m_process = getpid();
  std::mutex m_mutex;
  std::unique_ptr<Conditions> m_conditions = std::make_unique<Conditions>();
  std::deque<Block> m_blocks;                // guarded
  std::size_t m_bytes = 0;                   // guarded: in m_blocks
  State m_state = State::kIdle;              // guarded
  bool m_announced = false;                  // guarded: announced and not begun
  Generation m_last = kNone;                 // guarded: of the newest parse
  std::atomic<Generation> m_current{kNone};  // written under the lock
};
