#include "output/Output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <thread>

#include "base/Interrupt.h"
#include "base/Text.h"
#include "call/UsageError.h"
#include "output/StreamWriting.h"

namespace {

// Names of standard output. Opening them again would reset the file position or truncate the file.
bool IsStandardOutput(const std::string& file) {
  return file.empty() || file == "-" || file == "/dev/stdout" || file == "/dev/fd/1";
}

/// True if the mode of the existing file allows no one to write. The tool could still replace the
/// file by a new one, but its owner does not expect that.
bool IsReadOnly(const TrustedPath& place) {
  return place.IsRegular() && (place.status.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0;
}

/// The directory that a path names, if it does not exist; else empty.
std::string MissingDirectory(const std::string& file) {
  std::error_code error;
  const std::filesystem::path directory = std::filesystem::path(file).parent_path();
  const bool exists = directory.empty() || std::filesystem::exists(directory, error) || error;
  return exists ? "" : directory.string();
}

/// Checks whether the file can be replaced, or the device written to. Returns 0 or an error number.
int CheckAccess(const TrustedPath& place) {
  const std::string itself = "/proc/self/fd/" + std::to_string(place.file.Number());
  const int failed = place.IsSpecial() ? faccessat(AT_FDCWD, itself.c_str(), W_OK, AT_EACCESS)
                                       : faccessat(place.directory.Number(), ".", W_OK, AT_EACCESS);
  if (failed != 0) return errno;
  struct stat directory {};
  if (fstat(place.directory.Number(), &directory) != 0) return errno;
  // In a sticky directory, only the owners of the directory and of the file can replace the file.
  const uid_t caller = geteuid();
  const bool isKept = place.IsRegular() && (directory.st_mode & S_ISVTX) && caller != 0 &&
                      caller != directory.st_uid && caller != place.status.st_uid;
  return isKept ? EPERM : 0;
}

TrustedPath Find(const std::string& file) {
  const std::string named = "--output " + Listed({file});
  try {
    TrustedPath place = TrustedPath::Find(file);
    // A link in /proc/self/fd to a regular file: replace the file it refers to.
    if (place.IsRegular() && !place.openFile.empty()) place = TrustedPath::Find(place.openFile);
    if (place.IsDirectory()) throw UsageError(named + " is a directory");
    if (const int error = CheckAccess(place)) throw PathError(std::strerror(error));
    if (IsReadOnly(place))
      throw PathError("the file is read-only; make it writable, or give another name");
    return place;
  } catch (const PathError& error) {
    if (const std::string directory = MissingDirectory(file); !directory.empty())
      throw UsageError(named + " cannot be written: the directory " + Listed({directory}) +
                       " does not exist; create it, or give another name");
    throw UsageError(named + " cannot be written: " + OneLine(error.what()));
  }
}

/// Opens a device or pipe. Waits for the reader of a pipe, and throws if that takes too long after
/// an interruption.
Descriptor OpenSpecial(const TrustedPath& place, const std::string& shown) {
  for (;;) {
    const bool hasTimedOut = g_resultTimeout.HasTimedOut();
    Descriptor special = place.Open(O_WRONLY);
    // ENXIO: a pipe without a reader. For a socket the same error is permanent.
    const bool canWait = errno == EINTR || (errno == ENXIO && S_ISFIFO(place.status.st_mode));
    if (special.IsOpen() || !canWait) return special;
    if (hasTimedOut)
      throw OutputInterrupted("interrupted: " + shown +
                              " has no reader, so the result was not written");
    std::this_thread::sleep_for(ReaderTimeout::kSlice);
  }
}

/// The directory of the written file, with a slash at its end, as the caller may name it: that of
/// the option, or the complete path if a link leads elsewhere.
std::string DirectoryOf(const std::string& file, const TrustedPath& place) {
  std::error_code error;
  if (!std::filesystem::is_symlink(file, error)) return file.substr(0, file.rfind('/') + 1);
  const std::string opened = "/proc/self/fd/" + std::to_string(place.directory.Number());
  return std::filesystem::read_symlink(opened, error).string() + "/";
}

}  // namespace

bool OpenMissingStandardStreams() {
  bool hasStandardOutput = true;
  for (int number = 0; number <= STDERR_FILENO; ++number) {
    if (fcntl(number, F_GETFD) >= 0 || errno != EBADF) continue;
    if (number == STDOUT_FILENO) hasStandardOutput = false;
    // open() returns the lowest free number, which is this one.
    if (open("/dev/null", O_RDWR) != number) std::abort();
  }
  return hasStandardOutput;
}

Output::Output(const std::string& file, bool hasStandardOutput) : m_isOpen(hasStandardOutput) {
  if (IsStandardOutput(file)) return;
  m_place = Find(file);
  m_shownFile = file;
  m_shown = Listed({file});
  if (!m_place->IsSpecial()) m_file.emplace(*m_place);
}

void Output::Fail(int error) const {
  const std::string kept = m_file && m_place->Exists() ? "; " + m_shown + " is unchanged" : "";
  throw OutputError("the result cannot be written to " + m_shown + ": " + std::strerror(error) +
                    kept);
}

std::string Output::Place() const { return m_file && !m_isEmpty ? m_shown : std::string(); }

bool Output::IsTerminal() const {
  if (!m_place) return isatty(STDOUT_FILENO) == 1;
  if (!m_place->IsSpecial() || !S_ISCHR(m_place->status.st_mode)) return false;
  const Descriptor device = m_place->Open(O_WRONLY);
  return device.IsOpen() && isatty(device.Number()) == 1;
}

bool Output::IsPipe() const {
  struct stat status {};
  if (m_place)
    status = m_place->status;
  else if (fstat(STDOUT_FILENO, &status) != 0)
    return false;
  return S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode);
}

void Output::Write(std::string_view text) {
  if (text.empty() || m_isReaderGone) return;
  m_isEmpty = false;
  if (!m_file) return WriteToStreamOrDevice(text);
  if (const int error = m_file->Append(text)) Fail(error);
}

void Output::WriteToStreamOrDevice(std::string_view text) {
  if (!m_place && !m_isOpen) Fail(EBADF);
  if (m_place && !m_stream.IsOpen()) {
    m_stream = OpenSpecial(*m_place, m_shown);
    if (!m_stream.IsOpen()) Fail(errno);
  }
  const WriteOutcome ending =
      m_place ? WriteWithTimeout(m_stream.Number(), text) : WriteToStandardOutput(text);
  m_wasInterrupted |= ending.isInterrupted;
  if (ending.error == EINTR)
    throw OutputInterrupted("interrupted: " + m_shown +
                            " has no reader, so the result there is truncated");
  if (ending.error == EPIPE && !m_place)
    m_isReaderGone = true;
  else if (ending.error != 0)
    Fail(ending.error);
}

void Output::Finish(Ending ending) {
  if (!m_file) return;
  if (ending == Ending::kReplace) {
    if (m_isEmpty) return;
    if (const int error = m_file->Finish()) Fail(error);
    return;
  }
  m_notice = m_place->Exists() ? m_shown + " is unchanged" : m_shown + " was not created";
  if (ending == Ending::kKeep || m_isEmpty) return;
  std::string name;
  if (const int error = m_file->FinishPartial(name))
    throw OutputError(
        m_notice + ", and the partial result cannot be kept next to it: " + std::strerror(error));
  m_notice += "; the partial result is in " + Listed({DirectoryOf(m_shownFile, *m_place) + name});
}
