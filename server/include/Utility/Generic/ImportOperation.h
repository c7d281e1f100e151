#pragma once

/// \file
/// Counting of what one import operation uses.

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// Counts the requests, replies, rows and time of one import operation and checks them against
/// ImportLimits. Create the object on the thread that runs the operation. It uses the
/// ImportSettings of that moment, and is the current operation of the thread until it is destroyed.
/// A nested operation counts separately.
class XMLAHOST_API ImportOperation {
 public:
  ImportOperation();
  ~ImportOperation();
  ImportOperation(const ImportOperation&) = delete;
  ImportOperation& operator=(const ImportOperation&) = delete;

  /// The innermost operation of the calling thread, or null.
  static ImportOperation* Current() noexcept;

  /// Call before each request. Throws ErrorMessage if the number of requests or the size of all
  /// replies exceeds its limit.
  void CountRequest();
  /// Counts a request that repeats a failed one. Returns false, without counting, if CountRequest
  /// would throw.
  bool TryCountRequest() noexcept;
  /// Call for each row of a reply. Throws ErrorMessage if the number of rows exceeds its limit.
  void CountRow();
  /// The HTTP client calls this for each reply.
  void CountReplyBytes(std::uint64_t bytes) noexcept { m_replyBytes += bytes; }
  /// Call after each reply. Throws ErrorMessage if the size of all replies exceeds its limit.
  void CheckReplyBytes();
  /// True if the number of requests or rows or the size of all replies has exceeded its limit. The
  /// operation must end with that error, even where another error would be a warning.
  bool IsOver() const noexcept { return m_isOver; }
  /// True if the operation has a deadline that has passed.
  bool IsPastDeadline() const noexcept {
    return m_deadline && std::chrono::steady_clock::now() >= *m_deadline;
  }
  /// The error text after the deadline has passed.
  String DeadlineText() const;
  /// Calls `work` at the end of the operation, on its thread. `work` must not throw.
  void AtEnd(std::function<void()> work) { m_atEnd.push_back(std::move(work)); }

 private:
  [[noreturn]] void End(const String& reason);

  ImportOperation* const m_previous;
  const std::uint64_t m_maxRequests;
  const std::uint64_t m_maxRows;
  const std::uint64_t m_maxReplyBytes;
  const std::uint32_t m_deadlineSeconds;
  std::uint64_t m_requests = 0;
  std::uint64_t m_rows = 0;
  std::uint64_t m_replyBytes = 0;
  bool m_isOver = false;
  std::optional<std::chrono::steady_clock::time_point> m_deadline;
  std::vector<std::function<void()>> m_atEnd;
};
