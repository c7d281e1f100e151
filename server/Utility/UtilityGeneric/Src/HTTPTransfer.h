#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/String.h"

inline constexpr const wchar_t* kCancelledText =
    L"The request was cancelled before its reply was complete";

/// What came of one POST.
struct HTTPAnswer {
  /// Why there is no whole answer, in one line, and what to try; empty when there is one.
  String failure;
  String advice;
  /// True when the failure is our own doing (cancelled, too long, too silent): then no status that
  /// may have come is the better message.
  bool gaveUp = false;

  long status = 0;
  NarrowString body;
  std::string contentType;
  String redirectTarget;             // without credentials; empty when there is none
  std::vector<std::string> schemes;  // of authentication, as offered by the server, or the proxy

  std::uint64_t wireBytes = 0;
  double connectSeconds = 0;
  double firstByteSeconds = 0;
  double totalSeconds = 0;
};

/// Posts to one URL over one kept-alive connection: the door to libcurl. One thread at a time.
class HTTPTransfer {
 public:
  /// `url` and the credentials as sent; without user there is no authentication. Throws
  /// ErrorMessage when the URL cannot be used.
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
