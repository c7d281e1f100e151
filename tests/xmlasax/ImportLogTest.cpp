// Tests the import log byte for byte, except for times. The environment enables it, so every test
// runs in a child process.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <regex>

#include "AgentProbe.h"
#include "Import/OTXMLAImportEntry.h"
#include "Utility/Generic/SUSystemConfig.h"
#include "Utility/XMLASAX/OTXMLAAnaTamImportAPI.h"
#include "support/ChildProcess.h"
#include "support/Settings.h"
#include "support/TempDir.h"

namespace {

using support::FaultReply;
using support::RowsetReply;
using support::ScriptedServer;
using testing::HasSubstr;

const std::map<std::string, std::string> kLogging = {{"OT_XMLA_IMPORT_LOGGING", ""}};
const std::string kDelimiter = "\n##############################################\n";
constexpr const char* kBom = "\xEF\xBB\xBF";

/// Sends the logs of agents created during the object's life to a new directory.
class LogDir {
 public:
  LogDir() { setenv("XMLA_IMPORT_LOG_DIR", m_dir.Path().c_str(), 1); }
  ~LogDir() { unsetenv("XMLA_IMPORT_LOG_DIR"); }
  std::filesystem::path File() const {
    const auto files = m_dir.Files();
    return files.size() == 1 ? files[0] : std::filesystem::path("no single log file");
  }
  bool Empty() const { return m_dir.Files().empty(); }
  /// The log with every time replaced by TIME.
  std::string Text() const {
    static const std::regex time(
        "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}");
    return std::regex_replace(support::ReadFile(File()), time, "TIME");
  }

