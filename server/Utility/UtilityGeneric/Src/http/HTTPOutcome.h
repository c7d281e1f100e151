#pragma once

#include <cstdint>

#include "Utility/Generic/String.h"
#include "http/HTTPFailure.h"
#include "http/HTTPOwnSecrets.h"
#include "http/HTTPTransfer.h"

/// How the client is set up, as far as it matters to the texts.
struct HTTPClientSetup {
  String shownURL;
  bool hasUser;
  bool hasToken;
  unsigned int allowed;  ///< set of HTTPAuthScheme
  String missingUserAdvice;
  HTTPOwnSecrets secrets;

  /// A text of the server without the client's own secrets. Our own texts are not changed: that
  /// would show which word the secret is.
  String Cleaned(String text) const {
    secrets.RemoveFrom(text);
    return text;
  }
};

/// The outcome of an exchange.
struct HTTPOutcome {
  HTTPDiagnosis diagnosis;
  bool hasReply;  // the body may be XML
};

/// Classifies a response, converts its body to UTF-8, and finds reasons why it cannot be XML.
HTTPOutcome ClassifyHTTPResponse(HTTPResponse& response, const HTTPClientSetup& setup,
                                 std::uint64_t maxReplyBytes);
