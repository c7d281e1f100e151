#include "call/Arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string_view>

#include "base/Text.h"
#include "call/TargetNames.h"

namespace {

constexpr std::string_view kFooter =
    "Environment:\n"
    "  XMLA_IMPORT_URL, XMLA_IMPORT_USER, XMLA_IMPORT_TARGET  defaults of the options\n"
    "  XMLA_IMPORT_PASSWORD        the password, if --password-file is not given\n"
    "  MORVEN_BI_XMLA_HTTP_TIMEOUT  time-out in seconds, default 120\n"
    "\n"
    "Exit status:\n"
    "  0 success, 1 errors, 2 usage error, 3 import: some cubes failed, 130 interrupted";

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
                   const std::vector<std::string>& formats, Arguments& arguments) {
  const std::string format = ScannedValue(argc, argv, "", "--format");
  if (std::ranges::count(formats, format) > 0) arguments.format = format;
  arguments.output = ScannedValue(argc, argv, "-o", "--output");
  for (int i = 1; i < argc && arguments.command.empty(); ++i)
    for (const CommandForm& command : commands)
      if (std::string_view(argv[i]) == command.name) arguments.command = command.name;
}

/// The names, separated by commas.
std::string Enumerated(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

std::string NamesOf(const std::vector<CommandForm>& commands) {
  std::vector<std::string> names;
  for (const CommandForm& command : commands) names.emplace_back(command.name);
  return Enumerated(names);
}

void AddText(CLI::App& app, const std::string& names, std::string& value,
             const std::string& placeholder, const std::string& meaning) {
  app.add_option(names, value, meaning)->type_name(placeholder);
}

void AddConnectionOptions(CLI::App& app, const std::vector<std::string>& formats,
                          Arguments& arguments) {
  AddText(app, "--url", arguments.url, "URL", "the XMLA service, http or https [XMLA_IMPORT_URL]");
  AddText(app, "--sample", arguments.sample, "KIND",
          "import from the built-in sample provider: analysis-services, sap-bw or "
          "tamarind");
  AddText(app, "--user", arguments.user, "NAME", "user name [XMLA_IMPORT_USER]");
  AddText(app, "--password-file", arguments.passwordFile, "FILE",
          "file whose first line is the password, - is standard input; default: "
          "[XMLA_IMPORT_PASSWORD], else a prompt");
  AddText(app, "--target", arguments.target, "KIND",
          "the kind of provider, default auto: " + TargetNames() + " [XMLA_IMPORT_TARGET]");
  AddText(app, "--log", arguments.log, "DIR", "write the import log to DIR");
  AddText(app, "--format", arguments.format, "FORMAT",
          "one of: " + Enumerated(formats) + "; default " + formats.front());
  AddText(app, "-o,--output", arguments.output, "FILE", "write the result to FILE");
  AddText(app, "--warnings", arguments.warnings, "WHICH",
          "warnings on standard error: all, summary (default: one line for each kind) or none; "
          "the result has all of them");
  app.add_flag("--quiet", arguments.quiet, "show only errors");
  app.add_flag("--verbose", arguments.verbose, "show each exchange with its timings");
}

void AddOption(CLI::App& command, const CommandOption& option, bool& flag) {
  command.add_flag(option.name, flag, option.help);
}
void AddOption(CLI::App& command, const CommandOption& option, std::string& text) {
  AddText(command, option.name, text, option.placeholder, option.help);
}
void AddOption(CLI::App& command, const CommandOption& option, int& number) {
  command.add_option(option.name, number, option.help)
      ->type_name(option.placeholder)
      ->check(CLI::Range(1, option.max));
}
void AddOption(CLI::App& command, const CommandOption& option, std::vector<std::string>& list) {
  CLI::Option& texts =
      *command.add_option(option.name, list, option.help)->type_name(option.placeholder);
  if (option.mayRepeat)
    texts.allow_extra_args(false);
  else
    texts.expected(1);
}

void AddCommand(CLI::App& app, const CommandForm& form, Arguments& arguments) {
  CLI::App& command = *app.add_subcommand(form.name, form.help);
  command.footer("Common options: xmla-import --help");
  for (const CommandOption& option : form.options)
    std::visit([&](auto member) { AddOption(command, option, arguments.*member); }, option.value);
}

/// Rejects "--option=" without a value. The parser would use the next argument as the value.
void RejectEqualsWithoutValue(int argc, const char* const* argv, CLI::App& app) {
  std::vector<CLI::App*> all = app.get_subcommands(nullptr);
  all.push_back(&app);
  for (int i = 1; i < argc; ++i) {
    std::string word = argv[i];
    if (!word.starts_with("--") || !word.ends_with('=')) continue;
    word.pop_back();
    for (const CLI::App* const each : all)
      if (each->get_option_no_throw(word)) throw UsageError(word + " needs a non-empty value");
  }
}

/// Rejects empty option values.
void RequireValues(const CLI::App& app) {
  for (const CLI::Option* option : app.get_options())
    for (const std::string& value : option->results())
      if (value.empty()) throw UsageError(option->get_name() + " needs a non-empty value");
}

void CheckMeaning(const CLI::App& app, const std::vector<std::string>& formats,
                  const Arguments& arguments) {
  RequireValues(app);
  for (const CLI::App* command : app.get_subcommands()) RequireValues(*command);
  if (std::ranges::count(formats, arguments.format) == 0)
    throw UsageError("unknown --format \"" + OneLine(arguments.format) +
                     "\"; expected one of: " + Enumerated(formats));
  constexpr std::string_view kWarnings[] = {"", "all", "summary", "none"};
  if (std::ranges::count(kWarnings, arguments.warnings) == 0)
    throw UsageError("unknown --warnings \"" + OneLine(arguments.warnings) +
                     "\"; expected one of: all, summary, none");
  if (arguments.quiet && arguments.verbose)
    throw UsageError("--quiet and --verbose cannot be combined");
}

/// The error text for unexpected arguments. It contains no option values, since one may be a
/// secret.
std::string AboutExtras(const CLI::App& app, const std::vector<CommandForm>& commands) {
  const std::vector<std::string> extras = app.remaining(true);
  for (const std::string& word : extras)
    if (word.starts_with('-') && word != "-")
      return "unknown option " +
             Listed({OneLine(word.substr(0, word.starts_with("--") ? word.find('=') : 2))}) +
             "; the options of a command follow the command";
  const std::string word = extras.empty() ? std::string() : Listed({OneLine(extras.front())});
  return app.get_subcommands().empty()
             ? "unknown command " + word + "; expected one of: " + NamesOf(commands)
             : "unexpected argument " + word;
}

}  // namespace

