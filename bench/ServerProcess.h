#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

/// An HTTP server on a free loopback port, in a child process, so that its memory and allocations
/// are not measured. Keeps connections alive. Requires that the process has one thread.
class ServerProcess {
 public:
  /// Returns the body of the reply to a request body. Called in the child process, from any thread.
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
