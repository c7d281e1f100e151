#include <algorithm>
#include <iterator>

#include "CommandTable.h"
#include "Pages.h"
#include "Roff.h"
#include "call/CommonOptions.h"
#include "call/Help.h"
#include "call/HelpBlocks.h"
#include "call/HelpTexts.h"
#include "call/OptionValue.h"
#include "results/Formats.h"
#include "results/TextLegend.h"

namespace {

// A terminal of 80 columns, without the indentation of examples.
constexpr std::size_t kExampleWidth = 66;

class Page {
 public:
  Page(std::string_view name, int section, const PageEdition& edition)
      : m_roff(name, section, edition.date, "xmla-import " + std::string(edition.version),
               section == 1 ? "User Commands" : "File Formats") {}

  Roff& Writer() { return m_roff; }

  void Blocks(std::span<const HelpBlock> blocks) {
    for (const HelpBlock& block : blocks) {
      if (block.kind == HelpBlock::Kind::kText) m_roff.Paragraph(block.text);
      if (block.kind == HelpBlock::Kind::kVerbatim) m_roff.Verbatim(block.text);
      for (const auto& [name, meaning] : block.entries) {
        if (name == "-")
          m_roff.Bullet(meaning);
        else
          m_roff.Entry(name, "", meaning);
      }
    }
  }

  void Paragraphs(std::string_view text) { Blocks(HelpBlocks(text, m_source)); }

  void Topic(std::string_view name, std::string_view title) {
    m_roff.Section(title);
    for (const HelpText& topic : TopicTexts())
      if (topic.name == name) Paragraphs(topic.paragraphs);
  }

  void Option(const CommandOption& option) {
    const std::string names =
        *option.shortName ? std::string(option.shortName) + ", " + option.name : option.name;
    m_roff.Entry(names, IsFlag(option) ? "" : option.placeholder,
                 FilledHelp(option.help, m_source));
  }

  /// Long examples are continued after a backslash.
  void Examples(std::string_view examples) {
    std::string lines;
    while (!examples.empty()) {
      const std::size_t end = examples.find('\n');
      std::string line(examples.substr(0, end));
      if (line.size() > kExampleWidth)
        line.replace(line.rfind(" -", kExampleWidth - 2), 1, " \\\n    ");
      lines += line + '\n';
      examples.remove_prefix(end + 1);
    }
    m_roff.Verbatim(lines);
  }

  const HelpSource& Source() const { return m_source; }

 private:
  const std::vector<CommandForm> m_forms = CommandForms();
  const HelpSource m_source{m_forms, CommonOptions(), Formats(), TextLegend()};
  Roff m_roff;
};

/// Keys that differ from the option of the same name.
struct KeyHelp {
  std::string_view option;
  std::string_view help;
};
constexpr KeyHelp kKeyHelp[] = {
    {"--url", "the XMLA service, http or https; required"},
    {"--password-file",
     "file whose first line is the password, - is standard input [XMLA_IMPORT_PASSWORD]"},
    {"--ca-file",
     "trusted certificates, PEM, instead of the system's. SSL_CERT_FILE overrides it if it is set"},
    {"--proxy",
     "proxy; an empty URL disables proxies. http_proxy, https_proxy and all_proxy override it if "
     "they are set: unset them, or use the option --proxy"},
};

std::string HelpOfKey(const CommandOption& option, const HelpSource& source) {
  const auto* const own = std::ranges::find(kKeyHelp, option.name, &KeyHelp::option);
  return own == std::end(kKeyHelp) ? FilledHelp(option.help, source) : std::string(own->help);
}

constexpr std::string_view kServersCommand = "servers";

void AddCommand(Page& page, const CommandForm& form) {
  const HelpText& prose = CommandText(form.name);
  page.Writer().Subsection(std::string(form.name) + (form.words.empty() ? "" : " ") +
                           std::string(form.words));
  std::vector<HelpBlock> blocks = HelpBlocks(prose.paragraphs, page.Source());
  if (form.name == kServersCommand) blocks.resize(1);  // the rest is about the file
  page.Blocks(blocks);
  if (form.name == kServersCommand)
    page.Writer().Paragraph("xmla-import-servers(5) describes the server file.");
  for (const CommandOption& option : form.options) page.Option(option);
  page.Examples(prose.examples);
}

}  // namespace

