#include "output/Report.h"

#include <fmt/format.h>
#include <unistd.h>

#include <variant>
#include <vector>

#include "base/Interrupt.h"
#include "base/Text.h"
#include "output/ExchangeLines.h"
#include "results/Formats.h"

Report::Report(Output& output, const std::string& format, const std::string& color,
               ShownWarnings warnings, Progress& progress)
    : m_output(output),
      m_progress(progress),
      m_warnings(warnings),
      m_text(*this, output.IsTerminal(),
             format == Formats().front().name && HasColors(color, output.IsTerminal())),
      m_form(MakeForm(format, m_text)) {}

void Report::BeginCubes(ImportResult& result, std::size_t count) {
  AddWarnings("", result.messages, 0);
  m_addedWarnings = result.messages.warnings.size();
  m_form->BeginImport(result);
  m_hasBegun = true;
  CountCubes(count);
}

bool Report::Take(const CubeResult& cube) {
  const std::string name = Listed({Utf8(Shortened(cube.cube))});
  AddWarnings(name, cube.messages, 0);
  AddErrors(name, cube.messages);
  if (m_text.MustStop()) return false;
  m_totals.Add(cube);
  m_form->AddCube(cube);
  m_text.Flush();
  return true;
}

void Report::BeginSteps(const CheckResult& result) {
  // On one terminal, the errors would repeat the steps.
  m_showsErrors = !m_output.IsTerminal() || isatty(STDERR_FILENO) == 0;
  m_form->BeginSteps(result);
  m_hasBegun = true;
}

void Report::Take(const CheckStep& step) {
  if (m_text.MustStop()) return;
  m_totals.Add(step);
  m_form->AddStep(step);
  m_text.Flush();
}

Form& Report::FormOf(const Result& result) {
  if (!m_hasBegun) {
    if (const auto* const import = std::get_if<ImportResult>(&result)) m_form->BeginImport(*import);
    if (const auto* const check = std::get_if<CheckResult>(&result)) m_form->BeginSteps(*check);
  }
  m_hasBegun = true;
  return *m_form;
}

void Report::Write(std::string_view text) {
  if (m_output.IsPipe()) m_progress.EndLine();
  if (m_text.IsForTerminal())
    m_progress.WithoutLine([&] { m_output.Write(text); });
  else
    m_output.Write(text);
}

void Report::AddWarnings(const std::string& cube, const Messages& messages, std::size_t first) {
  const std::vector<std::string> lines(
      messages.warnings.begin() + static_cast<std::ptrdiff_t>(first), messages.warnings.end());
  m_summary.AddWarnings(cube, lines);
  if (m_warnings != ShownWarnings::kAll) return;
  for (const std::string& line : lines) {
    if (Interrupt::Happened())
      ++m_hiddenWarnings;  // there may be very many
    else
      m_progress.ShowMessage(NeedsNoAction(line) ? "note" : "warning",
                             cube.empty() ? line : cube + ": " + line);
  }
}

void Report::AddErrors(const std::string& cube, const Messages& messages) {
  // An interruption hides steps.
  if (!m_showsErrors && !Interrupt::Happened()) return;
  if (m_warnings != ShownWarnings::kAll) return m_summary.AddErrors(cube, messages.errors);
  for (const std::string& line : messages.errors)
    m_progress.ShowMessage(CompletesAnError(line) ? "note" : "error",
                           cube.empty() ? line : cube + ": " + line);
}

void Report::AddMessages(const Messages& messages) {
  AddWarnings("", messages, m_addedWarnings);
  m_addedWarnings = messages.warnings.size();
  AddErrors("", messages);
}

void Report::ShowMessages() {
  if (m_hasShown) return;
  m_hasShown = true;
  if (m_warnings == ShownWarnings::kSummary)
    for (const auto& [text, isNote] : m_summary.WarningLines())
      m_progress.ShowMessage(isNote ? "note" : "warning", text);
  if (m_hiddenWarnings > 0)
    m_progress.ShowMessage(
        "warning", "interrupted: " + std::to_string(m_hiddenWarnings) + " warnings are not shown");
  for (const auto& [text, isNote] : m_summary.ErrorLines())
    m_progress.ShowMessage(isNote ? "note" : "error", text);
  if (m_form->IsCut()) m_progress.ShowMessage("error", kCutShort);
  for (const std::string& notice : m_form->Notices()) m_progress.ShowMessage("warning", notice);
}

