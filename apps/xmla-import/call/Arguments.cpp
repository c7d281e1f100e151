#include "call/Arguments.h"

#include <CLI/CLI.hpp>
#include <array>
#include <string_view>

#include "base/Text.h"
#include "call/TargetNames.h"

namespace {

struct NamedCommand {
  std::string_view name;
  Command command;
};

constexpr std::array kCommands{
    NamedCommand{"sources", Command::kSources},
    NamedCommand{"tree", Command::kTree},
    NamedCommand{"cube", Command::kCube},
    NamedCommand{"import", Command::kImport},
};

constexpr std::string_view kFooter =
    "Environment:\n"
    "  XMLA_IMPORT_URL, XMLA_IMPORT_USER, XMLA_IMPORT_TARGET  used when the option is not given\n"
    "  XMLA_IMPORT_PASSWORD        the password, when there is no --password-file\n"
    "  MORVEN_BI_XMLA_HTTP_TIMEOUT  seconds to wait for a silent server, 120 when not set\n"
    "\n"
    "Exit status:\n"
    "  0 done, 1 errors, 2 wrong call, 3 import: some cubes failed, 130 interrupted";

/// The value that the line gives to an option, found without knowing the others: enough to report
/// an error of the line itself in the asked form.
std::string ScannedValue(int argc, const char* const* argv, std::string_view shortName,
                         std::string_view longName) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view word = argv[i];
    if ((word == longName || word == shortName) && i + 1 < argc) return argv[i + 1];
    if (word.size() > longName.size() && word.starts_with(longName) && word[longName.size()] == '=')
      return std::string(word.substr(longName.size() + 1));
    if (!shortName.empty() && word.size() > 2 && word.starts_with(shortName))
      return std::string(word.substr(2));
  }
  return {};
}

void ScanForReport(int argc, const char* const* argv, Arguments& arguments) {
  arguments.json = ScannedValue(argc, argv, "", "--format") == "json";
  arguments.output = ScannedValue(argc, argv, "-o", "--output");
  for (int i = 1; i < argc && arguments.command == Command::kNone; ++i)
    for (const NamedCommand& entry : kCommands)
      if (entry.name == argv[i]) arguments.command = entry.command;
}

void AddText(CLI::App& app, const std::string& names, std::string& value,
             const std::string& placeholder, const std::string& meaning) {
  app.add_option(names, value, meaning)->type_name(placeholder);
}

/// A name that the command takes once.
void AddName(CLI::App& app, const std::string& names, std::vector<std::string>& values,
             const std::string& meaning) {
  app.add_option(names, values, meaning)->type_name("NAME")->expected(1);
}

/// A name that the command takes as often as it is given.
void AddNames(CLI::App& app, const std::string& names, std::vector<std::string>& values,
              const std::string& meaning) {
  app.add_option(names, values, meaning)->type_name("NAME")->allow_extra_args(false);
}

void AddConnectionOptions(CLI::App& app, Arguments& arguments, std::string& format) {
  AddText(app, "--url", arguments.url, "URL", "the XMLA service, http or https [XMLA_IMPORT_URL]");
  AddText(app, "--sample", arguments.sample, "KIND",
          "import from the embedded sample provider instead: analysis-services, sap-bw or "
          "tamarind");
  AddText(app, "--user", arguments.user, "NAME", "user name [XMLA_IMPORT_USER]");
  AddText(app, "--password-file", arguments.passwordFile, "FILE",
          "the password is the first line of FILE, - is standard input; else "
          "[XMLA_IMPORT_PASSWORD], else it is asked for");
  AddText(app, "--target", arguments.target, "KIND",
          "the kind of provider, auto when not given: " + TargetNames() + " [XMLA_IMPORT_TARGET]");
  AddText(app, "--log", arguments.log, "DIR", "write the import log into DIR");
  AddText(app, "--format", format, "FORMAT", "text (default) or json");
  AddText(app, "-o,--output", arguments.output, "FILE", "write the result to FILE");
  app.add_flag("--quiet", arguments.quiet, "show no progress");
  app.add_flag("--verbose", arguments.verbose, "show each exchange with its timings");
}

