#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/TextSink.h"
#include "call/ExitStatus.h"
#include "call/SettingAdvice.h"
#include "commands/ResultReceiver.h"
#include "output/MessageSummary.h"
#include "output/Output.h"
#include "output/Progress.h"
#include "results/Form.h"
#include "results/ResultText.h"
#include "results/Totals.h"

/// Writes the result to the output and its messages to standard error. Cubes of an import are
/// written one by one during the import, everything else at the end. Throws OutputError and
/// OutputInterrupted.
class Report : public ResultReceiver, private TextSink {
 public:
  /// `color`: the value of --color.
  Report(Output& output, const std::string& format, const std::string& color,
         ShownWarnings warnings, Progress& progress);

  void BeginCubes(ImportResult& result, std::size_t count) override;
  void CountCubes(std::size_t count) override { m_progress.BeginCubes(count); }
  void BeginCube(const String& name) override { m_progress.BeginCube(name); }
  void EndCube() override { m_progress.EndCube(); }
  bool Take(const CubeResult& cube) override;
  void BeginSteps(const CheckResult& result) override;
  void Take(const CheckStep& step) override;

  /// For advice after a failed call.
  void UseOrigins(const SettingOrigins& origins) { m_origins = origins; }
  /// Shown after the messages, whatever the status is.
  void AddNote(std::string note) { m_notes.push_back(std::move(note)); }
  /// The form, after the beginning of the result has been written.
  Form& FormOf(const Result& result);
  /// Adds the messages of the whole result. Finish shows them.
  void AddMessages(const Messages& messages);
  /// Call after the form has written everything. `hasContent`: the result has more than messages.
  /// Shows the messages that were added, once. Finish calls it.
  void ShowMessages();
  /// Shows the messages, completes the output as the status requires, and says what was imported
  /// and where it is. Returns the status, which may have become kInterrupted.
  ExitStatus Finish(ExitStatus status, const Result& result);

 private:
  void Write(std::string_view text) override;
  void AddWarnings(const std::string& cube, const Messages& messages, std::size_t first);
  void AddErrors(const std::string& cube, const Messages& messages);
  void ShowAdvice();
  void ShowClosingLine(const Result& result);

  Output& m_output;
  Progress& m_progress;
  const ShownWarnings m_warnings;
  MessageSummary m_summary;
  SettingOrigins m_origins;
  std::vector<std::string> m_notes;
  Totals m_totals;
  ResultText m_text;
  const std::unique_ptr<Form> m_form;
  bool m_hasBegun = false;
  bool m_hasShown = false;
  bool m_showsErrors = true;         ///< on standard error
  std::size_t m_addedWarnings = 0;   ///< of the whole result
  std::size_t m_hiddenWarnings = 0;  ///< after an interruption
};
