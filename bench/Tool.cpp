#include "Tool.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>

namespace {

/// Discards the output, except that of `kept`, which goes to `end`.
pid_t Start(const std::string& path, const std::vector<std::string>& arguments, int kept = -1,
            int end = -1) {
  std::vector<char*> argv{const_cast<char*>(path.c_str())};  // NOLINT: posix_spawn changes nothing
  for (const std::string& argument : arguments)
    argv.push_back(const_cast<char*>(argument.c_str()));  // NOLINT
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (const int output : {STDOUT_FILENO, STDERR_FILENO})
    if (output == kept)
      posix_spawn_file_actions_adddup2(&actions, end, output);
    else
      posix_spawn_file_actions_addopen(&actions, output, "/dev/null", O_WRONLY, 0);
  pid_t child = 0;
  const int failure = posix_spawn(&child, path.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (failure != 0) throw std::runtime_error("cannot start the program: " + path);
  return child;
}

std::string PathOf(const std::string& program) {
  if (program.find('/') != std::string::npos) return program;
  return std::filesystem::read_symlink("/proc/self/exe").parent_path() / program;
}

/// Returns true if the process has ended; throws if it failed.
bool HasEnded(pid_t child, int options, const std::string& path) {
  int status = 0;
  const pid_t ended = waitpid(child, &status, options);
  if (ended == 0) return false;
  if (ended != child || status != 0) throw std::runtime_error("the program failed: " + path);
  return true;
}

/// Peak memory so far; 0 if the process has ended.
double PeakOf(pid_t process) {
  constexpr std::string_view kPeak = "VmHWM:";
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(status, line);)
    if (line.starts_with(kPeak)) return std::stod(line.substr(kPeak.size())) * 1024;
  return 0;
}

/// Starts a program whose standard output or error can be read from `end`.
pid_t StartWithPipe(const std::string& path, const std::vector<std::string>& arguments, int kept,
                    std::FILE*& end) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("cannot create a pipe");
  const pid_t child = Start(path, arguments, kept, ends[1]);
  close(ends[1]);
  end = fdopen(ends[0], "r");
  return child;
}

}  // namespace

void RunProgram(const std::string& program, const std::vector<std::string>& arguments) {
  const std::string path = PathOf(program);
  HasEnded(Start(path, arguments), 0, path);
}

double PeakMemoryOf(const std::string& program, const std::vector<std::string>& arguments) {
  const std::string path = PathOf(program);
  const pid_t child = Start(path, arguments);
  double peak = 0;
  while (!HasEnded(child, WNOHANG, path)) {
    peak = std::max(peak, PeakOf(child));
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return peak;
}

std::string ErrorOutputOf(const std::string& program, const std::vector<std::string>& arguments) {
  const std::string path = PathOf(program);
  std::FILE* end = nullptr;
  const pid_t child = StartWithPipe(path, arguments, STDERR_FILENO, end);
  std::string text;
  for (int c; (c = std::getc(end)) != EOF;) text += static_cast<char>(c);
  std::fclose(end);
  HasEnded(child, 0, path);
  return text;
}

BackgroundProgram::BackgroundProgram(const std::string& program,
                                     const std::vector<std::string>& arguments) {
  constexpr std::size_t kLines = 3;
  std::FILE* end = nullptr;
  m_process = StartWithPipe(PathOf(program), arguments, STDOUT_FILENO, end);
  std::string line;
  for (int c; m_lines.size() < kLines && (c = std::getc(end)) != EOF;)
    if (c == '\n')
      m_lines.push_back(std::exchange(line, {}));
    else
      line += static_cast<char>(c);
  std::fclose(end);
  if (m_lines.size() < kLines) throw std::runtime_error("the program failed: " + program);
}

BackgroundProgram::~BackgroundProgram() {
  kill(m_process, SIGTERM);
  waitpid(m_process, nullptr, 0);
}
