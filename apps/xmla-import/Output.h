#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

/// The result could not be written; the text says where and why.
class OutputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// An interruption kept the result, or its end, from its place; the text says what is there now.
class OutputInterrupted : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Opens a descriptor that leads nowhere for each of the three standard ones that the process was
/// started without, so that no file or socket takes its number. To be called first of all.
void GuardStandardStreams();

/// Where the result goes: standard output, or a file that is written beside and renamed.
class Output {
 public:
  /// An empty name is standard output. Nothing is opened yet.
  explicit Output(std::string file);

  /// Throws UsageError when the file's folder cannot take a file: better now than after the import.
  void Check() const;
  /// True when what is written will be seen on a terminal.
  bool IsTerminal() const;
  /// True when the result is written to a file that exists under its name only once it is whole.
  bool ReplacesAFile() const;
  /// Writes the whole result; an empty one writes nothing and makes no file. A reader of standard
  /// output that has gone is no error. False when there was an interruption before all of it was in
  /// place. `isPartial` says that the text itself comes from an interrupted call: a file is
  /// replaced by it all the same. Throws OutputError, and OutputInterrupted when a file is left as
  /// it was or, after an interruption, nobody reads.
  bool Write(std::string_view text, bool isPartial = false) const;

 private:
  std::string m_file;
};
