#include "Wire.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

namespace sample {
namespace {

using std::chrono::milliseconds;
constexpr milliseconds kWithoutEnd{-1};

constexpr std::pair<int, std::string_view> kReasons[] = {
    {200, "OK"},
    {302, "Found"},
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {407, "Proxy Authentication Required"},
    {413, "Payload Too Large"},
    {500, "Internal Server Error"},
    {502, "Bad Gateway"},
    {503, "Service Unavailable"},
    {504, "Gateway Timeout"},
};

std::string Head(const WireReply& reply) {
  const auto* reason =
      std::ranges::find(kReasons, reply.status, &std::pair<int, std::string_view>::first);
  std::string head = "HTTP/1.1 " + std::to_string(reply.status) + " ";
  head += reason == std::end(kReasons) ? "Unknown" : reason->second;
  head += "\r\n";
  for (const auto& [name, value] : reply.headers) head += name + ": " + value + "\r\n";
  switch (reply.framing) {
    case Framing::kLength:
      head += "Content-Length: " +
              std::to_string(static_cast<long>(reply.body.size()) + reply.length_error) + "\r\n";
      break;
    case Framing::kUntilClose:
      break;
    case Framing::kChunked:
    case Framing::kBrokenChunks:
      head += "Transfer-Encoding: chunked\r\n";
      break;
  }
  if (reply.ending != Ending::kKeep) head += "Connection: close\r\n";
  return reply.head_ends ? head + "\r\n" : head;
}

std::string Chunked(std::string_view body, bool broken) {
  constexpr size_t kChunk = 1000;
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string out;
  for (size_t at = 0; at < body.size(); at += kChunk) {
    const std::string_view chunk = body.substr(at, kChunk);
    std::string size;
    for (size_t rest = chunk.size(); rest > 0; rest /= 16) size.insert(0, 1, kDigits[rest % 16]);
    if (broken && at > 0) size = "not a size";
    out.append(size).append("\r\n").append(chunk).append("\r\n");
  }
  return out + "0\r\n\r\n";
}

// Makes the peer see a reset instead of an end.
void Reset(int socket) {
  const linger hard{1, 0};
  ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
  sockaddr nowhere{};
  nowhere.sa_family = AF_UNSPEC;
  // connect() with AF_UNSPEC sends the reset at once. close() would first send an end.
  (void)::connect(socket, &nowhere, sizeof nowhere);
}

bool SendPaced(int socket, const StopSignal& stop, std::string_view bytes, const WireReply& reply) {
  while (!bytes.empty()) {
    const size_t size = std::min(reply.piece, bytes.size());
    if (!SendBytes(socket, stop, bytes.substr(0, size))) return false;
    bytes.remove_prefix(size);
    if (!bytes.empty() && reply.pause.count() > 0 && !stop.Sleep(reply.pause)) return false;
  }
  return true;
}

// Keeps the connection open without sending, until the peer or the provider closes it.
void KeepOpenWithoutSending(int socket, const StopSignal& stop) {
  char ignored[512];
  while (stop.WaitFor(socket, POLLIN, kWithoutEnd)) {
    const ssize_t got = ::recv(socket, ignored, sizeof ignored, MSG_DONTWAIT);
    if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR)) return;
  }
}

}  // namespace

StopSignal::StopSignal() : event_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (event_ < 0) throw std::runtime_error("sample provider: no event descriptor is left");
}

StopSignal::~StopSignal() { ::close(event_); }

void StopSignal::Raise() { (void)::eventfd_write(event_, 1); }

bool StopSignal::Sleep(milliseconds time) const {
  const auto end = std::chrono::steady_clock::now() + time;
  for (;;) {
    const auto left = std::chrono::ceil<milliseconds>(end - std::chrono::steady_clock::now());
    if (left.count() <= 0) return true;
    pollfd wait{event_, POLLIN, 0};
    if (::poll(&wait, 1, static_cast<int>(left.count())) > 0) return false;
  }
}

bool StopSignal::WaitFor(int socket, short events, milliseconds time) const {
  pollfd waits[] = {{socket, events, 0}, {event_, POLLIN, 0}};
  int ready = 0;
  do {
    ready = ::poll(waits, 2, static_cast<int>(time.count()));
  } while (ready < 0 && errno == EINTR);
  return ready > 0 && waits[1].revents == 0;
}

bool SendBytes(int socket, const StopSignal& stop, std::string_view bytes) {
  while (!bytes.empty()) {
    if (!stop.WaitFor(socket, POLLOUT, kWithoutEnd)) return false;
    const ssize_t sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (sent < 0) return false;
    bytes.remove_prefix(static_cast<size_t>(sent));
  }
  return true;
}

bool SendReply(int socket, const StopSignal& stop, const WireReply& reply) {
  if (reply.before < milliseconds(0)) {
    KeepOpenWithoutSending(socket, stop);
    return false;
  }
  if (!stop.Sleep(reply.before)) return false;
  const bool chunked =
      reply.framing == Framing::kChunked || reply.framing == Framing::kBrokenChunks;
  std::string bytes = Head(reply);
  bytes += std::string_view(chunked ? Chunked(reply.body, reply.framing == Framing::kBrokenChunks)
                                    : reply.body)
               .substr(0, reply.body_at_most);
  if (!SendPaced(socket, stop, std::string_view(bytes).substr(0, reply.send_at_most), reply)) {
    return false;
  }
  switch (reply.ending) {
    case Ending::kKeep:
      return true;
    case Ending::kClose:
      break;
    case Ending::kReset:
      Reset(socket);
      break;
    case Ending::kSilence:
      KeepOpenWithoutSending(socket, stop);
      break;
    case Ending::kEndless: {
      std::string filler;
      while (filler.size() < 60000) filler += reply.filler;
      while (SendBytes(socket, stop, filler)) continue;
      break;
    }
  }
  return false;
}

}  // namespace sample
