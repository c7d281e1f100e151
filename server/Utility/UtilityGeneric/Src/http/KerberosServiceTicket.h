#pragma once

#include <cstdint>
#include <string>

/// The result of the request for a Kerberos service ticket.
struct KerberosServiceTicket {
  bool isStopped = false;          ///< the calling thread must end its operation
  std::string problem;             ///< the reason for a failure, in English; empty: success
  std::uint32_t validSeconds = 0;  ///< after a success

  /// Gets the caller's ticket for the service HTTP of a host into the credentials cache, under the
  /// names that libcurl uses. Negotiate then needs no Kerberos server (KDC), and so cannot block.
  ///
  /// A KDC is asked on another thread, because the Kerberos library waits for it up to 80 seconds
  /// and cannot be interrupted. This function returns after `timeoutSeconds` (0: no limit), or
  /// within 0.1 s of a cancellation. The thread then continues without its caller and uses nothing
  /// of it. It blocks all signals, and this library stays loaded until the process ends. There are
  /// at most 16 such threads; further requests wait until one of them ends.
  static KerberosServiceTicket Get(const std::string& host, std::uint32_t timeoutSeconds);
};
