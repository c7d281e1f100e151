// CPU time is linear in what only the network and the tool handle: headers, cookies, trailers,
// authentication schemes, the import log, and the tool's output.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <memory>

#include "NetworkSupport.h"
#include "Utility/Generic/HTTPClientWrapper.h"
#include "support/Effort.h"
#include "support/Growth.h"
#include "support/Settings.h"
#include "support/TempDir.h"
#include "support/WireServer.h"
#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace reliability {
namespace {
namespace scaling {

using support::Wide;
using support::Work;

std::string Numbered(std::size_t count, const std::function<std::string(std::string)>& piece) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) all += piece(std::to_string(i));
  return all;
}

/// One quantity that a server controls.
struct Path {
  const char* name;
  std::size_t least;
  std::size_t most;
  std::function<Work(std::size_t)> make;
};

/// A server and a client of it, for any number of exchanges.
class Exchange {
 public:
  Exchange(const std::string& answer, const wchar_t* user, std::size_t exchanges)
      : Exchange([answer](std::size_t) { return answer; }, user, exchanges) {}
  Exchange(std::function<std::string(std::size_t)> answer, const wchar_t* user,
           std::size_t exchanges)
      : m_server([answer = std::move(answer), number = std::size_t{0}](
                     loopback::Connection& connection, const loopback::Request&) mutable {
          connection.Send(answer(number++));
        }),
        m_user(user),
        m_exchanges(exchanges) {}

  void Run() {
    HTTPClientWrapper client(Wide("http://" + m_server.Authority() + "/"), m_user, m_user, 0,
                             nullptr);
    for (std::size_t i = 0; i < m_exchanges; ++i) {
      NarrowString reply;
      String error;
      client.ReadBytes(NarrowString("q"), reply, error);
    }
  }

 private:
  WireServer m_server;
  const wchar_t* m_user;
  std::size_t m_exchanges;
};

Path OfAnswer(const char* name, std::size_t least, std::size_t most,
              const std::function<std::string(std::size_t)>& makeAnswer,
              const wchar_t* user = L"") {
  return {name, least, most, [=](std::size_t size) -> Work {
            const auto exchange = std::make_shared<Exchange>(makeAnswer(size), user, 1);
            return [=] { exchange->Run(); };
          }};
}

std::string Unauthorized(const std::string& headers, const char* status = "401 Unauthorized") {
  return Answer("no", status, headers);
}

