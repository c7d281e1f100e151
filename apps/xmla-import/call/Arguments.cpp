#include "call/Arguments.h"

#include <algorithm>
#include <set>
#include <string_view>

#include "base/Text.h"
#include "call/AuthSchemes.h"
#include "call/CommonOptions.h"
#include "call/Help.h"
#include "call/OptionValue.h"
#include "call/SecretOption.h"
#include "call/Suggestion.h"

namespace {

constexpr std::string_view kHelpCommand = "help";

/// The name for messages. An odd one is quoted.
std::string Shown(std::string_view name) {
  const auto isPlain = [](char c) {
    return c == '-' || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
  };
  return std::ranges::all_of(name, isPlain) ? std::string(name) : Listed({std::string(name)});
}

std::string Joined(const std::vector<std::string>& names, const char* last = " and ") {
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i)
    text += (i == 0 ? "" : i + 1 == names.size() ? last : ", ") + names[i];
  return text;
}

bool IsUrl(std::string_view word) {
  return word.starts_with("http://") || word.starts_with("https://");
}

/// The URL without everything up to its last @, which may be a password with any character.
std::string WithoutUser(std::string_view url) {
  const std::size_t begin = url.find("://") + 3;
  const std::size_t at = url.rfind('@');
  return std::string(url.substr(0, begin)) +
         std::string(url.substr(at == url.npos ? begin : at + 1));
}

/// An option of the command line and its value, not yet assigned to a command.
struct Given {
  const CommandOption* option;
  std::string_view value;  ///< part of the command line: it may be a secret, so it is not copied
};

class Parser {
 public:
  Parser(const HelpSource& source, Arguments& read) : m_source(source), m_read(read) {}

  /// Reads all words. The first error is thrown at the end, if there is no --help.
  void Read(int argc, const char* const* argv) {
    try {
      ReadWords(argc, argv);
    } catch (const UsageError& error) {
      throw UsageError(error.what() + m_remark);
    }
  }

 private:
  void ReadWords(int argc, const char* const* argv) {
    for (int i = 1; i < argc; ++i) {
      try {
        ReadWord(argv[i], i + 1 < argc ? argv[i + 1] : nullptr, i);
      } catch (const UsageError& error) {
        if (m_error.empty()) m_error = error.what();
      }
    }
    if (m_wantsHelp) {
      m_read.information = m_form ? CommandHelp(m_source, *m_form) : ToolHelp(m_source);
      return;
    }
    if (m_read.wantsVersion) return;
    if (!m_error.empty()) throw UsageError(m_error);
    if (m_isHelp) return ShowTopic();
    if (!m_form) FailWithoutCommand(argc == 1);
    for (const Given& given : m_given) Store(given);
    CheckMeaning();
  }

  void ReadWord(std::string_view word, const char* next, int& index) {
    const bool isLong = word.starts_with("--");
    if (!word.starts_with('-') || word == "-") return ReadName(word);
    const std::size_t end = isLong ? std::min(word.find('='), word.size()) : 2;
    const std::string_view name = word.substr(0, end);
    if (word == "-h" || word == "--help") {
      m_wantsHelp = true;
    } else if (word == "--version") {
      m_read.wantsVersion = true;
    } else if (const CommandOption* const option = Find(name)) {
      const bool hasValue = end < word.size();
      if (IsFlag(*option)) {
        if (hasValue) throw UsageError(Shown(name) + " takes no value");
        m_given.push_back({option, {}});
        return;
      }
      if (!hasValue && !next)
        throw UsageError(Shown(name) + " needs a value: " + option->name + ' ' +
                         option->placeholder);
      if (!hasValue) ++index;
      const bool isCommand = !hasValue && option->values && FindForm(next);
      if (!hasValue && (IsOption(next) || isCommand) && m_remark.empty())
        m_remark = "; " + std::string(next) + " was taken as the value of " + Shown(name);
      const std::string_view value = hasValue ? word.substr(end + (isLong ? 1 : 0)) : next;
      if (value.empty() && !MayBeEmpty(*option))
        throw UsageError(Shown(name) + " needs a non-empty value");
      m_given.push_back({option, value});
    } else {
      if (MayTakeSecret(name) && end == word.size() && next) ++index;
      RejectOption(name);
    }
  }

  void ReadName(std::string_view word) {
    if (IsUrl(word))
      throw UsageError("unexpected argument (did you mean --url " + Listed({WithoutUser(word)}) +
                       "?)");
    if (m_isHelp && m_topic.empty()) {
      m_topic = word;
    } else if (m_form && FindForm(word)) {
      throw UsageError("two commands given, " + std::string(m_form->name) + " and " +
                       std::string(word) + "; give one");
    } else if (m_form && m_read.files.size() < m_form->maxWords) {
      if (word.empty())
        throw UsageError(Who() + ": the name of a " + std::string(m_form->word) + " is empty");
      if (m_form->wordValues) RequireOneOf(m_form->word, word, m_form->wordValues());
      m_read.files.emplace_back(word);
    } else if (m_form || m_isHelp) {
      throw UsageError("unexpected argument " + Listed({std::string(word)}) + OptionsInstead(word));
    } else if (word == kHelpCommand) {
      m_isHelp = true;
    } else {
      m_form = FindForm(word);
      if (m_form) m_read.command = m_form->name;
      if (!m_form && m_error.empty())
        throw UsageError(UnknownValue("command", word, CommandNames(), Enumerated(CommandNames())));
    }
  }

