#include "support/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace support {

ChildResult RunChild(const std::string& program, const std::vector<std::string>& arguments,
                     const std::map<std::string, std::string>& environment) {
  std::vector<std::string> texts;
  for (char** entry = environ; *entry; ++entry) {
    const std::string variable = *entry;
    if (!environment.contains(variable.substr(0, variable.find('=')))) texts.push_back(variable);
  }
  for (const auto& [name, value] : environment) texts.push_back(name + "=" + value);
  std::vector<char*> variables;
  for (std::string& text : texts) variables.push_back(text.data());
  variables.push_back(nullptr);

  std::vector<std::string> words{program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);

  int pipes[2][2];
  for (auto& pair : pipes)
    if (pipe2(pair, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, pipes[0][1], 1);
  posix_spawn_file_actions_adddup2(&actions, pipes[1][1], 2);
  pid_t child = 0;
  const int failed =
      posix_spawn(&child, program.c_str(), &actions, nullptr, argv.data(), variables.data());
  posix_spawn_file_actions_destroy(&actions);
  for (auto& pair : pipes) close(pair[1]);
  if (failed) throw std::runtime_error("cannot run " + program);

  ChildResult result;
  std::string* const texts2[] = {&result.out, &result.err};
  pollfd waits[] = {{pipes[0][0], POLLIN, 0}, {pipes[1][0], POLLIN, 0}};
  for (int open = 2; open > 0;) {
    poll(waits, 2, -1);
    for (int i = 0; i < 2; ++i) {
      if (waits[i].fd < 0 || !waits[i].revents) continue;
      char block[4096];
      const ssize_t count = read(waits[i].fd, block, sizeof block);
      if (count > 0) {
        texts2[i]->append(block, static_cast<std::size_t>(count));
      } else {
        waits[i].fd = -1;
        --open;
      }
    }
  }
  for (auto& pair : pipes) close(pair[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
  return result;
}

ChildResult RunTestInChild(const std::string& test,
                           const std::map<std::string, std::string>& environment) {
  char self[4096] = {};
  if (readlink("/proc/self/exe", self, sizeof self - 1) < 0) throw std::runtime_error("no self");
  std::map<std::string, std::string> variables = environment;
  // This process may run half of the tests.
  variables["GTEST_TOTAL_SHARDS"] = "1";
  variables["GTEST_SHARD_INDEX"] = "0";
  ChildResult result =
      RunChild(self, {"--gtest_filter=" + test, "--gtest_also_run_disabled_tests"}, variables);
  // Prints the child's figures as those of this program.
  for (std::size_t at = result.out.find("figure: "); at != std::string::npos;
       at = result.out.find("figure: ", at + 1)) {
    const std::size_t end = std::min(result.out.find('\n', at), result.out.size());
    std::puts(result.out.substr(at, end - at).c_str());
  }
  // GoogleTest succeeds if a filter matches no test.
  if (result.out.find("[  PASSED  ] 1 test.") == std::string::npos && result.exitStatus == 0)
    result.exitStatus = -1;
  return result;
}

}  // namespace support
