#pragma once

#include "Utility/Generic/RefCnt.h"
#include "Utility/Generic/VXExecutionState.h"

/// While this object exists, SIGINT and SIGTERM request cancellation of the running import. A
/// second signal of the same kind ends the process at once. At most one object at a time.
class Interrupt {
 public:
  Interrupt();
  ~Interrupt();
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;

  /// The execution state that every importing thread makes current.
  VXExecutionState& State() { return *m_state; }
  /// True after the first signal. Never becomes false again.
  static bool Happened();

 private:
  RefCnt<VXExecutionState> m_state;
};

/// True if cancellation is requested for the import on the calling thread.
bool MustStop();
