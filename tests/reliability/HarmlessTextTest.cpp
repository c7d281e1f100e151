// Text from a server that would act on a terminal: on a real pseudo-terminal nothing of it arrives
// as it is, from wherever it comes; in files, pipes and JSON names stay as they came.

#include <gmock/gmock.h>

#include "NetworkSupport.h"
#include "generic/ScriptedServer.h"
#include "support/ScriptedServer.h"
#include "support/TempDir.h"
#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace network {
namespace {

using testing::HasSubstr;

struct Active {
  const char* utf8;
  const char* shown;
  bool inXml = true;  // XML can hold it
};

// Of each kind one or more: C0, delete, C1, and all that change the direction of writing.
constexpr Active kActive[] = {
    {"\x1B", "\\u001B", false},  {"\x07", "\\u0007", false},  {"\x08", "\\u0008", false},
    {"\x7F", "\\u007F"},         {"\xC2\x80", "\\u0080"},     {"\xC2\x9B", "\\u009B"},
    {"\xC2\x9D", "\\u009D"},     {"\xC2\x9F", "\\u009F"},     {"\xD8\x9C", "\\u061C"},
    {"\xE2\x80\x8E", "\\u200E"}, {"\xE2\x80\x8F", "\\u200F"}, {"\xE2\x80\xAA", "\\u202A"},
    {"\xE2\x80\xAB", "\\u202B"}, {"\xE2\x80\xAC", "\\u202C"}, {"\xE2\x80\xAD", "\\u202D"},
    {"\xE2\x80\xAE", "\\u202E"}, {"\xE2\x81\xA6", "\\u2066"}, {"\xE2\x81\xA7", "\\u2067"},
    {"\xE2\x81\xA8", "\\u2068"}, {"\xE2\x81\xA9", "\\u2069"},
};

/// All of them, those alone that XML can hold, or as they are shown.
std::string Hostile(bool inXml = true) {
  std::string text = "a";
  for (const Active& active : kActive)
    if (active.inXml || !inXml) text += active.utf8;
  return text + "z";
}
std::string Shown(bool inXml = true) {
  std::string text = "a";
  for (const Active& active : kActive)
    if (active.inXml || !inXml) text += active.shown;
  return text + "z";
}

/// Nothing active in what a terminal got, but for the carriage return that it puts before a line
/// feed, and what the tool's own progress line does.
void ExpectHarmless(std::string text) {
  for (const std::string own : {"\r\x1b[K", "\r\n"})
    for (std::size_t at; (at = text.find(own)) != std::string::npos;) text.erase(at, own.size());
  for (const Active& active : kActive)
    EXPECT_EQ(text.find(active.utf8), std::string::npos) << active.shown;
}

tool::Options OnATerminal() {
  tool::Options options;
  options.out = tool::Stream::kTerminal;
  options.err = tool::Stream::kTerminal;
  return options;
}

/// Every name and caption of the provider is hostile.
tool::ScriptedProvider::Script HostileProvider() {
  tool::ScriptedProvider::Script script = tool::OneCube();
  script.name = script.version = Hostile();
  for (auto& [type, rows] : script.rows)
    for (tool::Row& row : rows)
      for (auto& [column, value] : row)
        if (column.find("TYPE") == std::string::npos && column.find("STRUCTURE") != 0 &&
            column.find("NUMBER") == std::string::npos && column.find("NUMERIC") != 0 &&
            column != "MEASURE_AGGREGATOR")
          value = Hostile();
  script.rows["MDSCHEMA_CUBES " + Hostile()] = script.rows["MDSCHEMA_CUBES Lone"];
  return script;
}

TEST(HarmlessText, OfNamesOnATerminalAndAsTheyAreElsewhere) {
  const tool::ScriptedProvider provider(HostileProvider());
  for (const char* command : {"sources", "tree", "cube", "import"})
    for (const char* format : {"text", "json"}) {
      SCOPED_TRACE(std::string(command) + " " + format);
      const tool::Arguments call{"--url", provider.Url(), "--format", format, command};
      const tool::Outcome seen = tool::RunTool(call, OnATerminal());
      EXPECT_EQ(seen.status, 0) << seen.err;
      ExpectHarmless(seen.out);
      ExpectHarmless(seen.err);
      EXPECT_THAT(seen.out, HasSubstr(Shown()));
      const tool::Outcome piped = tool::RunTool(call);
      EXPECT_THAT(piped.out, HasSubstr(Hostile()));
      const support::TempDir folder;
      tool::Arguments toFile = call;
      toFile.insert(toFile.end(), {"-o", folder.Path() / "result"});
      tool::RunTool(toFile, OnATerminal());
      EXPECT_EQ(support::ReadFile(folder.Path() / "result"), piped.out);
      // The same document, whatever its form.
      if (std::string(format) == "json") {
        EXPECT_EQ(seen.Document(), piped.Document());
      }
    }
}

struct Source {
  const char* name;
  std::string answer;
  std::string shown;
};

TEST(HarmlessText, OfEverythingElseThatAServerSays) {
  const std::string raw = Hostile(false);
  const Source sources[] = {
      {"fault", Answer(support::FaultReply("code" + Hostile(), "text " + Hostile())), Shown()},
      {"page title",
       Answer("<html><title>" + raw + "</title></html>", "200 OK", "Content-Type: text/html\r\n"),
       Shown(false)},
      {"plain text", Answer("plain " + raw, "200 OK", "Content-Type: text/plain\r\n"),
       "plain " + Shown(false)},
      {"redirect", Answer("", "302 Found", "Location: http://elsewhere.test/" + raw + "\r\n"), ""},
      {"scheme", Answer("", "401 Unauthorized", "WWW-Authenticate: " + raw + " realm=x\r\n"), ""},
      {"charset", Answer("<r/>", "200 OK", "Content-Type: text/xml; charset=\"" + raw + "\"\r\n"),
       ""},
      {"reason", Answer("", "499 " + raw), "HTTP 499"},
      {"element name", Answer("<r><" + raw + "></r>"), "[46100] "},
      {"mismatch", Answer("<r><n" + Hostile() + "></r>"), "[46100] "},
  };
  for (const Source& source : sources) {
    SCOPED_TRACE(source.name);
    ::ScriptedServer server(source.answer);
    for (const char* detail : {"--verbose", "--quiet"}) {
      const tool::Outcome outcome = tool::RunTool(
          {"--url", "http://" + server.Authority() + "/xmla", detail, "import"}, OnATerminal());
      EXPECT_EQ(outcome.status, 1);
      EXPECT_THAT(outcome.err, HasSubstr("xmla-import: error: "));
      EXPECT_THAT(outcome.err, HasSubstr(source.shown));
      ExpectHarmless(outcome.out);
      ExpectHarmless(outcome.err);
    }
  }
  Figure("text that acts on a terminal",
         Text(std::size(kActive), " characters in names (4 commands, 2 formats) and in ",
              std::size(sources), " other places of a reply: none reached a terminal"));
}

}  // namespace
}  // namespace network
