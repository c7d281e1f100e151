#include "Tool.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

void RunProgram(const std::string& program, const std::vector<std::string>& arguments) {
  const bool isBeside = program.find('/') == std::string::npos;
  const std::filesystem::path here = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  const std::string path = isBeside ? (here / program).string() : program;
  std::vector<char*> argv{const_cast<char*>(path.c_str())};  // NOLINT: posix_spawn changes nothing
  for (const std::string& argument : arguments)
    argv.push_back(const_cast<char*>(argument.c_str()));  // NOLINT
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (const int output : {STDOUT_FILENO, STDERR_FILENO})
    posix_spawn_file_actions_addopen(&actions, output, "/dev/null", O_WRONLY, 0);
  pid_t child = 0;
  const int failure = posix_spawn(&child, path.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  int status = 0;
  if (failure != 0 || waitpid(child, &status, 0) != child || status != 0)
    throw std::runtime_error("this program failed: " + path);
}