  std::string OptionsInstead(std::string_view word) const {
    std::vector<std::string> names;
    std::string likely;  // the last one that takes names
    if (m_form)
      for (const CommandOption& option : m_form->options) {
        names.emplace_back(option.name);
        if (std::holds_alternative<std::vector<std::string> Arguments::*>(option.value))
          likely = option.name;
      }
    if (names.empty()) return {};
    if (m_form->maxWords == 0 && !likely.empty())
      return " (did you mean " + likely + ' ' + Listed({std::string(word)}) + "?)";
    return "; " + std::string(m_form->name) + " takes values only by " + Joined(names);
  }

  void ShowTopic() {
    if (const CommandForm* const form = FindForm(m_topic))
      m_read.information = CommandHelp(m_source, *form);
    else
      m_read.information = m_topic.empty() || m_topic == kHelpCommand
                               ? ToolHelp(m_source)
                               : TopicHelp(m_source, m_topic);
    if (!m_read.information.empty()) return;
    std::vector<std::string> names = CommandNames();
    std::ranges::copy(HelpTopics(), std::back_inserter(names));
    throw UsageError(UnknownValue("topic", m_topic, names, Enumerated(names)));
  }

  [[noreturn]] void FailWithoutCommand(bool isEmptyCall) const {
    throw UsageError(
        "no command given; expected one of: " + Enumerated(CommandNames()) +
        (isEmptyCall ? "; to begin, try: xmla-import --sample analysis-services tree" : ""));
  }

  /// The options that begin with the letter of a short one.
  static std::string LongOptions(char letter, const std::vector<std::string>& names) {
    std::vector<std::string> found;
    for (const std::string& name : names)  // several commands may have the same option
      if (name[2] == letter && std::ranges::count(found, name) == 0) found.push_back(name);
    return found.empty() ? "" : " (did you mean " + Joined(found, " or ") + "?)";
  }

  [[noreturn]] void RejectOption(std::string_view name) const {
    if (const std::string_view instead = InsteadOfOption(name); !instead.empty())
      throw UsageError("there is no option " + Shown(name) + ", " + std::string(instead));
    const bool isShort = name.size() == 2 && !name.starts_with("--");
    std::vector<std::string> names{"--help", "--version"};
    for (const CommandOption& option : m_source.commonOptions) names.emplace_back(option.name);
    for (const CommandForm& form : m_source.commands)
      if (!m_form || m_form == &form)
        for (const CommandOption& option : form.options) names.emplace_back(option.name);
    const std::string hint = isShort ? LongOptions(name[1], names) : DidYouMean(name, names);
    throw UsageError(Who() + " has no option " + Shown(name) + hint);
  }

  std::string Who() const { return m_form ? m_form->name : "xmla-import"; }

  static const CommandOption* FindIn(std::span<const CommandOption> options,
                                     std::string_view name) {
    for (const CommandOption& option : options)
      if (name == option.name || (*option.shortName && name == option.shortName)) return &option;
    return nullptr;
  }

  bool IsOption(std::string_view word) const {
    return word == "--help" || word == "--version" || Find(word) != nullptr;
  }

  /// Also finds options of other commands, because the command may follow.
  const CommandOption* Find(std::string_view name) const {
    const CommandOption* found = FindIn(m_source.commonOptions, name);
    if (!found && m_form) found = FindIn(m_form->options, name);
    for (const CommandForm& form : m_source.commands)
      if (!found) found = FindIn(form.options, name);
    return found;
  }

  const CommandForm* FindForm(std::string_view name) const {
    for (const CommandForm& form : m_source.commands)
      if (name == form.name) return &form;
    return nullptr;
  }

  std::vector<std::string> CommandNames() const {
    std::vector<std::string> names;
    for (const CommandForm& form : m_source.commands) names.emplace_back(form.name);
    names.emplace_back(kHelpCommand);
    return names;
  }

  void Store(const Given& given) {
    const std::string_view name = given.option->name;
    const CommandOption* option = FindIn(m_source.commonOptions, name);
    if (!option) option = FindIn(m_form->options, name);
    if (!option) RejectOptionOfOthers(name);
    const bool isFirst = m_stored.insert(option).second;
    if (!isFirst && !option->mayRepeat && !IsFlag(*option))
      throw UsageError(std::string(option->name) + " may be given only once");
    // A value that a variable can replace is checked where it is used.
    if (option->values && !option->isList && !*option->variable)
      RequireOneOf(option->name, given.value, option->values());
    SetValue(*option, option->name, given.value, m_read);
  }

