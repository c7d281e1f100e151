#include <algorithm>

#include "call/CompletionModel.h"

namespace {

using Kind = CompletedValue::Kind;

// Bash itself completes files: it knows about quoting. It splits --option=value at the equals sign.
constexpr std::string_view kBashScript =
    R"script(# Completion of xmla-import in bash, made by: xmla-import completion bash

# The names in the server file that begin with $2, as they are written behind the quote $3; each behind $1.
_xmla_import_servers() {
  local name
  while IFS= read -r name; do
    case $3 in
      '') printf -v name %q "$name" ;;
      '"') name=$(sed 's/[\\"$`]/\\&/g' <<<"$name") ;;
      "'") name=${name//\'/\'\\\'\'} ;;
    esac
    [[ $name != "$2"* ]] || COMPREPLY+=("$1$name")
  done < <("${COMP_WORDS[0]/#\~/$HOME}" servers --format json 2>/dev/null |
    sed -n '/^ *"name": "\(.*\)",$/{s//\1/;s/\\\(["\\]\)/\1/g;p;}')
}

_xmla_import() {
  local cur=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}
  local option= before= command= quote= i word list
  if [[ $cur == = ]]; then
    option=$previous cur=
  elif [[ $previous == = ]]; then
    option=${COMP_WORDS[COMP_CWORD-2]}
  elif [[ $cur == --*=* ]]; then
    option=${cur%%=*} before=$option= cur=${cur#*=}
  else
    option=$previous
  fi
  # An open quote is not part of the value.
  [[ $cur == [\"\']* ]] && quote=${cur:0:1} cur=${cur:1}
  COMPREPLY=()

  for ((i = 1; i < COMP_CWORD; i++)); do
    word=${COMP_WORDS[i]}
    case $word in
      @names-with-value@)
        [[ ${COMP_WORDS[i+1]} == = ]] && ((i++))
        ((i++))
        ;;
      @commands-pattern@)
        command=$word
        break
        ;;
    esac
  done

  local formats='@formats@'
  case $command in
@formats-of-commands@  esac

  local words=
  case $option in
@values@    *)
      if [[ $cur == -* ]]; then
        words='@common@'
        case $command in
@options-of-commands@        esac
      else
        case $command in
          '') words='@commands@' ;;
@words-of-commands@        esac
      fi
      ;;
  esac
  local IFS=$'\n'
  COMPREPLY=($(compgen -P "$before" -W "${words// /$'\n'}" -- "$cur"))
}

complete -F _xmla_import xmla-import
)script";

std::string NamesOf(const std::vector<CompletedOption>& options) {
  std::vector<std::string> names;
  for (const CompletedOption& option : options) {
    if (!option.shortName.empty()) names.push_back(option.shortName);
    names.push_back(option.name);
  }
  return Spaced(names);
}

/// The commands of a branch that completes this value.
std::vector<std::string> Branch(const CompletedValue& value) {
  switch (value.kind) {
    case Kind::kFile:
      return {"compopt -o default", "return"};
    case Kind::kFolder:
      return {"compopt -o dirnames", "return"};
    case Kind::kServers:
      return {R"(_xmla_import_servers "$before" "$cur" "$quote")", "return"};
    case Kind::kFormats:
      return {"words=$formats"};
    case Kind::kWords:
      return {"words='" + Spaced(value.words) + "'"};
    case Kind::kList:
      return {"words=' " + Spaced(value.words) + " '",
              "compopt -o nospace",
              "if [[ $cur == *,* ]]; then",
              "  IFS=, read -ra list <<<\"${cur%,*}\"",
              R"(  for word in "${list[@]}"; do words=${words/" $word "/ }; done)",
              "  before+=${cur%,*}, cur=${cur##*,}",
              "fi"};
    case Kind::kAny:
    case Kind::kNone:
      break;
  }
  return {"return"};
}

std::string Values(const CompletionModel& model) {
  // The names of options that have the same branch.
  std::vector<std::pair<std::vector<std::string>, std::vector<std::string>>> branches;
  for (const CompletedOption& option : model.OptionsWithValue()) {
    const std::vector<std::string> branch = Branch(option.value);
    auto found = std::ranges::find(branches, branch, [](const auto& each) { return each.second; });
    if (found == branches.end()) found = branches.insert(found, {{}, branch});
    found->first.push_back(option.name);
    if (!option.shortName.empty()) found->first.push_back(option.shortName);
  }
  std::string text;
  for (const auto& [names, branch] : branches)
    text += "    " + Separated(names, " | ") + ")\n" + Indented("      ", branch) + "      ;;\n";
  return text;
}

}  // namespace

std::string BashCompletion(const CompletionModel& model) {
  std::string formats;
  std::string options;
  std::string words;
  // Without a command, all options of every command.
  options += "          '') words+=' " + NamesOf(model.connectionOptions) + "' ;;\n";
  for (const CompletedCommand& command : model.commands) {
    const std::string branch = command.name + ") ";
    if (!command.formats.empty())
      formats += "    " + branch + "formats='" + Spaced(command.formats) + "' ;;\n";
    std::string own = NamesOf(command.options);
    if (command.connects) own += (own.empty() ? "" : " ") + NamesOf(model.connectionOptions);
    if (!command.hasOptions)
      options += "          " + branch + "words= ;;\n";
    else if (!own.empty())
      options += "          " + branch + "words+=' " + own + "' ;;\n";
    if (command.words.kind == Kind::kNone) continue;
    words += "          " + command.name + ")\n" + Indented("            ", Branch(command.words)) +
             "            ;;\n";
  }
  return Filled(kBashScript, {{"@names-with-value@", Separated(model.NamesWithValue(), " | ")},
                              {"@commands-pattern@", Separated(model.CommandNames(), " | ")},
                              {"@formats@", Spaced(model.formats)},
                              {"@formats-of-commands@", formats},
                              {"@values@", Values(model)},
                              {"@common@", NamesOf(model.commonOptions)},
                              {"@options-of-commands@", options},
                              {"@commands@", Spaced(model.CommandNames())},
                              {"@words-of-commands@", words}});
}
