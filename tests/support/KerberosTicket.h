#pragma once

#include <string>

/// Installs a Kerberos configuration and a credentials cache during the object's life. The cache
/// has a ticket of "someone-else" for the web service on "localhost". No server accepts it, but a
/// client that uses Negotiate sends it.
class KerberosTicket {
 public:
  KerberosTicket();
  ~KerberosTicket();
  KerberosTicket(const KerberosTicket&) = delete;
  KerberosTicket& operator=(const KerberosTicket&) = delete;

 private:
  std::string m_folder;
};
