#pragma once

#include <zlib.h>

#include <cstdint>
#include <string>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/HTTPClientWrapper.h"

/// What tests of the HTTP client share.

inline String Wide(const std::string& text) {
  return BaseStringUtil::StdStringToString(NarrowString(text.c_str(), text.size()), 65001);
}

inline std::string Narrow(const String& text) {
  return std::string(BaseStringUtil::StringToStdString(text, 65001).view());
}

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

inline std::string Gzip(const std::string& text) {
  z_stream stream{};
  deflateInit2(&stream, 9, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY);
  std::string packed(compressBound(text.size()) + 64, '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(packed.data());
  stream.avail_out = static_cast<uInt>(packed.size());
  deflate(&stream, Z_FINISH);
  packed.resize(stream.total_out);
  deflateEnd(&stream);
  return packed;
}