std::vector<Path> NetworkPaths() {
  constexpr std::size_t kMi = 1 << 20;
  const std::string chunked = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n";
  const std::string lastChunk = "\r\n4\r\n<r/>\r\n0\r\n";
  return {
      OfAnswer("headers", 64, 16384,
               [](std::size_t count) {
                 return Answer("<r/>", "200 OK", Numbered(count, [](const std::string& i) {
                                 return "X-Header-" + i + ": value\r\n";
                               }));
               }),
      OfAnswer("headers of one name", 64, 16384,
               [](std::size_t count) {
                 return Answer("<r/>", "200 OK", Numbered(count, [](const std::string&) {
                                 return "Content-Type: text/xml\r\n";
                               }));
               }),
      OfAnswer("a long header", 1024, kMi,
               [](std::size_t size) {
                 return Answer("<r/>", "200 OK", "X: " + std::string(size, 'x') + "\r\n");
               }),
      OfAnswer("a folded header", 64, 16384,
               [](std::size_t count) {
                 return Answer("<r/>", "200 OK", "X: x\r\n" + Numbered(count, [](const auto&) {
                                                   return " more\r\n";
                                                 }));
               }),
      OfAnswer("preliminary answers", 64, 16384,
               [](std::size_t count) {
                 return Numbered(count,
                                 [](const auto&) {
                                   return "HTTP/1.1 103 Early Hints\r\nLink: x\r\n\r\n";
                                 }) +
                        Answer("<r/>");
               }),
      OfAnswer("trailers", 64, 16384,
               [=](std::size_t count) {
                 return chunked + lastChunk +
                        Numbered(
                            count,
                            [](const std::string& i) { return "X-Trailer-" + i + ": value\r\n"; }) +
                        "\r\n";
               }),
      OfAnswer("status lines in the place of trailers", 64, 16384,
               [=](std::size_t count) {
                 return chunked + lastChunk +
                        Numbered(count, [](const auto&) { return "HTTP/1.1 200 OK\r\n"; }) + "\r\n";
               }),
      OfAnswer("chunks of one byte", 1024, kMi,
               [=](std::size_t count) {
                 return chunked + "\r\n" +
                        Numbered(count, [](const auto&) { return "1\r\n<\r\n"; }) + "0\r\n\r\n";
               }),
      OfAnswer("a chunk's extension", 1024, kMi,
               [=](std::size_t size) {
                 return chunked + "\r\n4;" + std::string(size, 'x') + "\r\n<r/>\r\n0\r\n\r\n";
               }),
      OfAnswer("log-in schemes", 64, 16384,
               [](std::size_t count) {
                 return Unauthorized(Numbered(count, [](const std::string& i) {
                   return "WWW-Authenticate: Scheme" + i + "\r\n";
                 }));
               }),
      OfAnswer(
          "log-in schemes for a user", 64, 16384,
          [](std::size_t count) {
            return Unauthorized(Numbered(count, [](const std::string& i) {
              return "WWW-Authenticate: Digest realm=\"r\", nonce=\"" + i + "\"\r\n";
            }));
          },
          L"ann"),
      OfAnswer(
          "log-in schemes in one header", 64, 16384,
          [](std::size_t count) {
            return Unauthorized("WWW-Authenticate: " +
                                Numbered(count, [](const auto& i) { return "Scheme" + i + ", "; }) +
                                "Basic\r\n");
          },
          L"ann"),
      OfAnswer("log-in schemes of a proxy", 64, 16384,
               [](std::size_t count) {
                 return Unauthorized(Numbered(count,
                                              [](const std::string& i) {
                                                return "Proxy-Authenticate: Scheme" + i + "\r\n";
                                              }),
                                     "407 Proxy Authentication Required");
               }),
      OfAnswer("cookies of one answer", 64, 16384,
               [](std::size_t count) {
                 return Answer("<r/>", "200 OK", Numbered(count, [](const std::string& i) {
                                 return "Set-Cookie: c" + i + "=v\r\n";
                               }));
               }),
      OfAnswer("the target of a redirect", 1024, kMi,
               [](std::size_t size) {
                 return Answer("", "302 Found", "Location: /" + std::string(size, '%') + "\r\n");
               }),
      {"cookies of one answer after the other", 16, 512,
       [](std::size_t count) -> Work {
         // Unique during the life of the client and the server.
         const auto exchange = std::make_shared<Exchange>(
             [](std::size_t number) {
               return Answer("<r/>", "200 OK", Numbered(50, [=](const std::string& i) {
                               return "Set-Cookie: c" + std::to_string(number) + "_" + i + "=v\r\n";
                             }));
             },
             L"", count);
         return [=] { exchange->Run(); };
       }},
  };
}

TEST(ScalingOfTheNetwork, DoubleTheInputTakesAtMostTwoAndAHalfTimesTheTime) {
  double worst = 0;
  std::size_t count = 0;
  for (const Path& path : NetworkPaths()) {
    const support::Growth growth = support::MeasureGrowth(path.least, path.most, path.make);
    EXPECT_EQ(growth.violation, "") << path.name;
    worst = std::max(worst, growth.lastingRatio);
    ++count;
  }
  network::Figure("CPU time for double headers, cookies and similar input",
                  network::Text(count, " paths, at most ", worst, " times"));
}

TEST(ScalingOfTheNetwork, StopsWithin100Milliseconds) {
  const double allowed = 0.1 * network::Slack();
  const int moments = support::Effort(1, 10);
  double longest = 0;
  for (const Path& path : NetworkPaths()) {
    const double seconds =
        support::LongestStop(path.make(path.most / (support::IsLong() ? 1 : 4)), moments, allowed);
    EXPECT_LE(seconds, allowed) << path.name;
    longest = std::max(longest, seconds);
  }
  network::Figure("cancelled during headers and the like",
                  network::Text("within ", static_cast<int>(longest * 1000), " ms"));
}

TEST(ScalingOfTheImportLog, DoubleTheReplyTakesAtMostTwoAndAHalfTimesTheTime) {
  const char* const kBodies[] = {"<a>text</a>", "&#13;", "text without end ", "\xC3\xA9", "\xFF"};
  double worst = 0;
  for (const char* const piece : kBodies) {
    const support::TempDir folder;
    const support::LogInto logs(folder.Path());
    const support::Growth growth =
        support::MeasureGrowth(8 << 10, 8 << 20, [&](std::size_t size) -> Work {
          std::string body = "<root>";
          while (body.size() < size) body += piece;
          const auto server = std::make_shared<WireServer>(Answer(body + "</root>"));
          return [=] { network::Import("http://" + server->Authority() + "/").DataSources(); };
        });
    EXPECT_EQ(growth.violation, "") << piece;
    worst = std::max(worst, growth.lastingRatio);
  }
  network::Figure("CPU time for a double reply with an import log",
                  network::Text(std::size(kBodies), " kinds of reply, at most ", worst, " times"));
}

