#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "loopback-server/Request.h"

/// An XMLA provider with sample data that serves HTTP on the loopback interface. For tests, it
/// misbehaves on request.
namespace sample {

/// The kinds of server that the provider imitates, each at its own path.
enum class Kind { kAnalysisServices, kSapBw, kTamarind };

/// Accepts "analysis-services", "sap-bw" and "tamarind"; nullopt for any other text.
std::optional<Kind> KindFromName(std::string_view name);
std::string_view NameOfKind(Kind kind);

/// A cube with 175 hierarchies.
inline constexpr const char* kWideCube = "Wide";

struct Options {
  int port = 0;                          ///< 0: a free port
  std::chrono::milliseconds latency{0};  ///< delay before every reply
  bool compress = false;                 ///< compress replies for clients that accept it
  std::string user;                      ///< not empty: requires Basic credentials
  std::string password;
  /// Lists every cube this many times under different names.
  int copies = 1;
  /// Adds the cube kWideCube to the first catalog of each kind.
  bool wideCube = false;
  /// A misbehaviour for every request, or "". A request can select its own with `?mood=` in the
  /// URL. The form is NAME[:NUMBER][@REQUEST_TYPE][/NTH]. With a request type, the mood applies
  /// only to requests of that type, and with /NTH only to the NTH of them. MoodHelp() lists the
  /// names. The mood "random:SEED" selects a mood for every request. The choice depends on the
  /// seed, the body and the number of equal bodies before, so a run is repeatable even if the order
  /// of requests changes.
  std::string mood;
};

/// One line per mood: name and description.
std::string MoodHelp();

/// Serves until it is destroyed. One thread per connection. The destructor ends all connections at
/// once, including slow and stalled replies. Thread-safe.
class Provider {
 public:
  /// Throws std::runtime_error if the port is not available or an option is invalid.
  explicit Provider(Options options = {});
  ~Provider();
  Provider(const Provider&) = delete;
  Provider& operator=(const Provider&) = delete;

  int Port() const;
  /// http://127.0.0.1:PORT/KIND
  std::string Url(Kind kind) const;

  /// The maximum number of requests that were in progress at the same time.
  int MaxRequestsInProgress() const;

  /// The requests received since the last call, at most the newest 4,096.
  std::vector<loopback::Request> TakeRequests();

 private:
  class Impl;
  std::unique_ptr<Impl> m_impl;
};

}  // namespace sample
