#pragma once

/// \file
/// Cancelling of a running import.

#include <atomic>

#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/RefCnt.h"

/// Cancels a running import. The host creates a state and activates it on the thread that runs the
/// import (VXExecutionState::Scope). Another thread or a signal handler can then request
/// cancellation. The import operation returns within 0.1 s with an error text:
/// kMessageReadCancelled, or that of the HTTP client. Its output contains what it had read before.
/// The import object works again with a new state.
///
/// A state may be active on several threads at the same time.
class XMLAHOST_API VXExecutionState : public RefCountable {
 public:
  /// Why an operation is cancelled.
  enum CancelReason {
    kCancelReasonUnknown = 0,
    kCancelReasonHost = 1,  ///< the host or its user cancels
  };

  /// Requests cancellation. Async-signal-safe. Only the first call has an effect.
  void RequestCancellation(CancelReason reason) noexcept;
  /// True after RequestCancellation. Async-signal-safe.
  bool IsCancellationRequested() const noexcept;
  /// The reason of the request; kCancelReasonUnknown before it.
  CancelReason GetCancelReason() const noexcept;
  /// The active state of the calling thread, or null.
  static VXExecutionState* Current() noexcept;

  /// Activates a state on the calling thread. The destructor restores the previous one. The state
  /// must outlive the scope.
  class XMLAHOST_API Scope {
   public:
    /// Activates `state` on the calling thread.
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
