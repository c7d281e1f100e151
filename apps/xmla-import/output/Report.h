#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "base/TextSink.h"
#include "call/ExitStatus.h"
#include "commands/CubeReceiver.h"
#include "output/Output.h"
#include "output/Progress.h"
#include "results/Form.h"
#include "results/ResultText.h"

/// Writes the result to the output and its messages to standard error. Cubes of an import are
/// written one by one during the import, everything else at the end. Throws OutputError and
/// OutputInterrupted.
class Report : public CubeReceiver, private TextSink {
 public:
  Report(Output& output, const std::string& format, Progress& progress);

  void BeginCubes(ImportResult& result, std::size_t count) override;
  void BeginCube(const String& name) override { m_progress.BeginCube(name); }
  void EndCube() override { m_progress.EndCube(); }
  bool Take(const CubeResult& cube) override;

  /// The form, after the beginning of the result has been written.
  Form& FormOf(const Result& result);
  /// Shows messages that were not shown before.
  void ShowMessages(const Messages& messages);
  /// Call after the form has written everything. `hasContent`: the result has more than messages.
  /// Completes the output as the status requires, and says where the result is if a file was not
  /// replaced. Returns the status, which may have become kInterrupted.
  ExitStatus Finish(ExitStatus status, bool hasContent);

 private:
  void Write(std::string_view text) override;
  void ShowWarnings(const Messages& messages);

  Output& m_output;
  Progress& m_progress;
  ResultText m_text;
  const std::unique_ptr<Form> m_form;
  bool m_hasBegun = false;
  std::size_t m_shownWarnings = 0;
};
