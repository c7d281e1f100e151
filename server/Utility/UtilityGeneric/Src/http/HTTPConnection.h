#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/String.h"
#include "http/HTTPFailure.h"

class HTTPCredentials;
class HTTPReceiver;

/// One request that HTTPConnection sends.
struct HTTPRequest {
  const NarrowString& body;
  std::string cookies;                           ///< value of the Cookie header; empty: none
  unsigned int serviceScheme = 0;                ///< HTTPAuthScheme for the service; 0: none
  unsigned int proxyScheme = 0;                  ///< HTTPAuthScheme for the proxy; 0: none
  const HTTPCredentials* credentials = nullptr;  ///< if they depend on the scheme
  /// True after a rejected Digest log-in: libcurl would ignore the new nonce.
  bool forgetLogInState = false;
  /// On a kept-alive connection that turns out to be closed, libcurl would send the request twice.
  bool needsNewConnection = false;
  /// The token is not sent to an IP address of another machine: kTokenUnprotected.
  bool onlyToThisMachine = false;
};

/// What is known after a request, whether it failed or not.
struct HTTPRequestInfo {
  long status = 0;                    ///< of the last response; 0: none
  long connectStatus = 0;             ///< of the proxy's response to CONNECT; 0: none
  bool usedNewConnection = false;     ///< false: used the kept-alive connection
  unsigned int offeredByService = 0;  ///< set of HTTPAuthScheme
  unsigned int offeredByProxy = 0;    ///< set of HTTPAuthScheme
  std::string peer;                   ///< IP address of the other end
  std::string contentType;
  String redirectTarget;                  ///< without credentials
  int systemError = 0;                    ///< errno
  HTTPStep reached = HTTPStep::kAddress;  ///< the last step that began: kResponse if connected
  bool usesProxy = false;
  /// URL of the proxy without credentials, if it was the other end: before a tunnel exists, and in
  /// place of a service with http. Else empty.
  String proxyAtOtherEnd;
  bool wasCertificateRequested = false;  ///< the server asked for a client certificate
  HTTPConnectionDetails connection;      ///< see HTTPClientOptions::wantsConnectionDetails
  /// Why Negotiate sent no log-in: the text of the Kerberos library, on one line and truncated.
  /// Empty: none.
  std::string logInProblem;
  std::uint64_t wireBytes = 0;
  double connectSeconds = 0;  ///< 0 for the kept-alive connection
  double firstByteSeconds = 0;
  double totalSeconds = 0;
};

/// Sends single requests to one URL over one kept-alive connection. Does not retry, and does not
/// choose authentication schemes. CurlConnection.cpp implements it with libcurl. Use from one
/// thread at a time.
///
/// libcurl keeps copies of user and password, and of data derived from them, as long as this object
/// lives. It does not overwrite them.
class HTTPConnection {
 public:
  /// See HTTPTransfer. `receiver` gets the responses and must outlive the connection.
  static std::unique_ptr<HTTPConnection> Create(const NarrowString& url, const NarrowString& user,
                                                const NarrowString& password,
                                                const HTTPClientOptions& options,
                                                HTTPReceiver& receiver);
  virtual ~HTTPConnection() = default;

  /// Header lines of the following requests, separated by line feeds.
  virtual void SetHeaderLines(const NarrowString& lines) = 0;
  /// Sends the request and waits for its response. Returns when the response is complete, or on a
  /// failure, a time-out or a cancellation.
  virtual HTTPFailure Send(const HTTPRequest& request) = 0;
  virtual HTTPRequestInfo Info() const = 0;
  /// libcurl's text for the failure of the last request; may be empty.
  virtual String FailureReason() const = 0;
};

/// Size of libcurl's receive buffer.
inline constexpr std::uint64_t kHTTPReceiveBufferBytes = std::uint64_t{128} << 10;

/// Seconds until the date of a header, negative in the past. nullopt: it is not a date.
std::optional<std::int64_t> SecondsUntilHTTPDate(const std::string& date);
