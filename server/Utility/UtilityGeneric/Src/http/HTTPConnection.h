#pragma once

#include <cstddef>
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
  String proxy;  ///< the one that is set, even if it is not used; without credentials
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

/// Drives the requests of its connections. Use it and its connections from one thread at a time,
/// except Wake. The connections must not be busy when it is destroyed.
class HTTPConnectionGroup {
 public:
  /// Longest wait between two checks for cancellation. A signal handler can request cancellation,
  /// but cannot wake a thread.
  static constexpr int kPollMilliseconds = 40;

  /// `connections`: how many of them are kept alive.
  static std::unique_ptr<HTTPConnectionGroup> Create(std::size_t connections);
  virtual ~HTTPConnectionGroup() = default;

  /// Waits until the network, Wake or the time ends the wait, then continues all requests. Ends
  /// those that have timed out, and all if IsThreadToStop.
  virtual void Wait(int milliseconds) = 0;
  /// Ends the wait, or the next one. Call from any thread.
  virtual void Wake() noexcept = 0;
};

/// Sends single requests to one URL over a kept-alive connection of its group. Does not retry, and
/// does not choose authentication schemes. CurlConnection.cpp implements it with libcurl.
///
/// libcurl keeps copies of user and password, and of data derived from them, as long as this object
/// lives. It does not overwrite them.
class HTTPConnection {
 public:
  /// See HTTPTransfer. `group` and `receiver` must outlive the connection's requests. The receiver
  /// gets the responses.
  static std::unique_ptr<HTTPConnection> Create(const NarrowString& url, const NarrowString& user,
                                                const NarrowString& password,
                                                const HTTPClientOptions& options,
                                                HTTPConnectionGroup& group, HTTPReceiver& receiver);
  virtual ~HTTPConnection() = default;
  /// Another connection with the same settings, except the header lines. This one must not be busy.
  virtual std::unique_ptr<HTTPConnection> Duplicate(HTTPConnectionGroup& group,
                                                    HTTPReceiver& receiver) const = 0;

  /// Header lines of the following requests, separated by line feeds.
  virtual void SetHeaderLines(const NarrowString& lines) = 0;
  /// Begins to send the request, whose body must not change until its end. The group continues it
  /// until its response is complete, or a failure, a time-out or a cancellation ends it.
  virtual void Begin(const HTTPRequest& request) = 0;
  /// True from Begin to the end of the request.
  virtual bool IsBusy() const noexcept = 0;
  /// Ends the request, and closes its connection.
  virtual void Cancel() noexcept = 0;

  // About the last request, after its end:
  virtual HTTPFailure Failure() const = 0;
  virtual HTTPRequestInfo Info() const = 0;
  /// libcurl's text for the failure; may be empty.
  virtual String FailureReason() const = 0;
};

/// Size of libcurl's receive buffer.
inline constexpr std::uint64_t kHTTPReceiveBufferBytes = std::uint64_t{128} << 10;

/// Seconds until the date of a header, negative in the past. nullopt: it is not a date.
std::optional<std::int64_t> SecondsUntilHTTPDate(const std::string& date);
