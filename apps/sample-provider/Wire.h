#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "loopback-server/Connection.h"
#include "loopback-server/StopSignal.h"

/// Writes raw replies, with control over every byte and pause.
namespace sample {

enum class Ending { kKeep, kClose, kReset, kSilence, kEndless };
enum class Framing { kLength, kUntilClose, kChunked, kBrokenChunks };

/// A reply, and how to send it.
struct WireReply {
  int status = 200;
  std::vector<std::pair<std::string, std::string>> headers;  ///< without those of the framing
  std::string body;
  Framing framing = Framing::kLength;
  long lengthError = 0;                        ///< added to Content-Length
  std::size_t sendAtMost = std::string::npos;  ///< bytes, including headers
  std::size_t bodyAtMost = std::string::npos;
  std::chrono::milliseconds before{0};  ///< delay; negative: never reply
  std::chrono::milliseconds pause{0};   ///< after each piece
  std::size_t piece = std::string::npos;
  Ending ending = Ending::kKeep;
  std::string filler;    ///< repeated by Ending::kEndless
  bool headEnds = true;  ///< false: omit the empty line after the headers
};

/// Sends the reply and ends the connection as it says. Waits only until the server stops.
void SendReply(loopback::Connection& connection, const loopback::StopSignal& stop,
               const WireReply& reply);

}  // namespace sample
