#pragma once

#include <utility>

#include "Utility/Generic/Heap.h"
#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/RefCnt.h"
#include "Utility/Generic/VXExecutionState.h"

/// A job for a thread.
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

/// A thread that is started once. All signals are blocked on it from its first moment, so none of
/// the host's handlers runs there. Reference-counted: the last release of a running thread cancels
/// its job and waits for it. Operations may be called from any thread but the thread itself.
///
/// After a fork, the thread exists in the parent alone. In the child it counts as stopped, so that
/// the child can delete inherited objects.
class XMLAHOST_API VXThread : public RefCountable {
 public:
  ~VXThread() override;
  VXThread(const VXThread&) = delete;
  VXThread& operator=(const VXThread&) = delete;

  /// Starts the thread. Throws ErrorMessage when the system has no thread to give; a second call is
  /// a logic error.
  void Start();
  /// Asks the job to end soon. `requester` is for the host's traces only. Harmless before the
  /// start, after the end, and when called again.
  void RequestCancellation(unsigned long requester, VXExecutionState::CancelReason reason) noexcept;
  /// Waits until the thread has ended; returns at once for one that was never started.
  void WaitUntilStopped() noexcept;

 protected:
  VXThread();
  /// To be called by the destructors of derived classes: the job must not outlive them.
  void CancelAndWait() noexcept;

 private:
  class SystemThread;
  virtual void Announce() = 0;
  virtual void Run() noexcept = 0;
  virtual void Cancel() noexcept = 0;

  VXExecutionState m_state;  // in force on the thread
  Heap<SystemThread> m_thread;
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
