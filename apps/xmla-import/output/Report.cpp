#include "output/Report.h"

#include <variant>

#include "base/Interrupt.h"
#include "base/Text.h"
#include "results/Formats.h"

Report::Report(Output& output, const std::string& format, Progress& progress)
    : m_output(output),
      m_progress(progress),
      m_text(*this, output.IsTerminal()),
      m_form(MakeForm(format, m_text)) {}

void Report::BeginCubes(ImportResult& result, std::size_t count) {
  ShowWarnings(result.messages);
  m_form->BeginImport(result);
  m_hasBegun = true;
  m_progress.BeginCubes(count);
}

bool Report::Take(const CubeResult& cube) {
  const std::string name = Listed({Utf8(Shortened(cube.cube))}) + ": ";
  for (const std::string& line : cube.messages.warnings) ShowWarning(name + line);
  for (const std::string& line : cube.messages.errors) m_progress.ShowMessage("error", name + line);
  if (m_text.MustStop()) return false;
  m_form->AddCube(cube);
  m_text.Flush();
  return true;
}

Form& Report::FormOf(const Result& result) {
  const auto* const import = std::get_if<ImportResult>(&result);
  if (import && !m_hasBegun) m_form->BeginImport(*import);
  m_hasBegun = true;
  return *m_form;
}

void Report::Write(std::string_view text) {
  if (m_text.IsForTerminal())
    m_progress.WithoutLine([&] { m_output.Write(text); });
  else
    m_output.Write(text);
}

void Report::ShowWarning(const std::string& line) {
  if (Interrupt::Happened())
    ++m_hiddenWarnings;
  else
    m_progress.ShowMessage("warning", line);
}

void Report::ShowWarnings(const Messages& messages) {
  for (; m_shownWarnings < messages.warnings.size(); ++m_shownWarnings)
    ShowWarning(messages.warnings[m_shownWarnings]);
}

void Report::ShowMessages(const Messages& messages) {
  ShowWarnings(messages);
  if (m_hiddenWarnings > 0)
    m_progress.ShowMessage(
        "warning", "interrupted; " + std::to_string(m_hiddenWarnings) + " warnings are not shown");
  for (const std::string& line : messages.errors) m_progress.ShowMessage("error", line);
}

bool Report::Finish(bool isPartial) {
  m_text.Flush();
  const bool isInPlace = m_output.Finish(isPartial);
  if (m_form->IsCut()) m_progress.ShowMessage("error", kCutShort);
  return isInPlace && !m_form->IsCut();
}
