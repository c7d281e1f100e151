#include "call/Help.h"

#include <algorithm>

#include "call/HelpBlocks.h"
#include "call/HelpTexts.h"
#include "call/OptionValue.h"
#include "call/UsageError.h"

namespace {

constexpr std::size_t kWidth = 80;
constexpr std::size_t kColumn = 24;  // of the second column

/// Breaks a paragraph at blanks. The first line continues one of `used` columns.
std::string Wrapped(std::string_view text, std::size_t indent, std::size_t used = 0) {
  std::string result;
  std::size_t column = used;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(' '), text.size());
    const std::string_view word = text.substr(0, end);
    const bool isFirst = column == 0 || (column == used && result.empty());
    if (column == 0 || (!isFirst && column + 1 + word.size() > kWidth)) {
      if (column != 0) result += '\n';
      result.append(indent, ' ');
      column = indent;
    } else if (!isFirst) {
      result += ' ';
      ++column;
    }
    result += word;
    column += word.size();
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return result + '\n';
}

/// A name in the first column, and its meaning in the second.
std::string Entry(const std::string& name, std::string_view meaning, std::size_t column = kColumn) {
  std::string line = "  " + name;
  if (line.size() + 2 > column)
    line += '\n' + std::string(column, ' ');
  else
    line.resize(column, ' ');
  return line + Wrapped(meaning, column, column);
}

/// The widest names decide where the meanings begin.
std::string List(const std::vector<std::pair<std::string, std::string>>& entries) {
  std::size_t column = 0;
  for (const auto& [name, meaning] : entries)
    if (name.size() + 4 <= kColumn) column = std::max(column, name.size() + 4);
  std::string text;
  for (const auto& [name, meaning] : entries) text += Entry(name, meaning, column);
  return text;
}

std::string Paragraphs(std::string_view text, const HelpSource& source) {
  std::string result;
  for (const HelpBlock& block : HelpBlocks(text, source)) {
    if (!result.empty()) result += '\n';
    result += block.kind == HelpBlock::Kind::kText   ? Wrapped(block.text, 0)
              : block.kind == HelpBlock::Kind::kList ? List(block.entries)
                                                     : block.text + '\n';
  }
  return result;
}

/// The names of an option and the placeholder of its value.
std::string Synopsis(const CommandOption& option, const std::string& names) {
  return IsFlag(option) ? names : names + ' ' + option.placeholder;
}

/// The formats: what each is for.
std::string FormatList(OutputFormats formats) {
  std::string text = "\nFormats:\n";
  for (const OutputFormat& format : formats)
    text += Entry(std::string(format.name), FormatHelp(format));
  return text;
}

/// The words of the text format.
std::string Legend(std::span<const LegendEntry> legend) {
  std::string text = "\nWords of the text format:\n";
  for (const LegendEntry& entry : legend) text += Entry(std::string(entry.word), entry.meaning);
  return text;
}

std::string Options(std::span<const CommandOption> options, const HelpSource& source) {
  std::string text;
  for (const CommandOption& option : options)
    text += Entry(
        Synopsis(option, *option.shortName ? std::string(option.shortName) + ", " + option.name
                                           : option.name),
        FilledHelp(option.help, source));
  return text;
}

/// The examples, one in a line. Long ones are continued after a backslash.
std::string Examples(std::string_view examples) {
  std::string text = "\nExamples:\n";
  while (!examples.empty()) {
    const std::size_t end = examples.find('\n');
    std::string line = "  " + std::string(examples.substr(0, end));
    if (line.size() > kWidth) {
      const std::size_t blank = line.rfind(" -", kWidth - 2);
      line.replace(blank, 1, " \\\n      ");
    }
    text += line + '\n';
    examples.remove_prefix(end + 1);
  }
  return text;
}

}  // namespace

std::string FormatHelp(const OutputFormat& format) {
  std::string text(format.help);
  if (!format.extension.empty()) text += "; extension " + std::string(format.extension);
  if (!format.commands.empty())
    text += "; only for " +
            Enumerated(std::vector<std::string>(format.commands.begin(), format.commands.end()));
  return text;
}

std::string ToolHelp(const HelpSource& source) {
  const HelpText& prose = CommandText("");
  std::string text = "Usage: xmla-import [OPTION]... COMMAND [OPTION]...\n\n";
  text += Paragraphs(prose.paragraphs, source) + "\nCommands:\n";
  for (const CommandForm& command : source.commands) text += Entry(command.name, command.help);
  text += Entry("help [TOPIC]", "help for a command, or for one of the topics below");
  text += "\nTopics:\n";
  for (const HelpText& topic : TopicTexts()) text += Entry(std::string(topic.name), topic.summary);
  text += "\nOptions of every command, before or after it:\n" +
          Options(source.commonOptions, source) +
          Entry("-h, --help", "show this help, or that of the command") +
          Entry("--version", "show the version");
  text += Examples(prose.examples);
  return text + '\n' + Paragraphs(prose.closing, source);
}

std::string CommandHelp(const HelpSource& source, const CommandForm& command) {
  const HelpText& prose = CommandText(command.name);
  std::string text = "Usage: xmla-import " + std::string(command.name) + ' ' +
                     std::string(command.words) + (command.words.empty() ? "" : " ") +
                     "[OPTION]...\n\n";
  text += Paragraphs(prose.paragraphs, source);
  if (!command.options.empty())
    text += "\nOptions of " + std::string(command.name) + ":\n" + Options(command.options, source);
  std::string common;
  for (const CommandOption& option : source.commonOptions)
    if (command.NeedsConnection(0) || option.part == OptionPart::kOther)
      common += Synopsis(option, *option.shortName ? option.shortName : option.name) + ", ";
  text +=
      "\nOptions of every command (see xmla-import --help):\n  " + Wrapped(common + "--help", 2, 2);
  text += Examples(prose.examples);
  if (prose.closing.empty()) return text;
  return text + '\n' + Paragraphs(prose.closing, source);
}

std::string TopicHelp(const HelpSource& source, std::string_view topic) {
  for (const HelpText& text : TopicTexts()) {
    if (text.name != topic) continue;
    const std::string paragraphs = Paragraphs(text.paragraphs, source);
    if (topic != "formats") return paragraphs;
    return paragraphs + FormatList(source.formats) + Legend(source.legend);
  }
  return {};
}

std::vector<std::string> HelpTopics() {
  std::vector<std::string> names;
  for (const HelpText& topic : TopicTexts()) names.emplace_back(topic.name);
  return names;
}
