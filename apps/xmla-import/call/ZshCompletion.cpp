#include "call/CompletionModel.h"

namespace {

using Kind = CompletedValue::Kind;

constexpr std::string_view kZshScript = R"script(#compdef xmla-import
# Completion of xmla-import in zsh, made by: xmla-import completion zsh

_xmla_import_servers() {
  local -a names
  local expl
  names=(${(f)"$(_call_program servers $words[1] servers --format json 2>/dev/null |
    sed -n '/^ *"name": "\(.*\)",$/{s//\1/;s/\\\(["\\]\)/\1/g;p;}')"})
  _wanted servers expl server compadd -a names
}

_xmla_import() {
  local command state state_descr line ret=1
  local -A opt_args
  local -i i=2
  while ((i < CURRENT)); do
    case $words[i] in
      (@names-with-value@) ((i++)) ;;
      (@commands-pattern@) command=$words[i]; break ;;
    esac
    ((i++))
  done

  local -a formats common connection own commands
  formats=(@formats@)
  case $command in
@formats-of-commands@  esac
  common=(
@common@  )
  connection=(
@connection@  )
  case $command in
    ('') own=($common $connection) ;;
@options-of-commands@  esac

  _arguments $own '*: :->word' && ret=0
  [[ $state == word ]] || return ret
  case $command in
    ('')
      commands=(
@commands@      )
      _describe -t commands command commands && ret=0
      ;;
@words-of-commands@  esac
  return ret
}

# The shell loads this file as the function, or a user evaluates it.
if [[ $funcstack[1] == _xmla-import ]]; then
  _xmla_import "$@"
else
  compdef _xmla_import xmla-import
fi
)script";

/// The text in single quotes, with backslashes before the characters that `_arguments` and
/// `_describe` use.
std::string Escaped(std::string_view text, std::string_view special) {
  std::string escaped;
  for (const char c : text) {
    if (c == '\'') {
      escaped += "'\\''";
      continue;
    }
    if (special.find(c) != special.npos) escaped += '\\';
    escaped += c;
  }
  return escaped;
}

/// What `_arguments` does for the value of an option.
std::string Action(const CompletedValue& value) {
  switch (value.kind) {
    case Kind::kFile:
      return "_files";
    case Kind::kFolder:
      return "_files -/";
    case Kind::kServers:
      return "_xmla_import_servers";
    case Kind::kFormats:
      return "($formats)";
    case Kind::kWords:
      return "(" + Spaced(value.words) + ")";
    case Kind::kList:
      return "_values -s , name " + Spaced(value.words);
    case Kind::kAny:
    case Kind::kNone:
      break;
  }
  return " ";
}

std::vector<std::string> Specifications(const std::vector<CompletedOption>& options) {
  std::vector<std::string> lines;
  for (const CompletedOption& option : options) {
    const bool hasValue = option.value.kind != Kind::kNone;
    std::string rest = "[" + Escaped(option.summary, "[]:\\") + "]";
    if (hasValue) rest += ":" + option.placeholder + ":" + Action(option.value);
    // The formats are a variable of the script.
    const std::string behind =
        option.value.kind == Kind::kFormats ? "'\"" + rest + "\"" : rest + "'";
    const std::string both = option.mayRepeat ? "*"
                             : option.shortName.empty()
                                 ? ""
                                 : "(" + option.shortName + " " + option.name + ")";
    if (!option.shortName.empty())
      lines.push_back("'" + both + option.shortName + (hasValue ? "+" : "") + behind);
    lines.push_back("'" + both + option.name + (hasValue ? "=" : "") + behind);
  }
  return lines;
}

std::vector<std::string> WordLines(const CompletedCommand& command) {
  if (command.words.kind == Kind::kFile) return {"_files && ret=0", ";;"};
  return {"commands=(" + Spaced(command.words.words) + ")",
          "_describe -t words word commands && ret=0", ";;"};
}

}  // namespace

std::string ZshCompletion(const CompletionModel& model) {
  std::string formats;
  std::string options;
  std::string words;
  std::vector<std::string> commands;
  for (const CompletedCommand& command : model.commands) {
    commands.push_back("'" + command.name + ":" + Escaped(command.summary, ":\\") + "'");
    if (!command.formats.empty())
      formats += "    (" + command.name + ") formats=(" + Spaced(command.formats) + ") ;;\n";
    if (command.hasOptions) {
      options +=
          "    (" + command.name + ")\n      own=($common" +
          (command.connects ? " $connection" : "") +
          (command.options.empty()
               ? ")\n"
               : "\n" + Indented("        ", Specifications(command.options)) + "      )\n") +
          "      ;;\n";
    }
    if (command.words.kind != Kind::kNone)
      words += "    (" + command.name + ")\n" + Indented("      ", WordLines(command));
  }
  return Filled(kZshScript,
                {{"@names-with-value@", Separated(model.NamesWithValue(), "|")},
                 {"@commands-pattern@", Separated(model.CommandNames(), "|")},
                 {"@formats@", Spaced(model.formats)},
                 {"@formats-of-commands@", formats},
                 {"@common@", Indented("    ", Specifications(model.commonOptions))},
                 {"@connection@", Indented("    ", Specifications(model.connectionOptions))},
                 {"@options-of-commands@", options},
                 {"@commands@", Indented("        ", commands)},
                 {"@words-of-commands@", words}});
}
