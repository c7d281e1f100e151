#pragma once

#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>

#include "xml/SAX2ElementBlock.h"

/// The bounded queue between the parser thread and the reading thread.
///
/// Every parse has a generation number. A parse that was cancelled, or replaced by a newer one, is
/// no longer current. Calls with its generation have no effect, so nothing of it reaches the next
/// parse.
class SAX2ElementQueue {
 public:
  using Generation = std::uint64_t;
  using Block = std::unique_ptr<SAX2ElementBlock>;
  static constexpr Generation kNone = 0;

  SAX2ElementQueue() = default;
  ~SAX2ElementQueue();
  SAX2ElementQueue(const SAX2ElementQueue&) = delete;
  SAX2ElementQueue& operator=(const SAX2ElementQueue&) = delete;

  /// Result of Take.
  enum class TakeResult { kBlock, kEnd, kFailure, kCancellation };

  // Any thread:

  /// Announces a parse, which replaces an earlier one. Take waits for it.
  void Announce() noexcept;
  /// Cancels the announced or running parse. Blocks that are not read yet are dropped.
  void Cancel() noexcept;
  /// False if the parse must end. Cheap.
  bool IsCurrent(Generation parse) const noexcept {
    return m_current.load(std::memory_order_acquire) == parse;
  }

  // Parser thread:

  /// Begins the announced parse, or a new one if none was announced. Returns its generation, or
  /// kNone if it was cancelled before.
  Generation Begin() noexcept;
  /// Waits for room and adds the block. Returns false if the parse was cancelled or replaced.
  /// Throws std::bad_alloc.
  bool Push(Generation parse, Block block);
  /// Adds the last block without waiting. Throws std::bad_alloc.
  void PushLast(Generation parse, Block block);
  /// Ends the parse. After the remaining blocks, the reader gets the end or the failure. Returns
  /// false if the parse was no longer current.
  bool End(Generation parse, bool failed) noexcept;

  // Reading thread:

  /// Waits for the next block or the end of the parse. The end is returned once. After it, and if
  /// no parse was announced, the result is kEnd. If the calling thread must stop, cancels the
  /// parse.
  TakeResult Take(Block& block, Generation& parse);

 private:
  enum class State { kIdle, kOpen, kComplete, kFailed, kCancelled };

  void AnnounceLocked() noexcept;
  void CancelLocked() noexcept;
  void AddLocked(Block block);

  struct Conditions {
    std::condition_variable reader;  // waits for a block or the end
    std::condition_variable parser;  // waits for room
  };

  const pid_t m_process = getpid();
  std::mutex m_mutex;
  std::unique_ptr<Conditions> m_conditions = std::make_unique<Conditions>();
  std::deque<Block> m_blocks;                // guarded by m_mutex
  std::size_t m_bytes = 0;                   // guarded by m_mutex: size of m_blocks
  State m_state = State::kIdle;              // guarded by m_mutex
  bool m_announced = false;                  // guarded by m_mutex: not begun yet
  Generation m_last = kNone;                 // guarded by m_mutex: newest parse
  std::atomic<Generation> m_current{kNone};  // written under m_mutex
};
