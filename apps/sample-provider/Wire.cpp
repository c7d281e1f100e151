#include "Wire.h"

#include <algorithm>

#include "loopback-server/Server.h"

namespace sample {
namespace {

using std::chrono::milliseconds;
std::string Head(const WireReply& reply) {
  std::string head = "HTTP/1.1 " + std::to_string(reply.status) + " ";
  head += loopback::ReasonOf(reply.status);
  head += "\r\n";
  for (const auto& [name, value] : reply.headers) head += name + ": " + value + "\r\n";
  switch (reply.framing) {
    case Framing::kLength:
      head += "Content-Length: " +
              std::to_string(static_cast<long>(reply.body.size()) + reply.lengthError) + "\r\n";
      break;
    case Framing::kUntilClose:
      break;
    case Framing::kChunked:
    case Framing::kBrokenChunks:
      head += "Transfer-Encoding: chunked\r\n";
      break;
  }
  if (reply.ending != Ending::kKeep) head += "Connection: close\r\n";
  return reply.headEnds ? head + "\r\n" : head;
}

std::string Chunked(std::string_view body, bool broken) {
  constexpr std::size_t kChunk = 1000;
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string out;
  for (std::size_t at = 0; at < body.size(); at += kChunk) {
    const std::string_view chunk = body.substr(at, kChunk);
    std::string size;
    for (std::size_t rest = chunk.size(); rest > 0; rest /= 16)
      size.insert(0, 1, kDigits[rest % 16]);
    if (broken && at > 0) size = "not a size";
    out.append(size).append("\r\n").append(chunk).append("\r\n");
  }
  return out + "0\r\n\r\n";
}

bool SendPaced(loopback::Connection& connection, const loopback::StopSignal& stop,
               std::string_view bytes, const WireReply& reply) {
  while (!bytes.empty()) {
    const std::size_t size = std::min(reply.piece, bytes.size());
    if (!connection.Send(bytes.substr(0, size))) return false;
    bytes.remove_prefix(size);
    if (!bytes.empty() && reply.pause.count() > 0 && !stop.Sleep(reply.pause)) return false;
  }
  return true;
}

}  // namespace

void SendReply(loopback::Connection& connection, const loopback::StopSignal& stop,
               const WireReply& reply) {
  if (reply.before < milliseconds(0)) {
    connection.AwaitPeerGone();
    return;
  }
  if (!stop.Sleep(reply.before)) return;
  const bool chunked =
      reply.framing == Framing::kChunked || reply.framing == Framing::kBrokenChunks;
  std::string bytes = Head(reply);
  bytes += std::string_view(chunked ? Chunked(reply.body, reply.framing == Framing::kBrokenChunks)
                                    : reply.body)
               .substr(0, reply.bodyAtMost);
  if (!SendPaced(connection, stop, std::string_view(bytes).substr(0, reply.sendAtMost), reply)) {
    connection.Close();
    return;
  }
  switch (reply.ending) {
    case Ending::kKeep:
      break;
    case Ending::kClose:
      connection.Close();
      break;
    case Ending::kReset:
      connection.Reset();
      break;
    case Ending::kSilence:
      connection.AwaitPeerGone();
      break;
    case Ending::kEndless: {
      std::string filler;
      while (filler.size() < 60000) filler += reply.filler;
      while (connection.Send(filler)) continue;
      break;
    }
  }
}

}  // namespace sample
