// The prediction of requests, compared with what imports really send.

#include <gmock/gmock.h>

#include <map>

#include "NetworkSupport.h"
#include "RandomCubeSupport.h"
#include "ReadAheadSupport.h"
#include "SUXMLASAXPrediction.h"
#include "support/Effort.h"
#include "support/RecordedReplies.h"
#include "support/ScriptedServer.h"
#include "support/TempDir.h"
#include "xmlasax/AgentProbe.h"

namespace readahead {
namespace {

/// Answers one request after the other, and keeps requests and replies.
class Recording {
 public:
  explicit Recording(std::function<std::string(const std::string& body)> answer)
      : m_answer(std::move(answer)) {}

  struct Exchange {
    std::string request;
    std::string reply;
  };
  /// The exchanges of one import with one request at a time.
  std::vector<Exchange> Of(const Cube& cube, bool isLogged) {
    m_exchanges.clear();
    outcome = Import(m_server.Url(), cube, {.isLogged = isLogged});
    return m_exchanges;
  }
  Outcome outcome;

 private:
  const std::function<std::string(const std::string&)> m_answer;
  std::vector<Exchange> m_exchanges;
  Server m_server{[this](loopback::Connection& connection, const loopback::Request& request) {
    m_exchanges.push_back({request.body, m_answer(request.body)});
    connection.Send(loopback::Answer(m_exchanges.back().reply));
  }};
};

NarrowString Bytes(const std::string& text) { return NarrowString(text.data(), text.size()); }

/// The requests after an exchange and, at once after each of them, those that follow from its own
/// reply: the order of the import.
void Expand(const RequestPrediction& prediction, const Recording::Exchange& exchange,
            const std::map<std::string, std::string>& replies, std::vector<std::string>& bodies) {
  if (!prediction.IsFollowed(Bytes(exchange.request))) return;
  const HTTPPrediction::Requests requests =
      prediction.RequestsAfter(Bytes(exchange.request), Bytes(exchange.reply));
  NarrowString body;
  while (requests && requests(body)) {
    const std::string text(body.view());
    bodies.push_back(text);
    const auto reply = replies.find(text);
    if (reply != replies.end()) Expand(prediction, {text, reply->second}, replies, bodies);
  }
}

/// Compares all requests after the hierarchies with the prediction. `isWhole`: nothing ended the
/// import.
void ExpectPredicted(const std::vector<Recording::Exchange>& exchanges, const Cube& cube,
                     bool isLogged, bool isWhole, const std::string& what) {
  const RequestPrediction prediction(cube.target, ServerInfo::kCLIXMLA, isLogged);
  std::map<std::string, std::string> replies;
  for (const Recording::Exchange& exchange : exchanges) replies[exchange.request] = exchange.reply;
  std::size_t first = 0;
  while (first < exchanges.size() &&
         support::RequestType(exchanges[first].request) != "MDSCHEMA_HIERARCHIES")
    ++first;
  ASSERT_LT(first, exchanges.size()) << what;
  std::vector<std::string> predicted;
  Expand(prediction, exchanges[first], replies, predicted);
  std::vector<std::string> sent;
  for (std::size_t i = first + 1; i < exchanges.size(); ++i)
    if (support::RequestType(exchanges[i].request) != "MDSCHEMA_MEASURES")
      sent.push_back(exchanges[i].request);
  if (isWhole) {
    EXPECT_EQ(predicted, sent) << what;
  } else {
    ASSERT_LE(sent.size(), predicted.size()) << what;
    for (std::size_t i = 0; i < sent.size(); ++i) ASSERT_EQ(sent[i], predicted[i]) << what;
  }
}

TEST(Prediction, EqualsTheRequestsForSampleCubes) {
  for (const SampleCube& cube : kSampleCubes) {
    Recording recording([&](const std::string& body) { return SampleReply(cube, body); });
    for (const bool isLogged : {false, true}) {
      const auto exchanges = recording.Of(cube.cube, isLogged);
      EXPECT_GT(exchanges.size(), 10u);
      ExpectPredicted(exchanges, cube.cube, isLogged, true, cube.path);
    }
  }
}

TEST(Prediction, EqualsTheRequestsForRandomMetadata) {
  CubeScript script;
  Recording recording([&](const std::string& body) {
    loopback::Request request;
    request.body = body;
    return script(request).body;
  });
  const unsigned int rounds = support::Effort(200U, 5000U);
  unsigned int whole = 0;
  for (unsigned int seed = 0; seed < rounds; ++seed) {
    script = RandomCube(seed).Make();
    const Cube cube{.target = kTargets[seed % std::size(kTargets)]};
    const bool isLogged = seed % 5 == 0;
    const auto exchanges = recording.Of(cube, isLogged);
    const bool isWhole = recording.outcome.errors.empty() && recording.outcome.thrown.empty();
    whole += isWhole ? 1 : 0;
    ExpectPredicted(exchanges, cube, isLogged, isWhole, "seed " + std::to_string(seed));
    if (HasFailure()) return;
  }
  EXPECT_GT(whole, rounds / 2);
  EXPECT_LT(whole, rounds);
  network::Figure("imports whose requests were predicted",
                  network::Text(rounds, " cubes with random metadata, ", whole,
                                " without an error: every request, byte for byte"));
}

/// Every request of a type gets one reply that was recorded from a real server. The recorded
/// requests are those of other clients, so the bodies are compared with what the import sends.
TEST(Prediction, EqualsTheRequestsForRecordedReplies) {
  if (support::RecordedReplies().empty())
    GTEST_SKIP() << "skipped: XMLA_RECORDED_REPLIES names no folder of recorded replies";
  const struct {
    const char* folder;
    const char* hierarchies;
    const char* levels;
    const char* other;  // folder of what the first one does not have
  } kRecords[] = {{"mondrian", "MDSCHEMA_HIERARCHIES-1", "MDSCHEMA_LEVELS-1", "mondrian"},
                  {"mondrian", "MDSCHEMA_HIERARCHIES-2", "MDSCHEMA_LEVELS-2", "mondrian"},
                  {"ssas", "MDSCHEMA_HIERARCHIES-1", "MDSCHEMA_LEVELS-1", "mondrian"}};
  for (const auto& record : kRecords) {
    const auto reply = [](const char* folder, const std::string& name) {
      return support::ReadFile(support::RecordedReplies() / folder / (name + ".xml"));
    };
    Recording recording([&](const std::string& body) {
      const std::string type = support::RequestType(body);
      if (type == "MDSCHEMA_HIERARCHIES") return reply(record.folder, record.hierarchies);
      if (type == "MDSCHEMA_LEVELS") return reply(record.folder, record.levels);
      if (type == "MDSCHEMA_DIMENSIONS") return reply(record.folder, type + "-1");
      return reply(record.other, type + "-1");
    });
    for (const ServerInfo::TargetType target : kTargets)
      for (const bool isLogged : {false, true}) {
        const auto exchanges = recording.Of({.target = target}, isLogged);
        const bool isWhole = recording.outcome.errors.empty() && recording.outcome.thrown.empty();
        EXPECT_TRUE(isWhole) << record.folder << recording.outcome.errors;
        EXPECT_GT(exchanges.size(), 3u) << record.folder;
        ExpectPredicted(exchanges, {.target = target}, isLogged, isWhole, record.hierarchies);
      }
  }
}

TEST(Prediction, NothingFollowsFromAReplyThatTheLibraryRejects) {
  const CubeScript script = RandomCube(3).Make();
  const RequestPrediction prediction(ServerInfo::kTessera, ServerInfo::kCLIXMLA, false);
  Recording recording([&](const std::string& body) {
    loopback::Request request;
    request.body = body;
    return script(request).body;
  });
  const auto exchanges = recording.Of({.target = ServerInfo::kTessera}, false);
  const NarrowString request = Bytes(exchanges.at(0).request);
  const std::string reply = exchanges.at(0).reply;
  ASSERT_EQ(support::RequestType(exchanges[0].request), "MDSCHEMA_HIERARCHIES");
  NarrowString body;
  ASSERT_TRUE(prediction.RequestsAfter(request, Bytes(reply))(body));
  std::string truncated = reply.substr(0, reply.size() / 2);
  std::string withFault = reply;
  withFault.insert(withFault.rfind("</root>"),
                   "<Fault><faultcode>c</faultcode><faultstring>f</faultstring></Fault>");
  for (const std::string& bad : {truncated, withFault, std::string(), std::string("plain text")})
    EXPECT_FALSE(prediction.RequestsAfter(request, Bytes(bad))) << bad.substr(0, 80);
  ImportSettings settings;
  settings.limits.maxRowsPerReply = 1;
  const ImportSettings::Scope scope(settings);
  EXPECT_FALSE(prediction.RequestsAfter(request, Bytes(reply)));
}

}  // namespace
}  // namespace readahead
