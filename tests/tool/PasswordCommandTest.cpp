// Tests the password-command of a server: output, errors, limits, and that it ends with the tool.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <thread>

#include "SampleProvider.h"
#include "base/ChildCommand.h"
#include "support/Sanitized.h"
#include "support/TempDir.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using testing::HasSubstr;
using testing::Not;
using Ending = CommandOutcome::Ending;

constexpr char kPrinted[] = "c4nary pr\xC3\xA4inted";

sample::Options AnnOnly() {
  sample::Options options;
  options.user = "ann";
  options.password = kPrinted;
  return options;
}

/// A provider with a log-in, and a server file with a shell script as password-command.
class PasswordCommand : public testing::Test {
 protected:
  void WriteFile(const std::string& script) {
    std::ofstream(m_script) << "#!/bin/sh\n" << script;
    chmod(m_script.c_str(), 0700);
    WriteCommand("['./get', 'argument one']");
  }
  void WriteCommand(const std::string& command) {
    std::ofstream(m_file) << "[a]\nurl='" << m_provider.Url(sample::Kind::kSapBw)
                          << "'\nuser='ann'\npassword-command=" << command << "\n";
    m_options.environment["XMLA_IMPORT_SERVERS"] = m_file;
  }
  Outcome Run(const Arguments& more = {}) {
    Arguments words{"--server", "a", "sources"};
    words.insert(words.end(), more.begin(), more.end());
    return RunTool(words, m_options);
  }
  std::string Path(const char* name) const { return m_folder.Path() / name; }
  bool Exists(const char* name) const { return access(Path(name).c_str(), F_OK) == 0; }

  const support::TempDir m_folder;
  const std::string m_script = m_folder.Path() / "get";
  const std::string m_file = m_folder.Path() / "servers.toml";
  const sample::Provider m_provider{AnnOnly()};
  Options m_options;
};

TEST_F(PasswordCommand, FirstLineOfItsOutputIsThePassword) {
  for (const char* const form :
       {"printf '%s' \"$P\"", "printf '%s\\r\\nsecond\\n' \"$P\"",
        "printf '\\357\\273\\277%s\\n' \"$P\"; sleep 2 >/dev/null 2>&1 &"}) {
    WriteFile(std::string("P='") + kPrinted + "'\n" + form);
    const Outcome outcome = Run({"--verbose"});
    EXPECT_EQ(outcome.status, 0) << form << outcome.err;
    EXPECT_THAT(outcome.out + outcome.err, Not(HasSubstr("c4nary")));
  }
}

TEST_F(PasswordCommand, HasArgumentsStandardErrorAndNoSecretsOfTheEnvironment) {
  m_options.environment["XMLA_IMPORT_TOKEN"] = "";
  m_options.environment["XMLA_IMPORT_PASSWORD"] = "";
  m_options.input = "typed\n";
  WriteFile("echo \"says $1\" >&2\nenv > " + Path("environment") + "\ncat > " + Path("input") +
            "\necho '" + kPrinted + "'\n");
  const Outcome outcome = Run();
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "says argument one\n");
  EXPECT_EQ(support::ReadFile(Path("input")), "");  // the input belongs to the tool
  const std::string environment = support::ReadFile(Path("environment"));
  EXPECT_THAT(environment, HasSubstr("XMLA_IMPORT_SERVERS="));
  for (const char* const name : {"XMLA_IMPORT_PASSWORD", "XMLA_IMPORT_TOKEN", "XMLA_IMPORT_URL"})
    EXPECT_THAT(environment, Not(HasSubstr(name)));
}

TEST_F(PasswordCommand, CanAskOnTheTerminal) {
  WriteFile("printf 'Unlock: ' >/dev/tty; read answer; echo \"$answer\"\n");
  m_options.terminal = true;
  m_options.inputIsTerminal = true;
  m_options.typed = std::string(kPrinted) + "\n";
  const Outcome outcome = Run();
  EXPECT_EQ(outcome.status, 0) << outcome.err;
}