void ParseArguments(int argc, const char* const* argv, const std::vector<CommandForm>& commands,
                    const std::vector<std::string>& formats, Arguments& arguments) {
  Arguments read;
  CLI::App app("Reads the structure of OLAP cubes from an XML for Analysis service.",
               "xmla-import");
  app.set_version_flag("--version", "xmla-import " XMLA_IMPORT_VERSION);
  app.footer(std::string(kFooter));
  app.fallthrough();
  AddConnectionOptions(app, formats, read);
  for (const CommandForm& command : commands) AddCommand(app, command, read);
  app.require_subcommand(0, 1);
  const auto fail = [&](const std::string& text) {
    ScanForReport(argc, argv, commands, formats, arguments);
    throw UsageError(text);
  };
  try {
    RejectEqualsWithoutValue(argc, argv, app);
    app.parse(argc, argv);
    for (const CLI::App* const command : app.get_subcommands()) read.command = command->get_name();
    if (read.command.empty())
      throw UsageError("no command given; expected one of: " + NamesOf(commands));
    CheckMeaning(app, formats, read);
  } catch (const CLI::CallForHelp&) {
    read.information = app.help();  // the help of the command, if one was given
  } catch (const CLI::CallForVersion& version) {
    read.information = std::string(version.what()) + "\n";
  } catch (const CLI::ExtrasError&) {
    fail(AboutExtras(app, commands) + "; see xmla-import --help");
  } catch (const CLI::ParseError& error) {
    fail(OneLine(error.what()) + "; see xmla-import --help");
  } catch (const UsageError& error) {
    fail(error.what());
  }
  arguments = std::move(read);
}
