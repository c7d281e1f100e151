#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "loopback-server/Connection.h"
#include "loopback-server/StopSignal.h"

// Writing to a connection byte by byte under full control, which the HTTP library does not give.
namespace sample {

enum class Ending { kKeep, kClose, kReset, kSilence, kEndless };
enum class Framing { kLength, kUntilClose, kChunked, kBrokenChunks };

// A reply, and how it goes over the wire.
struct WireReply {
  int status = 200;
  std::vector<std::pair<std::string, std::string>> headers;  // besides the framing's
  std::string body;
  Framing framing = Framing::kLength;
  long lengthError = 0;                        // added to the length that is announced
  std::size_t sendAtMost = std::string::npos;  // bytes, headers included unless body_limit
  std::size_t bodyAtMost = std::string::npos;
  std::chrono::milliseconds before{0};  // silence first; negative: without end
  std::chrono::milliseconds pause{0};   // after each piece
  std::size_t piece = std::string::npos;
  Ending ending = Ending::kKeep;
  std::string filler;    // what an endless ending repeats
  bool headEnds = true;  // false: the empty line behind the headers is missing
};

/// Sends the reply and ends the connection as it says. Waits only until the server stops.
void SendReply(loopback::Connection& connection, const loopback::StopSignal& stop,
               const WireReply& reply);

}  // namespace sample
