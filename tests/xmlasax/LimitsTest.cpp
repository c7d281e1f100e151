// Tests limits on what one server can make an import operation do.

#include <gmock/gmock.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <limits>
#include <thread>

#include "AgentProbe.h"
#include "CubeScript.h"
#include "ImportProbe.h"
#include "Utility/Generic/ImportOperation.h"
#include "support/Sanitized.h"
#include "support/Settings.h"

namespace {

using support::Narrow;
using support::RowsetReply;
using support::ScriptedServer;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

std::string Rows(const std::string& row, int count) {
  std::string rows;
  for (int i = 0; i < count; ++i) rows += row;
  return RowsetReply(rows);
}

struct RowCase {
  const char* name;
  std::string row;
  std::function<void(XmlADiscoverAgent&)> read;
};

const std::string kEmptyRow = "<row/>";

const RowCase kRowCases[] = {
    {"data sources", "<row><DataSourceInfo>d</DataSourceInfo></row>",
     [](XmlADiscoverAgent& agent) {
       VXStringVector names;
       agent.GetDataSourceInfo(names);
     }},
    {"catalogs", "<row><CATALOG_NAME>c</CATALOG_NAME></row>",
     [](XmlADiscoverAgent& agent) {
       VXStringVector names;
       agent.GetCatalogs(names, L"D");
     }},
    {"cubes", "<row><CUBE_NAME>q</CUBE_NAME></row>",
     [](XmlADiscoverAgent& agent) {
       std::vector<OTCube> cubes;
       agent.GetCubesOnCatalog(cubes, L"C", L"D");
     }},
    {"dimensions", kEmptyRow,
     [](XmlADiscoverAgent& agent) {
       std::vector<RefCnt<XmlADimension>> rows;
       agent.GetDimensionsOnCatalogCube(rows, L"C", L"Q", L"D");
     }},
    {"hierarchies", kEmptyRow,
     [](XmlADiscoverAgent& agent) {
       std::vector<RefCnt<XmlAHierarchy>> rows;
       agent.GetHierarchiesOnCatalogCube(rows, L"C", L"Q", L"D");
     }},
    {"measures", kEmptyRow,
     [](XmlADiscoverAgent& agent) {
       std::vector<RefCnt<XmlAMeasure>> rows;
       agent.GetMeasuresOnCatalogCube(rows, L"C", L"Q", L"D");
     }},
    {"variables", kEmptyRow,
     [](XmlADiscoverAgent& agent) {
       std::vector<RefCnt<XmlACubeVariable>> rows;
       agent.GetVariablesOnCatalogCube(rows, L"Q", L"C", L"D");
     }},
    {"levels", kEmptyRow,
     [](XmlADiscoverAgent& agent) {
       std::vector<RefCnt<XmlALevel>> rows;
       agent.GetLevelsOnCatalogCubeHierarchy(
           rows, L"C", L"Q", new XmlAHierarchy(ServerInfo::kTessera, ServerInfo::kCLIXMLA), L"D");
     }},
};

TEST(Limits, RowsOfAReply) {
  for (const RowCase& c : kRowCases) {
    std::atomic<int> rows = 10;
    ScriptedServer server(
        [&](const support::Request&) { return support::Reply{Rows(c.row, rows)}; });
    support::Settings settings;
    settings.limits.maxRowsPerReply = 10;
    AgentProbe agent(server.Url());
    EXPECT_EQ(ErrorOf([&] { c.read(agent); }), "no error") << c.name;
    rows = 11;
    EXPECT_THAT(ErrorOf([&] { c.read(agent); }),
                HasSubstr("The reply has more than 10 rows (limit maxRowsPerReply)"))
        << c.name;
    settings.limits.maxRowsPerReply = 0;
    EXPECT_EQ(ErrorOf([&] { c.read(agent); }), "no error") << c.name;
  }
  EXPECT_EQ(ImportLimits().maxRowsPerReply, 1'000'000u);
}

/// A cube with that many hierarchies of one level each.
CubeScript Cube(int hierarchies) {
  CubeScript cube;
  std::string rows;
  for (int i = 0; i < hierarchies; ++i) {
    const std::string name = "[h" + std::to_string(i) + "]";
    rows += "<row><HIERARCHY_UNIQUE_NAME>" + name +
            "</HIERARCHY_UNIQUE_NAME><STRUCTURE>0</STRUCTURE></row>";
    cube.levels[name] =
        "<row><LEVEL_UNIQUE_NAME>l</LEVEL_UNIQUE_NAME><LEVEL_NUMBER>0</LEVEL_NUMBER></row>";
  }
  cube.hierarchies = rows;
  return cube;
}

/// The texts that GetHierarchies appends, without the records.
struct Texts {
  std::string errors;
  std::string warnings;
};
Texts ImportHierarchies(ImportProbe& import) {
  std::vector<OTXMLAHierarchy> hierarchies;
  String errors;
  String warnings;
  import.GetHierarchies(hierarchies, errors, warnings);
  return {Narrow(errors), Narrow(warnings)};
}

TEST(Limits, ApplyToEachOperation) {
  const CubeScript cube = Cube(5);
  std::atomic<std::uint64_t> replyBytes = 0;
  ScriptedServer server([&](const support::Request& request) {
    const support::Reply reply = cube(request);
    replyBytes += reply.body.size();
    return reply;
  });
  support::Settings settings;
  ImportProbe import(server.Url(), ServerInfo::kTessera);
  ImportHierarchies(import);
  const struct {
    std::uint64_t ImportLimits::*limit;
    std::uint64_t needed;
    std::string error;
    std::uint64_t defaultValue;
  } cases[] = {
      // One request for the hierarchies, and three for each: default member, levels and properties.
      {&ImportLimits::maxRequests, 16,
       "The operation needs more than 15 requests to the server (limit maxRequests)", 100'000},
      // Five hierarchies with one level each.
      {&ImportLimits::maxRows, 10, "The replies have more than 9 rows in all (limit maxRows)",
       2'000'000},
      {&ImportLimits::maxTotalReplyBytes, replyBytes,
       "The replies have more than " + std::to_string(replyBytes - 1) +
           " bytes in all (limit maxTotalReplyBytes)",
       std::uint64_t{2} << 30},
  };
  for (const auto& c : cases) {
    settings.limits = {};
    EXPECT_EQ(settings.limits.*c.limit, c.defaultValue) << c.error;
    settings.limits.*c.limit = c.needed;
    EXPECT_EQ(ImportHierarchies(import).errors, "") << c.error;
    EXPECT_EQ(ImportHierarchies(import).errors, "") << c.error;
    settings.limits.*c.limit = c.needed - 1;
    EXPECT_THAT(ImportHierarchies(import).errors, HasSubstr(c.error));
    settings.limits.*c.limit = 0;
    EXPECT_EQ(ImportHierarchies(import).errors, "") << c.error;
  }
}

/// A limit that the look-up of the first default member exceeds.
struct LookUpCase {
  const char* name;
  void (*limit)(support::Settings& settings);
  std::size_t requests;  // sent by the operation
  bool isError;
};

TEST(Limits, OfTheOperationEndItInALookUpAndOthersAreWarnings) {
  constexpr std::size_t kHierarchies = 3;
  constexpr std::size_t kAll = 1 + 3 * kHierarchies;
  const LookUpCase cases[] = {
      {"maxRequests", [](support::Settings& settings) { settings.limits.maxRequests = 1; }, 1,
       true},
      {"maxTotalReplyBytes",
       [](support::Settings& settings) { settings.limits.maxTotalReplyBytes = 50'000; }, 2, true},
      {"deadlineSeconds", [](support::Settings& settings) { settings.limits.deadlineSeconds = 1; },
       2, true},
      {"maxRequestBytes",
       [](support::Settings& settings) { settings.limits.maxRequestBytes = 3'000; },
       kAll - kHierarchies, false},
      {"maxReplyBytes", [](support::Settings& settings) { settings.http.maxReplyBytes = 50'000; },
       kAll, false},
  };
  for (const LookUpCase& c : cases) {
    SCOPED_TRACE(c.name);
    CubeScript cube = Cube(kHierarchies);
    // Only a look-up sends the name of the default member.
    const std::string member = std::string(3'000, 'm');
    std::string::size_type at = 0;
    while ((at = cube.hierarchies.find("<STRUCTURE>", at)) != std::string::npos) {
      const std::string column = "<DEFAULT_MEMBER>" + member + "</DEFAULT_MEMBER>";
      cube.hierarchies.insert(at, column);
      at += column.size() + 1;
    }
    std::atomic<bool> isOver = false;
    const bool isSlow = std::string(c.name) == "deadlineSeconds";
    ScriptedServer server([&](const support::Request& request) {
      if (support::RequestType(request.body) != "MDSCHEMA_MEMBERS") return cube(request);
      while (isSlow && !isOver) std::this_thread::sleep_for(std::chrono::milliseconds(1));
      return support::Reply{RowsetReply(std::string(100'000, ' '))};
    });
    support::Settings settings;
    c.limit(settings);
    ImportProbe import(server.Url(), ServerInfo::kTessera);
    const Texts texts = ImportHierarchies(import);
    isOver = true;
    const std::string limit = std::string("limit ") + c.name;
    EXPECT_THAT(c.isError ? texts.errors : texts.warnings, HasSubstr(limit));
    EXPECT_EQ(c.isError ? texts.warnings : texts.errors, "");
    EXPECT_EQ(server.Requests().size(), c.requests);
  }
}

TEST(Limits, BytesOfAllRepliesIncludeRefusedReplies) {
  // The look-ups of default members fail, which gives a warning and does not end the operation.
  const std::string refused[] = {
      "<html><title>no</title>" + std::string(100'000, ' ') + "</html>",
      "plain text" + std::string(100'000, '.'),
      "<root>" + std::string(100'000, ' '),
      support::FaultReply("c", std::string(100'000, 'f')),
  };
  for (const std::string& body : refused) {
    const CubeScript cube = Cube(5);
    ScriptedServer server([&](const support::Request& request) {
      if (support::RequestType(request.body) == "MDSCHEMA_MEMBERS") return support::Reply{body};
      return cube(request);
    });
    support::Settings settings;
    settings.limits.maxTotalReplyBytes = 150'000;
    ImportProbe import(server.Url(), ServerInfo::kTessera);
    const Texts texts = ImportHierarchies(import);
    EXPECT_THAT(texts.errors, HasSubstr("limit maxTotalReplyBytes")) << body.substr(0, 20);
    EXPECT_THAT(texts.warnings, Not(HasSubstr("limit "))) << body.substr(0, 20);
    // Hierarchies; member, levels and properties of the first; member of the second.
    EXPECT_EQ(server.Requests().size(), 5u) << body.substr(0, 20);
  }
}

TEST(Limits, BytesOfAllRepliesAreDecodedBytes) {
  support::Settings settings;
  settings.limits.maxTotalReplyBytes = 15'000;
  // One byte of the reply becomes three in UTF-8.
  ScriptedServer server([](const support::Request&) {
    return support::Reply{
        RowsetReply("<row><CATALOG_NAME>" + std::string(5000, '\x80') + "</CATALOG_NAME></row>"),
        200, "text/xml; charset=windows-1252"};
  });
  AgentProbe agent(server.Url());
  const ImportOperation operation;
  VXStringVector catalogs;
  EXPECT_THAT(ErrorOf([&] { agent.GetCatalogs(catalogs, L"d"); }),
              HasSubstr("limit maxTotalReplyBytes"));
}

TEST(Limits, SizeOfARequest) {
  const CubeScript cube = Cube(1);
  ScriptedServer server([&](const support::Request& request) { return cube(request); });
  support::Settings settings;
  AgentProbe agent(server.Url());
  std::vector<RefCnt<XmlAMeasure>> measures;
  agent.GetMeasuresOnCatalogCube(measures, L"C", L"Q", L"D");
  const std::size_t size = server.Requests().at(0).body.size();
  settings.limits.maxRequestBytes = size;
  const auto errorOf = [&](const wchar_t* cubeName) {
    return ErrorOf([&] { agent.GetMeasuresOnCatalogCube(measures, L"C", cubeName, L"D"); });
  };
  EXPECT_EQ(errorOf(L"q"), "no error");
  for (const wchar_t* const longer : {L"qq", L"&", L"\x433"}) {
    EXPECT_THAT(errorOf(longer),
                HasSubstr("A request would be longer than " + std::to_string(size) +
                          " bytes (limit maxRequestBytes)"));
    EXPECT_TRUE(measures.empty());
    measures.resize(1);
  }
  EXPECT_EQ(errorOf(L"q"), "no error");
  EXPECT_EQ(server.Requests().size(), 3u);
  EXPECT_EQ(ImportLimits().maxRequestBytes, 4u << 20);
}

/// Skipped hierarchies, each with a warning.
CubeScript Skipped(int hierarchies, const std::string& name) {
  CubeScript cube;
  std::string rows;
  for (int i = 0; i < hierarchies; ++i)
    rows += "<row><HIERARCHY_UNIQUE_NAME>" + name + "</HIERARCHY_UNIQUE_NAME></row>";
  cube.hierarchies = rows;
  return cube;
}

TEST(Limits, WarningsBeyondTheLimitAreCounted) {
  const CubeScript cube = Skipped(20, std::string(100, 'n'));
  ScriptedServer server([&](const support::Request& request) { return cube(request); });
  support::Settings settings;
  ImportProbe import(server.Url(), ServerInfo::kTessera);
  const auto warningsOf = [&](std::size_t count, std::size_t characters) {
    settings.limits.maxWarnings = count;
    settings.limits.maxWarningCharacters = characters;
    const Texts texts = ImportHierarchies(import);
    EXPECT_EQ(texts.errors, "");
    return texts.warnings;
  };
  const std::string all = warningsOf(0, 0);
  const std::size_t each = all.size() / 20;
  const std::string rest = " more warnings (limits maxWarnings and maxWarningCharacters)\n";
  EXPECT_EQ(warningsOf(20, all.size()), all);
  EXPECT_EQ(warningsOf(5, 0), all.substr(0, 5 * each) + "and 15" + rest);
  EXPECT_EQ(warningsOf(0, 3 * each), all.substr(0, 3 * each) + "and 17" + rest);
}

TEST(Limits, LongNameInManyWarningsIsBounded) {
  // A cube name of one megabyte, sent once, in the warnings of two hundred hierarchies.
  const CubeScript cube = Skipped(200, "h");
  ScriptedServer server([&](const support::Request& request) { return cube(request); });
  ImportProbe import(server.Url(), ServerInfo::kTessera);
  import.SetImportChoiceInfo(L"S", L"C", String(std::wstring(1 << 20, L'q')));
  EXPECT_LT(ImportHierarchies(import).warnings.size(), ImportLimits().maxWarningCharacters + 1000);
}

TEST(Limits, DeadlineEndsAnOperation) {
  using Clock = std::chrono::steady_clock;
  struct Case {
    const char* name;
    std::chrono::milliseconds delay;
    int hierarchies;
  };
  const Case cases[] = {{"one slow reply", std::chrono::milliseconds(10000), 1},
                        {"many requests", std::chrono::milliseconds(20), 1000}};
  for (const Case& c : cases) {
    const CubeScript cube = Cube(c.hierarchies);
    std::atomic<bool> isOver = false;
    ScriptedServer server([&](const support::Request& request) {
      const Clock::time_point end = Clock::now() + c.delay;
      while (!isOver && Clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      return cube(request);
    });
    support::Settings settings;
    settings.limits.deadlineSeconds = 1;
    ImportProbe import(server.Url(), ServerInfo::kTessera);
    const Clock::time_point begin = Clock::now();
    const std::string errors = ImportHierarchies(import).errors;
    const auto took = Clock::now() - begin;
    isOver = true;
    EXPECT_THAT(errors, HasSubstr("longer than 1 second (limit deadlineSeconds)")) << c.name;
    EXPECT_GE(took, std::chrono::milliseconds(1000)) << c.name;
    EXPECT_LE(took, std::chrono::milliseconds(support::kIsSanitized ? 1500 : 1100)) << c.name;
  }
  EXPECT_EQ(ImportLimits().deadlineSeconds, 0u);
}

TEST(Limits, DeadlineEndsReadingOfALargeReply) {
  std::string rows;
  for (int i = 0; i < 200000; ++i)
    rows += "<row><MEASURE_NAME>" + std::to_string(i) + "</MEASURE_NAME></row>";
  ScriptedServer server({{RowsetReply(rows)}});
  support::Settings settings;
  settings.limits.deadlineSeconds = 1;
  AgentProbe agent(server.Url());
  const ImportOperation operation;
  while (!operation.IsPastDeadline()) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  agent.StartSaxParser(support::Wide(RowsetReply(rows)));
  std::vector<RefCnt<XmlAMeasure>> measures;
  EXPECT_THAT(ErrorOf([&] { agent.ReadMeasures(measures); }), HasSubstr("limit deadlineSeconds"));
}

/// Bytes allocated on the heap: the minimum within 50 ms, since the server's threads may still be
/// releasing a request.
std::size_t HeldMemory() {
  std::size_t least = std::numeric_limits<std::size_t>::max();
  for (int i = 0; i < 5; ++i) {
    const struct mallinfo2 info = mallinfo2();
    least = std::min(least, info.uordblks + info.hblkhd);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return least;
}

TEST(Limits, IdleAgentHoldsAtMostOneMebibyte) {
  if (support::kIsSanitized) GTEST_SKIP() << "a sanitizer has its own heap";
  std::string rows;
  for (int i = 0; i < 100000; ++i)
    rows += "<row><CATALOG_NAME>a name of a catalog</CATALOG_NAME></row>";
  const std::string replies[] = {
      RowsetReply(rows),
      RowsetReply(rows + "<faultstring>late</faultstring>"),
      "<root>" + rows,
      "<root>" + rows + "</root><",
      "<root><CATALOG_NAME>" + std::string(7 << 20, 'x') + "</CATALOG_NAME></root",
      std::string(7 << 20, 'x'),
  };
  support::Settings settings;
  for (const std::string& reply : replies) {
    ScriptedServer server({{reply}});
    auto agent = std::make_unique<AgentProbe>(server.Url());
    VXStringVector catalogs;
    ErrorOf([&] { agent->GetCatalogs(catalogs, L"d"); });
    catalogs = VXStringVector();
    const std::size_t idle = HeldMemory();
    agent.reset();
    EXPECT_LT(idle, HeldMemory() + (1 << 20)) << reply.substr(0, 50) << reply.size();
  }
}

TEST(Limits, IdleAgentKeepsNothingOfAPartlyReadReply) {
  if (support::kIsSanitized) GTEST_SKIP() << "a sanitizer has its own heap";
  support::Settings settings;
  settings.limits.maxRowsPerReply = 1;
  ScriptedServer server({{"<root><CATALOG_NAME>a</CATALOG_NAME><CATALOG_NAME>" +
                          std::string(7 << 20, 'x') + "</CATALOG_NAME></root>"}});
  auto agent = std::make_unique<AgentProbe>(server.Url());
  VXStringVector catalogs;
  EXPECT_THAT(ErrorOf([&] { agent->GetCatalogs(catalogs, L"d"); }), HasSubstr("maxRowsPerReply"));
  const std::size_t idle = HeldMemory();
  agent.reset();
  EXPECT_LT(idle, HeldMemory() + (1 << 20));
}

TEST(Limits, IdleAgentKeepsNothingOfALongRequest) {
  if (support::kIsSanitized) GTEST_SKIP() << "a sanitizer has its own heap";
  ScriptedServer server([](const support::Request&) { return support::Reply{RowsetReply("")}; });
  const String name(1 << 20, L'n');
  for (const bool isSent : {true, false}) {
    support::Settings settings;
    if (!isSent) settings.limits.maxRequestBytes = 3 << 19;  // room for one name, not for two
    auto agent = std::make_unique<AgentProbe>(server.Url());
    std::vector<RefCnt<XmlAMeasure>> measures;
    const std::string error =
        ErrorOf([&] { agent->GetMeasuresOnCatalogCube(measures, name, name, L"d"); });
    EXPECT_EQ(error == "no error", isSent) << error;
    const std::size_t idle = HeldMemory();
    agent.reset();
    EXPECT_LT(idle, HeldMemory() + (1 << 20)) << isSent;
  }
}

/// Runs `action` in a forked child for at most 10 s, and returns the child's wait status.
template <class Action>
int InForkedChild(Action action) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(10);
    action();
    _exit(0);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return status;
}

TEST(Limits, ForkedChildCanDeleteAnAgentDuringAParse) {
  std::string rows;
  for (int i = 0; i < 100000; ++i) rows += "<row/>";
  auto agent = std::make_unique<AgentProbe>(kNobody);
  agent->StartSaxParser(support::Wide(RowsetReply(rows)));
  // Gives the parser time to fill the queue.
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(InForkedChild([&] { agent.reset(); }), 0);
}

TEST(Limits, ForkedChildCanDeleteInheritedObjectsAndExit) {
  const CubeScript cube = Cube(2);
  ScriptedServer server([&](const support::Request& request) { return cube(request); });
  auto import = std::make_unique<ImportProbe>(server.Url(), ServerInfo::kTessera);
  ASSERT_EQ(ImportHierarchies(*import).errors, "");
  EXPECT_EQ(InForkedChild([&] { import.reset(); }), 0);
  // The parent's connection still works.
  EXPECT_EQ(ImportHierarchies(*import).errors, "");
}

}  // namespace
