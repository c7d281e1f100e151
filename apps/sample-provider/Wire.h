#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Writing to a connection byte by byte under full control, which the HTTP library does not give.
namespace sample {

// Raised once, it ends every wait of the provider for good. Any thread may raise it.
class StopSignal {
 public:
  StopSignal();
  ~StopSignal();
  StopSignal(const StopSignal&) = delete;
  StopSignal& operator=(const StopSignal&) = delete;

  void Raise();
  // False when the signal was raised before the time was over.
  bool Sleep(std::chrono::milliseconds time) const;
  // Waits until the socket can be read or written; false at the signal or after the time. A
  // negative time has no end.
  bool WaitFor(int socket, short events, std::chrono::milliseconds time) const;

 private:
  int event_;
};

enum class Ending { kKeep, kClose, kReset, kSilence, kEndless };
enum class Framing { kLength, kUntilClose, kChunked, kBrokenChunks };

// A reply, and how it goes over the wire.
struct WireReply {
  int status = 200;
  std::vector<std::pair<std::string, std::string>> headers;  // besides the framing's
  std::string body;
  Framing framing = Framing::kLength;
  long length_error = 0;                    // added to the length that is announced
  size_t send_at_most = std::string::npos;  // bytes, headers included unless body_limit
  size_t body_at_most = std::string::npos;
  std::chrono::milliseconds before{0};  // silence first; negative: without end
  std::chrono::milliseconds pause{0};   // after each piece
  size_t piece = std::string::npos;
  Ending ending = Ending::kKeep;
  std::string filler;     // what an endless ending repeats
  bool head_ends = true;  // false: the empty line behind the headers is missing
};

// True when the connection may serve another request.
bool SendReply(int socket, const StopSignal& stop, const WireReply& reply);

// False when the peer has gone or the signal was raised.
bool SendBytes(int socket, const StopSignal& stop, std::string_view bytes);

}  // namespace sample
