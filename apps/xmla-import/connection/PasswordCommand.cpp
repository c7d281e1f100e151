#include "connection/PasswordCommand.h"

#include <sys/wait.h>

#include <cstring>
#include <system_error>

#include "base/ChildCommand.h"
#include "base/Interrupt.h"
#include "base/Secret.h"
#include "base/Text.h"
#include "call/UsageError.h"
#include "connection/Password.h"

namespace {

/// Why the outcome has no password; empty if it has one.
std::string Problem(const CommandOutcome& outcome, const CommandLimits& limits) {
  using Ending = CommandOutcome::Ending;
  const auto seconds = [](std::chrono::milliseconds time) {
    return std::to_string(std::chrono::duration_cast<std::chrono::seconds>(time).count()) + " s";
  };
  const bool hasLine = outcome.output.find('\n') != std::string::npos;
  switch (outcome.ending) {
    case Ending::kNotStarted:
      return "cannot be run: " + std::string(std::strerror(outcome.error)) +
             "; install the program, or correct its name";
    case Ending::kTooLong:
      return hasLine ? "printed a line, but did not end within " + seconds(limits.timeAfterLine) +
                           "; it must print the password and end"
                     : "did not end within " + seconds(limits.time) +
                           "; run it in a shell to see what it waits for";
    case Ending::kTooMuch:
      return "printed more than " + std::to_string(limits.bytes / 1024) +
             " KiB; it must print the password and nothing else";
    case Ending::kEnded:
      break;
    case Ending::kStopped:
      return "was interrupted";
  }
  if (WIFSIGNALED(outcome.status))
    return "was ended by signal " + std::to_string(WTERMSIG(outcome.status)) + " (" +
           strsignal(WTERMSIG(outcome.status)) + "); run it in a shell to see why";
  if (const int status = WEXITSTATUS(outcome.status))
    return "failed with status " + std::to_string(status) + "; run it in a shell to see why";
  if (outcome.output.empty()) return "printed nothing; it must print the password";
  return {};
}

}  // namespace

std::string PasswordFromCommand(const std::vector<std::string>& words, const std::string& what) {
  const CommandLimits limits;
  const auto fail = [&](const std::string& problem) -> std::string {
    // The arguments may tell more than a message should.
    throw UsageError(what + " " + Listed({words.front()}) + " " + problem);
  };
  CommandOutcome outcome;
  try {
    outcome = RunCommand(words, limits, &MustStop);
  } catch (const std::system_error& error) {
    fail("cannot be run: " + std::string(error.what()));
  }
  if (MustStop()) {
    Erase(outcome.output);
    throw InterruptedEarly();
  }
  const std::string problem = Problem(outcome, limits);
  std::string line = FirstLine(outcome.output);
  Erase(outcome.output);
  if (problem.empty() && !line.empty()) return line;
  Erase(line);
  return fail(problem.empty() ? "printed an empty line; it must print the password" : problem);
}
