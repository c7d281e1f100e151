#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "loopback-server/Request.h"

// An XMLA provider with invented data, served over real HTTP on the loopback interface: something
// to import from when no server is at hand, and a server that misbehaves on demand for tests.
namespace sample {

// The three kinds of server that the provider can pass for, each at a path of its own.
enum class Kind { kAnalysisServices, kSapBw, kTamarind };

// "analysis-services", "sap-bw" or "tamarind"; nothing for any other text.
std::optional<Kind> KindFromName(std::string_view name);
std::string_view NameOfKind(Kind kind);

struct Options {
  int port = 0;                          // 0: a free port
  std::chrono::milliseconds latency{0};  // waited before every reply
  bool compress = false;                 // compress replies for clients that accept it
  std::string user;                      // when not empty, Basic credentials are asked for
  std::string password;
  // Every cube is listed so many times, under names of their own, which all mean the same cube.
  int copies = 1;
  // A misbehaviour for every request, or "". A request can choose its own with `?mood=` on the
  // URL. The form is NAME[:NUMBER][@REQUEST_TYPE][/NTH]; with a request type, only requests of that
  // type are answered so, and with a slash, only the NTH of them. MoodHelp() lists the names. The
  // mood "random:SEED" chooses anew for every request, by the seed, the request's body and how
  // often that body came before, so that a run can be repeated whatever the order of its requests.
  std::string mood;
};

// One line for each mood: its name and what it does.
std::string MoodHelp();

// Serves from construction to destruction. Connections have a thread each; destruction ends them
// all at once, also those in the middle of a slow or stalled reply. The members may be called from
// any thread.
class Provider {
 public:
  // Throws std::runtime_error when the port cannot be had or an option makes no sense.
  explicit Provider(Options options = {});
  ~Provider();
  Provider(const Provider&) = delete;
  Provider& operator=(const Provider&) = delete;

  int Port() const;
  // http://127.0.0.1:PORT/ and the kind's name.
  std::string Url(Kind kind) const;

  // The most requests that were answered at the same time.
  int MostAtOnce() const;

  // The requests received since the last call; no more than the newest 4,096 are kept.
  std::vector<loopback::Request> TakeRequests();

 private:
  class Impl;
  std::unique_ptr<Impl> m_impl;
};

}  // namespace sample
