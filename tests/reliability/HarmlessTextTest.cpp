// Text from a server that would act on a terminal: on a real pseudo-terminal nothing of it arrives
// as it is, from wherever it comes; in files, pipes and JSON names stay as they came.

#include <gmock/gmock.h>

#include <algorithm>

#include "NetworkSupport.h"
#include "support/ScriptedServer.h"
#include "support/TempDir.h"
#include "support/WireServer.h"
#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace network {
namespace {

using testing::HasSubstr;

/// What a message makes of a character that would break its line.
constexpr char kBlank[] = " ";

struct Active {
  const char* utf8;
  const char* shown;                // on a terminal
  const char* inXml = nullptr;      // nothing: XML cannot hold it
  const char* inJson = nullptr;     // nothing: as it is
  const char* inMessage = nullptr;  // nothing: as it is
};

constexpr Active Control(const char* utf8, const char* shown, const char* inJson) {
  return {utf8, shown, nullptr, inJson, nullptr};
}
constexpr Active Break(const char* utf8, const char* shown, const char* inXml, const char* inJson) {
  return {utf8, shown, inXml, inJson, kBlank};
}
constexpr Active Other(const char* utf8, const char* shown) { return {utf8, shown, utf8}; }

// Of each kind one or more: C0, what breaks a line, delete, C1, all that change the direction of
// writing, and the byte-order mark. White space stands apart: in a row, some messages show one
// blank.
constexpr Active kActive[] = {
    Control("\x1B", "\\u001B", "\\u001b"),
    Break("\t", "\\u0009", "&#9;", "\\t"),
    Control("\x07", "\\u0007", "\\u0007"),
    Break("\n", "\\u000A", "&#10;", "\\n"),
    Control("\x08", "\\u0008", "\\b"),
    Break("\r", "\\u000D", "&#13;", "\\r"),
    Break("\xC2\x85", "\\u0085", "\xC2\x85", nullptr),
    Break("\xE2\x80\xA8", "\\u2028", "\xE2\x80\xA8", nullptr),
    Break("\xE2\x80\xA9", "\\u2029", "\xE2\x80\xA9", nullptr),
    Other("\x7F", "\\u007F"),
    Other("\xC2\x80", "\\u0080"),
    Other("\xC2\x9B", "\\u009B"),
    Other("\xC2\x9D", "\\u009D"),
    Other("\xC2\x9F", "\\u009F"),
    Other("\xD8\x9C", "\\u061C"),
    Other("\xE2\x80\x8E", "\\u200E"),
    Other("\xE2\x80\x8F", "\\u200F"),
    Other("\xE2\x80\xAA", "\\u202A"),
    Other("\xE2\x80\xAB", "\\u202B"),
    Other("\xE2\x80\xAC", "\\u202C"),
    Other("\xE2\x80\xAD", "\\u202D"),
    Other("\xE2\x80\xAE", "\\u202E"),
    Other("\xE2\x81\xA6", "\\u2066"),
    Other("\xE2\x81\xA7", "\\u2067"),
    Other("\xE2\x81\xA8", "\\u2068"),
    Other("\xE2\x81\xA9", "\\u2069"),
    Other("\xEF\xBB\xBF", "\\uFEFF"),
};

/// All of them in one text. `form` gives each its form, or nothing to leave it out.
template <class Form>
std::string Hostile(Form form) {
  std::string text = "a";
  for (const Active& active : kActive)
    if (const char* const written = form(active)) text += written;
  return text + "z";
}

const char* First(const char* one, const char* other) { return one ? one : other; }
bool IsOfXml(const Active& active) { return active.inXml != nullptr; }

// A name with those that XML can hold ...
const char* Plain(const Active& active) { return IsOfXml(active) ? active.utf8 : nullptr; }
const char* InReply(const Active& active) { return active.inXml; }
const char* InRequest(const Active& active) {
  return active.utf8 == std::string("\r") ? active.inXml : Plain(active);
}
const char* InJson(const Active& active) { return First(active.inJson, active.utf8); }
const char* JsonOfXml(const Active& active) { return IsOfXml(active) ? InJson(active) : nullptr; }
const char* InMessage(const Active& active) {
  return IsOfXml(active) ? First(active.inMessage, active.utf8) : nullptr;
}
// ... as a terminal shows it ...
const char* Shown(const Active& active) { return IsOfXml(active) ? active.shown : nullptr; }
const char* ShownJson(const Active& active) {
  return IsOfXml(active) ? First(active.inJson, active.shown) : nullptr;
}
const char* ShownMessage(const Active& active) {
  return IsOfXml(active) ? First(active.inMessage, active.shown) : nullptr;
}
// ... and all, where there is no XML.
const char* Raw(const Active& active) { return active.utf8; }
const char* ShownRaw(const Active& active) { return First(active.inMessage, active.shown); }
const char* InHeader(const Active& active) {
  return *active.utf8 == '\r' || *active.utf8 == '\n' ? nullptr : active.utf8;
}

std::string Replaced(std::string text, const std::string& what, const std::string& with) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size())
    text.replace(at, what.size(), with);
  return text;
}