 private:
  support::TempDir m_dir;
};

std::string Header(const std::string& target, const std::string& url,
                   const std::string& user = "") {
  return std::string(kBom) + "TIME, XmlA Import Logging \n\tTarget Service:\t" + target +
         "\n\tURL:\t" + url + "\n\tUser:\t" + user + "\r\n";
}

std::string Entry(const std::string& title, const std::string& request,
                  const std::string& response) {
  return kDelimiter + title + "\nTIME\tTIME\tTIME\n" +
         "Requesting time in seconds: 0\tParsing time in seconds: 0\n"
         "======== Request ===========\n" +
         request + "\n++++++++ Response ++++++++++\n" + response + "\n";
}

const std::string kClosing = kDelimiter + "Import ends at TIME\n";

TEST_IN_CHILD(ImportLog, HasHeaderEntriesAndClosingEntry, kLogging) {
  const std::string reply = RowsetReply("CATALOG_NAME", {"Größe", "日"});
  ScriptedServer server({{reply}});
  LogDir log;
  {
    AgentProbe agent(server.Url(), ServerInfo::kSAP_BW35, true);
    VXStringVector catalogs;
    agent.GetCatalogs(catalogs, L"default");
  }
  EXPECT_EQ(log.Text(), Header("SAP BW 3.5", server.Url()) +
                            Entry("Get Catalogs from data source: \"default\"\n",
                                  server.Requests()[0].body, reply) +
                            kClosing);
}

TEST_IN_CHILD(ImportLog, NameHasTheTimeAndOnlyTheUserHasAccess, kLogging) {
  LogDir log;
  { AgentProbe agent(kNobody, ServerInfo::kTessera, true); }
  EXPECT_TRUE(std::regex_match(log.File().filename().string(),
                               std::regex("OT_xmla_20[0-9]{2}(_[0-9]{2}){5}\\.log")))
      << log.File();
  struct stat status {};
  ASSERT_EQ(stat(log.File().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
}

std::string NowToTheSecond() {
  VXDateTime now;
  VXDateTime::GetCurrDateTime(now);
  return support::Narrow(now.ToString(0));
}

TEST_IN_CHILD(ImportLog, NameHasTheStartTime, kLogging) {
  LogDir log;
  const std::string before = NowToTheSecond();
  { AgentProbe agent(kNobody, ServerInfo::kTessera, true); }
  std::string name = log.File().filename().string();
  ASSERT_EQ(name.size(), std::string("OT_xmla_2016_06_15_13_46_41.log").size());
  name = name.substr(8, 19);
  for (const std::size_t at : {4U, 7U}) name[at] = '-';
  name[10] = ' ';
  for (const std::size_t at : {13U, 16U}) name[at] = ':';
  EXPECT_GE(name, before);
  EXPECT_LE(name, NowToTheSecond());
}

/// The three times of the only entry.
std::vector<std::string> EntryTimes(const LogDir& log) {
  const std::string text = support::ReadFile(log.File());
  std::smatch found;
  static const std::regex line("\n([0-9][^\t\n]*)\t([^\t\n]*)\t([^\t\n]*)\nRequesting");
  if (!std::regex_search(text, found, line)) return {};
  return {found[1], found[2], found[3]};
}

double SecondsOf(const std::string& time) {
  int hours = 0;
  int minutes = 0;
  double seconds = 0;
  std::sscanf(time.c_str() + time.find(' '), "%d:%d:%lf", &hours, &minutes, &seconds);
  return hours * 3600 + minutes * 60 + seconds;
}

TEST_IN_CHILD(ImportLog, FailureSetsTheSecondAndThirdTime, kLogging) {
  // The error follows so many rows that the reply has arrived long before the error is found.
  std::string rows;
  for (int i = 0; i < 600000; ++i)
    rows += "<row><CATALOG_NAME>" + std::to_string(i) + "</CATALOG_NAME></row>";
  ScriptedServer server([&](const support::Request&) { return support::Reply{rows + "<open>"}; });
  LogDir log;
  {
    AgentProbe agent(server.Url(), ServerInfo::kSAP_BW35, true);
    VXStringVector catalogs;
    EXPECT_EQ(ErrorNumberOf([&] { agent.GetCatalogs(catalogs, L"d"); }), 46100);
  }
  const auto times = EntryTimes(log);
  ASSERT_EQ(times.size(), 3u);
  const double whole = SecondsOf(times[2]) - SecondsOf(times[0]);
  EXPECT_GT(whole, 0);
  EXPECT_LE((SecondsOf(times[2]) - SecondsOf(times[1])) * 10, whole)
      << times[0] << times[1] << times[2];
}

TEST_IN_CHILD(ImportLog, ThirdTimeIsAfterReading, kLogging) {
  std::string rows;
  for (int i = 0; i < 300000; ++i)
    rows += "<row><CATALOG_NAME>" + std::to_string(i) + "</CATALOG_NAME></row>";
  ScriptedServer server({{RowsetReply(rows)}});
  LogDir log;
  {
    AgentProbe agent(server.Url(), ServerInfo::kSAP_BW35, true);
    VXStringVector catalogs;
    agent.GetCatalogs(catalogs, L"d");
    EXPECT_EQ(catalogs.size(), 300000u);
  }
  const auto times = EntryTimes(log);
  ASSERT_EQ(times.size(), 3u);
  EXPECT_GT(times[2], times[1]);
}

TEST_IN_CHILD(ImportLog, TimesOfAnEntryAreInOrder, kLogging) {
  for (const bool fails : {false, true}) {
    ScriptedServer server({{RowsetReply("")}});
    LogDir log;
    const std::string before = NowToTheSecond();
    {
      AgentProbe agent(fails ? kNobody : server.Url(), ServerInfo::kTessera, true);
      VXStringVector catalogs;
      EXPECT_EQ(ErrorNumberOf([&] { agent.GetCatalogs(catalogs, L"d"); }), fails ? 0 : -1);
    }
    const std::vector<std::string> times = EntryTimes(log);
    ASSERT_EQ(times.size(), 3u);
    EXPECT_GE(times[0], before);
    EXPECT_GE(times[1], times[0]);
    EXPECT_GE(times[2], times[1]);
    EXPECT_LE(times[2].substr(0, 19), NowToTheSecond());
  }
}

TEST_IN_CHILD(ImportLog, WithoutTheArgumentThereIsNone, kLogging) {
  ScriptedServer server({{RowsetReply("")}});
  LogDir log;
  {
    AgentProbe agent(server.Url(), ServerInfo::kTessera, false);
    VXStringVector catalogs;
    agent.GetCatalogs(catalogs, L"d");
  }
  EXPECT_TRUE(log.Empty());
}

TEST(ImportLog, WithoutTheVariableThereIsNone) {
  LogDir log;
  { AgentProbe agent(kNobody, ServerInfo::kTessera, true); }
  EXPECT_TRUE(log.Empty());
}

TEST_IN_CHILD(ImportLog, ForcedTamarindKindIsInTheHeader,
              {{"OT_XMLA_IMPORT_LOGGING", "0"}, {"OT_XMLA_IMPORT_TAMARIND", ""}}) {
  LogDir log;
  { AgentProbe agent(kNobody, ServerInfo::kAnalysisServices2005, true); }
  EXPECT_EQ(log.Text(), Header("Tamarind 7", kNobody) + kClosing);
}

TEST_IN_CHILD(ImportLog, DoesNotContainThePassword, kLogging) {
  ScriptedServer server([](const support::Request&) { return support::Reply{RowsetReply("")}; });
  LogDir log;
  std::string url = server.Url();
  url.insert(url.find("127"), "urluser:c4naryInUrl@");
  {
    XmlADiscoverAgentImpl agent(support::Wide(url), L"someone", L"c4nary",
                                ServerInfo::kAnalysisServices2005, ServerInfo::kCLIXMLA, true);
    std::pair<String, String> info;
    agent.GetProviderInfomation(info);
    VXStringVector names;
    agent.GetDataSourceInfo(names);
  }
  EXPECT_THAT(log.Text(), HasSubstr("\tURL:\t" + server.Url()));
  EXPECT_THAT(log.Text(), HasSubstr("\tUser:\tsomeone\r\n"));
  EXPECT_THAT(log.Text(), testing::Not(HasSubstr("c4nary")));
}

TEST_IN_CHILD(ImportLog, TooLongHeaderIsTruncated, kLogging) {
  for (const std::size_t length : {std::size_t{100}, std::size_t{1000}}) {
    LogDir log;
    const std::string url = std::string(kNobody) + "/" + std::string(length, 'x');
    { AgentProbe agent(url, ServerInfo::kTessera, true); }
    // In the file, the time takes 23 characters and the byte-order mark three bytes.
    const std::string header = Header("Tessera", url).substr(3);
    const std::size_t room = 255 - 23 + 4;
    EXPECT_EQ(log.Text(),
              kBom + (header.size() <= room ? header : header.substr(0, room)) + kClosing);
  }
}

TEST_IN_CHILD(ImportLog, TooLongTitleIsTruncated, kLogging) {
  const std::string reply = RowsetReply("");
  ScriptedServer server({{reply}});
  LogDir log;
  const std::string name(5000, 'x');
  {
    AgentProbe agent(server.Url(), ServerInfo::kTessera, true);
    VXStringVector catalogs;
    agent.GetCatalogs(catalogs, support::Wide(name));
  }
  const std::string title = "Get Catalogs from data source: \"" + name;
  EXPECT_EQ(log.Text(), Header("Tessera", server.Url()) +
                            Entry(title.substr(0, 4095), server.Requests()[0].body, reply) +
                            kClosing);
}

TEST_IN_CHILD(ImportLog, ErrorTitlesOfNameAndVersionDifferInABlank, kLogging) {
  const std::string fault = FaultReply("c", "no such property");
  ScriptedServer server([&](const support::Request&) { return support::Reply{fault}; });
  LogDir log;
  std::string error;
  {
    AgentProbe agent(server.Url(), ServerInfo::kTessera, true);
    String text;
    error = ErrorOf([&] { agent.GetProviderName(text); });
    EXPECT_EQ(ErrorOf([&] { agent.GetProviderVersion(text); }), error);
  }
  EXPECT_THAT(error, HasSubstr("no such property"));
  const auto requests = server.Requests();
  EXPECT_EQ(
      log.Text(),
      Header("Tessera", server.Url()) +
          Entry("Get Provider Name: \"" + server.Url() + "\", errorMessage: \"" + error + "\" \n",
                requests[0].body, fault) +
          Entry("Get Provider Version: \"" + server.Url() + "\", errorMessage: \"" + error + "\"\n",
                requests[1].body, fault) +
          kClosing);
}

TEST_IN_CHILD(ImportLog, FailedSendHasAnEmptyResponse, kLogging) {
  LogDir log;
  std::string error;
  {
    AgentProbe agent(kNobody, ServerInfo::kTessera, true);
    VXStringVector names;
    error = ErrorOf([&] { agent.GetDataSourceInfo(names); });
  }
  const std::string text = log.Text();
  EXPECT_THAT(text, HasSubstr("Get data sources from URL: \"" + std::string(kNobody) +
                              "\", errorMessage: \"" + error + "\"\n\nTIME"));
  EXPECT_THAT(text, HasSubstr("\n++++++++ Response ++++++++++\n\n" + kClosing));
}

TEST_IN_CHILD(ImportLog, TruncatesToWholeSeconds, kLogging) {
  LogDir log;
  {
    AgentProbe agent(kNobody, ServerInfo::kTessera, true);
    const auto at = [](int second, int microsecond) {
      return VXDateTime::FromFields(2016, 6, 15, 13, 46, second, microsecond);
    };
    agent.LogContent(L"T", "q", "r", at(1, 0), at(3, 999999), at(4, 0));
    agent.LogContent(L"back", "q", "r", at(5, 0), at(3, 0), at(9, 0));
  }
  const std::string text = support::ReadFile(log.File());
  EXPECT_THAT(text, HasSubstr(kDelimiter +
                              "T\n2016-06-15 13:46:01.000\t2016-06-15 13:46:03.999\t2016-06-15 "
                              "13:46:04.000\nRequesting time in seconds: 2\tParsing time in "
                              "seconds: 0\n======== Request ===========\nq\n++++++++ Response "
                              "++++++++++\nr\n"));
  EXPECT_THAT(text, HasSubstr("back\n"));
  EXPECT_THAT(text, HasSubstr("Requesting time in seconds: 0\tParsing time in seconds: 6\n"));
}

/// Characters of one to four bytes, so that blocks of any size end inside a character somewhere.
std::string LargeText(std::size_t bytes) {
  const std::string characters = "a\xD0\xB3\xE2\x82\xAC\xF0\x9D\x84\x9E.";
  std::string text;
  while (text.size() < bytes) text += characters;
  return text;
}

TEST_IN_CHILD(ImportLog, LargeReplyIsLoggedUnchanged, kLogging) {
  // Ill-formed UTF-8 appears in the log as the reader decodes it.
  for (const std::string& odd : {std::string(), std::string(9, '\x80') + "\xE2\x82"}) {
    std::string rows;
    for (std::size_t i = 0; i < 9; ++i)
      rows += "<row><CATALOG_NAME>" + LargeText(80000 + 7919 * i) + odd + "</CATALOG_NAME></row>";
    const std::string reply = RowsetReply(rows);
    ScriptedServer server({{reply}});
    LogDir log;
    {
      AgentProbe agent(server.Url(), ServerInfo::kTessera, true);
      VXStringVector catalogs;
      agent.GetCatalogs(catalogs, L"d");
      EXPECT_EQ(catalogs.size(), 9u);
    }
    const std::string whole = support::Narrow(support::Wide(reply));
    const std::string text = support::ReadFile(log.File());
    EXPECT_NE(text.find(whole.substr(whole.find('\n')) + "\n" + kDelimiter), std::string::npos);
  }
}

TEST_IN_CHILD(ImportLog, EntryHasTheReplyUpToItsLimit, kLogging) {
  struct Case {
    const char* name;
    std::uint64_t limit;
    std::string reply;
    std::string logged;
  };
  const std::string mark = " more bytes of the response are not logged: limit maxLoggedReplyBytes)";
  const Case cases[] = {
      {"shorter", 10, "123456789", "123456789"},
      {"as long", 9, "123456789", "123456789"},
      {"longer", 8, "123456789", "12345678\n(1" + mark},
      {"inside a character", 8, "1234567\xE6\x97\xA5!", "1234567\n(4" + mark},
      {"no UTF-8 at all", 8, std::string(9, '\x80'),
       "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\n(4" + mark},
      {"no limit", 0, std::string(1 << 20, 'x'), std::string(1 << 20, 'x')},
  };
  for (const Case& c : cases) {
    LogDir log;
    support::Settings settings;
    settings.limits.maxLoggedReplyBytes = c.limit;
    {
      AgentProbe agent(kNobody, ServerInfo::kTessera, true);
      const VXDateTime now;
      agent.LogContent(L"T", "q", NarrowString(c.reply), now, now, now);
    }
    EXPECT_THAT(support::ReadFile(log.File()),
                HasSubstr("\n++++++++ Response ++++++++++\n" + c.logged + "\n" + kDelimiter))
        << c.name;
  }
  EXPECT_EQ(ImportLimits().maxLoggedReplyBytes, 16u << 20);
}

TEST_IN_CHILD(ImportLog, EndsAtItsLimitAndTheImportContinues, kLogging) {
  const std::string reply = RowsetReply("CATALOG_NAME", {"c"});
  ScriptedServer server([&](const support::Request&) { return support::Reply{reply}; });
  struct Outcome {
    std::string log;
    std::string told;
  };
  /// Three exchanges with a log of at most `limit` bytes.
  const auto run = [&](std::uint64_t limit) {
    LogDir log;
    Outcome outcome;
    support::Settings settings;
    settings.limits.maxLogBytes = limit;
    settings.onLogFailure = [&](const String& name, const String& reason) {
      outcome.told += support::Narrow(name) + ": " + support::Narrow(reason) + "\n";
    };
    {
      AgentProbe agent(server.Url(), ServerInfo::kSAP_BW35, true);
      for (int i = 0; i < 3; ++i) {
        VXStringVector catalogs;
        EXPECT_EQ(ErrorOf([&] { agent.GetCatalogs(catalogs, L"d"); }), "no error");
        EXPECT_EQ(catalogs.size(), 1u);
      }
    }
    outcome.log = support::ReadFile(log.File());
    const std::size_t name = outcome.told.find(log.File().string());
    if (name == 0) outcome.told.replace(0, log.File().string().size(), "FILE");
    return outcome;
  };
  const Outcome whole = run(0);
  EXPECT_EQ(whole.told, "");
  const Outcome fits = run(whole.log.size());
  EXPECT_EQ(fits.log.size(), whole.log.size());
  EXPECT_EQ(fits.told, "");

  const std::size_t third = whole.log.rfind(kDelimiter, whole.log.rfind(kDelimiter) - 1);
  const struct {
    const char* name;
    std::uint64_t limit;
    std::size_t kept;
  } cases[] = {{"no room for the closing entry", whole.log.size() - 1, whole.log.rfind(kDelimiter)},
               {"no room for the third entry", third + 10, third},
               {"no room for the heading", 3, 3}};
  for (const auto& c : cases) {
    const std::string reason =
        "it would be longer than " + std::to_string(c.limit) + " bytes (limit maxLogBytes)";
    const std::string last =
        kDelimiter + "The import log ends here: " + reason + "; the import goes on\n";
    const Outcome cut = run(c.limit);
    EXPECT_EQ(cut.log.size(), c.kept + last.size()) << c.name;
    EXPECT_TRUE(cut.log.ends_with(last)) << c.name << ": " << cut.log;
    EXPECT_EQ(cut.told, "FILE: " + reason + "\n") << c.name;
  }
  EXPECT_EQ(ImportLimits().maxLogBytes, 1u << 30);
}

TEST_IN_CHILD(ImportLog, ControlCharactersInNamesAreReplaced, kLogging) {
  constexpr wchar_t kControls[] = {0x01, L'\t', L'\n', 0x0B, L'\r', 0x1B,   0x1F,
                                   0x7F, 0x80,  0x85,  0x9B, 0x9F,  0x2028, 0x2029};
  ScriptedServer server([](const support::Request&) { return support::Reply{RowsetReply("")}; });
  LogDir log;
  {
    AgentProbe agent(server.Url(), ServerInfo::kTessera, true);
    VXStringVector catalogs;
    for (const wchar_t control : kControls)
      agent.GetCatalogs(catalogs, L"a" + String(1, control) + L"b");
    agent.GetCatalogs(catalogs, L"~\u00A0\u202A");
  }
  const std::string text = support::ReadFile(log.File());
  const std::string title = "\nGet Catalogs from data source: \"a b\"\n\n";
  std::size_t titles = 0;
  for (std::size_t at = 0; (at = text.find(title, at)) != std::string::npos; ++at) ++titles;
  EXPECT_EQ(titles, std::size(kControls));
  EXPECT_THAT(text, HasSubstr("\"~\u00A0\u202A\"\n"));
}

TEST_IN_CHILD(ImportLog, UnwritableDirectoryIsAnErrorWithItsName, kLogging) {
  const support::LogInto log("/proc/no-such-directory");
  OTXMLAAnaTamImportAPI import;
  EXPECT_THAT(ErrorOf([&] {
                import.SetupConnInfo(support::Wide(kNobody), L"", L"", ServerInfo::kTessera,
                                     ServerInfo::kCLIXMLA);
              }),
              HasSubstr("/proc/no-such-directory"));
}

TEST_IN_CHILD(ImportLog, SecondAgentInTheSameSecondTruncatesTheFile, kLogging) {
  ScriptedServer server([](const support::Request&) { return support::Reply{RowsetReply("")}; });
  for (;;) {
    support::TempDir dir;
    const support::LogInto log(dir.Path());
    auto first = std::make_unique<AgentProbe>(server.Url(), ServerInfo::kTessera, true);
    VXStringVector names;
    first->GetCatalogs(names, L"of the first");
    auto second = std::make_unique<AgentProbe>(server.Url(), ServerInfo::kSAP_BW, true);
    if (dir.Files().size() != 1) continue;  // the second has rolled over
    const std::string emptied = support::ReadFile(dir.Files()[0]);
    EXPECT_THAT(emptied, HasSubstr("\tTarget Service:\tSAP BW\n"));
    EXPECT_THAT(emptied, testing::Not(HasSubstr("of the first")));
    first.reset();
    second.reset();
    const std::string text = support::ReadFile(dir.Files()[0]);
    EXPECT_EQ(text.find('\0'), std::string::npos);
    const std::size_t closing = text.find("Import ends at ");
    EXPECT_NE(text.find("Import ends at ", closing + 1), std::string::npos);
    break;
  }
}

TEST_IN_CHILD(ImportLog, IsWrittenDuringTheImport, kLogging) {
  ScriptedServer server({{RowsetReply("")}});
  LogDir log;
  AgentProbe agent(server.Url(), ServerInfo::kTessera, true);
  EXPECT_EQ(log.Text(), Header("Tessera", server.Url()));
  VXStringVector catalogs;
  agent.GetCatalogs(catalogs, L"d");
  EXPECT_THAT(log.Text(), HasSubstr("Get Catalogs from data source: \"d\"\n"));
}

TEST_IN_CHILD(ImportLog, ImportObjectsWriteItAndIdentificationDoesNot, kLogging) {
  {
    LogDir none;
    OTXMLAProviderIdentity identity;
    String errors;
    EXPECT_FALSE(OTXMLAIdentifyProvider(support::Wide(kNobody), L"", L"", ServerInfo::kCLIXMLA,
                                        identity, errors));
    EXPECT_TRUE(none.Empty());
  }
  LogDir log;
  {
    OTXMLAAnaTamImportAPI import;
    import.SetupConnInfo(support::Wide(kNobody), L"", L"", ServerInfo::kTessera,
                         ServerInfo::kCLIXMLA);
  }
  EXPECT_EQ(log.Text(), Header("Tessera", kNobody) + kClosing);
}

}  // namespace
