#include "ServerProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>

namespace login {
namespace {

constexpr int kPollMilliseconds = 20;
constexpr int kStopMilliseconds = 5000;

/// Runs in the keeper: starts the server in its own process group, and ends the group when the
/// lifeline ends. SIGTERM comes first, so that the server can remove its files. A parent-death
/// signal would not do, because a server that changes its user loses it, and because its own
/// children do not have it. Calls only async-signal-safe functions.
[[noreturn]] void Keep(int lifeline, int output, char* const* command, char* const* environment) {
  setsid();
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  // Another server's lifeline must not stay open here.
  dup2(lifeline, 0);
  dup2(output, 1);
  dup2(output, 2);
  close_range(3, ~0U, 0);
  const pid_t server = fork();
  if (server < 0) _exit(127);
  if (server == 0) {
    setpgid(0, 0);
    const int nothing = open("/dev/null", O_RDONLY);
    dup2(nothing, 0);
    close(nothing);
    execve(command[0], command, environment);
    _exit(127);
  }
  setpgid(server, server);
  pollfd wait{0, 0, 0};  // POLLHUP is always reported
  while (poll(&wait, 1, kPollMilliseconds) <= 0)
    if (waitpid(server, nullptr, WNOHANG) != 0) break;
  kill(-server, SIGTERM);
  for (int waited = 0; waited < kStopMilliseconds; waited += kPollMilliseconds) {
    if (waitpid(server, nullptr, WNOHANG) != 0) break;
    poll(nullptr, 0, kPollMilliseconds);
  }
  kill(-server, SIGKILL);
  while (waitpid(-1, nullptr, 0) > 0) continue;
  _exit(0);
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

ServerProcess::ServerProcess(std::vector<std::string> command,
                             const std::map<std::string, std::string>& environment,
                             const std::string& output)
    : m_output(output) {
  std::vector<std::string> variables{"PATH=/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL=C.UTF-8"};
  for (const auto& [name, value] : environment) variables.push_back(name + "=" + value);
  const std::vector<char*> words = Pointers(command);
  const std::vector<char*> texts = Pointers(variables);
  int pipe[2];
  const int file = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (file < 0 || pipe2(pipe, O_CLOEXEC) != 0) throw std::runtime_error("no file " + output);
  m_keeper = fork();
  if (m_keeper == 0) Keep(pipe[0], file, words.data(), texts.data());
  close(pipe[0]);
  close(file);
  m_lifeline = pipe[1];
  if (m_keeper < 0) throw std::runtime_error("no process for " + command[0]);
}

ServerProcess::~ServerProcess() {
  close(m_lifeline);
  if (m_keeper > 0) waitpid(m_keeper, nullptr, 0);
}

bool ServerProcess::HasEnded() {
  if (m_keeper > 0 && waitpid(m_keeper, nullptr, WNOHANG) == m_keeper) m_keeper = 0;
  return m_keeper == 0;
}

bool ServerProcess::Await(const std::function<bool()>& isReady) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!isReady()) {
    if (HasEnded()) return false;
    if (std::chrono::steady_clock::now() > end)
      throw std::runtime_error("a server does not start: " + FileText(m_output));
    std::this_thread::sleep_for(std::chrono::milliseconds(kPollMilliseconds));
  }
  return true;
}

std::string FileText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace login
