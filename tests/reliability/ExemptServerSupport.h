#pragma once

#include <map>
#include <mutex>
#include <string>

#include "loopback-server/Server.h"

namespace reliability {

/// A server in this process whose allocations are exempt from FailingAllocation.
class ExemptServer {
 public:
  explicit ExemptServer(loopback::Handler handler);
  /// The sample provider of all three kinds, at /analysis-services, /sap-bw and /tamarind. Caches
  /// each answer.
  ExemptServer();

  std::string Url(const std::string& path) const { return "http://" + m_server.Authority() + path; }
  int Port() const { return m_server.Port(); }
  /// The sample provider's answer to the request.
  const std::string& SampleAnswer(const loopback::Request& request);

 private:
  std::mutex m_mutex;
  std::map<std::string, std::string> m_answers;  // guarded by the mutex
  loopback::Server m_server;
};

}  // namespace reliability
