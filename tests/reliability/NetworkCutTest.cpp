// A reply that is truncated at any byte gives a one-line error and never a partial result. The same
// import object reads the next reply completely.

#include <gmock/gmock.h>

#include <atomic>

#include "DiscoverService.h"
#include "NetworkSupport.h"
#include "SampleProvider.h"
#include "support/Effort.h"
#include "support/ScriptedServer.h"
#include "support/WireServer.h"

namespace network {
namespace {

std::string Chunked(const std::string& body) {
  std::string out = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
  for (std::size_t at = 0; at < body.size(); at += 700) {
    const std::string chunk = body.substr(at, 700);
    char size[16];
    std::snprintf(size, sizeof size, "%zx\r\n", chunk.size());
    out += size + chunk + "\r\n";
  }
  return out + "0\r\n\r\n";
}

struct FramingCase {
  const char* name;
  std::string (*frame)(const std::string& body);
  bool endsWithConnection = false;
};

constexpr FramingCase kFramings[] = {
    {"with its length", [](const std::string& body) { return Answer(body); }},
    {"in chunks", Chunked},
    {"until the connection closes",
     [](const std::string& body) { return "HTTP/1.1 200 OK\r\n\r\n" + body; }, true},
};

/// Answers like the sample provider, but truncates the reply to data source requests.
class CuttingServer {
 public:
  CuttingServer(sample::Kind kind, const FramingCase& framing) : m_kind(kind), m_framing(framing) {}
  std::string Url() const { return "http://" + m_server.Authority() + "/"; }
  void CutAt(std::size_t length) { m_length = length; }
  /// Length of the last reply to a data source request.
  std::size_t WholeLength() const { return m_whole; }

 private:
  void Handle(loopback::Connection& connection, const loopback::Request& request) {
    const std::string body = sample::Answer(m_kind, request.body).body;
    if (support::RequestType(request.body) != "DISCOVER_DATASOURCES") {
      connection.Send(Answer(body));
      return;
    }
    const std::string answer = m_framing.frame(body);
    m_whole = answer.size();
    connection.Send(answer.substr(0, m_length));
    if (m_length < answer.size() || m_framing.endsWithConnection) connection.Close();
  }

  const sample::Kind m_kind;
  const FramingCase& m_framing;
  std::atomic<std::size_t> m_length{std::string::npos};
  std::atomic<std::size_t> m_whole{0};
  WireServer m_server{
      [this](auto& connection, const auto& request) { Handle(connection, request); }};
};

constexpr sample::Kind kKinds[] = {sample::Kind::kAnalysisServices, sample::Kind::kSapBw,
                                   sample::Kind::kTamarind};

TEST(NetworkCut, AnyByteGivesAOneLineErrorAndTheNextReplyIsRead) {
  std::size_t cuts = 0;
  std::size_t read = 0;
  double longest = 0;
  for (const sample::Kind kind : kKinds) {
    for (const FramingCase& framing : kFramings) {
      SCOPED_TRACE(std::string(NameOfKind(kind)) + " " + framing.name);
      CuttingServer server(kind, framing);
      Import import(server.Url());
      const Outcome whole = import.DataSources();
      ASSERT_FALSE(whole.names.empty()) << whole.errors;
      const std::size_t length = server.WholeLength();
      const std::size_t step = support::Effort<std::size_t>(41, 1);
      for (std::size_t cut = 0; cut < length; cut += step) {
        server.CutAt(cut);
        const Outcome outcome = import.DataSources();
        ++cuts;
        longest = std::max(longest, outcome.seconds);
        if (outcome.names == whole.names) {
          // All rows may be read if only a line end after the document is missing.
          ASSERT_GE(cut + 3, length);
          ++read;
          continue;
        }
        ASSERT_NE(outcome.errors, "") << cut << " of " << length << ", " << outcome.names.size();
        ASSERT_EQ(outcome.errors.find('\n'), std::string::npos) << cut;
        server.CutAt(std::string::npos);
        ASSERT_EQ(import.DataSources().names, whole.names) << cut;
      }
    }
  }
  EXPECT_LT(longest, 0.5 * Slack());
  Figure("replies cut over the network",
         Text(cuts, " cuts in 3 kinds of server and 3 framings: ", cuts - read,
              " refused in one line, ", read, " read (only a line end was missing), at most ",
              static_cast<int>(longest * 1e3) + 1, " ms, the next reply read each time"));
}

}  // namespace
}  // namespace network
