// Limits on the memory that a server can make an import use per byte sent: in every charset, with
// ill-formed bytes, the smallest rows, compression and an import log, at the default limits.

#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <fstream>
#include <functional>
#include <span>
#include <sstream>
#include <utility>

#include "Gzip.h"
#include "NetworkSupport.h"
#include "Utility/XMLASAX/OTXMLAAnaTamImportAPI.h"
#include "support/Effort.h"
#include "support/Settings.h"
#include "support/TempDir.h"
#include "support/WireServer.h"

namespace reliability {
namespace {
namespace memory {

using support::Wide;

const char* const kCharsets[] = {
    "utf-8",        "us-ascii",     "iso-8859-1",   "iso-8859-2",   "iso-8859-3",   "iso-8859-4",
    "iso-8859-5",   "iso-8859-6",   "iso-8859-7",   "iso-8859-8",   "iso-8859-9",   "iso-8859-10",
    "iso-8859-11",  "iso-8859-13",  "iso-8859-14",  "iso-8859-15",  "iso-8859-16",  "windows-874",
    "windows-1250", "windows-1251", "windows-1252", "windows-1253", "windows-1254", "windows-1255",
    "windows-1256", "windows-1257", "windows-1258", "koi8-r",       "koi8-u",       "ibm866",
    "macintosh",    "shift_jis",    "windows-31j",  "euc-jp",       "gb2312",       "gbk",
    "gb18030",      "big5",         "big5-hkscs",   "euc-kr",       "windows-949"};

struct Reply {
  std::string name;
  std::string contentType;
  std::string body;
  std::string headers;
  void (*run)(OTXMLAImportAPI& import);
};

void Measures(OTXMLAImportAPI& import) {
  std::vector<OTXMLAUnit> units;
  String errors;
  String warnings;
  import.GetMeasuresAndCalcMembers(units, errors, warnings);
}
void Hierarchies(OTXMLAImportAPI& import) {
  std::vector<OTXMLAHierarchy> hierarchies;
  String errors;
  String warnings;
  import.GetHierarchies(hierarchies, errors, warnings);
}
void Sources(OTXMLAImportAPI& import) {
  VXStringVector names;
  String errors;
  String warnings;
  import.GetDataSourceNames(names, errors, warnings);
}
void Variables(OTXMLAImportAPI& import) {
  OTCube cube;
  String errors;
  String warnings;
  try {
    import.GetSAPVariables(cube, errors, warnings);
  } catch (const ErrorMessage&) {
    // Some replies are refused.
  }
}

std::string Repeated(const std::string& piece, std::size_t bytes) {
  std::string text;
  text.reserve(bytes + piece.size());
  while (text.size() < bytes) text += piece;
  return text;
}

std::string Rows(const std::string& name, std::size_t bytes) {
  return "<root>" + Repeated("<row><MEASURE_NAME>" + name + "</MEASURE_NAME></row>", bytes) +
         "</root>";
}

std::size_t Kibibytes(const char* field) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.starts_with(field)) return std::stoul(line.substr(line.find_first_of("0123456789")));
  return 0;
}

/// Peak memory of `run` in KiB, in a child process. `run` is called once before with small replies,
/// so that one-time memory of the libraries is not counted.
std::size_t Peak(const support::Settings& settings, const WireServer::Handler& handler,
                 const std::function<void(OTXMLAImportAPI&)>& run) {
  const std::string small = Answer("<root><row/></root>");
  WireServer server([&](loopback::Connection& connection, const loopback::Request& request) {
    if (request.head.find("/warm") != std::string::npos)
      connection.Send(small);
    else
      handler(connection, request);
  });
  int ends[2];
  if (pipe(ends) != 0) return 0;
  const pid_t child = fork();
  if (child == 0) {
    const ImportSettings::Scope scope(settings);
    OTXMLAAnaTamImportAPI import;
    const auto connect = [&](const char* path) {
      import.SetupConnInfo(Wide("http://" + server.Authority() + path), L"", L"",
                           ServerInfo::kAnalysisServices2005, ServerInfo::kCLIXMLA);
      import.SetImportChoiceInfo(L"S", L"C", L"Q");
    };
    connect("/warm");
    run(import);
    connect("/");
    malloc_trim(0);  // free memory that earlier tests left would hide what this takes
    std::ofstream("/proc/self/clear_refs") << "5";
    const std::size_t before = Kibibytes("VmRSS");
    run(import);
    const std::size_t taken = Kibibytes("VmHWM") - before;
    [[maybe_unused]] const ssize_t written = write(ends[1], &taken, sizeof taken);
    _exit(0);
  }
  close(ends[1]);
  std::size_t taken = 0;
  if (read(ends[0], &taken, sizeof taken) != sizeof taken) taken = 0;
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  return taken;
}

std::size_t Peak(const Reply& reply, const std::string& logs) {
  SCOPED_TRACE(reply.name);
  support::Settings settings;
  if (!logs.empty()) settings.logDirectory = Wide(logs);
  const std::string answer =
      Answer(reply.body, "200 OK", "Content-Type: " + reply.contentType + "\r\n" + reply.headers);
  return Peak(
      settings,
      [&](loopback::Connection& connection, const loopback::Request&) { connection.Send(answer); },
      reply.run);
}

std::vector<Reply> Replies(std::size_t bytes) {
  std::string all;
  for (int byte = 0x80; byte < 0x100; ++byte) all += static_cast<char>(byte);
  std::vector<Reply> replies;
  for (const std::string charset : kCharsets) {
    const std::string type = "text/xml; charset=" + charset;
    replies.push_back({charset, type, Rows(Repeated(all, 4096), bytes), "", &Measures});
    replies.push_back(
        {charset + ", bytes 0xFF", type, Rows(std::string(4096, '\xFF'), bytes), "", &Measures});
  }
  const auto utf16 = [](std::string text) {
    std::string wide = "\xFF\xFE";
    for (const char character : text)
      wide += character == '\xFF' ? std::string("\0\xD8", 2) : std::string{character, '\0'};
    return wide;
  };
  const std::string plain = "text/xml";
  const std::string names = Rows("name", bytes);
  const auto empty = [&](const char* piece) {
    return "<root>" + Repeated(piece, bytes) + "</root>";
  };
  replies.insert(
      replies.end(),
      {{"UTF-16", plain, utf16(Rows("name", bytes / 2)), "", &Measures},
       {"UTF-16, lone surrogates", plain, utf16(Rows(std::string(4096, '\xFF'), bytes / 2)), "",
        &Measures},
       {"short names", plain, names, "", &Measures},
       {"long names", plain, Rows(std::string(100000, 'x'), bytes), "", &Measures},
       {"descriptions of rows", plain,
        "<root>" +
            Repeated("<row><DESCRIPTION>" + std::string(100000, 'x') + "</DESCRIPTION></row>",
                     bytes) +
            "</root>",
        "", &Measures},
       {"references", plain, Rows(Repeated("&#9;", 4096), bytes), "", &Measures},
       {"empty measures", plain, empty("<row/>"), "", &Measures},
       {"empty variables", plain, empty("<row/>"), "", &Variables},
       {"empty hierarchies", plain, empty("<row/>"), "", &Hierarchies},
       {"empty data sources", plain, empty("<DataSourceName/>"), "", &Sources},
       {"unknown elements", plain, empty("<a/>"), "", &Measures},
       {"a fault", plain,
        "<Envelope><Fault><faultcode>c</faultcode><faultstring>" + std::string(bytes, 'x') +
            "</faultstring></Fault></Envelope>",
        "", &Measures}});
  return replies;
}

TEST(MemoryPerByte, OfAReplyIsLimited) {
  if (support::kIsSanitized) GTEST_SKIP() << "a sanitizer uses additional memory";
  const std::size_t bytes = support::Effort<std::size_t>(1, 8) << 20;
  const support::TempDir logs;
  std::size_t count = 0;
  double most = 0;
  std::string mostName;
  const std::vector<Reply> replies = Replies(bytes);
  for (std::size_t i = 0; i < replies.size(); ++i) {
    const Reply& reply = replies[i];
    for (const std::string& log : {std::string(), logs.Path().string()}) {
      // Most charsets behave alike, so the quick form logs only some of them.
      const bool isSome = support::IsLong() || i % 8 == 1 || i >= 2 * std::size(kCharsets);
      if (!log.empty() && !isSome) continue;
      const double factor =
          static_cast<double>(Peak(reply, log)) * 1024 / static_cast<double>(reply.body.size());
      if (std::getenv("XMLA_SHOW_FACTORS"))
        std::printf("%6.1f %s%s\n", factor, reply.name.c_str(), log.empty() ? "" : ", with a log");
      EXPECT_GT(factor, 0) << reply.name;
      EXPECT_LT(factor, 100) << reply.name << (log.empty() ? "" : ", with a log");
      if (factor > most) {
        most = factor;
        mostName = reply.name + (log.empty() ? "" : ", with a log");
      }
      ++count;
    }
  }
  network::Figure("memory per byte of a plain reply",
                  network::Text(count, " replies, at most ", static_cast<int>(most), " bytes (",
                                mostName, ")"));
}

TEST(MemoryPerByte, OfACompressedReplyIsLimited) {
  if (support::kIsSanitized) GTEST_SKIP() << "a sanitizer uses additional memory";
  const std::size_t bytes = support::Effort<std::size_t>(16, 250) << 20;
  const support::TempDir logs;
  const Reply replies[] = {
      {"long names", "text/xml", Rows(std::string(100000, 'x'), bytes), "", &Measures},
      {"ill-formed bytes", "text/xml", Rows(std::string(100000, '\xFF'), bytes), "", &Measures},
      {"ISO-8859-15", "text/xml; charset=iso-8859-15", Rows(std::string(100000, '\xA4'), bytes), "",
       &Measures},
      {"blanks", "text/xml", "<root>" + std::string(bytes, ' ') + "</root>", "", &Measures},
  };
  double most = 0;
  std::size_t mostMebibytes = 0;
  for (Reply reply : replies) {
    reply.body = sample::Gzip(reply.body);
    reply.headers = "Content-Encoding: gzip\r\n";
    for (const std::string& log : {std::string(), logs.Path().string()}) {
      const std::size_t kibibytes = Peak(reply, log);
      const double factor =
          static_cast<double>(kibibytes) * 1024 / static_cast<double>(reply.body.size());
      if (std::getenv("XMLA_SHOW_FACTORS"))
        std::printf("%6.1f (%zu MiB) %s%s\n", factor, kibibytes >> 10, reply.name.c_str(),
                    log.empty() ? "" : ", with a log");
      most = std::max(most, factor);
      mostMebibytes = std::max(mostMebibytes, kibibytes >> 10);
      // The limit on the converted text applies to every charset.
      EXPECT_LT(kibibytes >> 10, 24 * (bytes >> 20)) << reply.name;
    }
  }
  network::Figure(
      "memory per byte of a compressed reply",
      network::Text(2 * std::size(replies), " replies of ", bytes >> 20, " MiB, at most ",
                    static_cast<long>(most), " bytes and ", mostMebibytes, " MiB in all"));
}

/// A request type and the row of its reply: # stands for the row's number, % for a unique name.
struct Rowset {
  const char* requestType;
  const char* row;
};
const Rowset kTree[] = {
    {"DISCOVER_DATASOURCES", "<row><DataSourceName>#</DataSourceName></row>"},
    {"DBSCHEMA_CATALOGS", "<row><CATALOG_NAME>#</CATALOG_NAME></row>"},
    {"MDSCHEMA_CUBES", "<row><CUBE_NAME>%</CUBE_NAME><CUBE_CAPTION>%</CUBE_CAPTION></row>"},
};
const Rowset kHierarchies[] = {
    {"MDSCHEMA_HIERARCHIES",
     "<row><HIERARCHY_UNIQUE_NAME>#</HIERARCHY_UNIQUE_NAME><STRUCTURE>0</STRUCTURE></row>"},
    {"MDSCHEMA_LEVELS",
     "<row><LEVEL_UNIQUE_NAME>#</LEVEL_UNIQUE_NAME><LEVEL_NUMBER>#</LEVEL_NUMBER></row>"},
    {"MDSCHEMA_PROPERTIES",
     "<row><PROPERTY_NAME>%</PROPERTY_NAME>"
     "<PROPERTY_CAPTION>%</PROPERTY_CAPTION></row>"},
};

/// A server whose rows each cause another request, in an import that reaches a limit.
struct Spreading {
  const char* name;
  std::span<const Rowset, 3> rowsets;
  std::array<std::size_t, 3> rows;  // in each reply of these rowsets
  std::size_t nameLength;
  const char* limit;
};

// Stands for maxRequests: each row causes at least one request.
constexpr std::size_t kEndless = SIZE_MAX;

const Spreading kSpreadings[] = {
    {"catalogs of one cube", kTree, {1, kEndless, 1}, 1, "maxRequests"},
    {"data sources of one cube", kTree, {kEndless, 1, 1}, 1, "maxRequests"},
    {"cubes", kTree, {1, kEndless, 100}, 1, "maxRows"},
    {"long names of cubes", kTree, {1, kEndless, 20}, 4096, "maxTotalReplyBytes"},
    {"hierarchies of one level", kHierarchies, {kEndless, 1, 0}, 1, "maxRequests"},
    {"levels", kHierarchies, {kEndless, 100, 0}, 1, "maxRequests"},
    {"properties", kHierarchies, {kEndless, 10, 100}, 1, "maxRows"},
    {"long names of properties", kHierarchies, {kEndless, 10, 20}, 4096, "maxTotalReplyBytes"},
};

std::string RowsOf(const Rowset& rowset, std::size_t count, const std::string& name) {
  std::string rows = "<root>";
  for (std::size_t i = 0; i < count; ++i)
    for (const char* at = rowset.row; *at != 0; ++at)
      rows += *at == '#'   ? std::to_string(i)
              : *at == '%' ? name + std::to_string(i)
                           : std::string(1, *at);
  return rows + "</root>";
}

TEST(MemoryPerByte, OfManySmallRepliesIsLimited) {
  if (support::kIsSanitized) GTEST_SKIP() << "a sanitizer uses additional memory";
  // Limits that are a fraction of the defaults; memory is proportional.
  const std::uint64_t part = support::Effort<std::uint64_t>(200, 20);
  support::Settings settings;
  settings.limits.maxRows /= part;
  settings.limits.maxRequests /= part;
  settings.limits.maxTotalReplyBytes /= part;
  double mostPerRow = 0;
  double mostPerByte = 0;
  std::size_t mostMebibytes = 0;
  std::string mostName;
  for (const Spreading& spreading : kSpreadings) {
    std::array<std::size_t, 3> counts = spreading.rows;
    std::string answers[3];
    for (std::size_t i = 0; i < 3; ++i) {
      if (counts[i] == kEndless) counts[i] = settings.limits.maxRequests;
      answers[i] =
          Answer(RowsOf(spreading.rowsets[i], counts[i], std::string(spreading.nameLength, 'n')));
    }
    const std::string nothing = Answer("<root/>");
    std::atomic<std::size_t> rows = 0;
    std::atomic<std::size_t> bytes = 0;
    const auto handler = [&](loopback::Connection& connection, const loopback::Request& request) {
      const std::string* answer = &nothing;
      for (std::size_t i = 0; i < 3; ++i) {
        if (request.body.find(spreading.rowsets[i].requestType) == std::string::npos) continue;
        answer = &answers[i];
        rows += counts[i];
      }
      bytes += answer->size();
      connection.Send(*answer);
    };
    bool isWarm = false;
    const std::size_t kibibytes = Peak(settings, handler, [&](OTXMLAImportAPI& import) {
      String errors;
      String warnings;
      std::vector<OTDataSource> sources;
      std::vector<OTXMLAHierarchy> hierarchies;
      if (spreading.rowsets.data() == kTree)
        import.GetDataSourceInfo(sources, errors, warnings);
      else
        import.GetHierarchies(hierarchies, errors, warnings);
      if (!std::exchange(isWarm, true)) return;
      if (support::Narrow(errors).find(spreading.limit) == std::string::npos) std::abort();
    });
    const double perRow = static_cast<double>(kibibytes) * 1024 / static_cast<double>(rows);
    const double perByte = static_cast<double>(kibibytes) * 1024 / static_cast<double>(bytes);
    const std::size_t mebibytes = (kibibytes * part) >> 10;
    if (std::getenv("XMLA_SHOW_FACTORS"))
      std::printf("%s: %zu rows, %zu bytes, %.0f bytes per row, %.1f per byte, %zu MiB in all\n",
                  spreading.name, rows.load(), bytes.load(), perRow, perByte, mebibytes);
    EXPECT_GT(kibibytes, 0u) << spreading.name;
    // Text takes four bytes per character. A row takes 300 bytes plus its texts.
    EXPECT_LT(kibibytes << 10, 5 * bytes + 300 * rows + (1 << 20)) << spreading.name;
    mostPerByte = std::max(mostPerByte, perByte);
    if (spreading.nameLength == 1) mostPerRow = std::max(mostPerRow, perRow);
    if (mebibytes > mostMebibytes) mostName = spreading.name;
    mostMebibytes = std::max(mostMebibytes, mebibytes);
  }
  network::Figure("memory for many small replies",
                  network::Text(std::size(kSpreadings), " ways, at most ",
                                static_cast<int>(mostPerRow), " bytes for a row with short names, ",
                                static_cast<int>(mostPerByte), " for each byte, and ",
                                mostMebibytes, " MiB at the default limits (", mostName, ")"));
}

}  // namespace memory
}  // namespace
}  // namespace reliability
