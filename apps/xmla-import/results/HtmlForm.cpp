#include <fmt/chrono.h>
#include <fmt/format.h>

#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

#include "base/TerminalText.h"
#include "base/Text.h"
#include "call/TargetNames.h"
#include "results/Form.h"
#include "results/JsonWriter.h"
#include "results/TextLegend.h"
#include "results/Totals.h"
#include "results/report/ReportFiles.h"

namespace {

constexpr std::size_t kShownErrors = 20;  // without scripts

/// Collects JSON for a script element: without "<", which could end the element.
class ScriptData : public TextSink {
 public:
  void Write(std::string_view text) override {
    for (const char byte : text) {
      if (byte == '<')
        m_text += "\\u003c";
      else
        m_text += byte;
    }
  }
  const std::string& Text() const { return m_text; }

 private:
  std::string m_text;
};

/// Text for markup. Characters that could change what a terminal shows are references.
std::string EscapedForMarkup(std::string_view text) {
  std::string escaped;
  for (const wchar_t character : Wide(text)) {
    switch (character) {
      case L'<':
        escaped += "&lt;";
        break;
      case L'>':
        escaped += "&gt;";
        break;
      case L'&':
        escaped += "&amp;";
        break;
      case L'"':
        escaped += "&quot;";
        break;
      default:
        escaped += NeedsEscapeOnTerminal(character)
                       ? fmt::format("&#x{:X};", static_cast<std::uint32_t>(character))
                       : Utf8(String(1, character));
    }
  }
  return escaped;
}

/// The time of SOURCE_DATE_EPOCH, which makes the output of programs reproducible.
std::optional<std::time_t> GivenTime() {
  const char* const text = std::getenv("SOURCE_DATE_EPOCH");
  if (!text) return std::nullopt;
  const std::string_view digits = text;
  std::int32_t seconds = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), seconds);
  const bool isNumber =
      error == std::errc() && end == digits.data() + digits.size() && seconds >= 0;
  return isNumber ? std::optional<std::time_t>(seconds) : std::nullopt;
}

/// A page for a browser: the result as JSON, and a script that shows it. The page says first how
/// much it contains, so it is written at the end.
class HtmlForm : public Form {
 public:
  explicit HtmlForm(ResultText& text)
      : Form(text),
        m_jsonText(m_json, text.IsForTerminal()),
        m_jsonForm(MakeCompactJsonForm(m_jsonText)) {}

  void Write(const NoResult&) override {}
  void Write(const ServersResult&) override {}
  void Write(const SourcesResult&) override {}
  void Write(const TreeResult&) override {}

  void Write(const CubeResult& cube) override {
    m_totals.Add(cube);
    m_jsonForm->Write(cube);
    WritePage("cube", {.title = Utf8(cube.cube),
                       .isComplete = cube.messages.errors.empty(),
                       .messages = cube.messages});
  }

  void Write(const DiffResult& result) override {
    m_totals.Add(result);
    m_jsonForm->Write(result);
    WritePage("diff", {.title = "Changes",
                       .isComplete = result.messages.errors.empty(),
                       .messages = result.messages});
  }

  void BeginImport(const ImportResult& result) override { m_jsonForm->BeginImport(result); }

  void AddCube(const CubeResult& cube) override {
    m_isComplete &= cube.messages.errors.empty();
    m_totals.Add(cube);
    m_jsonForm->AddCube(cube);
  }

  void EndImport(const ImportResult& result) override {
    m_jsonForm->EndImport(result);
    const std::string name = Utf8(result.providerName);
    WritePage("import", {.title = name.empty() ? "OLAP cubes" : "OLAP cubes of " + name,
                         .kind = result.target.empty() ? "" : ExplainedTarget(result.target),
                         .isComplete = m_isComplete && result.messages.errors.empty() &&
                                       m_totals.cubes == result.cubeCount,
                         .messages = result.messages});
  }

  void BeginSteps(const CheckResult&) override {}
  void AddStep(const CheckStep&) override {}
  void EndSteps(const CheckResult&) override {}

 private:
  using Clock = std::chrono::steady_clock;

