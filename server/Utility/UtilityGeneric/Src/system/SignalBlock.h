#pragma once

#include <signal.h>

/// Keeps a signal that a system call may raise on its own thread, such as SIGPIPE, from the host:
/// the call then ends with an error alone. Neither the process's handlers nor other threads are
/// touched, and a signal that was pending before stays so.
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
