#include "call/CompletionModel.h"

namespace {

using Kind = CompletedValue::Kind;

constexpr std::string_view kFishScript =
    R"script(# Completion of xmla-import in fish, made by: xmla-import completion fish

# Prints the command of the call.
function __xmla_import_command
    set -l is_value no
    for word in (commandline -opc)[2..-1]
        if test $is_value = yes
            set is_value no
            continue
        end
        switch $word
            case @names-with-value@
                set is_value yes
            case @commands@
                echo $word
                return
        end
    end
end

# True if the command is one of the arguments.
function __xmla_import_is
    set -l command (__xmla_import_command)
    test -n "$command"; and contains -- $command $argv
end

function __xmla_import_connects
    set -l command (__xmla_import_command)
    test -z "$command"; or contains -- $command @connecting@
end

# Values of an option. What follows the tab replaces the description of the option, which would be repeated.
function __xmla_import_values
    for value in $argv
        printf '%s\t\n' $value
    end
end

function __xmla_import_formats
    switch (__xmla_import_command)
@formats-of-commands@        case '*'
            __xmla_import_values @formats@
    end
end

function __xmla_import_servers
    set -l tool (commandline -opc | string replace -r '^~/' $HOME/)[1]
    __xmla_import_values ($tool servers --format json 2>/dev/null |
        sed -n '/^ *"name": "\(.*\)",$/{s//\1/;s/\\\\\(["\\\\]\)/\1/g;p;}')
end

# The names that continue a list with commas. The word may begin with a quote.
function __xmla_import_list
    set -l list (commandline -ct | string replace -r '^(--[^=]*=)?["\']?' '' | string replace -rf '^(.*,)[^,]*$' '$1')
    for name in $argv
        contains -- $name (string split , -- "$list"); or __xmla_import_values "$list$name"
    end
end

complete -c xmla-import -f
@lines@)script";

std::string Quoted(std::string_view text) {
  std::string quoted = "'";
  for (const char c : text) {
    if (c == '\'' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + "'";
}

std::string ValueArguments(const CompletedValue& value) {
  switch (value.kind) {
    case Kind::kFile:
      return " -r -F";
    case Kind::kFolder:
      return " -x -a '(__fish_complete_directories)'";
    case Kind::kServers:
      return " -x -a '(__xmla_import_servers)'";
    case Kind::kFormats:
      return " -x -a '(__xmla_import_formats)'";
    case Kind::kWords:
      return " -x -a " + Quoted("(__xmla_import_values " + Spaced(value.words) + ")");
    case Kind::kList:
      return " -x -a " + Quoted("(__xmla_import_list " + Spaced(value.words) + ")");
    case Kind::kAny:
      return " -x";
    case Kind::kNone:
      break;
  }
  return {};
}

std::string Lines(const std::vector<CompletedOption>& options, const std::string& condition) {
  std::string lines;
  for (const CompletedOption& option : options) {
    lines += "complete -c xmla-import -n " + Quoted(condition);
    if (!option.shortName.empty()) lines += " -s " + option.shortName.substr(1);
    lines += " -l " + option.name.substr(2) + ValueArguments(option.value) + " -d " +
             Quoted(option.summary) + "\n";
  }
  return lines;
}

}  // namespace

std::string FishCompletion(const CompletionModel& model) {
  std::string formats;
  std::string lines;
  std::vector<std::string> connecting;
  for (const CompletedCommand& command : model.commands) {
    lines += "complete -c xmla-import -n 'test -z (__xmla_import_command)' -a " + command.name +
             " -d " + Quoted(command.summary) + "\n";
    if (command.connects) connecting.push_back(command.name);
    if (!command.formats.empty())
      formats += "        case " + command.name + "\n            __xmla_import_values " +
                 Spaced(command.formats) + "\n";
  }
  lines += Lines(model.commonOptions, "not __xmla_import_is help");
  lines += Lines(model.connectionOptions, "__xmla_import_connects");
  for (const CompletedCommand& command : model.commands) {
    const std::string condition = "__xmla_import_is " + command.name;
    lines += Lines(command.options, condition);
    if (command.words.kind == Kind::kFile)
      lines += "complete -c xmla-import -n " + Quoted(condition) + " -F\n";
    else if (command.words.kind != Kind::kNone)
      lines += "complete -c xmla-import -n " + Quoted(condition) + " -a " +
               Quoted(Spaced(command.words.words)) + "\n";
  }
  return Filled(kFishScript, {{"@names-with-value@", Spaced(model.NamesWithValue())},
                              {"@commands@", Spaced(model.CommandNames())},
                              {"@connecting@", Spaced(connecting)},
                              {"@formats-of-commands@", formats},
                              {"@formats@", Spaced(model.formats)},
                              {"@lines@", lines}});
}
