#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "Utility/Generic/ImportSettings.h"
#include "Utility/Generic/ServerInfo.h"
#include "loopback-server/Server.h"

/// Shared code of the tests that compare imports with and without read-ahead.
namespace readahead {

/// What a server sends for a request. May wait.
using Answer = std::function<void(loopback::Connection& connection, const loopback::Request&)>;

/// A server that counts the requests in progress, and can delay each of them.
class Server {
 public:
  explicit Server(Answer answer, std::size_t requestsKept = 4096);

  std::string Url() const { return "http://" + m_server.Authority() + "/xmla"; }
  loopback::Server& Wire() { return m_server; }
  /// The most requests in progress at the same time, since the last call.
  int TakeMostInProgress() { return m_most.exchange(0); }
  /// Requests since the last call.
  int TakeCount() { return m_count.exchange(0); }
  /// Delays each reply by 0 to this number of microseconds, so that replies arrive out of order.
  std::atomic<int> maxDelay{0};

 private:
  void Serve(loopback::Connection& connection, const loopback::Request& request);

  const Answer m_answer;
  std::atomic<int> m_inProgress{0};
  std::atomic<int> m_most{0};
  std::atomic<int> m_count{0};
  std::mutex m_mutex;
  std::mt19937 m_random{1};  // guarded by m_mutex
  loopback::Server m_server;
};

/// A cube to import.
struct Cube {
  ServerInfo::TargetType target = ServerInfo::kAnalysisServices2005;
  String source = L"S";
  String catalog = L"C";
  String cube = L"Q";
};

/// The outcome of an import of hierarchies and measures, with everything that a host can observe
/// except times.
struct Outcome {
  std::vector<std::string> records;
  std::string errors;
  std::string warnings;
  std::string thrown;
  std::vector<std::string> exchanges;  ///< as the observer got them, in order
  std::map<std::string, std::string> logs;
  HTTPReadAheadInfo ahead;  ///< not compared
  double seconds = 0;       ///< not compared

  bool IsSuccess() const { return errors.empty() && warnings.empty() && thrown.empty(); }
};
/// The first difference; empty if there is none.
std::string Difference(const Outcome& a, const Outcome& b);

/// How a cube is imported.
struct Way {
  unsigned int requests = 1;  ///< at a time
  HTTPClientOptions http = {};
  ImportLimits limits = {};
  bool isLogged = false;
  String user = {};
  String password = {};
};
Outcome Import(const std::string& url, const Cube& cube, const Way& way);

/// One cube of each kind of the sample provider, and the path of its kind.
struct SampleCube {
  const char* path;
  Cube cube;
};
extern const SampleCube kSampleCubes[3];

/// The proper reply of the sample provider to a request body.
std::string SampleReply(const SampleCube& cube, const std::string& body);

}  // namespace readahead
