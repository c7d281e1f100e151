#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

/// An HTTP server on a free loopback port, in a process of its own, so that neither its memory nor
/// its allocations count. To be made before the process has threads. Keeps connections alive.
class ServerProcess {
 public:
  /// The reply's body for the request's body. Called in the server's process, from any thread.
  using Handler = std::function<const std::string&(std::string_view request)>;

  explicit ServerProcess(Handler handler, std::chrono::milliseconds delay = {});
  ~ServerProcess();
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  const std::string& Url() const { return m_url; }

 private:
  std::string m_url;
  pid_t m_child = 0;
};