/// Total CPU time of the tool's runs.
double ChildSeconds() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * 1e-6;
}

struct ToolPath {
  const char* name;
  tool::Arguments arguments;
  std::size_t least;
  std::size_t most;
  /// The provider's data; the size is a number of objects or of characters.
  void (*change)(tool::ScriptedProvider::Script& script, std::size_t size);
  int status = 0;
};

void ManyCubes(tool::ScriptedProvider::Script& script, std::size_t count) {
  std::vector<tool::Row>& cubes = script.rows["MDSCHEMA_CUBES Lone"];
  const tool::Row like = cubes.front();
  cubes.clear();
  for (std::size_t i = 0; i < count; ++i) {
    cubes.push_back(like);
    for (auto& [column, value] : cubes.back())
      if (column == "CUBE_NAME") value = "cube " + std::to_string(i);
  }
}

void ManyMeasures(tool::ScriptedProvider::Script& script, std::size_t count) {
  std::vector<tool::Row>& measures = script.rows["MDSCHEMA_MEASURES"];
  const tool::Row like = measures.front();
  measures.assign(count, like);
}

void ManyVirtualHierarchies(tool::ScriptedProvider::Script& script, std::size_t count) {
  std::vector<tool::Row>& hierarchies = script.rows["MDSCHEMA_HIERARCHIES"];
  tool::Row like = hierarchies.front();
  like.emplace_back("IS_VIRTUAL", "true");
  hierarchies.assign(count, like);
}

void LongNames(tool::ScriptedProvider::Script& script, std::size_t size) {
  for (auto& [column, value] : script.rows["MDSCHEMA_HIERARCHIES"].front())
    if (column == "HIERARCHY_UNIQUE_NAME")
      value = "[" + Numbered(size, [](const auto&) { return "&lt;"; }) + "]";
}

TEST(ScalingOfTheTool, DoubleTheResultTakesAtMostTwoAndAHalfTimesTheTime) {
  const tool::Arguments cube = {"cube", "--source", "Solo", "--catalog", "Lone", "--cube", "Unit"};
  const auto with = [](tool::Arguments arguments, const tool::Arguments& more) {
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  };
  const ToolPath paths[] = {
      {"a tree as text", {"tree"}, 1024, 65536, &ManyCubes},
      {"a tree as JSON", {"tree", "--format", "json"}, 1024, 65536, &ManyCubes},
      {"measures as text", cube, 1024, 65536, &ManyMeasures},
      {"measures as JSON", with(cube, {"--format", "json"}), 1024, 65536, &ManyMeasures},
      {"warnings", cube, 1024, 65536, &ManyVirtualHierarchies},
      {"warnings as JSON", with(cube, {"--format", "json"}), 1024, 65536, &ManyVirtualHierarchies},
      {"an import of one cube among many", {"import", "--cube", "cube 1"}, 1024, 65536, &ManyCubes},
      {"an import of cubes that are not there",
       {"import", "--cube", "none"},
       1024,
       65536,
       &ManyCubes,
       2},
      {"an import of all", {"import", "--format", "json"}, 64, 1024, &ManyCubes},
      {"a long name", with(cube, {"--verbose"}), 8 << 10, 512 << 10, &LongNames},
      {"a long name as JSON", with(cube, {"--verbose", "--format", "json"}), 8 << 10, 512 << 10,
       &LongNames},
  };
  double worst = 0;
  for (const ToolPath& path : paths) {
    const support::Growth growth = support::MeasureGrowth(
        path.least, path.most,
        [&](std::size_t size) -> Work {
          tool::ScriptedProvider::Script script = tool::OneCube();
          path.change(script, size);
          const auto provider = std::make_shared<tool::ScriptedProvider>(script);
          tool::Arguments arguments = path.arguments;
          arguments.insert(arguments.end(),
                           {"--url", provider->Url(), "--target", "analysis-services-2005"});
          return [provider, arguments, status = path.status] {
            const tool::Outcome outcome = tool::RunTool(arguments);
            EXPECT_EQ(outcome.status, status) << outcome.err.substr(0, 500);
          };
        },
        &ChildSeconds);
    EXPECT_EQ(growth.violation, "") << path.name;
    worst = std::max(worst, growth.lastingRatio);
  }
  network::Figure("CPU time of the tool for a double result",
                  network::Text(std::size(paths), " results, at most ", worst, " times"));
}

}  // namespace scaling
}  // namespace
}  // namespace reliability
