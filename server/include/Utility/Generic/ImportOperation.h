#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// What one import operation has used of its limits (ImportLimits): its requests, replies, rows and
/// time. The object is made on the thread that runs the operation, with the settings in force
/// there, and is current on that thread while it lives. An operation inside another one counts for
/// itself.
class XMLAHOST_API ImportOperation {
 public:
  ImportOperation();
  ~ImportOperation();
  ImportOperation(const ImportOperation&) = delete;
  ImportOperation& operator=(const ImportOperation&) = delete;

  /// The current operation of the calling thread, or null.
  static ImportOperation* Current() noexcept;

  /// To be called before each request. Throws ErrorMessage when there were too many, or when the
  /// replies were too long.
  void CountRequest();
  /// To be called for each row of a reply. Throws ErrorMessage when there were too many.
  void CountRow();
  /// Called by the HTTP client for each reply, with its decoded size.
  void CountReplyBytes(std::uint64_t bytes) noexcept { m_replyBytes += bytes; }
  /// To be called after each reply. Throws ErrorMessage when the replies were too long.
  void CheckReplyBytes() const;
  bool IsPastDeadline() const noexcept {
    return m_deadline && std::chrono::steady_clock::now() >= *m_deadline;
  }
  /// The error text for an operation past its deadline.
  String DeadlineText() const;

 private:
  ImportOperation* const m_previous;
  const std::uint64_t m_maxRequests;
  const std::uint64_t m_maxRows;
  const std::uint64_t m_maxReplyBytes;
  const std::uint32_t m_deadlineSeconds;
  std::uint64_t m_requests = 0;
  std::uint64_t m_rows = 0;
  std::uint64_t m_replyBytes = 0;
  std::optional<std::chrono::steady_clock::time_point> m_deadline;
};
