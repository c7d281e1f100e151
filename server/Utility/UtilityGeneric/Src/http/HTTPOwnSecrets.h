#pragma once

#include <cstddef>
#include <vector>

#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/String.h"

/// The token and the passwords of a client, to remove them from texts. A server knows what it gets,
/// and can repeat it. Keeps only hashes, so that the memory has no further copy.
class HTTPOwnSecrets {
 public:
  /// Shorter passwords are not removed: they occur in many words.
  static constexpr std::size_t kMinLength = 4;
  /// Of a longer secret, each part of this length is removed, because the text may be truncated.
  static constexpr std::size_t kPartLength = 16;

  /// The proxy of the options must be set.
  HTTPOwnSecrets(const String& user, const String& password, const HTTPClientOptions& options);

  /// Replaces each secret by "...": as it is, percent-encoded, and as sent with Basic.
  void RemoveFrom(String& text) const;
  void RemoveFrom(HTTPConnectionDetails& details) const;

 private:
  struct Hashes {
    std::size_t length;              // of each part
    std::vector<std::size_t> parts;  // sorted
  };

  void Add(const String& secret);
  void AddLogIn(const String& user, const String& password);

  std::vector<Hashes> m_secrets;
};
