#pragma once

#include <map>
#include <memory>
#include <string>

#include "ServerProcess.h"
#include "support/ReservedPort.h"

namespace login {

/// A Kerberos realm, REALM.TEST, with a KDC on the loopback interface. It has the users ann and
/// bob, and the service HTTP/localhost.
class Realm {
 public:
  /// All files are in `folder`.
  explicit Realm(const std::string& folder);

  /// A client's configuration.
  enum class View {
    kCorrect,
    kFastClock,   ///< uses a KDC whose clock is 20 minutes fast
    kOtherRealm,  ///< the service is in a realm that the KDC does not know
    kNoKDC,       ///< the realm has no KDC
    kKDCIsDown,   ///< the KDC's port is closed
  };
  /// Environment variables for a client with this view and this credentials cache.
  std::map<std::string, std::string> Client(View view, const std::string& cache) const;
  /// The same for a client that knows another KDC, given by host and port.
  std::map<std::string, std::string> ClientOf(const std::string& kdc,
                                              const std::string& cache) const;

  /// Makes a credentials cache with the user's ticket, as kinit does, and returns its path.
  std::string LogIn(const std::string& user, const std::string& lifetime = "1h") const;
  static std::string Password(const std::string& user);
  /// The service's keys, for a web server.
  std::string Keytab() const { return m_folder + "/keytab"; }
  /// Keys of HTTP/localhost that the KDC has replaced by newer ones.
  std::string OldKeytab() const { return m_folder + "/old-keytab"; }
  /// Keys of HTTP/localhost in another realm of the same name.
  std::string WrongKeytab() const { return m_folder + "/wrong-keytab"; }
  std::string Configuration(View view) const;

 private:
  void CreateDatabase() const;
  void CreateWrongKeytab() const;
  static void WriteConfiguration(const std::string& file, View view, const std::string& kdc);
  /// Starts a KDC with this clock offset.
  std::unique_ptr<ServerProcess> StartKDC(const std::string& clock,
                                          const std::string& address) const;
  std::map<std::string, std::string> Server(const std::string& name) const;

  const std::string m_folder;
  const support::ReservedPort m_port;
  const support::ReservedPort m_fastPort;
  const support::ReservedPort m_closedPort;
  std::unique_ptr<ServerProcess> m_kdc;
  std::unique_ptr<ServerProcess> m_fastKDC;
};

}  // namespace login