/// The steps of a check have their own.
void Report::ShowAdvice() {
  const std::string& server = m_origins.server;
  bool namesServer = server.empty();
  // Advice may name the line of a key.
  const std::string owner = server.substr(0, server.rfind(", line "));
  std::vector<std::string> notes;
  for (const HTTPSetting setting : m_progress.FailedSettings()) {
    const std::string advice = SettingAdvice(setting, m_origins);
    if (advice.empty()) continue;
    notes.push_back(advice);
    namesServer |= advice.find(owner) != std::string::npos;
  }
  if (!namesServer) notes.push_back("the URL is that" + server);
  const std::string proxy = m_progress.HasForeignResponse() ? ProxyDoubt(m_origins) : "";
  if (!proxy.empty()) {
    if (notes.empty()) notes.emplace_back();
    std::string& last = notes.back();
    last += (last.empty() ? "" : "; ") + proxy;
  }
  for (const std::string& note : notes) m_progress.ShowMessage("note", note);
}

void Report::ShowClosingLine(const Result& result) {
  if (std::holds_alternative<ServersResult>(result) ||
      std::holds_alternative<CompletionResult>(result))
    return;  // nothing was transferred
  std::visit([this](const auto& any) { m_totals.Add(any); }, result);
  const auto [requests, retries, bytes, seconds] = m_progress.TrafficSoFar();
  std::string line = m_totals.Text();
  const bool isDiff = std::holds_alternative<DiffResult>(result);
  if (line.empty()) line = isDiff ? "no differences" : "nothing imported";
  if (m_summary.WarningCount() > 0 && !std::holds_alternative<CheckResult>(result))
    line += "; " + Counted(m_summary.WarningCount(), "warning", "warnings");
  if (m_summary.WarningCount() > 1 && !std::holds_alternative<CheckResult>(result))
    line += " of " + Counted(m_summary.WarningKinds(), "kind", "kinds");
  if (requests > 0 || !isDiff) {
    line += "; " + Counted(requests, "request", "requests");
    if (retries > 0) line += " and " + Counted(retries, "retry", "retries");
    line += fmt::format(", {}, {:.1f} s", SizeText(bytes), seconds);
  }
  if (!m_output.Place().empty()) line += "; the result is in " + m_output.Place();
  m_progress.ShowClosingLine(line);
}

ExitStatus Report::Finish(ExitStatus status, const Result& result) {
  m_text.Flush();
  ShowMessages();
  const bool hasFailed = status == ExitStatus::kFailed || status == ExitStatus::kPartly;
  if (hasFailed && !std::holds_alternative<CheckResult>(result)) ShowAdvice();
  for (const std::string& note : m_notes) m_progress.ShowMessage("note", note);
  if (m_form->IsCut() || m_output.WasInterrupted()) status = ExitStatus::kInterrupted;
  // A diagnosis with a failed step is a complete result.
  const auto* const check = std::get_if<CheckResult>(&result);
  const bool isDiagnosis = status == ExitStatus::kFailed && check && check->isComplete;
  const bool isResult = status == ExitStatus::kDone || status == ExitStatus::kPartly ||
                        status == ExitStatus::kDiffers || isDiagnosis;
  m_output.Finish(isResult             ? Output::Ending::kReplace
                  : HasContent(result) ? Output::Ending::kPartial
                                       : Output::Ending::kKeep);
  if (status == ExitStatus::kPartly && !m_output.Place().empty())
    m_progress.ShowMessage("note", "the result in " + m_output.Place() + " is incomplete");
  if (isResult) ShowClosingLine(result);
  if (!m_output.Notice().empty()) m_progress.ShowMessage("note", m_output.Notice());
  return status;
}
