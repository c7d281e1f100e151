#pragma once

#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

struct Arguments;

/// What an option is about.
enum class OptionPart {
  kOther,     ///< the import and its output
  kService,   ///< chooses the service; at most one of them
  kAccess,    ///< log-in and transport; without effect for the sample provider
  kTransfer,  ///< transport and kind of any service
  kReading,   ///< what is read from any service; no key of the server file
};

/// The value of an option that is the name of a file.
enum class OptionFile {
  kNone,    ///< not a file
  kFile,    ///< a file
  kSecret,  ///< a file whose first line is a secret; - is standard input
  kFolder,  ///< a folder
};

/// Returns all values that are allowed.
using AllowedValues = std::vector<std::string> (*)();

/// An option of a command, or of every command.
struct CommandOption {
  const char* name;
  /// For the help. {formats} and {targets} stand for the lists of formats and target kinds.
  const char* help;
  /// Where its value is stored: a flag, a text, a text that may be empty, a number with or without
  /// default, or a list of texts.
  std::variant<bool Arguments::*, std::string Arguments::*, std::optional<std::string> Arguments::*,
               int Arguments::*, std::optional<int> Arguments::*,
               std::vector<std::string> Arguments::*>
      value;
  const char* placeholder = "NAME";  ///< of the value in the help; a flag has none
  int min = 1;                       ///< of a number
  int max = 0;                       ///< of a number
  bool mayRepeat = false;            ///< only a list may be repeated
  const char* shortName = "";        ///< such as -o
  OptionPart part = OptionPart::kOther;
  OptionFile file = OptionFile::kNone;
  const char* variable = "";       ///< environment variable with the value if the option is absent
  AllowedValues values = nullptr;  ///< null: any value. The formats are another table
  bool isList = false;             ///< the value is a list of `values`, separated by commas

  /// True if the option stores its value there.
  bool Stores(std::string Arguments::*place) const {
    const auto* const text = std::get_if<std::string Arguments::*>(&value);
    return text && *text == place;
  }
};

/// Name, help text and options of a command.
struct CommandForm {
  const char* name;
  const char* help;
  std::span<const CommandOption> options;
  /// With this number of words, the command needs no connection. Connection options are errors
  /// then.
  std::size_t wordsWithoutConnection = 1;
  std::string_view words = {};  ///< such as "OLD [NEW]"
  std::size_t minWords = 0;
  std::size_t maxWords = 0;
  std::string_view word = "file";      ///< what each word is
  AllowedValues wordValues = nullptr;  ///< null: the words are files

  bool NeedsConnection(std::size_t wordCount) const { return wordCount < wordsWithoutConnection; }
};
