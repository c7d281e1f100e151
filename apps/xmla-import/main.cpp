#include <sys/prctl.h>

#include <csignal>
#include <exception>
#include <new>
#include <optional>

#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/ImportSettings.h"
#include "base/Interrupt.h"
#include "base/Secret.h"
#include "base/TerminalText.h"
#include "base/Text.h"
#include "call/Arguments.h"
#include "call/ExitStatus.h"
#include "commands/Commands.h"
#include "connection/Connection.h"
#include "connection/LogFailures.h"
#include "connection/Operation.h"
#include "output/Output.h"
#include "output/PatientWriting.h"
#include "output/Progress.h"
#include "results/Rendering.h"

namespace {

void Tell(const char* kind, const std::string& line) {
  WriteToStandardError("xmla-import: " + std::string(kind) + ": " + HarmlessOnTerminal(line) +
                       "\n");
}

/// The empty result of a command: what a call that fails early still shows.
Result EmptyResult(Command command) {
  switch (command) {
    case Command::kSources:
      return SourcesResult{};
    case Command::kTree:
      return TreeResult{};
    case Command::kCube:
      return CubeResult{};
    case Command::kImport:
      return ImportResult{};
    case Command::kNone:
      break;
  }
  return NoResult{};
}

ExitStatus Run(Session& session, const Arguments& arguments, Progress& progress, Result& result) {
  if (auto* const sources = std::get_if<SourcesResult>(&result))
    return RunSources(session, *sources);
  if (auto* const tree = std::get_if<TreeResult>(&result))
    return RunTree(session, arguments, *tree);
  if (auto* const cube = std::get_if<CubeResult>(&result))
    return RunCube(session, arguments, *cube);
  return RunImport(session, arguments, progress, std::get<ImportResult>(result));
}

/// Imports what is asked for into `result`.
ExitStatus Import(const ImportLibrary& library, Arguments& arguments, Interrupt& interrupt,
                  Result& result) {
  const VXExecutionState::Scope scope(interrupt.State());
  const Connection connection = Connect(arguments);
  Erase(arguments.url);  // it may hold a password
  Progress progress(arguments.quiet, arguments.verbose);
  LogFailures logFailures(MessagesOf(result).warnings);
  ImportSettings settings;
  settings.http = connection.http;
  OperationObserver observer(progress);
  settings.exchangeObserver = &observer;
  settings.onLogFailure = [&logFailures](const String& name, const String& reason) {
    logFailures.Add(name, reason);
  };
  const ImportSettings::Scope settingsScope(settings);
  Session session(library, connection, arguments.log);
  const ExitStatus status =
      Interrupt::Happened() ? ExitStatus::kInterrupted : Run(session, arguments, progress, result);
  if (progress.BasicInClear())
    MessagesOf(result).warnings.emplace_back(
        "the password was sent by Basic over plain http to another machine: others on the way can "
        "read it; use https");
  return status;
}

std::string Rendered(const Arguments& arguments, const Result& result, bool forTerminal,
                     const StopCheck& isToStop) {
  if (!arguments.json) return RenderText(result, forTerminal, isToStop);
  const std::string text = RenderJson(result, arguments.jobs, isToStop);
  // Active characters stand in JSON's strings alone, where the escape means the character.
  return forTerminal ? HarmlessLinesOnTerminal(text) : text;
}

void TellAll(Result& result) {
  const Messages& messages = MessagesOf(result);
  for (const std::string& line : messages.warnings) Tell("warning", line);
  if (const auto* const import = std::get_if<ImportResult>(&result))
    for (const CubeResult& cube : import->cubes) {
      const std::string name = Listed({Utf8(Shortened(cube.cube))}) + ": ";
      for (const std::string& line : cube.messages.warnings) Tell("warning", name + line);
      for (const std::string& line : cube.messages.errors) Tell("error", name + line);
    }
  for (const std::string& line : messages.errors) Tell("error", line);
}

/// The result as text, or, when that cannot be made, what is shown instead: its errors are a
/// document in any case.
std::string TextOf(const Arguments& arguments, const Output& output, Result& result,
                   ExitStatus& status) {
  const auto instead = [&](const char* reason) {
    std::vector<std::string> errors = std::move(MessagesOf(result).errors);
    errors.emplace_back(reason);
    Tell("error", errors.back());
    result = EmptyResult(arguments.command);
    MessagesOf(result).errors = std::move(errors);
    return Rendered(arguments, result, output.IsTerminal(), [] { return false; });
  };
  // What is complete after an interruption is still shown; the next signal ends the process.
  const bool isPartial = status == ExitStatus::kInterrupted;
  try {
    return Rendered(arguments, result, output.IsTerminal(),
                    [isPartial] { return !isPartial && Interrupt::Happened(); });
  } catch (const std::bad_alloc&) {
    if (!isPartial) status = ExitStatus::kFailed;
    return instead("there is not enough memory to write the result");
  } catch (const RenderingStopped& stopped) {
    status = ExitStatus::kInterrupted;
    const std::string text = instead(stopped.what());
    return output.ReplacesAFile() ? std::string() : text;
  }
}

/// Says what happened on standard error and writes the result where it goes.
ExitStatus Report(const Arguments& arguments, Output& output, Result& result, ExitStatus status) {
  TellAll(result);
  try {
    output.Write(TextOf(arguments, output, result, status));
    // An interruption that came after the import, and of which the result says nothing, leaves a
    // file alone.
    if (!output.Finish(status == ExitStatus::kInterrupted)) return ExitStatus::kInterrupted;
  } catch (const OutputInterrupted& interruption) {
    Tell("error", interruption.what());
    return ExitStatus::kInterrupted;
  } catch (const OutputError& error) {
    Tell("error", error.what());
    return status == ExitStatus::kDone ? ExitStatus::kFailed : status;
  }
  return status;
}

ExitStatus Main(int argc, char** argv, bool hasStandardOutput) {
  Arguments arguments;
  // Declared before the result: it is unloaded after every record that it made.
  std::optional<ImportLibrary> library;
  Result result;
  ExitStatus status = ExitStatus::kDone;
  Interrupt interrupt;
  std::optional<Output> output;
  const auto fail = [&](ExitStatus with, const std::string& text) {
    MessagesOf(result).errors.push_back(WithoutCredentials(OneLine(text)));
    status = with;
  };
  try {
    ParseArguments(argc, argv, arguments);
    if (!arguments.information.empty()) {
      output.emplace("", hasStandardOutput);
      output->Write(arguments.information);
      return output->Finish(false) ? ExitStatus::kDone : ExitStatus::kInterrupted;
    }
    HideCredentials(argc, argv);
    result = EmptyResult(arguments.command);
    output.emplace(arguments.output, hasStandardOutput);
    library.emplace();
    status = Import(*library, arguments, interrupt, result);
  } catch (const UsageError& error) {
    if (std::holds_alternative<NoResult>(result)) result = EmptyResult(arguments.command);
    fail(ExitStatus::kWrongCall, error.what());
  } catch (const OutputError& error) {
    Tell("error", error.what());
    return ExitStatus::kFailed;
  } catch (const ErrorMessage& error) {
    for (const std::string& line : Lines(error)) fail(ExitStatus::kFailed, line);
  } catch (const std::bad_alloc&) {
    fail(ExitStatus::kFailed, "there is not enough memory");
  } catch (const std::exception& error) {
    fail(ExitStatus::kFailed, error.what());
  }
  if (Interrupt::Happened()) {
    status = ExitStatus::kInterrupted;
    // A document without errors would pass for a whole one.
    std::vector<std::string>& errors = MessagesOf(result).errors;
    if (errors.empty()) errors.emplace_back("interrupted; the result may lack something");
  }
  if (!output) {
    // The call was wrong; what there is to say goes where it asks for, if that is a place.
    try {
      output.emplace(arguments.output, hasStandardOutput);
    } catch (const UsageError&) {
      output.emplace("", hasStandardOutput);
    }
  }
  return Report(arguments, *output, result, status);
}

}  // namespace

int main(int argc, char** argv) {
  const bool hasStandardOutput = GuardStandardStreams();
  // A core file, or another process of the user, would show the password.
  prctl(PR_SET_DUMPABLE, 0);
  // A reader of standard output that goes away must not kill the tool in the middle of its work.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);  // nor a limit on the size of files: writing says so
  try {
    return static_cast<int>(Main(argc, argv, hasStandardOutput));
  } catch (const std::exception& error) {
    // Out of memory, as a rule.
    for (const char* const piece : {"xmla-import: error: ", error.what(), "\n"})
      WriteToStandardError(piece);
    return static_cast<int>(ExitStatus::kFailed);
  }
}
