#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/OutputError.h"
#include "base/TrustedPath.h"
#include "output/NewFile.h"

/// Opens /dev/null for each standard descriptor that is closed, so that no file or socket gets its
/// number. Call this first. False if standard output was closed.
bool OpenMissingStandardStreams();

/// The destination of the result: standard output, a device, a pipe, or a file that gets its name
/// only when it is complete.
class Output {
 public:
  /// An empty name, "-" and /dev/stdout are standard output. Resolves the path once, and creates
  /// nothing yet. Throws UsageError if the destination is not writable.
  Output(const std::string& file, bool hasStandardOutput);

  /// True if the destination is a terminal.
  bool IsTerminal() const;
  /// True if another program reads the result. It may write to the same terminal as the tool.
  bool IsPipe() const;
  /// Writes the next part of the result. A closed reader of standard output is not an error. Throws
  /// OutputError. Throws OutputInterrupted if the reader does not read after an interruption.
  void Write(std::string_view text);
  /// True if an interruption came before a stream or device had received everything.
  bool WasInterrupted() const { return m_wasInterrupted; }

  /// What happens to a file. Streams and devices have received everything already.
  enum class Ending {
    kReplace,  ///< the file is replaced
    kPartial,  ///< the file stays, and what was written gets a name beside it
    kKeep,     ///< the file stays, and what was written is dropped
  };
  /// Completes the output. Creates no file if nothing was written. Throws OutputError.
  void Finish(Ending ending);
  /// The file that was replaced or created, quoted; empty for streams, devices and an empty result.
  std::string Place() const;
  /// Describes for people where the result is, if it is not where it was requested: after kPartial
  /// and kKeep, and for files only. Otherwise empty.
  const std::string& Notice() const { return m_notice; }

 private:
  [[noreturn]] void Fail(int error) const;
  void WriteToStreamOrDevice(std::string_view text);

  std::string m_shownFile;  ///< the name as given
  std::string m_shown = "standard output";
  bool m_isOpen;                       ///< standard output was open at start
  std::optional<TrustedPath> m_place;  ///< nullopt: standard output
  std::optional<NewFile> m_file;       ///< if the destination is a file
  Descriptor m_stream;                 ///< non-blocking; opened by the first Write
  bool m_isEmpty = true;
  bool m_isReaderGone = false;  ///< the reader closed the pipe
  bool m_wasInterrupted = false;
  std::string m_notice;
};