  [[noreturn]] void RejectOptionOfOthers(std::string_view name) const {
    std::vector<std::string> own;
    for (const CommandOption& option : m_form->options) own.emplace_back(option.name);
    std::vector<std::string> others;
    for (const CommandForm& form : m_source.commands)
      if (FindIn(form.options, name)) others.emplace_back(form.name);
    throw UsageError(Who() + " has no option " + std::string(name) + " (" +
                     (own.empty() ? "only " + Joined(others) : "it has " + Joined(own)) + ")");
  }

  /// The names of the given options of these parts.
  std::vector<std::string> GivenOf(std::initializer_list<OptionPart> parts) const {
    std::vector<std::string> names;
    for (const std::span<const CommandOption> options : {m_source.commonOptions, m_form->options})
      for (const CommandOption& option : options)
        if (m_stored.contains(&option) && std::ranges::count(parts, option.part) > 0)
          names.emplace_back(option.name);
    return names;
  }

  void CheckMeaning() {
    m_read.hasFormat = !m_read.format.empty();
    m_read.format = ChooseFormat(m_source.formats, m_read.format, m_read.output, m_form->name);
    if (m_read.quiet && m_read.verbose)
      throw UsageError("--quiet and --verbose cannot be combined");
    if (!m_read.auth.empty()) AuthSchemes("--auth", m_read.auth);
    const std::vector<std::string> ofConnection = GivenOf(
        {OptionPart::kService, OptionPart::kAccess, OptionPart::kTransfer, OptionPart::kReading});
    if (m_read.files.size() < m_form->minWords)
      throw UsageError(Who() + " needs a " + std::string(m_form->word) + ": " + Who() + ' ' +
                       std::string(m_form->words));
    if (!m_form->NeedsConnection(m_read.files.size()) && !ofConnection.empty())
      throw UsageError(Who() + " does not connect to a service" +
                       (m_form->NeedsConnection(0) ? " if both files are given" : "") +
                       "; leave out " + Joined(ofConnection));
    const std::vector<std::string> services = GivenOf({OptionPart::kService});
    if (services.size() > 1) throw UsageError(Joined(services) + " cannot be combined");
    std::vector<std::string> access = GivenOf({OptionPart::kAccess});
    if (m_read.proxy && m_read.proxy->empty()) std::erase(access, "--proxy");  // no proxy: harmless
    if (!m_read.sample.empty() && !access.empty())
      throw UsageError(Joined(access) + " cannot be combined with --sample");
  }

  static void RequireOneOf(std::string_view option, std::string_view value,
                           const std::vector<std::string>& values) {
    if (std::ranges::count(values, value) == 0)
      throw UsageError(UnknownValue(option, value, values, Enumerated(values)));
  }

  const HelpSource& m_source;
  Arguments& m_read;
  const CommandForm* m_form = nullptr;
  bool m_isHelp = false;  // the command is "help"
  std::string_view m_topic;
  bool m_wantsHelp = false;  // --help was given
  std::vector<Given> m_given;
  std::set<const CommandOption*> m_stored;
  std::string m_error;
  std::string m_remark;  // an option or command that was taken as a value; ends each error
};

/// Finds the value of one option without parsing the others. Used to report a usage error in the
/// requested format. `shortName` may be empty.
std::string ScannedValue(int argc, const char* const* argv, std::string_view shortName,
                         std::string_view longName) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view word = argv[i];
    const bool isShort = !shortName.empty() && word.starts_with(shortName);
    if ((word == longName || (isShort && word == shortName)) && i + 1 < argc) return argv[i + 1];
    if (word.size() > longName.size() && word.starts_with(longName) && word[longName.size()] == '=')
      return std::string(word.substr(longName.size() + 1));
    if (isShort && word.size() > shortName.size()) return std::string(word.substr(2));
  }
  return {};
}

void ScanForReport(int argc, const char* const* argv, const std::vector<CommandForm>& commands,
                   OutputFormats formats, Arguments& arguments) {
  arguments.output = ScannedValue(argc, argv, "-o", "--output");
  for (int i = 1; i < argc && arguments.command.empty(); ++i)
    for (const CommandForm& command : commands)
      if (std::string_view(argv[i]) == command.name) arguments.command = command.name;
  const std::string format = ScannedValue(argc, argv, "", "--format");
  arguments.hasFormat = !format.empty();
  try {
    arguments.format = ChooseFormat(formats, format, arguments.output, arguments.command);
  } catch (const UsageError&) {
    arguments.format = formats.front().name;
  }
}

}  // namespace

void ParseArguments(int argc, const char* const* argv, const std::vector<CommandForm>& commands,
                    OutputFormats formats, Arguments& arguments,
                    std::span<const LegendEntry> legend) {
  Arguments read;
  const HelpSource source{commands, CommonOptions(), formats, legend};
  try {
    Parser(source, read).Read(argc, argv);
  } catch (const UsageError& error) {
    ScanForReport(argc, argv, commands, formats, arguments);
    throw UsageError(error.what() + SeeHelp(read.command));
  }
  arguments = std::move(read);
}
