#pragma once

#include "Utility/Generic/RefCnt.h"
#include "Utility/Generic/VXExecutionState.h"

/// Makes SIGINT and SIGTERM ask the running import to stop, for as long as this object lives; a
/// second signal of the kind ends the process at once. One object at a time.
class Interrupt {
 public:
  Interrupt();
  ~Interrupt();
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;

  /// To be put in force on every thread that imports.
  VXExecutionState& State() { return *m_state; }
  /// True once one of the signals has come; for good.
  static bool Happened();

 private:
  RefCnt<VXExecutionState> m_state;
};

/// True when the calling thread's import is to stop.
bool IsToStop();
