// The servers of these tests themselves.
#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <sstream>
#include <thread>

#include "ServerProcess.h"
#include "support/ChildProcess.h"
#include "support/TempDir.h"

namespace login {
namespace {

/// Waits until a process has ended, at most for five seconds.
bool Ends(pid_t process) {
  const std::string entry = "/proc/" + std::to_string(process);
  for (int i = 0; i < 250 && std::filesystem::exists(entry); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  return !std::filesystem::exists(entry);
}

/// A command that writes its process number and that of its child to a file, and waits.
std::vector<std::string> WaitingCommand(const std::string& file) {
  return {"/bin/sh", "-c", "sleep 600 & echo $$ $! > " + file + "; wait"};
}

/// The two process numbers.
std::vector<pid_t> ProcessesIn(const std::string& file) {
  std::vector<pid_t> processes;
  for (int i = 0; i < 250; ++i) {
    std::istringstream numbers(FileText(file));
    processes.clear();
    for (pid_t process; numbers >> process;) processes.push_back(process);
    if (processes.size() == 2 && FileText(file).back() == '\n') break;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return processes;
}

TEST(ServerProcess, EndsWithItsObject) {
  const support::TempDir folder;
  const std::string file = folder.Path() / "processes";
  auto server = std::make_unique<ServerProcess>(
      WaitingCommand(file), std::map<std::string, std::string>{}, folder.Path() / "output");
  const std::vector<pid_t> processes = ProcessesIn(file);
  ASSERT_EQ(processes.size(), 2u);
  EXPECT_FALSE(server->HasEnded());
  server.reset();
  for (const pid_t process : processes) EXPECT_TRUE(Ends(process));
}

TEST(ServerProcess, MayCleanUp) {
  const support::TempDir folder;
  const std::string file = folder.Path() / "file";
  auto server = std::make_unique<ServerProcess>(
      std::vector<std::string>{
          "/bin/sh", "-c",
          "trap 'rm " + file + "; exit' TERM; echo > " + file + "; sleep 600 & wait"},
      std::map<std::string, std::string>{}, folder.Path() / "output");
  ASSERT_TRUE(server->Await([&] { return std::filesystem::exists(file); }));
  server.reset();
  EXPECT_FALSE(std::filesystem::exists(file));
}

TEST(ServerProcess, EndsIfItIgnoresTheRequest) {
  const support::TempDir folder;
  const std::string file = folder.Path() / "processes";
  std::vector<std::string> command = WaitingCommand(file);
  command.back() = "trap '' TERM; " + command.back();
  auto server = std::make_unique<ServerProcess>(command, std::map<std::string, std::string>{},
                                                folder.Path() / "output");
  const std::vector<pid_t> processes = ProcessesIn(file);
  ASSERT_EQ(processes.size(), 2u);
  server.reset();
  for (const pid_t process : processes) EXPECT_TRUE(Ends(process));
}

constexpr const char* kFileVariable = "LOG_IN_TEST_FILE";

TEST(ServerProcess, DISABLED_KilledOwner) {
  const char* const given = std::getenv(kFileVariable);
  if (!given) GTEST_SKIP() << "runs in a child process";
  const std::string file = given;
  const ServerProcess server(WaitingCommand(file), {}, file + ".output");
  ProcessesIn(file);
  kill(getpid(), SIGKILL);
}

TEST(ServerProcess, EndsIfItsOwnerIsKilled) {
  const support::TempDir folder;
  const std::string file = folder.Path() / "processes";
  const support::ChildResult owner =
      support::RunTestInChild("ServerProcess.DISABLED_KilledOwner", {{kFileVariable, file}});
  EXPECT_EQ(owner.signal, SIGKILL);
  const std::vector<pid_t> processes = ProcessesIn(file);
  ASSERT_EQ(processes.size(), 2u);
  for (const pid_t process : processes) EXPECT_TRUE(Ends(process));
}

TEST(ServerProcess, ReportsThatItHasEnded) {
  const support::TempDir folder;
  ServerProcess server({"/bin/false"}, {}, folder.Path() / "output");
  EXPECT_FALSE(server.Await([] { return false; }));
}

}  // namespace
}  // namespace login
