#include "tool/ToolProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <csignal>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <thread>

#include "tool/DocumentCheck.h"

namespace tool {
namespace {

// Variables that would make a run depend on the user who runs the tests.
constexpr std::string_view kDropped[] = {
    "XMLA_IMPORT_", "OT_XMLA_IMPORT_", "MORVEN_",         "http_proxy=",
    "HTTP_PROXY=",  "https_proxy=",    "HTTPS_PROXY=",    "ftp_proxy=",
    "FTP_PROXY=",   "all_proxy=",      "ALL_PROXY=",      "no_proxy=",
    "NO_PROXY=",    "SSL_CERT_",       "CURL_CA_BUNDLE=", "REQUESTS_CA_BUNDLE=",
    "CURL_SSL_",    "SSLKEYLOGFILE=",  "OPENSSL_",        "NO_COLOR=",
    "TERM="};

/// A caller may run the tests in the background with interactive signals ignored. The tool would
/// then also ignore them.
[[maybe_unused]] const bool kSignalsAreUsual = [] {
  for (const int signal : {SIGINT, SIGTERM, SIGQUIT, SIGHUP}) std::signal(signal, SIG_DFL);
  return true;
}();

/// The two ends of a stream of the child: the test's and the child's.
struct Ends {
  int ours = -1;
  int theirs = -1;
};

Ends Pipe(bool weRead) {
  int pair[2];
  if (pipe2(pair, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  return weRead ? Ends{pair[0], pair[1]} : Ends{pair[1], pair[0]};
}

Ends Terminal() {
  const int ours = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (ours < 0 || grantpt(ours) != 0 || unlockpt(ours) != 0) throw std::runtime_error("no pty");
  const int theirs = open(ptsname(ours), O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (theirs < 0) throw std::runtime_error("no terminal");
  return {ours, theirs};
}

Ends OutputEnds(Stream stream) {
  switch (stream) {
    case Stream::kPipe:
      return Pipe(true);
    case Stream::kTerminal:
      return Terminal();
    case Stream::kFull:
      return {-1, open("/dev/full", O_WRONLY | O_CLOEXEC)};
    case Stream::kReaderGone: {
      Ends ends = Pipe(true);
      close(ends.ours);
      ends.ours = -1;
      return ends;
    }
    case Stream::kUnread: {
      const Ends ends = Pipe(true);
      fcntl(ends.theirs, F_SETPIPE_SZ, 4 * PIPE_BUF);
      return ends;
    }
    case Stream::kClosed:
    case Stream::kAsOut:
      break;
  }
  return {};
}

bool IsCaptured(Stream stream) { return stream == Stream::kPipe || stream == Stream::kTerminal; }

std::vector<std::string> Environment(const std::map<std::string, std::string>& additional) {
  std::vector<std::string> variables;
  for (char** entry = environ; *entry; ++entry) {
    const std::string_view variable = *entry;
    const auto matches = [&](std::string_view prefix) { return variable.starts_with(prefix); };
    if (std::any_of(std::begin(kDropped), std::end(kDropped), matches)) continue;
    if (!additional.contains(std::string(variable.substr(0, variable.find('=')))))
      variables.emplace_back(variable);
  }
  for (const auto& [name, value] : additional) variables.push_back(name + "=" + value);
  variables.push_back("SOURCE_DATE_EPOCH=0");  // else an HTML report contains the time
  return variables;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

void PutAt(int theirs, int number) {
  if (theirs < 0)
    close(number);
  else
    dup2(theirs, number);
}

/// What the child becomes. A negative descriptor closes the stream.
struct Child {
  char* const* argv;
  char* const* variables;
  std::string terminal;  // path; empty: no controlling terminal
  bool inputIsTerminal;
  int in, out, err;
};

/// Starts the tool without a copy of this program's memory, which is large with sanitizers.
pid_t Spawn(const Child& child) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  // The first terminal that a session leader opens becomes its controlling terminal.
  if (!child.terminal.empty())
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, child.terminal.c_str(), O_RDWR, 0);
  if (!child.inputIsTerminal) posix_spawn_file_actions_adddup2(&actions, child.in, STDIN_FILENO);
  const std::pair<int, int> outputs[] = {{child.out, STDOUT_FILENO}, {child.err, STDERR_FILENO}};
  for (const auto& [theirs, number] : outputs) {
    if (theirs < 0)
      posix_spawn_file_actions_addclose(&actions, number);
    else
      posix_spawn_file_actions_adddup2(&actions, theirs, number);
  }
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF);
  sigset_t usual;
  sigemptyset(&usual);
  sigaddset(&usual, SIGPIPE);
  posix_spawnattr_setsigdefault(&attributes, &usual);
  pid_t process = -1;
  const int failed =
      posix_spawn(&process, child.argv[0], &actions, &attributes, child.argv, child.variables);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return failed ? -1 : process;
}

/// Starts the tool from a copy of this program, which calls `prepare` first. Supports no terminal.
pid_t ForkAndPrepare(const Child& child, const std::function<void()>& prepare) {
  const pid_t process = fork();
  if (process != 0) return process;
  setsid();
  // All descriptors above the standard ones have the close-on-exec flag.
  dup2(child.in, STDIN_FILENO);
  PutAt(child.out, STDOUT_FILENO);
  PutAt(child.err, STDERR_FILENO);
  std::signal(SIGPIPE, SIG_DFL);
  prepare();
  execve(child.argv[0], child.argv, child.variables);
  _exit(127);
}

/// The text of a stream of the child, up to its end.
class Capture {
 public:
  Capture(int file, std::string& text) : m_file(file), m_text(&text) {}
  bool Open() const { return m_file >= 0; }
  pollfd Wait() const { return {m_file, POLLIN, 0}; }
  /// Reads what is available; closes at the end (which a terminal reports as an error).
  void Read() {
    char block[8192];
    const ssize_t count = read(m_file, block, sizeof block);
    if (count > 0) {
      m_text->append(block, static_cast<std::size_t>(count));
      return;
    }
    close(m_file);
    m_file = -1;
  }

 private:
  int m_file;
  std::string* m_text;
};

void TypeWhenAsked(int terminal, Outcome& outcome, std::string& typed) {
  if (typed.empty() || !outcome.terminal.ends_with(": ")) return;
  termios settings{};
  if (tcgetattr(terminal, &settings) == 0) outcome.echoed = (settings.c_lflag & ECHO) != 0;
  outcome.typedAt = std::chrono::steady_clock::now();
  if (write(terminal, typed.data(), typed.size()) < 0) throw std::runtime_error("cannot type");
  typed.clear();
}

void WriteInput(int file, const std::string& input) {
  // Small enough for the pipe's buffer. A child that does not read it is no error.
  std::signal(SIGPIPE, SIG_IGN);
  if (!input.empty() && write(file, input.data(), input.size()) < 0 && errno != EPIPE)
    throw std::runtime_error("no standard input");
  close(file);
}

}  // namespace

std::vector<std::string> Outcome::ErrorLines() const {
  std::vector<std::string> lines;
  for (std::size_t begin = 0; begin < err.size();) {
    const std::size_t end = std::min(err.find('\n', begin), err.size());
    lines.push_back(err.substr(begin, end - begin));
    begin = end + 1;
  }
  return lines;
}

Options WithServers(const std::string& file, const std::string& text) {
  std::ofstream(file) << text;
  Options options;
  options.environment["XMLA_IMPORT_SERVERS"] = file;
  return options;
}

std::string ToolPath() { return XMLA_IMPORT_TOOL; }

Outcome RunTool(const Arguments& arguments, const Options& options) {
  return RunToolWhile(
      arguments, [](pid_t) {}, options);
}

Outcome RunToolWhile(const Arguments& arguments, const std::function<void(pid_t)>& meanwhile,
                     const Options& options) {
  std::vector<std::string> words{ToolPath()};
  words.insert(words.end(), arguments.begin(), arguments.end());
  const std::vector<char*> argv = Pointers(words);
  std::vector<std::string> texts = Environment(options.environment);
  const std::vector<char*> variables = Pointers(texts);
  const Ends in = Pipe(false);
  const Ends out = OutputEnds(options.out);
  const Ends err = options.err == Stream::kAsOut ? Ends{-1, fcntl(out.theirs, F_DUPFD_CLOEXEC, 3)}
                                                 : OutputEnds(options.err);
  const Ends terminal = options.terminal ? Terminal() : Ends{};
  const std::string terminalName = options.terminal ? ptsname(terminal.ours) : "";

  const Child become{argv.data(), variables.data(), terminalName, options.inputIsTerminal,
                     in.theirs,   out.theirs,       err.theirs};
  if (options.prepare && options.terminal) throw std::logic_error("`prepare` supports no terminal");
  const pid_t child = options.prepare ? ForkAndPrepare(become, options.prepare) : Spawn(become);
  if (child < 0) throw std::runtime_error("no process");
  for (const Ends& ends : {in, out, err})
    if (ends.theirs >= 0) close(ends.theirs);
  const int process =
      static_cast<int>(syscall(SYS_pidfd_open, child, 0));  // readable when the child has ended
  std::thread other([&] { meanwhile(child); });
  WriteInput(in.ours, options.input);

  Outcome outcome;
  std::string typed = options.typed;
  std::vector<Capture> captures;
  if (IsCaptured(options.out)) captures.emplace_back(out.ours, outcome.out);
  if (IsCaptured(options.err)) captures.emplace_back(err.ours, outcome.err);
  Capture shown(terminal.ours, outcome.terminal);
  const auto deadline = std::chrono::steady_clock::now() + options.longestRun;
  int status = 0;
  rusage usage{};
  bool ended = false;
  // Waits for the end of the captured streams, then of the process.
  while (!ended || std::any_of(captures.begin(), captures.end(), std::mem_fn(&Capture::Open))) {
    if (std::chrono::steady_clock::now() > deadline) kill(child, SIGKILL);
    std::vector<pollfd> waits;
    for (const Capture& capture : captures) waits.push_back(capture.Wait());
    waits.push_back(shown.Wait());
    waits.push_back({ended ? -1 : process, POLLIN, 0});
    poll(waits.data(), waits.size(), 1000);
    for (std::size_t i = 0; i < captures.size(); ++i)
      if (waits[i].revents && captures[i].Open()) captures[i].Read();
    if (waits[captures.size()].revents && shown.Open()) shown.Read();
    TypeWhenAsked(terminal.ours, outcome, typed);
    if (!ended) ended = wait4(child, &status, WNOHANG, &usage) == child;
  }
  close(process);
  if (options.out == Stream::kUnread) close(out.ours);
  if (options.err == Stream::kUnread) close(err.ours);
  other.join();
  if (terminal.theirs >= 0) {
    termios settings{};
    outcome.echoes = tcgetattr(terminal.theirs, &settings) == 0 && (settings.c_lflag & ECHO) != 0;
    close(terminal.theirs);
  }
  while (shown.Open()) shown.Read();
  if (WIFEXITED(status)) outcome.status = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) outcome.signal = WTERMSIG(status);
  outcome.dumpedCore = WIFSIGNALED(status) && WCOREDUMP(status);
  for (const timeval& time : {usage.ru_utime, usage.ru_stime})
    outcome.cpuSeconds +=
        static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
  CollectDocuments(arguments, outcome);
  return outcome;
}

}  // namespace tool
