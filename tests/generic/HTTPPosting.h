#pragma once

#include <cstdint>
#include <string>

#include "Gzip.h"
#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/HTTPClientWrapper.h"
#include "support/Text.h"

/// Shared code of the HTTP client's tests.

using sample::Gzip;
using support::Narrow;
using support::Wide;

struct Outcome {
  bool ok;
  std::string reply;
  std::string error;
};

inline Outcome Post(HTTPClientWrapper& client, const std::string& body = "<q/>") {
  NarrowString reply("left over");
  String error;
  const bool ok = client.ReadBytes(NarrowString(body.c_str(), body.size()), reply, error);
  return {ok, std::string(reply.view()), Narrow(error)};
}

inline Outcome PostOnce(const std::string& url, std::uint32_t timeout = 10,
                        const HTTPClientOptions* options = nullptr) {
  HTTPClientWrapper client(Wide(url), L"", L"", timeout, options);
  return Post(client);
}
