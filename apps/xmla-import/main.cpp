#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <exception>
#include <new>
#include <optional>
#include <utility>

#include "CommandTable.h"
#include "Utility/Generic/HTTPClientWrapper.h"
#include "VersionText.h"
#include "base/Interrupt.h"
#include "base/Secret.h"
#include "base/Style.h"
#include "base/Text.h"
#include "call/Arguments.h"
#include "connection/Connection.h"
#include "connection/EnvironmentSecrets.h"
#include "connection/LogFailures.h"
#include "connection/LogIn.h"
#include "connection/LogicErrors.h"
#include "connection/Operation.h"
#include "connection/Sources.h"
#include "output/Output.h"
#include "output/Progress.h"
#include "output/Report.h"
#include "output/StreamWriting.h"
#include "results/ChangeText.h"
#include "results/Formats.h"
#include "results/TextLegend.h"

namespace {

ShownWarnings WarningsToShow(const Arguments& arguments) {
  if (arguments.warnings == "all") return ShownWarnings::kAll;
  if (arguments.warnings == "summary") return ShownWarnings::kSummary;
  if (arguments.warnings == "none") return ShownWarnings::kNone;
  return arguments.verbose ? ShownWarnings::kAll
         : arguments.quiet ? ShownWarnings::kNone
                           : ShownWarnings::kSummary;
}

/// One run of the tool.
class Call {
 public:
  explicit Call(bool hasStandardOutput) : m_hasStandardOutput(hasStandardOutput) {}

  ExitStatus Run(int argc, char** argv) {
    try {
      const bool isReady = Prepare(argc, argv);
      if (!m_arguments.information.empty()) return PrintInformation();
      m_progress.emplace(m_arguments.quiet, m_arguments.verbose,
                         HasColors(m_arguments.color, isatty(STDERR_FILENO) == 1));
      m_report.emplace(*m_output, m_arguments.format, m_arguments.color,
                       WarningsToShow(m_arguments), *m_progress);
      if (isReady) {
        ShowFormatNote();
        Run();
        AddOrderNote();
      }
      return ReportResult();
    } catch (const OutputInterrupted& interruption) {
      return FailWith(ExitStatus::kInterrupted, interruption.what());
    } catch (const OutputError& error) {
      return FailWith(m_status == ExitStatus::kDone ? ExitStatus::kFailed : m_status, error.what());
    }
  }

 private:
  void Fail(ExitStatus status, const std::string& text) {
    MessagesOf(m_result).errors.push_back(WithoutCredentials(OneLine(text)));
    m_status = status;
  }

  /// Runs `work` and turns its exceptions into errors of the result. False if it failed.
  template <class Work>
  bool Try(Work work) {
    try {
      work();
      return true;
    } catch (const OutputError&) {
      throw;
    } catch (const OutputInterrupted&) {
      throw;
    } catch (const UsageError& error) {
      Fail(ExitStatus::kWrongCall, error.what());
    } catch (const ErrorMessage& error) {
      for (const std::string& line : Lines(error)) Fail(ExitStatus::kFailed, line);
    } catch (const std::bad_alloc&) {
      Fail(ExitStatus::kFailed, "there is not enough memory");
    } catch (const std::exception& error) {
      Fail(ExitStatus::kFailed, error.what());
    }
    return false;
  }

  /// Parses the command line and opens the output. A usage error is written to the requested output
  /// if that is usable, else, in the format of --format, to standard output.
  bool Prepare(int argc, char** argv) {
    std::optional<UsageError> wrong;
    try {
      ParseArguments(argc, argv, CommandForms(), Formats(), m_arguments, TextLegend());
    } catch (const UsageError& error) {
      wrong = error;
    }
    if (m_arguments.wantsVersion) m_arguments.information = VersionText();
    if (!m_arguments.information.empty()) m_arguments.output.clear();
    HideCredentials(argc, argv);
    m_secrets = EnvironmentSecrets::Take();
    m_command = &CommandNamed(m_arguments.command);
    m_result = m_command->empty();
    try {
      m_output.emplace(m_arguments.output, m_hasStandardOutput);
    } catch (const UsageError& error) {
      if (!wrong) wrong = error;
      m_output.emplace("", m_hasStandardOutput);
      // The name of the file has selected a format for the file, not for standard output.
      if (!m_arguments.hasFormat) m_arguments.format = Formats().front().name;
    }
    const OutputFormat* const format = FindFormat(Formats(), m_arguments.format);
    if (format && format->isBinary && m_output->IsTerminal()) {
      if (!wrong)
        wrong = UsageError("--format " + m_arguments.format +
                           " cannot be shown on a terminal; use -o FILE" +
                           std::string(format->extension));
      m_arguments.format = Formats().front().name;
    }
    return Try([&] {
      if (wrong) throw *wrong;
    });
  }

  ExitStatus PrintInformation() {
    m_output->Write(m_arguments.information);
    return m_output->WasInterrupted() ? ExitStatus::kInterrupted : ExitStatus::kDone;
  }

