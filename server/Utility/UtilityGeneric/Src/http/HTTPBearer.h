#pragma once

#include <string>
#include <string_view>

#include "Utility/Generic/String.h"
#include "http/HTTPFailure.h"

/// Bearer tokens (RFC 6750), which a service accepts instead of user and password.
namespace HTTPBearer {

/// What a server says about a token in a WWW-Authenticate header.
struct Challenge {
  std::string error;  ///< such as "invalid_token"; empty: none
  std::string description;
  std::string scope;  ///< what a token must allow
};

/// True if the text has only characters that a token can have.
bool IsToken(std::wstring_view text) noexcept;

/// Reads the Bearer challenge in the value of a WWW-Authenticate header; empty if there is none.
Challenge ChallengeIn(std::string_view header);

/// Describes a response with an error of a Bearer challenge, or a 401 to a token. Returns false,
/// without changes, for another response.
bool Describe(long status, const std::string& header, HTTPDiagnosis& diagnosis);

}  // namespace HTTPBearer
