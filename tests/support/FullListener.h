#pragma once

#include <list>
#include <string>

#include "support/LoopbackSocket.h"

namespace support {

/// A port of 127.0.0.1 that listens and has a full queue: connections to it neither succeed nor
/// fail.
class FullListener {
 public:
  /// Port 0 is a free one.
  explicit FullListener(int port = 0);
  /// "127.0.0.1:PORT"
  std::string Authority() const { return m_listening.Authority(); }
  /// Number of connections to the port that are pending.
  int Pending() const;

 private:
  LoopbackSocket m_listening;
  std::list<LoopbackSocket> m_fillers;
};

}  // namespace support