  struct Page {
    std::string title;
    std::string kind = {};  ///< of the server, with an explanation
    bool isComplete;
    const Messages& messages;
  };

  void WritePage(std::string_view command, const Page& page) {
    m_jsonText.Flush();
    if (m_jsonForm->IsCut()) SetCut();
    Put("<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n");
    Put(fmt::format("<meta http-equiv=\"Content-Security-Policy\" content=\"{}\">\n",
                    kReportPolicy));
    Put("<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
        "<meta name=\"referrer\" content=\"no-referrer\">\n");
    Put(fmt::format("<title>{}</title>\n", EscapedForMarkup(page.title)));
    Element("script", kReportFirstScript);
    Element("style", kReportStyle);
    Put("</head>\n<body>\n");
    WriteNotice(page);
    Element("script type=\"application/json\" id=\"about\"", About(command, page));
    Element("script type=\"application/json\" id=\"result\"", m_json.Text());
    Element("script", kReportScript);
    Put("</body>\n</html>\n");
  }

  /// What readers see if scripts are blocked.
  void WriteNotice(const Page& page) {
    Put("<div id=\"notice\">\n<p><strong>This report needs scripts, which are blocked "
        "here.</strong> "
        "Download the file and open it from disk in a browser. CI servers often block scripts in "
        "the files "
        "of a build; their administrators can allow them.</p>\n");
    const std::string totals = m_totals.Text();
    Put(fmt::format("<p>{}: {}{}.</p>\n", EscapedForMarkup(page.title),
                    totals.empty() ? "nothing was read" : totals,
                    page.isComplete ? "" : "; incomplete"));
    if (!page.messages.errors.empty()) {
      Put("<ul>\n");
      for (std::size_t i = 0; i < page.messages.errors.size() && i < kShownErrors; ++i)
        Put(fmt::format("<li>{}</li>\n", EscapedForMarkup(page.messages.errors[i])));
      if (page.messages.errors.size() > kShownErrors)
        Put(fmt::format("<li>{} more errors</li>\n", page.messages.errors.size() - kShownErrors));
      Put("</ul>\n");
    }
    Put("</div>\n");
  }

  std::string About(std::string_view command, const Page& page) const {
    ScriptData data;
    ResultText text(data, false);
    JsonWriter json(text, JsonWriter::Layout::kOneLine);
    const auto add = [&json](std::string_view key, const auto& value) {
      json.Key(key);
      json.Value(value);
    };
    json.BeginObject();
    add("command", command);
    add("version", std::string_view(XMLA_IMPORT_VERSION));
    add("kind", std::string_view(page.kind));
    const std::optional<std::time_t> given = GivenTime();
    const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    add("created",
        std::string_view(fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(given.value_or(now)))));
    json.Key("seconds");
    if (given)
      json.Null();
    else
      json.Value(std::chrono::duration<double>(Clock::now() - m_started).count());
    add("isComplete", page.isComplete);
    json.Key("words");
    json.BeginObject();
    for (const EnumeratorWord& each : EnumeratorWords()) {
      json.Key(each.enumerator);
      json.BeginList();
      json.Value(each.entry.word);
      json.Value(each.entry.meaning);
      json.EndList();
    }
    json.EndObject();
    json.Key("legend");
    json.BeginList();
    for (const LegendEntry& entry : TextLegend()) {
      json.BeginList();
      json.Value(entry.word);
      json.Value(entry.meaning);
      json.EndList();
    }
    json.EndList();
    json.EndObject();
    text.Flush();
    return data.Text();
  }

  void Put(std::string_view markup) { Text().AppendMarkup(markup); }
  void Element(std::string_view tag, std::string_view content) {
    Put(fmt::format("<{}>", tag));
    Put(content);
    Put(fmt::format("</{}>\n", tag.substr(0, tag.find(' '))));
  }

  const Clock::time_point m_started = Clock::now();
  ScriptData m_json;
  ResultText m_jsonText;
  const std::unique_ptr<Form> m_jsonForm;
  Totals m_totals;
  bool m_isComplete = true;
};

}  // namespace

std::unique_ptr<Form> MakeHtmlForm(ResultText& text) { return std::make_unique<HtmlForm>(text); }
