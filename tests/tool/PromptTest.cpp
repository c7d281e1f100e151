// Tests the password prompt on a real terminal under job control. However the tool ends or stops
// there, the terminal's echo is restored.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <string>
#include <thread>

#include "support/Sanitized.h"
#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using testing::HasSubstr;

constexpr std::chrono::seconds kPatience{20};

/// With only one thread, ThreadSanitizer occasionally delays a signal.
constexpr const char* kKept = "skipped: ThreadSanitizer keeps signals back";

std::string AuthorityOf(const std::string& url) {
  const std::size_t begin = url.find("://") + 3;
  return url.substr(begin, url.find('/', begin) - begin);
}

/// The tool as the foreground job of its own terminal.
class Job {
 public:
  explicit Job(const std::string& url)
      : m_prompt("Password of ann for " + AuthorityOf(url) + ": ") {
    m_screen = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_TRUE(m_screen >= 0 && grantpt(m_screen) == 0 && unlockpt(m_screen) == 0);
    const std::string name = ptsname(m_screen);
    m_terminal = open(name.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    int pair[2];
    EXPECT_EQ(pipe2(pair, O_CLOEXEC), 0);
    m_shell = fork();
    if (m_shell == 0) BeShell(name, url, pair[1]);
    close(pair[1]);
    m_news = pair[0];
    m_job = Next();
  }
  ~Job() {
    kill(m_job, SIGKILL);
    waitpid(m_shell, nullptr, 0);
    for (const int file : {m_screen, m_terminal, m_news}) close(file);
  }
  Job(const Job&) = delete;
  Job& operator=(const Job&) = delete;

  void Send(int signal) const { kill(m_job, signal); }
  void Type(const std::string& keys) const {
    EXPECT_EQ(write(m_screen, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }
  /// What the tool shows until `text` is part of it.
  std::string AwaitText(const std::string& text) const {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    std::string shown;
    while (shown.find(text) == std::string::npos && std::chrono::steady_clock::now() < end) {
      char block[256];
      pollfd wait{m_screen, POLLIN, 0};
      if (poll(&wait, 1, 100) != 1) continue;
      const ssize_t count = read(m_screen, block, sizeof block);
      if (count > 0) shown.append(block, static_cast<std::size_t>(count));
    }
    EXPECT_THAT(shown, HasSubstr(text));
    return shown;
  }
  /// The next state of the job, as waitpid reports it.
  int Next() const {
    pollfd wait{m_news, POLLIN, 0};
    int news = 0;
    const bool isThere = poll(&wait, 1, static_cast<int>(kPatience.count()) * 1000) == 1;
    EXPECT_TRUE(isThere && read(m_news, &news, sizeof news) == sizeof news);
    return news;
  }
  /// Waits until the prompt is shown again with the echo off.
  void AwaitPrompt() {
    AwaitText(m_prompt);
    EXPECT_FALSE(Echoes());
  }
  bool Echoes() const {
    termios settings{};
    EXPECT_EQ(tcgetattr(m_terminal, &settings), 0);
    return (settings.c_lflag & ECHO) != 0;
  }

 private:
  [[noreturn]] static void BeShell(const std::string& terminal, const std::string& url, int news) {
    setsid();
    const int own = open(terminal.c_str(), O_RDWR | O_CLOEXEC);
    std::signal(SIGTTOU, SIG_IGN);
    const pid_t job = fork();
    if (job == 0) {
      setpgid(0, 0);
      tcsetpgrp(own, getpid());
      std::signal(SIGTTOU, SIG_DFL);
      for (const int number : {0, 1, 2}) dup2(own, number);
      const std::string tool = ToolPath();
      unsetenv("XMLA_IMPORT_PASSWORD");
      unsetenv("TERM");  // no colours
      execl(tool.c_str(), tool.c_str(), "--url", url.c_str(), "--user", "ann", "--quiet", "sources",
            nullptr);
      _exit(127);
    }
    setpgid(job, job);
    int state = job;
    do {
      if (write(news, &state, sizeof state) < 0) break;
    } while (waitpid(job, &state, WUNTRACED | WCONTINUED) == job && !WIFEXITED(state) &&
             !WIFSIGNALED(state));
    if (write(news, &state, sizeof state) < 0) _exit(1);
    _exit(0);
  }

  const std::string m_prompt;
  int m_screen;
  int m_terminal;
  int m_news;
  pid_t m_shell;
  pid_t m_job;
};

struct Ended {
  const char* name;
  int signal;        ///< signal to send, or
  const char* keys;  ///< text to type
};
constexpr Ended kEnded[] = {
    {"quit key", SIGQUIT, "\x1c"}, {"quit", SIGQUIT, nullptr},   {"hang-up", SIGHUP, nullptr},
    {"alarm", SIGALRM, nullptr},   {"user 1", SIGUSR1, nullptr}, {"user 2", SIGUSR2, nullptr},
    {"time", SIGXCPU, nullptr},
};

TEST(Prompt, RestoresTheEchoBeforeASignalEndsTheTool) {
  if (support::kIsThreadSanitized) GTEST_SKIP() << kKept;
  const ScriptedProvider provider(TwoSources());
  for (const Ended& each : kEnded) {
    SCOPED_TRACE(each.name);
    Job job(provider.Url());
    job.AwaitPrompt();
    if (each.keys)
      job.Type(each.keys);
    else
      job.Send(each.signal);
    const int state = job.Next();
    EXPECT_TRUE(WIFSIGNALED(state) && WTERMSIG(state) == each.signal) << state;
    EXPECT_TRUE(job.Echoes());
  }
  EXPECT_TRUE(provider.Requests().empty());
}

TEST(Prompt, InterruptEndsTheCall) {
  if (support::kIsThreadSanitized) GTEST_SKIP() << kKept;
  const ScriptedProvider provider(TwoSources());
  for (const char* keys : {"\x03", "half a pass\x03"}) {
    Job job(provider.Url());
    job.AwaitPrompt();
    job.Type(keys);
    const int state = job.Next();
    EXPECT_TRUE(WIFEXITED(state) && WEXITSTATUS(state) == 130) << state;
    EXPECT_TRUE(job.Echoes());
  }
}

TEST(Prompt, SaysWhyNothingWasSent) {
  const ScriptedProvider provider(TwoSources());
  const struct {
    const char* keys;
    int status;
    const char* says;
  } kCases[] = {
      {"\x04", 2, "error: no password was entered"},
      {"\n", 2, "error: the password is empty; nothing was sent"},
      {"\x03", 130, "error: interrupted before the first request"},
  };
  for (const auto& test : kCases) {
    if (support::kIsThreadSanitized && test.status == 130) continue;  // it keeps signals back
    Job job(provider.Url());
    job.AwaitPrompt();
    job.Type(test.keys);
    job.AwaitText(test.says);
    const int state = job.Next();
    EXPECT_TRUE(WIFEXITED(state) && WEXITSTATUS(state) == test.status) << state;
  }
  EXPECT_TRUE(provider.Requests().empty());
}

TEST(Prompt, RestoresTheEchoWhileStoppedAndPromptsAgain) {
  if (support::kIsThreadSanitized) GTEST_SKIP() << kKept;
  const ScriptedProvider provider(TwoSources());
  for (const bool isTyped : {true, false}) {
    Job job(provider.Url());
    job.AwaitPrompt();
    for (int i = 0; i < 2; ++i) {
      SCOPED_TRACE(std::string(isTyped ? "typed " : "sent ") + std::to_string(i));
      job.Type("forgotten");
      if (isTyped)
        job.Type("\x1a");
      else
        job.Send(SIGTSTP);
      EXPECT_TRUE(WIFSTOPPED(job.Next()));
      EXPECT_TRUE(job.Echoes());
      job.Send(SIGCONT);
      EXPECT_TRUE(WIFCONTINUED(job.Next()));
      job.AwaitPrompt();
    }
    job.Type("secret\n");
    const int state = job.Next();
    EXPECT_TRUE(WIFEXITED(state) && WEXITSTATUS(state) == 0) << state;
    EXPECT_TRUE(job.Echoes());
  }
  EXPECT_FALSE(provider.Requests().empty());
}

}  // namespace
}  // namespace tool