TEST_F(PasswordCommand, RunsOnlyIfThePasswordIsNeeded) {
  WriteFile("touch " + Path("ran") + "\necho wrong\n");
  std::ofstream(Path("password")) << kPrinted;
  EXPECT_EQ(Run({"--password-file", Path("password")}).status, 0);
  EXPECT_EQ(RunTool({"servers"}, m_options).status, 0);
  EXPECT_EQ(Run({"--user", "bob", "--password-file", Path("password")}).status, 1);
  EXPECT_EQ(Run({"--token-file", Path("password")}).status, 2);  // it contains a blank
  EXPECT_EQ(Run({"--auth", "negotiate"}).status, 1);
  EXPECT_EQ(Run({"--user", "bob"}).status, 2);  // no password for another user
  m_options.environment["XMLA_IMPORT_PASSWORD"] = kPrinted;
  EXPECT_EQ(Run().status, 0);
  EXPECT_FALSE(Exists("ran"));
  m_options.environment.erase("XMLA_IMPORT_PASSWORD");
  EXPECT_EQ(Run().status, 1);
  EXPECT_TRUE(Exists("ran"));
}

TEST_F(PasswordCommand, FailuresAreUsageErrorsThatNameTheProgram) {
  const std::pair<std::string, std::string> scripts[] = {
      {"echo c4nary; exit 3", "failed with status 3; run it in a shell to see why"},
      {"kill -9 $$", "was ended by signal 9 (Killed); run it in a shell to see why"},
      {"", "printed nothing; it must print the password"},
      {"echo", "printed an empty line; it must print the password"},
      {"while echo c4nary c4nary c4nary; do :; done",
       "printed more than 64 KiB; it must print the password and nothing else"},
  };
  for (const auto& [script, says] : scripts) {
    WriteFile(script);
    const Outcome outcome = Run({"--format", "json"});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.ErrorLines().size(), 1u);
    EXPECT_THAT(outcome.err,
                HasSubstr('"' + m_file + "\", line 4: server \"a\": password-command \"" +
                          m_folder.Path().string() + "/./get\" " + says));
    EXPECT_THAT(outcome.err + outcome.out, Not(HasSubstr("c4nary")));
  }
  const std::pair<const char*, const char*> programs[] = {
      {"['./missing']", "cannot be run: No such file or directory; install the program"},
      {"['no-such-program-anywhere']", "cannot be run: No such file or directory; install"},
      {"['./servers.toml']", "cannot be run: Permission denied; install the program"},
  };
  for (const auto& [command, says] : programs) {
    WriteCommand(command);
    const Outcome outcome = Run();
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.err, HasSubstr(says));
  }
}

/// Processes whose ids a script wrote into a file.
class Descendants {
 public:
  explicit Descendants(std::string file) : m_file(std::move(file)) {}

