// Ports that are reserved for a test.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <optional>
#include <system_error>
#include <thread>

#include "loopback-server/Server.h"
#include "support/ReservedPort.h"

namespace {

using support::LoopbackSocket;
using support::ReservedPort;

/// How a connection to the port fails; 0: it does not.
int ErrorOfConnecting(int port) {
  try {
    LoopbackSocket().ConnectTo(port);
  } catch (const std::system_error& error) {
    return error.code().value();
  }
  return 0;
}

/// Sends a datagram to the port.
class Sender {
 public:
  explicit Sender(int port) {
    m_socket.ConnectTo(port);
    EXPECT_EQ(::send(m_socket.Descriptor(), "?", 1, 0), 1);
  }
  bool IsRefused() const {
    pollfd answer{m_socket.Descriptor(), POLLIN, 0};
    char byte;
    return ::poll(&answer, 1, 5000) == 1 && ::recv(m_socket.Descriptor(), &byte, 1, 0) < 0 &&
           errno == ECONNREFUSED;
  }

 private:
  const ReservedPort m_port;
  LoopbackSocket m_socket{SOCK_DGRAM, m_port.Port()};
};

TEST(ReservedPort, IsClosed) {
  const ReservedPort port;
  EXPECT_EQ(port.Authority(), "127.0.0.1:" + std::to_string(port.Port()));
  EXPECT_EQ(ErrorOfConnecting(port.Port()), ECONNREFUSED);
  EXPECT_TRUE(Sender(port.Port()).IsRefused());
}

/// Whether connections that a server has closed linger in the state TIME_WAIT.
bool Lingers(int port) {
  char local[8];
  std::snprintf(local, sizeof local, ":%04X", static_cast<unsigned int>(port));
  std::ifstream table("/proc/net/tcp");
  for (std::string line; std::getline(table, line);)
    if (line.size() > 36 && line.substr(14, 5) == local && line.substr(34, 2) == "06") return true;
  return false;
}

/// The system needs a moment to close a connection.
bool AwaitLingering(int port, bool isExpected) {
  for (int i = 0; i < 5000 && Lingers(port) != isExpected; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return Lingers(port) == isExpected;
}

TEST(ReservedPort, ServersUseItOneAfterAnother) {
  const ReservedPort port;
  for (const bool isSecond : {false, true}) {
    EXPECT_TRUE(AwaitLingering(port.Port(), isSecond));
    const loopback::Server server(
        [](loopback::Connection& connection, const loopback::Request&) { connection.Close(); },
        {.port = port.Port()});
    loopback::Connection client(loopback::ConnectToLoopback(port.Port()));
    client.Send("GET / HTTP/1.1\r\n\r\n");
    char reply;
    EXPECT_EQ(client.Receive(&reply, 1), 0u);
  }
  EXPECT_EQ(ErrorOfConnecting(port.Port()), ECONNREFUSED);
}

/// A process has the sockets of its parent until it runs another program.
TEST(ReservedPort, AChildProcessDoesNotListen) {
  const ReservedPort port;
  std::optional<LoopbackSocket> socket(std::in_place, SOCK_STREAM, port.Port());
  socket->Listen(1);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);  // -1 would end every process below
  if (child == 0) {
    ::alarm(60);
    ::pause();
    ::_exit(0);
  }
  socket.reset();
  EXPECT_EQ(ErrorOfConnecting(port.Port()), ECONNREFUSED);
  EXPECT_NO_THROW(loopback::Server(loopback::Handler(), {.port = port.Port()}));
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
}

TEST(ReservedPort, AServerGetsTheDatagrams) {
  const ReservedPort port;
  {
    const LoopbackSocket server(SOCK_DGRAM, port.Port());
    const Sender sender(port.Port());
    pollfd datagram{server.Descriptor(), POLLIN, 0};
    EXPECT_EQ(::poll(&datagram, 1, 5000), 1);
  }
  EXPECT_TRUE(Sender(port.Port()).IsRefused());
}

enum class Asks { kServer, kReusingServer, kDatagrams, kClient };

bool SetPortRange(int socket, std::uint32_t lowest, std::uint32_t highest) {
  constexpr int kLocalPortRange = 51;  // IP_LOCAL_PORT_RANGE
  const std::uint32_t range = highest << 16 | lowest;
  return ::setsockopt(socket, IPPROTO_IP, kLocalPortRange, &range, sizeof range) == 0;
}

/// The port that the system gives to a socket, if it can from this range.
int GivenPort(Asks asks, std::uint32_t lowest, std::uint32_t highest,
              const LoopbackSocket& server) {
  const int socket =
      ::socket(AF_INET, (asks == Asks::kDatagrams ? SOCK_DGRAM : SOCK_STREAM) | SOCK_CLOEXEC, 0);
  SetPortRange(socket, lowest, highest);
  const int reuse = asks == Asks::kReusingServer;
  ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
  const linger reset{1, 0};  // a client leaves nothing behind
  ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  socklen_t length = sizeof address;
  if (asks == Asks::kClient) {
    address.sin_port = htons(static_cast<in_port_t>(server.Port()));
    EXPECT_EQ(::connect(socket, generic, length), 0);
    ::close(::accept(server.Descriptor(), nullptr, nullptr));
  } else {
    EXPECT_EQ(::bind(socket, generic, length), 0);
    EXPECT_TRUE(asks == Asks::kDatagrams || ::listen(socket, 1) == 0);
  }
  EXPECT_EQ(::getsockname(socket, generic, &length), 0);
  ::close(socket);
  return ntohs(address.sin_port);
}

TEST(ReservedPort, IsGivenToNobody) {
  const ReservedPort reserved;
  const auto port = static_cast<std::uint32_t>(reserved.Port());
  LoopbackSocket server;
  if (!SetPortRange(server.Descriptor(), 0, 0))
    GTEST_SKIP() << "skipped: before Linux 6.3, sockets have no range of ports";
  server.Listen(1);
  for (const Asks asks : {Asks::kServer, Asks::kReusingServer, Asks::kDatagrams, Asks::kClient})
    for (std::uint32_t i = 0; i < 2000; ++i) {
      // The system prefers every second port of the range, and its lower half.
      const std::uint32_t highest = std::min<std::uint32_t>(port + 30, UINT16_MAX);
      ASSERT_NE(GivenPort(asks, port - i % 2, highest, server), reserved.Port())
          << static_cast<int>(asks);
    }
}

}  // namespace
