#include "system/SignalBlock.h"

#include <pthread.h>
#include <time.h>

SignalBlock::SignalBlock(int signal) noexcept {
  sigemptyset(&m_signal);
  sigaddset(&m_signal, signal);
  sigset_t pending;
  sigpending(&pending);
  m_wasPending = sigismember(&pending, signal) == 1;
  pthread_sigmask(SIG_BLOCK, &m_signal, &m_previous);
}

SignalBlock::~SignalBlock() {
  if (!m_wasPending) {
    const timespec now{};
    while (sigtimedwait(&m_signal, nullptr, &now) > 0) {
    }
  }
  pthread_sigmask(SIG_SETMASK, &m_previous, nullptr);
}