std::string ToolPage(const PageEdition& edition) {
  Page page("XMLA-IMPORT", 1, edition);
  Roff& roff = page.Writer();
  const HelpText& prose = CommandText("");
  roff.Name("xmla-import", "read the structure of OLAP cubes from an XMLA service");
  roff.Synopsis("xmla-import", "[OPTION]... COMMAND [OPTION]...");
  roff.Section("DESCRIPTION");
  page.Paragraphs(prose.paragraphs);
  page.Paragraphs(prose.closing);
  roff.Section("COMMANDS");
  for (const CommandForm& form : page.Source().commands) AddCommand(page, form);
  roff.Subsection("help [TOPIC]");
  std::string topics;
  for (const std::string& topic : HelpTopics()) topics += (topics.empty() ? "" : ", ") + topic;
  roff.Paragraph("Shows the help for a command, or for a topic: " + topics + ".");
  roff.Section("OPTIONS");
  roff.Paragraph("Every command has these options, before or after its name.");
  for (const CommandOption& option : CommonOptions()) page.Option(option);
  roff.Entry("-h, --help", "", "show the help, or that of the command");
  roff.Entry("--version", "",
             "show the version, the libraries in use and what they can do, and the formats");
  page.Topic("formats", "FORMATS");
  for (const OutputFormat& format : Formats()) roff.Entry(format.name, "", FormatHelp(format));
  roff.Paragraph("Words of the text format:");
  for (const LegendEntry& entry : TextLegend()) roff.Entry(entry.word, "", entry.meaning);
  page.Topic("statuses", "EXIT STATUS");
  page.Topic("log-in", "LOG-IN");
  page.Topic("targets", "KINDS OF PROVIDERS");
  page.Topic("environment", "ENVIRONMENT AND FILES");
  roff.Section("EXAMPLES");
  page.Examples(prose.examples);
  roff.Section("SEE ALSO");
  roff.Paragraph("xmla-import-servers(5), xmla-sample-provider(1), kinit(1)");
  roff.Paragraph(
      "The documents of the project are in /usr/share/doc/xmla-import on Debian: connecting.md "
      "(calls for each kind of service), troubleshooting.md (error texts), formats.md, "
      "read-ahead.md (--jobs), scale.md, and others.");
  return roff.Text();
}

std::string ServersPage(const PageEdition& edition) {
  Page page("XMLA-IMPORT-SERVERS", 5, edition);
  Roff& roff = page.Writer();
  roff.Name("xmla-import-servers", "file with the services of xmla-import");
  roff.Section("DESCRIPTION");
  const std::vector<HelpBlock> blocks =
      HelpBlocks(CommandText(kServersCommand).paragraphs, page.Source());
  page.Blocks(std::span(blocks).subspan(1));
  roff.Section("KEYS");
  roff.Paragraph(
      "A key is overridden by the option of the same name, and by a variable in brackets, if that "
      "is set.");
  for (const CommandOption& option : CommonOptions())
    if (IsServerKey(option))
      roff.Entry(std::string_view(option.name).substr(2), option.placeholder,
                 HelpOfKey(option, page.Source()));
  roff.Entry("password-command", "LIST",
             "a program and its arguments; the first line of its output is the password");
  roff.Section("EXAMPLES");
  page.Examples(CommandText(kServersCommand).examples);
  roff.Section("SEE ALSO");
  roff.Paragraph("xmla-import(1)");
  return roff.Text();
}
