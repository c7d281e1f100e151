#pragma once

/// \file
/// Threads and the jobs that they run.

#include <utility>

#include "Utility/Generic/Heap.h"
#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/RefCnt.h"
#include "Utility/Generic/VXExecutionState.h"

/// A job for a thread.
class XMLAHOST_API VXThreadJob : public RefCountable {
 public:
  /// Called on the starting thread just before the new thread starts.
  virtual void Announce() = 0;
  /// Called on the new thread. Must not throw.
  virtual void Run() noexcept = 0;
  /// Called from any thread. Makes Run return soon, even if it has not started yet.
  virtual void Cancel() noexcept = 0;
};

/// Calls `(object->*operation)(first, second)`. The job copies the first argument and refers to the
/// second. T must have `void Announce()` and `void Cancel()`. The object and the second argument
/// must outlive the job.
template <class T, class First, class Second>
class VXThreadJob_TwoArg : public VXThreadJob {
 public:
  /// The member function that the job calls.
  using Operation = bool (T::*)(First, Second&);
  /// Creates a job. Does not call anything.
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

/// A thread that can be started once. It blocks all signals from its start, so no signal handler of
/// the host runs on it. Reference-counted: the last release cancels a running job and waits for it.
/// Call the functions from any thread except this one.
///
/// After a fork, the thread exists only in the parent. In the child it counts as stopped, so that
/// the child can delete inherited objects.
class XMLAHOST_API VXThread : public RefCountable {
 public:
  ~VXThread() override;
  VXThread(const VXThread&) = delete;
  VXThread& operator=(const VXThread&) = delete;

  /// Starts the thread. Throws ErrorMessage if the system cannot create a thread. A second call is
  /// a logic error.
  void Start();
  /// Cancels the job. `requester` is only for traces of the host. May be called at any time and
  /// repeatedly.
  void RequestCancellation(unsigned long requester, VXExecutionState::CancelReason reason) noexcept;
  /// Waits until the thread has ended. Returns at once if it was never started.
  void WaitUntilStopped() noexcept;

 protected:
  VXThread();
  /// Destructors of derived classes must call this, because the job must not outlive them.
  void CancelAndWait() noexcept;

 private:
  class SystemThread;
  virtual void Announce() = 0;
  virtual void Run() noexcept = 0;
  virtual void Cancel() noexcept = 0;

  VXExecutionState m_state;  // active on the thread
  Heap<SystemThread> m_thread;
};

/// Keeps a job alive while its thread may run it.
class ManagedJobFunctor {
 public:
  /// Keeps `job`, and forwards the following calls to it.
  /// @{
  explicit ManagedJobFunctor(RefCnt<VXThreadJob> job) : m_job(std::move(job)) {}
  void Announce() { m_job->Announce(); }
  void operator()() noexcept { m_job->Run(); }
  void Cancel() noexcept { m_job->Cancel(); }
  /// @}

 private:
  RefCnt<VXThreadJob> m_job;
};

/// A thread that runs a functor with Announce, operator() and Cancel.
template <class Functor>
class VXUserThread : public VXThread {
 public:
  /// Keeps the functor. Start starts the thread.
  explicit VXUserThread(Functor functor) : m_functor(std::move(functor)) {}
  ~VXUserThread() override { CancelAndWait(); }

 private:
  void Announce() override { m_functor.Announce(); }
  void Run() noexcept override { m_functor(); }
  void Cancel() noexcept override { m_functor.Cancel(); }

  Functor m_functor;
};
