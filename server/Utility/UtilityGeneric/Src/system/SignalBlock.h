#pragma once

#include <signal.h>

/// Suppresses a signal that system calls may raise on the calling thread, such as SIGPIPE. The
/// calls then only return an error. Does not change the signal handlers of the process or other
/// threads. A signal that was pending before stays pending.
class SignalBlock {
 public:
  explicit SignalBlock(int signal) noexcept;
  ~SignalBlock();
  SignalBlock(const SignalBlock&) = delete;
  SignalBlock& operator=(const SignalBlock&) = delete;

 private:
  sigset_t m_signal{};
  sigset_t m_previous{};
  bool m_wasPending = false;
};
