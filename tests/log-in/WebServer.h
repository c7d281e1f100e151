#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Realm.h"
#include "ServerProcess.h"
#include "support/ReservedPort.h"

namespace login {

/// Apache httpd with the configuration of httpd.conf: a gateway that requires a log-in, and forward
/// proxies.
class WebServer {
 public:
  /// Servers behind the gateway, by port.
  struct Backends {
    int test;      ///< of a test
    int provider;  ///< a sample provider
    int tls;       ///< to which the proxies allow CONNECT
  };
  /// User names and their passwords, for Basic and Digest.
  using Users = std::map<std::string, std::string>;

  /// All files are in `folder`.
  WebServer(const std::string& folder, const Realm& realm, const Users& users,
            const Backends& backends);

  /// The port of a virtual host, such as "SERVICE".
  int Port(const std::string& host) const { return m_ports.at(host).Port(); }
  /// The lines of a log ("service", "proxy", ...) that contain a text. Waits for `count` lines, at
  /// most for a second, because the server may write them after the client has its reply.
  std::vector<std::string> Log(const std::string& name, const std::string& text,
                               std::size_t count) const;

 private:
  const std::string m_folder;
  std::map<std::string, support::ReservedPort> m_ports;
  std::unique_ptr<ServerProcess> m_process;
};

}  // namespace login
