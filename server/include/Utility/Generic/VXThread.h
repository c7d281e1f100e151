#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/RefCnt.h"

/// The cancellation state of a thread of execution. The host makes one, puts it in force on the
/// thread that runs an import (VXExecutionState::Scope), and may then ask the import to stop from
/// any other thread or from a signal handler: a transfer ends with an error text, a reader of
/// elements gets a cancelled element, which is message 46066, and the import operation returns with
/// that text within a tenth of a second, however large the reply (with an import log on, once the
/// entry at work is written). What it had read before stays in its output; a new state makes the
/// import object as good as before. One state may be in force on several threads at once.
class XMLAHOST_API VXExecutionState : public RefCountable {
 public:
  enum CancelReason {
    kCancelReasonUnknown = 0,
    kCancelReasonHost = 1,  ///< the host, or the person who uses it, wants to stop
  };

  /// Asks for cancellation. Async-signal-safe; later calls change nothing.
  void RequestCancellation(CancelReason reason) noexcept;
  bool IsCancellationRequested() const noexcept;
  /// The reason of the first request; kCancelReasonUnknown before.
  CancelReason GetCancelReason() const noexcept;
  /// The state in force on the calling thread, or null.
  static VXExecutionState* Current() noexcept;

  /// Puts a state in force on the calling thread and, at the end, the former one back.
  class XMLAHOST_API Scope {
   public:
    explicit Scope(VXExecutionState& state) noexcept;
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    VXExecutionState* m_former;
  };

 private:
  std::atomic<int> m_request{-1};  // the reason, or -1
};

/// A job for a thread: what is done, and how its doing is announced and cut short.
class XMLAHOST_API VXThreadJob : public RefCountable {
 public:
  /// Called on the starting thread just before the job's thread is started.
  virtual void Announce() = 0;
  /// Called on the job's thread. Must not throw.
  virtual void Run() noexcept = 0;
  /// Called from another thread: makes Run return soon, also when it has not begun yet.
  virtual void Cancel() noexcept = 0;
};

/// Calls `(object->*operation)(first, second)`: the first argument is kept by value, the second by
/// reference. T offers `void Announce()` and `void Cancel()`. The object and the second argument
/// outlive the job.
template <class T, class First, class Second>
class VXThreadJob_TwoArg : public VXThreadJob {
 public:
  using Operation = bool (T::*)(First, Second&);
  VXThreadJob_TwoArg(T* object, Operation operation, First first, Second& second)
      : m_object(object), m_operation(operation), m_first(std::move(first)), m_second(second) {}

  void Announce() override { m_object->Announce(); }
  void Run() noexcept override { (m_object->*m_operation)(std::move(m_first), m_second); }
  void Cancel() noexcept override { m_object->Cancel(); }

 private:
  T* m_object;
  Operation m_operation;
  First m_first;
  Second& m_second;
};

class VXThread;

/// A thread of the system on which VXThreads run one after the other: starting one then costs a
/// wake-up, not a new thread. The system's thread is made for the first of them and
/// sleeps in between; the carrier's destructor ends it. One VXThread at a time: starting one waits
/// for the end of the one before. The carrier outlives the VXThreads that are started on it.
class XMLAHOST_API VXThreadCarrier {
 public:
  /// Where a VXThread runs.
  enum class Place {
    kAnywhere,  ///< on any processor that the starting thread may use
    /// On the processor of the starting thread, which gives way to it unless that is a loss of
    /// time on a machine with other work. For a short job whose outcome the starting thread
    /// is about to wait for: two threads that take turns change places within microseconds on one
    /// processor, while waking another one takes longer than the job.
    kHere,
  };

  VXThreadCarrier() noexcept;
  ~VXThreadCarrier();
  VXThreadCarrier(const VXThreadCarrier&) = delete;
  VXThreadCarrier& operator=(const VXThreadCarrier&) = delete;

 private:
  friend class VXThread;
  static constexpr int kAllProcessors = -1;

  void Carry(VXThread& thread, Place place);
  void PutLocked(Place place) noexcept;
  void GiveWay() noexcept;
  bool IsCarrying(const VXThread& thread) noexcept;
  void AwaitEndOf(const VXThread& thread) noexcept;
  void Loop() noexcept;

  std::mutex m_mutex;
  std::condition_variable m_wakeCarrier;
  std::condition_variable m_wakeWaiting;
  VXThread* m_carried = nullptr;     // guarded; begun or about to begin
  int m_processor = kAllProcessors;  // guarded; the one that the thread keeps to
  bool m_isEnding = false;           // guarded
  int m_stays = 0;                   // guarded; so many starters do not give way
  std::thread m_thread;              // guarded, but for the destructor
};

/// A thread that is started once. Reference-counted; the last release of a thread that runs cancels
/// it and waits for it, so that none is left over. Operations may be called from any thread but the
/// thread's own.
class XMLAHOST_API VXThread : public RefCountable {
 public:
  ~VXThread() override;
  VXThread(const VXThread&) = delete;
  VXThread& operator=(const VXThread&) = delete;

  /// Starts the thread. Throws ErrorMessage when the system has none to give; a second call is a
  /// logic error.
  void Start();
  /// The same, on the carrier's thread.
  void Start(VXThreadCarrier& carrier,
             VXThreadCarrier::Place place = VXThreadCarrier::Place::kAnywhere);
  /// Asks the thread's job to end soon. `requester` is for the host's traces only. Harmless before
  /// the start, after the end, and when called again.
  void RequestCancellation(unsigned long requester, VXExecutionState::CancelReason reason) noexcept;
  /// Waits until the thread has ended; returns at once for one that was never started.
  void WaitUntilStopped() noexcept;

 protected:
  VXThread() noexcept;
  /// To be called by the destructors of derived classes: the job must not outlive them.
  void CancelAndWait() noexcept;

 private:
  friend class VXThreadCarrier;
  virtual void Announce() = 0;
  virtual void Run() noexcept = 0;
  virtual void Cancel() noexcept = 0;
  void RunInItsState() noexcept;

  VXExecutionState m_state;
  std::atomic<VXThreadCarrier*> m_carrier{nullptr};  // set by the start
  VXThreadCarrier m_own;                             // for a start on no other
};

/// Keeps a job alive for as long as its thread may run it.
class ManagedJobFunctor {
 public:
  explicit ManagedJobFunctor(RefCnt<VXThreadJob> job) : m_job(std::move(job)) {}
  void Announce() { m_job->Announce(); }
  void operator()() noexcept { m_job->Run(); }
  void Cancel() noexcept { m_job->Cancel(); }

 private:
  RefCnt<VXThreadJob> m_job;
};

/// A thread that runs a functor, which offers Announce, operator() and Cancel.
template <class Functor>
class VXUserThread : public VXThread {
 public:
  explicit VXUserThread(Functor functor) : m_functor(std::move(functor)) {}
  ~VXUserThread() override { CancelAndWait(); }

 private:
  void Announce() override { m_functor.Announce(); }
  void Run() noexcept override { m_functor(); }
  void Cancel() noexcept override { m_functor.Cancel(); }

  Functor m_functor;
};
