#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "call/Help.h"

// What can be completed, for the writers of completion scripts.

/// A value of an option, or a word of a command.
struct CompletedValue {
  enum class Kind {
    kNone,     ///< takes no value
    kAny,      ///< any text
    kFile,     ///< a file
    kFolder,   ///< a folder
    kServers,  ///< a name in the server file
    kFormats,  ///< a format of the command
    kWords,    ///< one of `words`
    kList,     ///< some of `words`, separated by commas
  };

  Kind kind = Kind::kNone;
  std::vector<std::string> words = {};
};

struct CompletedOption {
  std::string name;
  std::string shortName;  ///< may be empty
  std::string summary;
  std::string placeholder;  ///< of the value
  CompletedValue value;
  bool mayRepeat = false;
};

struct CompletedCommand {
  std::string name;
  std::string summary;
  bool hasOptions = true;                ///< including those of every command
  bool connects = false;                 ///< takes options about the connection
  std::vector<CompletedOption> options;  ///< of this command only
  CompletedValue words;
  std::vector<std::string> formats;
};

struct CompletionModel {
  std::vector<CompletedCommand> commands;
  std::vector<CompletedOption> connectionOptions;  ///< of commands that connect
  std::vector<CompletedOption> commonOptions;      ///< of every command
  std::vector<std::string> formats;

  std::vector<std::string> CommandNames() const;
  /// The options that take a value, each name once.
  std::vector<CompletedOption> OptionsWithValue() const;
  /// Their names, including short ones. The value is not the name of a command.
  std::vector<std::string> NamesWithValue() const;
};

std::string Separated(const std::vector<std::string>& texts, std::string_view separator);
/// The texts, separated by blanks.
inline std::string Spaced(const std::vector<std::string>& texts) { return Separated(texts, " "); }

/// The lines, each behind `indent` and with a line feed at its end.
std::string Indented(std::string_view indent, const std::vector<std::string>& lines);
/// The template with the texts in place of their names, such as @names@.
std::string Filled(std::string_view pattern,
                   const std::vector<std::pair<std::string_view, std::string>>& texts);

std::string BashCompletion(const CompletionModel& model);
std::string ZshCompletion(const CompletionModel& model);
std::string FishCompletion(const CompletionModel& model);
