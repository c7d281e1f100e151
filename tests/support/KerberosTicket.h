#pragma once

#include <string>

/// A Kerberos configuration and a cache with a ticket of "someone-else" for the web service on
/// "localhost", as files that are in force while this object lives. No server takes the ticket, but
/// a client that uses Negotiate sends it.
class KerberosTicket {
 public:
  KerberosTicket();
  ~KerberosTicket();
  KerberosTicket(const KerberosTicket&) = delete;
  KerberosTicket& operator=(const KerberosTicket&) = delete;

 private:
  std::string m_folder;
};
