#pragma once

#include <atomic>

#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/RefCnt.h"

/// The way to stop a running import. The host makes a state and puts it in force on the thread that
/// runs an import (VXExecutionState::Scope). Any other thread, or a signal handler, may then
/// request cancellation: the import operation returns within 0.1 s with an error text (message
/// 46066, or that of the HTTP client), however large the reply is. What the operation had read
/// before stays in its output. With a new state in force the import object works as before.
///
/// One state may be in force on several threads at once.
class XMLAHOST_API VXExecutionState : public RefCountable {
 public:
  enum CancelReason {
    kCancelReasonUnknown = 0,
    kCancelReasonHost = 1,  ///< the host, or the person who uses it, wants to stop
  };

  /// Requests cancellation. Async-signal-safe; later calls change nothing.
  void RequestCancellation(CancelReason reason) noexcept;
  bool IsCancellationRequested() const noexcept;
  /// The reason of the first request; kCancelReasonUnknown before.
  CancelReason GetCancelReason() const noexcept;
  /// The state in force on the calling thread, or null.
  static VXExecutionState* Current() noexcept;

  /// Puts a state in force on the calling thread, and the former one back at the end. The state
  /// outlives the scope.
  class XMLAHOST_API Scope {
   public:
    explicit Scope(VXExecutionState& state) noexcept;
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    VXExecutionState* m_previous;
  };

 private:
  std::atomic<int> m_request{-1};  // the reason, or -1
};
