#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Writes raw replies, with control over every byte and pause.
namespace sample {

// Ends every current and future wait of the provider. Thread-safe.
class StopSignal {
 public:
  StopSignal();
  ~StopSignal();
  StopSignal(const StopSignal&) = delete;
  StopSignal& operator=(const StopSignal&) = delete;

  void Raise();
  // False if the signal was raised before the time was over.
  bool Sleep(std::chrono::milliseconds time) const;
  // Waits until the socket is ready. False after the signal or the time. A negative time means no
  // limit.
  bool WaitFor(int socket, short events, std::chrono::milliseconds time) const;

 private:
  int event_;
};

enum class Ending { kKeep, kClose, kReset, kSilence, kEndless };
enum class Framing { kLength, kUntilClose, kChunked, kBrokenChunks };

// A reply, and how to send it.
struct WireReply {
  int status = 200;
  std::vector<std::pair<std::string, std::string>> headers;  // without those of the framing
  std::string body;
  Framing framing = Framing::kLength;
  long length_error = 0;                    // added to Content-Length
  size_t send_at_most = std::string::npos;  // bytes, including headers
  size_t body_at_most = std::string::npos;
  std::chrono::milliseconds before{0};  // delay; negative: never reply
  std::chrono::milliseconds pause{0};   // after each piece
  size_t piece = std::string::npos;
  Ending ending = Ending::kKeep;
  std::string filler;     // repeated by Ending::kEndless
  bool head_ends = true;  // false: omit the empty line after the headers
};

// True if the connection can serve another request.
bool SendReply(int socket, const StopSignal& stop, const WireReply& reply);

// False if the peer closed the connection or the signal was raised.
bool SendBytes(int socket, const StopSignal& stop, std::string_view bytes);

}  // namespace sample
