#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "base/TrustedPath.h"
#include "output/NewFile.h"

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
/// started without, so that no file or socket takes its number. To be called first of all. False
/// when there is no standard output.
bool GuardStandardStreams();

/// Where the result goes: standard output, a device or pipe, or a file, which appears under its
/// name only when it is whole.
class Output {
 public:
  /// An empty name is standard output, as are "-" and the system's names for it. Finds the place,
  /// once and for all, and makes nothing there yet. Throws UsageError when the place cannot take a
  /// result.
  Output(const std::string& file, bool hasStandardOutput);

  /// True when what is written will be seen on a terminal.
  bool IsTerminal() const;
  /// Writes the next part of the result. A reader of standard output that has gone is no error.
  /// Throws OutputError, and OutputInterrupted when, after an interruption, nobody reads.
  void Write(std::string_view text);
  /// Ends the result; without any text, nothing is made. False when there was an interruption
  /// before all of it was in place. After an interruption, a file is replaced only if `isPartial`
  /// says that the result itself tells of it; else throws OutputInterrupted. Throws OutputError.
  bool Finish(bool isPartial);

 private:
  [[noreturn]] void Fail(int error) const;
  void WriteToStreamOrDevice(std::string_view text);

  std::string m_shown = "standard output";
  bool m_isOpen;                       ///< standard output was there
  std::optional<TrustedPath> m_place;  ///< nothing: standard output
  std::optional<NewFile> m_file;       ///< at a place for a file
  Descriptor m_stream;                 ///< writes without waiting; none before the first text
  bool m_isEmpty = true;
  bool m_isUnread = false;  ///< the reader has gone
  bool m_wasInterrupted = false;
};
