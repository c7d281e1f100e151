#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "base/TextSink.h"
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
  /// Call after the form has written everything. False if the result is truncated, or if an
  /// interruption came before everything was written. `isPartial`: the result mentions the
  /// interruption.
  bool Finish(bool isPartial);

 private:
  void Write(std::string_view text) override;
  /// Only counts the warning after an interruption, because there may be very many.
  void ShowWarning(const std::string& line);
  void ShowWarnings(const Messages& messages);

  Output& m_output;
  Progress& m_progress;
  ResultText m_text;
  const std::unique_ptr<Form> m_form;
  bool m_hasBegun = false;
  std::size_t m_shownWarnings = 0;  ///< of the messages of the whole result
  std::size_t m_hiddenWarnings = 0;
};
