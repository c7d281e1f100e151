#include "support/FullListener.h"

#include <cstdio>
#include <fstream>

namespace support {

FullListener::FullListener(int port) : m_listening(SOCK_STREAM, port) {
  m_listening.Listen(0);
  for (int i = 0; i < 4; ++i)
    m_fillers.emplace_back(SOCK_STREAM | SOCK_NONBLOCK).ConnectTo(m_listening.Port());
}

int FullListener::Pending() const {
  char port[8];
  std::snprintf(port, sizeof port, ":%04X", m_listening.Port());
  std::ifstream table("/proc/net/tcp");
  int count = 0;
  for (std::string line; std::getline(table, line);)
    if (line.size() > 36 && line.substr(28, 5) == port && line.substr(34, 2) == "02") ++count;
  return count;
}

}  // namespace support