void AddCommands(CLI::App& app, Arguments& arguments) {
  app.add_subcommand("sources", "the provider's data sources");
  CLI::App& tree = *app.add_subcommand("tree", "data sources, catalogs and cubes");
  AddName(tree, "--source", arguments.sources, "this data source alone");
  CLI::App& cube = *app.add_subcommand(
      "cube", "one cube, whole; a choice that is the only one there is may be left out");
  AddName(cube, "--source", arguments.sources, "its data source");
  AddName(cube, "--catalog", arguments.catalogs, "its catalog");
  AddName(cube, "--cube", arguments.cubes, "its name");
  CLI::App& import = *app.add_subcommand("import", "every cube, or those that the filters leave");
  AddNames(import, "--source", arguments.sources, "cubes of this data source; may be repeated");
  AddNames(import, "--catalog", arguments.catalogs, "cubes of this catalog; may be repeated");
  AddNames(import, "--cube", arguments.cubes, "cubes of this name; may be repeated");
  import.add_option("--jobs", arguments.jobs, "cubes read at a time, 1 to 64")
      ->type_name("N")
      ->check(CLI::Range(1, 64));
}

/// An option that was given without a value that means something.
void RequireValues(const CLI::App& app) {
  for (const CLI::Option* option : app.get_options())
    for (const std::string& value : option->results())
      if (value.empty()) throw UsageError(option->get_name() + " needs a value that is not empty");
}

void CheckMeaning(const CLI::App& app, const std::string& format, const Arguments& arguments) {
  RequireValues(app);
  for (const CLI::App* command : app.get_subcommands()) RequireValues(*command);
  if (format != "text" && format != "json")
    throw UsageError("--format is \"" + OneLine(format) + "\", but there are: text, json");
  if (arguments.quiet && arguments.verbose)
    throw UsageError("--quiet and --verbose contradict each other; give one of them");
}

/// What is wrong with words that belong nowhere. Values are not repeated: one may be a secret.
std::string AboutExtras(const CLI::App& app) {
  const std::vector<std::string> extras = app.remaining(true);
  for (const std::string& word : extras)
    if (word.starts_with('-') && word != "-")
      return Listed({OneLine(word.substr(0, word.starts_with("--") ? word.find('=') : 2))}) +
             " is no option here; an option of a command stands behind it";
  const std::string word = extras.empty() ? std::string() : Listed({OneLine(extras.front())});
  return app.get_subcommands().empty()
             ? word + " is no command; there are: sources, tree, cube, import"
             : word + " was not expected";
}

}  // namespace

void ParseArguments(int argc, const char* const* argv, Arguments& arguments) {
  Arguments read;
  std::string format = "text";
  CLI::App app("Reads the structure of OLAP cubes from an XML for Analysis service.",
               "xmla-import");
  app.set_version_flag("--version", "xmla-import " XMLA_IMPORT_VERSION);
  app.footer(std::string(kFooter));
  app.fallthrough();
  AddConnectionOptions(app, read, format);
  AddCommands(app, read);
  for (CLI::App* command : app.get_subcommands(nullptr))
    command->footer("The options of every command: xmla-import --help");
  app.require_subcommand(0, 1);
  try {
    app.parse(argc, argv);
    for (const NamedCommand& entry : kCommands)
      if (app.got_subcommand(std::string(entry.name))) read.command = entry.command;
    if (read.command == Command::kNone)
      throw UsageError("no command was given; there are: sources, tree, cube, import");
    read.json = format == "json";
    CheckMeaning(app, format, read);
  } catch (const CLI::CallForHelp&) {
    read.information = app.help();  // that of the command, when one was given
  } catch (const CLI::CallForVersion& version) {
    read.information = std::string(version.what()) + "\n";
  } catch (const CLI::ExtrasError&) {
    ScanForReport(argc, argv, arguments);
    throw UsageError(AboutExtras(app) + "; see xmla-import --help");
  } catch (const CLI::ParseError& error) {
    ScanForReport(argc, argv, arguments);
    throw UsageError(OneLine(error.what()) + "; see xmla-import --help");
  } catch (const UsageError&) {
    ScanForReport(argc, argv, arguments);
    throw;
  }
  arguments = std::move(read);
}