  /// Waits until the script has written `count` ids.
  void Await(std::size_t count) {
    for (int i = 0; i < 2000 && m_ids.size() < count; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      std::ifstream ids(m_file);
      m_ids.assign(std::istream_iterator<pid_t>(ids), {});
    }
    EXPECT_EQ(m_ids.size(), count);
  }
  /// Waits until they have ended. A process without a waiting parent may still have its entry.
  bool HaveEnded() const {
    for (int i = 0; i < 2000; ++i) {
      bool isAlive = false;
      for (const pid_t id : m_ids) isAlive = isAlive || IsAlive(id);
      if (!isAlive) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
  }

 private:
  static bool IsAlive(pid_t id) {
    std::ifstream status("/proc/" + std::to_string(id) + "/stat");
    std::string number;
    std::string name;
    std::string state;
    return status >> number >> name >> state && state != "Z";
  }
  const std::string m_file;
  std::vector<pid_t> m_ids;
};

TEST_F(PasswordCommand, EndsWithTheToolHoweverThatEnds) {
  // The script, a child in the background, and a child that ignores signals.
  const std::string script = "sleep 15 &\necho $! >>" + Path("ids") +
                             "\nsh -c 'trap \"\" INT TERM HUP; echo $$ >>" + Path("ids") +
                             "; sleep 15; sleep 15' &\necho $$ >>" + Path("ids") +
                             "\nstty -echo <&0\nsleep 15\n";
  for (const int signal : {SIGINT, SIGTERM, SIGKILL, SIGHUP}) {
    SCOPED_TRACE(signal);
    ::unlink(Path("ids").c_str());
    WriteFile(script);
    m_options.terminal = true;
    m_options.inputIsTerminal = true;
    Descendants started(Path("ids"));
    std::chrono::steady_clock::time_point sent;
    const Outcome outcome = RunToolWhile(
        {"--server", "a", "sources"},
        [&](pid_t tool) {
          started.Await(3);
          sent = std::chrono::steady_clock::now();
          kill(tool, signal);
        },
        m_options);
    const bool isHandled = signal == SIGINT || signal == SIGTERM;
    EXPECT_EQ(outcome.status, isHandled ? 130 : -1) << outcome.err;
    EXPECT_TRUE(started.HaveEnded());
    EXPECT_LT(std::chrono::steady_clock::now() - sent, std::chrono::seconds(5));
    if (isHandled) {
      EXPECT_TRUE(outcome.echoes);
      EXPECT_THAT(outcome.err, HasSubstr("error: interrupted before the first request\n"));
      EXPECT_THAT(outcome.err, Not(HasSubstr("password-command")));
    }
  }
}

/// Scripts must be able to start within these times, also on a busy machine.
CommandLimits ShortLimits() {
  constexpr int kTimes = support::kIsSanitized ? 10 : 3;
  using std::chrono::milliseconds;
  return {.bytes = 1000,
          .time = kTimes * milliseconds(300),
          .timeAfterLine = kTimes * milliseconds(100)};
}

TEST(ChildCommand, ExceededLimitsEndIt) {
  const support::TempDir folder;
  const std::string ids = folder.Path() / "ids";
  const std::tuple<const char*, Ending, std::string> cases[] = {
      {"sleep 15 & echo $! >>IDS; echo $$ >>IDS; wait", Ending::kTooLong, ""},
      {"sleep 15 & echo $! >>IDS; echo $$ >>IDS; echo line; wait", Ending::kTooLong, "line\n"},
      {"sleep 15 & echo $! >>IDS; echo $$ >>IDS; head -c 1001 /dev/zero; wait", Ending::kTooMuch,
       std::string(1001, '\0')},
      {"sleep 15 & echo $! >>IDS; echo $$ >>IDS; exec >&-; wait", Ending::kTooLong, ""},
  };
  for (const auto& [text, ending, output] : cases) {
    std::string script = text;
    for (std::size_t at = script.find("IDS"); at != script.npos; at = script.find("IDS"))
      script.replace(at, 3, ids);
    const CommandOutcome outcome =
        RunCommand({"sh", "-c", script}, ShortLimits(), [] { return false; });
    EXPECT_EQ(outcome.ending, ending) << text;
    EXPECT_EQ(outcome.output, output);
    Descendants started(ids);
    started.Await(2);
    EXPECT_TRUE(started.HaveEnded());
    ::unlink(ids.c_str());
  }
}

TEST(ChildCommand, OutputUpToTheLimitIsRead) {
  const CommandOutcome outcome =
      RunCommand({"head", "-c", "1000", "/dev/zero"}, {.bytes = 1000}, [] { return false; });
  EXPECT_EQ(outcome.ending, Ending::kEnded);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output.size(), 1000u);
}

/// An agent that keeps keys must survive.
TEST(ChildCommand, ProcessInItsOwnSessionIsNotEnded) {
  const support::TempDir folder;
  const std::string ids = folder.Path() / "ids";
  const CommandOutcome outcome = RunCommand(
      {"sh", "-c", "setsid sh -c 'echo $$ >" + ids + "; exec sleep 15 >/dev/null' & sleep 15"},
      CommandLimits(), [&] {
        std::ifstream file(ids);
        return file.peek() >= '0' &&
               std::string(std::istreambuf_iterator<char>(file), {}).ends_with('\n');
      });
  EXPECT_EQ(outcome.ending, Ending::kStopped);
  std::ifstream file(ids);
  pid_t agent = 0;
  ASSERT_TRUE(file >> agent);
  EXPECT_EQ(kill(agent, 0), 0);
  EXPECT_EQ(kill(agent, SIGKILL), 0);
}

TEST(ChildCommand, HasDefaultSignalsAndOnlyTheStandardStreams) {
  const char* const script = "ls /proc/self/fd | wc -l";
  // The number of descriptors that the test itself has inherited.
  FILE* const other = popen(script, "re");
  char expected[100] = "";
  expected[std::fread(expected, 1, sizeof expected - 1, other)] = '\0';
  pclose(other);
  std::signal(SIGPIPE, SIG_IGN);
  const CommandOutcome outcome =
      RunCommand({"sh", "-c", std::string(script) + "; grep SigIgn /proc/self/status"},
                 CommandLimits(), [] { return false; });
  std::signal(SIGPIPE, SIG_DFL);
  EXPECT_EQ(outcome.output, std::string(expected) + "SigIgn:\t0000000000000000\n");
}

}  // namespace
}  // namespace tool