  void ShowFormatNote() {
    if (m_arguments.hasFormat || m_arguments.quiet) return;
    const std::string note =
        UnknownExtensionNote(Formats(), m_arguments.output, m_arguments.command);
    if (!note.empty()) m_progress->ShowMessage("note", note);
  }

  void AddOrderNote() {
    const auto* const diff = std::get_if<DiffResult>(&m_result);
    if (!diff || m_arguments.quiet) return;
    std::string note = OrderNote(*diff, m_arguments.sort,
                                 m_command->form.NeedsConnection(m_arguments.files.size()));
    if (!note.empty()) m_report->AddNote(std::move(note));
  }

  void Run() {
    Try([this] {
      if (!m_command->form.NeedsConnection(m_arguments.files.size()))
        m_status = m_command->runAlone(m_arguments, m_result);
      else
        Import();
    });
  }

  void Import() {
    m_library.emplace();
    const VXExecutionState::Scope scope(m_interrupt.State());
    const Connection connection = Connect(m_arguments, std::move(m_secrets));
    m_report->UseOrigins(connection.origins);
    EraseSecrets(m_arguments);
    RequireUsableCertificate(connection);
    LogFailures logFailures(MessagesOf(m_result).warnings);
    OperationObserver observer(*m_progress);
    ImportSettings settings;
    settings.http = connection.http;
    settings.exchangeObserver = &observer;
    settings.onLogFailure = [&](const String& name, const String& reason) {
      logFailures.Add(name, reason);
    };
    settings.onFaultDetail = [](const String& detail) {
      if (Operation* const operation = Operation::Current()) operation->AddFaultDetail(detail);
    };
    settings.onLogicError = &OnLogicError;
    const ImportSettings::Scope settingsScope(settings);
    Session session(*m_library, connection, m_arguments.log);
    if (!Interrupt::Happened())
      m_status = m_command->run(session, m_arguments, *m_report, m_result);
    if (!Interrupt::Happened()) session.ExplainTarget(MessagesOf(m_result));
    if (!m_arguments.log.empty() && !session.HasImport() && !Interrupt::Happened())
      m_report->AddNote(UnloggedNote());
    if (m_progress->BasicInClear()) {
      const bool isToken = !connection.http.bearerToken.empty();
      MessagesOf(m_result).warnings.push_back(
          std::string(isToken ? "the token was sent" : "the password was sent by Basic") +
          " over plain http to another machine, and others on the network can read it; use https");
    }
  }

  /// Why the folder of --log has no log. `check` always identifies the server first.
  std::string UnloggedNote() const {
    const std::string begin = "nothing was logged: ";
    if (m_arguments.command == "check")
      return begin +
             "check does not log the requests that identify the server; use sources with --target "
             "and --log";
    return begin + "the requests that identify the server are logged only with --target";
  }

  /// Prints the messages to standard error and writes the result, or what is left of it.
  ExitStatus ReportResult() {
    if (Interrupt::Happened()) {
      m_status = ExitStatus::kInterrupted;
      // Without an error the document would look complete.
      std::vector<std::string>& errors = MessagesOf(m_result).errors;
      if (errors.empty()) errors.emplace_back("interrupted: the result may be incomplete");
    }
    m_report->AddMessages(MessagesOf(m_result));
    try {
      m_command->render(m_report->FormOf(m_result), m_result);
      return m_report->Finish(m_status, m_result);
    } catch (const std::bad_alloc&) {
      m_report->ShowMessages();
      m_progress->ShowMessage("error", "there is not enough memory to write the result");
      return ExitStatus::kFailed;
    }
  }

  ExitStatus FailWith(ExitStatus status, const char* reason) {
    if (!m_progress) m_progress.emplace(true, false);
    if (m_report) m_report->ShowMessages();
    m_progress->ShowMessage("error", reason);
    return status;
  }

  const bool m_hasStandardOutput;
  Interrupt m_interrupt;
  Arguments m_arguments;
  EnvironmentSecrets m_secrets;
  const Command* m_command = nullptr;
  // Declared before the result, so that the library is unloaded after its records are destroyed.
  std::optional<ImportLibrary> m_library;
  Result m_result;
  ExitStatus m_status = ExitStatus::kDone;
  std::optional<Output> m_output;
  std::optional<Progress> m_progress;
  std::optional<Report> m_report;
};

}  // namespace

int main(int argc, char** argv) {
  const bool hasStandardOutput = OpenMissingStandardStreams();
  // Keeps the password out of core files and away from other processes of the user.
  prctl(PR_SET_DUMPABLE, 0);
  // Write errors are reported. A signal would end the tool without a message.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);  // file size limit
  try {
    const int status = static_cast<int>(Call(hasStandardOutput).Run(argc, argv));
    if (HTTPClientWrapper::IsKerberosThreadLeft()) _exit(status);
    return status;
  } catch (const std::exception& error) {
    // Usually out of memory.
    for (const char* const piece : {"xmla-import: error: ", error.what(), "\n"})
      WriteToStandardError(piece);
    return static_cast<int>(ExitStatus::kFailed);
  }
}
