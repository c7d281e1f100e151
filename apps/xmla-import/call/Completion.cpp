#include "call/Completion.h"

#include <algorithm>

#include "call/Arguments.h"
#include "call/CompletionModel.h"
#include "call/OptionValue.h"
#include "call/UsageError.h"

namespace {

using Kind = CompletedValue::Kind;

struct Shell {
  std::string_view name;
  std::string (*script)(const CompletionModel& model);
};

constexpr Shell kShells[] = {
    {"bash", &BashCompletion}, {"zsh", &ZshCompletion}, {"fish", &FishCompletion}};

/// The first part of a help text, without the names of variables.
std::string Summary(std::string_view help, const HelpSource& source) {
  std::string text(help.substr(0, help.find(';')));
  if (const std::size_t at = text.find("{formats}"); at != text.npos)
    text.replace(at, std::string_view("{formats}").size(), Enumerated(NamesOf(source.formats, "")));
  for (std::size_t begin; (begin = text.find(" [")) != text.npos;)
    text.erase(begin, text.find(']', begin) + 1 - begin);
  return text;
}

CompletedValue ValueOf(const CommandOption& option) {
  if (IsFlag(option)) return {};
  if (option.file == OptionFile::kFolder) return {Kind::kFolder};
  if (option.file != OptionFile::kNone) return {Kind::kFile};
  if (option.Stores(&Arguments::format)) return {Kind::kFormats};
  if (option.Stores(&Arguments::server)) return {Kind::kServers};
  if (option.values) return {option.isList ? Kind::kList : Kind::kWords, option.values()};
  return {Kind::kAny};
}

CompletedOption Completed(const CommandOption& option, const HelpSource& source) {
  return {option.name,        option.shortName, Summary(option.help, source),
          option.placeholder, ValueOf(option),  option.mayRepeat};
}

CompletedValue WordsOf(const CommandForm& command) {
  if (command.maxWords == 0) return {};
  if (command.wordValues) return {Kind::kWords, command.wordValues()};
  return {Kind::kFile};
}

CompletionModel Model(const HelpSource& source) {
  CompletionModel model;
  std::vector<std::string> topics = HelpTopics();
  for (const CommandForm& form : source.commands) {
    CompletedCommand command{.name = form.name,
                             .summary = Summary(form.help, source),
                             .connects = form.NeedsConnection(0),
                             .options = {},
                             .words = WordsOf(form),
                             .formats = NamesOf(source.formats, form.name)};
    for (const CommandOption& option : form.options)
      command.options.push_back(Completed(option, source));
    model.commands.push_back(std::move(command));
    topics.emplace_back(form.name);
  }
  model.commands.push_back({.name = "help",
                            .summary = "help for a command or a topic",
                            .hasOptions = false,
                            .options = {},
                            .words = {Kind::kWords, topics},
                            .formats = {}});
  for (const CommandOption& option : source.commonOptions)
    (option.part == OptionPart::kOther ? model.commonOptions : model.connectionOptions)
        .push_back(Completed(option, source));
  model.commonOptions.push_back({"--help", "-h", "show the help", "", {}});
  model.commonOptions.push_back({"--version", "", "show the version", "", {}});
  model.formats = NamesOf(source.formats, "");
  return model;
}

}  // namespace

std::vector<std::string> CompletionModel::CommandNames() const {
  std::vector<std::string> names;
  for (const CompletedCommand& command : commands) names.push_back(command.name);
  return names;
}

std::vector<CompletedOption> CompletionModel::OptionsWithValue() const {
  std::vector<CompletedOption> all;
  const auto add = [&all](const std::vector<CompletedOption>& options) {
    for (const CompletedOption& option : options)
      if (option.value.kind != Kind::kNone &&
          std::ranges::count(all, option.name, &CompletedOption::name) == 0)
        all.push_back(option);
  };
  add(connectionOptions);
  add(commonOptions);
  for (const CompletedCommand& command : commands) add(command.options);
  return all;
}

std::vector<std::string> CompletionModel::NamesWithValue() const {
  std::vector<std::string> names;
  for (const CompletedOption& option : OptionsWithValue()) {
    names.push_back(option.name);
    if (!option.shortName.empty()) names.push_back(option.shortName);
  }
  return names;
}

std::string Separated(const std::vector<std::string>& texts, std::string_view separator) {
  std::string list;
  for (const std::string& text : texts) {
    if (!list.empty()) list += separator;
    list += text;
  }
  return list;
}

std::string Indented(std::string_view indent, const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += std::string(indent) + line + '\n';
  return text;
}

std::string Filled(std::string_view pattern,
                   const std::vector<std::pair<std::string_view, std::string>>& texts) {
  std::string filled(pattern);
  for (const auto& [name, text] : texts)
    for (std::size_t at = 0; (at = filled.find(name, at)) != filled.npos; at += text.size())
      filled.replace(at, name.size(), text);
  return filled;
}

std::vector<std::string> CompletionShells() {
  std::vector<std::string> names;
  for (const Shell& shell : kShells) names.emplace_back(shell.name);
  return names;
}

std::string CompletionScript(const HelpSource& source, std::string_view shell) {
  const auto found = std::ranges::find(kShells, shell, &Shell::name);
  return found->script(Model(source));
}
