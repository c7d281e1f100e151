#include "Output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "Arguments.h"
#include "Text.h"

namespace {

bool standardOutputIsClosed = false;

[[noreturn]] void Fail(const std::string& place, int error) {
  throw OutputError("the result cannot be written to " + place + ": " + std::strerror(error));
}

/// Writes everything; 0 or the error number.
int WriteAll(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(file, text.data(), text.size());
    if (count >= 0)
      text.remove_prefix(static_cast<std::size_t>(count));
    else if (errno != EINTR)
      return errno;
  }
  return 0;
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

void WriteSpecial(const std::filesystem::path& file, const std::string& shown,
                  std::string_view text) {
  const int special = open(file.c_str(), O_WRONLY | O_CLOEXEC);
  if (special < 0) Fail(shown, errno);
  const int failure = WriteAll(special, text);
  close(special);
  if (failure != 0) Fail(shown, failure);
}

void WriteAndRename(const std::filesystem::path& file, const std::string& shown,
                    std::string_view text) {
  std::string beside = file.string() + ".XXXXXX";
  const int unfinished = mkostemp(beside.data(), O_CLOEXEC);
  if (unfinished < 0) Fail(shown, errno);
  int failure = WriteAll(unfinished, text);
  if (failure == 0 && fchmod(unfinished, FileMode(file)) != 0) failure = errno;
  if (failure == 0 && fsync(unfinished) != 0) failure = errno;
  if (close(unfinished) != 0 && failure == 0) failure = errno;
  if (failure == 0 && std::rename(beside.c_str(), file.c_str()) != 0) failure = errno;
  if (failure == 0) return;
  unlink(beside.c_str());
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

bool Output::IsTerminal() const { return m_file.empty() && isatty(STDOUT_FILENO) == 1; }

void Output::Write(std::string_view text) const {
  if (text.empty()) return;
  if (m_file.empty()) {
    if (standardOutputIsClosed) Fail("standard output", EBADF);
    const int failure = WriteAll(STDOUT_FILENO, text);
    if (failure != 0 && failure != EPIPE) Fail("standard output", failure);
    return;
  }
  const std::filesystem::path file = Target(m_file);
  const std::string shown = Listed({m_file});
  if (IsSpecial(file))
    WriteSpecial(file, shown, text);
  else
    WriteAndRename(file, shown, text);
}
