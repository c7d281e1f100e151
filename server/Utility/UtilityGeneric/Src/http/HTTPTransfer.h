#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/String.h"
#include "http/HTTPFailure.h"

/// What came of one POST.
struct HTTPAnswer {
  /// Why there is no whole answer, with what is known about it, and what to try.
  HTTPFailure failure = HTTPFailure::kNone;
  String failureText;
  String advice;

  long status = 0;
  NarrowString body;
  std::string contentType;
  String redirectTarget;             // without credentials; empty when there is none
  std::vector<std::string> schemes;  // of authentication, as offered by the server, or the proxy
  String logInAdvice;                // why none of these was used, and what to do; may be empty
  bool basicInClear = false;         // see HTTPExchangeInfo

  std::uint64_t wireBytes = 0;
  double connectSeconds = 0;
  double firstByteSeconds = 0;
  double totalSeconds = 0;
};

/// Posts to one URL over one kept-alive connection: the door to libcurl. One thread at a time.
///
/// libcurl keeps user, password and what it derived from them for as long as this object lives, and
/// does not overwrite them at its end. No other copy is kept here.
class HTTPTransfer {
 public:
  /// `url` and the credentials as sent, without control characters; `options.proxy` is set. Throws
  /// ErrorMessage when libcurl cannot use one of them.
  HTTPTransfer(const NarrowString& url, const NarrowString& user, const NarrowString& password,
               std::uint32_t timeoutSeconds, const HTTPClientOptions& options);
  ~HTTPTransfer();
  HTTPTransfer(const HTTPTransfer&) = delete;
  HTTPTransfer& operator=(const HTTPTransfer&) = delete;

  void SetHeaderLines(const NarrowString& lines);
  void Post(const NarrowString& body, HTTPAnswer& answer);

 private:
  class Session;
  std::unique_ptr<Session> m_session;
};
