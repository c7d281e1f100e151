#include "Output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <system_error>
#include <thread>
#include <utility>

#include "Arguments.h"
#include "Interrupt.h"
#include "PatientWriting.h"
#include "Text.h"

namespace {

bool standardOutputIsClosed = false;

[[noreturn]] void Fail(const std::string& place, int error) {
  throw OutputError("the result cannot be written to " + place + ": " + std::strerror(error));
}

/// Writes everything; 0 or the error number, EINTR when it was to stop.
int WriteAll(int file, std::string_view text, const std::function<bool()>& isToStop) {
  constexpr std::size_t kBlock = std::size_t{1} << 20;
  while (!text.empty()) {
    if (isToStop()) return EINTR;
    const ssize_t count = write(file, text.data(), std::min(text.size(), kBlock));
    if (count >= 0)
      text.remove_prefix(static_cast<std::size_t>(count));
    else if (errno != EINTR)
      return errno;
  }
  return isToStop() ? EINTR : 0;
}

/// False when there was an interruption, and yet all is written.
bool Judge(const Ending& ending, const std::string& place) {
  if (ending.error == EINTR)
    throw OutputInterrupted("interrupted while nobody read " + place +
                            "; the result there is cut short");
  if (ending.error != 0) Fail(place, ending.error);
  return !ending.isInterrupted;
}

/// The file that a chain of links leads to, so that renaming replaces it and not the link.
std::filesystem::path Target(const std::string& file) {
  std::error_code error;
  const std::filesystem::path target = std::filesystem::weakly_canonical(file, error);
  return error ? std::filesystem::path(file) : target;
}

/// A device or a pipe takes text but must not be replaced.
bool IsSpecial(const std::filesystem::path& file) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(file, error);
  return std::filesystem::exists(status) && !std::filesystem::is_regular_file(status);
}

/// The mode that the finished file gets: that of the one it replaces, else what is usual.
mode_t FileMode(const std::filesystem::path& file) {
  struct stat former {};
  if (stat(file.c_str(), &former) == 0) return former.st_mode & 07777;
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

/// Opens a device or a pipe, and awaits the pipe's reader; throws when that takes too long.
int OpenSpecial(const std::filesystem::path& file, const std::string& shown) {
  for (;;) {
    const bool isOver = Patience::IsOver();
    const int special = open(file.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (special >= 0) return special;
    const int failure = errno;
    std::error_code error;
    // A pipe without a reader; a socket's name fails in the same way, and always will.
    const bool canWait = failure == ENXIO && std::filesystem::is_fifo(file, error);
    if (!canWait && failure != EINTR) Fail(shown, failure);
    if (isOver)
      throw OutputInterrupted("interrupted while nobody read " + shown +
                              "; the result is not written");
    std::this_thread::sleep_for(Patience::kSlice);
  }
}

bool WriteSpecial(const std::filesystem::path& file, const std::string& shown,
                  std::string_view text) {
  const int special = OpenSpecial(file, shown);
  const Ending ending = WritePatiently(special, text);
  close(special);
  return Judge(ending, shown);
}

bool WriteToStandardOutput(std::string_view text) {
  const std::string shown = "standard output";
  if (standardOutputIsClosed) Fail(shown, EBADF);
  Ending ending = WriteToStream(STDOUT_FILENO, text);
  if (ending.error == EPIPE) ending.error = 0;
  return Judge(ending, shown);
}

void WriteAndRename(const std::filesystem::path& file, const std::string& shown,
                    std::string_view text, const std::function<bool()>& isToStop) {
  std::string beside = file.string() + ".XXXXXX";
  const int unfinished = mkostemp(beside.data(), O_CLOEXEC);
  if (unfinished < 0) Fail(shown, errno);
  int failure = WriteAll(unfinished, text, isToStop);
  if (failure == 0 && fchmod(unfinished, FileMode(file)) != 0) failure = errno;
  if (failure == 0 && fsync(unfinished) != 0) failure = errno;
  if (close(unfinished) != 0 && failure == 0) failure = errno;
  const bool isStopped = failure == EINTR || (failure == 0 && isToStop());
  if (failure == 0 && !isStopped && std::rename(beside.c_str(), file.c_str()) != 0) failure = errno;
  if (failure == 0 && !isStopped) return;
  unlink(beside.c_str());
  if (isStopped)
    throw OutputInterrupted("interrupted before the result was in " + shown +
                            "; the file is as it was");
  Fail(shown, failure);
}

}  // namespace

void GuardStandardStreams() {
  for (int number = 0; number <= STDERR_FILENO; ++number) {
    if (fcntl(number, F_GETFD) >= 0 || errno != EBADF) continue;
    if (number == STDOUT_FILENO) standardOutputIsClosed = true;
    // The lowest free number is this one: those below it are open.
    if (open("/dev/null", O_RDWR) != number) std::abort();
  }
}

// Standard output by its names: opened anew it would lose its place, or what stands in it.
Output::Output(std::string file)
    : m_file(file == "-" || file == "/dev/stdout" || file == "/dev/fd/1" ? std::string()
                                                                         : std::move(file)) {}

void Output::Check() const {
  if (m_file.empty()) return;
  const std::filesystem::path file = Target(m_file);
  const std::string named = "--output " + Listed({m_file});
  std::error_code error;
  if (std::filesystem::is_directory(file, error)) throw UsageError(named + " is a directory");
  const std::filesystem::path place =
      IsSpecial(file) ? file : (file.has_parent_path() ? file.parent_path() : ".");
  if (access(place.c_str(), W_OK) != 0)
    throw UsageError(named + " cannot be written: " + std::strerror(errno));
}

bool Output::IsTerminal() const {
  if (m_file.empty()) return isatty(STDOUT_FILENO) == 1;
  const std::filesystem::path file = Target(m_file);
  std::error_code error;
  if (!std::filesystem::is_character_file(file, error)) return false;
  const int device = open(file.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (device < 0) return false;
  const bool isTerminal = isatty(device) == 1;
  close(device);
  return isTerminal;
}

bool Output::ReplacesAFile() const { return !m_file.empty() && !IsSpecial(Target(m_file)); }

bool Output::Write(std::string_view text, bool isPartial) const {
  if (text.empty()) return !Interrupt::Happened();
  if (m_file.empty()) return WriteToStandardOutput(text);
  const std::filesystem::path file = Target(m_file);
  const std::string shown = Listed({m_file});
  if (IsSpecial(file)) return WriteSpecial(file, shown, text);
  WriteAndRename(file, shown, text, [&] { return !isPartial && Interrupt::Happened(); });
  return true;
}