/// Names that the import makes of others hold neither tabs nor carriage returns.
auto Generated(const char* (*form)(const Active&)) {
  return [form](const Active& active) {
    return *active.utf8 == '\t' || *active.utf8 == '\r' ? nullptr : form(active);
  };
}

/// Nothing active in what a terminal got, but for the carriage return that it puts before a line
/// feed, and what the tool's own progress line does.
void ExpectHarmless(const std::string& text) {
  const std::string rest = Replaced(Replaced(text, "\r\x1b[K", " "), "\r\n", " ");
  for (const Active& active : kActive)
    EXPECT_EQ(rest.find(active.utf8), std::string::npos) << active.shown;
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
  script.name = script.version = Hostile(InReply);
  for (auto& [type, rows] : script.rows)
    for (tool::Row& row : rows)
      for (auto& [column, value] : row)
        if (column.find("TYPE") == std::string::npos && column.find("STRUCTURE") != 0 &&
            column.find("NUMBER") == std::string::npos && column.find("NUMERIC") != 0 &&
            column != "MEASURE_AGGREGATOR")
          value = Hostile(InReply);
  script.rows["MDSCHEMA_CUBES " + Hostile(InRequest)] = script.rows["MDSCHEMA_CUBES Lone"];
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
      const tool::Outcome piped = tool::RunTool(call);
      const bool isJson = std::string(format) == "json";
      const auto name = isJson ? &JsonOfXml : &Plain;
      const auto shown = isJson ? &ShownJson : &Shown;
      EXPECT_THAT(piped.out, HasSubstr(Hostile(name)));
      // The same on a terminal, name by name and line by line.
      std::string expected = Replaced(piped.out, Hostile(name), Hostile(shown));
      expected = Replaced(expected, Hostile(Generated(name)), Hostile(Generated(shown)));
      EXPECT_EQ(seen.out, Replaced(expected, "\n", "\r\n"));
      const support::TempDir folder;
      tool::Arguments toFile = call;
      toFile.insert(toFile.end(), {"-o", folder.Path() / "result"});
      tool::RunTool(toFile, OnATerminal());
      EXPECT_EQ(support::ReadFile(folder.Path() / "result"), piped.out);
      // The same document, whatever its form.
      if (isJson) {
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
  const std::string raw = Hostile(Raw);
  const std::string header = Hostile(InHeader);
  const Source sources[] = {
      {"fault", Answer(support::FaultReply("code" + Hostile(InReply), "text " + Hostile(InReply))),
       Hostile(ShownMessage)},
      {"page title",
       Answer("<html><title>" + raw + "</title></html>", "200 OK", "Content-Type: text/html\r\n"),
       Hostile(ShownRaw)},
      {"plain text", Answer("plain " + raw, "200 OK", "Content-Type: text/plain\r\n"),
       "plain " + Hostile(ShownRaw)},
      {"redirect", Answer("", "302 Found", "Location: http://elsewhere.test/" + header + "\r\n"),
       ""},
      {"scheme", Answer("", "401 Unauthorized", "WWW-Authenticate: " + header + " realm=x\r\n"),
       ""},
      {"charset",
       Answer("<r/>", "200 OK", "Content-Type: text/xml; charset=\"" + header + "\"\r\n"), ""},
      {"reason", Answer("", "499 " + header), "HTTP 499"},
      {"element name", Answer("<r><" + raw + "></r>"), "[46100] "},
      {"mismatch", Answer("<r><n" + Hostile(Plain) + "></r>"), "[46100] "},
  };
  for (const Source& source : sources) {
    SCOPED_TRACE(source.name);
    WireServer server(source.answer);
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
  const auto inNames = std::count_if(std::begin(kActive), std::end(kActive), IsOfXml);
  Figure("text that acts on a terminal",
         Text(inNames, " characters in names (4 commands, 2 formats) and ", std::size(kActive),
              " in ", std::size(sources), " other places of a reply: none reached a terminal"));
}

TEST(HarmlessText, OfMessagesAndLogsStaysAsItCame) {
  const std::string reply = support::FaultReply("code", "text " + Hostile(InReply));
  WireServer server(Answer(reply));
  const support::TempDir folder;
  const tool::Outcome outcome =
      tool::RunTool({"--url", "http://" + server.Authority() + "/xmla", "--target", "tessera",
                     "--format", "json", "--log", folder.Path(), "sources"});
  EXPECT_EQ(outcome.status, 1);
  const tool::Json errors = outcome.Document()["errors"];
  ASSERT_EQ(errors.size(), 2u);
  EXPECT_THAT(errors[0].get<std::string>(), HasSubstr("text " + Hostile(InMessage)));
  EXPECT_THAT(outcome.out, HasSubstr("text " + Hostile(InMessage)));
  ASSERT_EQ(folder.Files().size(), 1u);
  EXPECT_THAT(support::ReadFile(folder.Files()[0]), HasSubstr(reply));
}

}  // namespace
}  // namespace network
