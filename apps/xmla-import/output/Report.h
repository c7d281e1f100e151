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

/// Brings a result to its place and its messages to standard error: an import's cubes one by one
/// while it goes on, everything else at the end. What writing throws, it throws: OutputError and
/// OutputInterrupted.
class Report : public CubeReceiver, private TextSink {
 public:
  Report(Output& output, bool isJson, Progress& progress);

  void BeginCubes(ImportResult& result, std::size_t count) override;
  void BeginCube(const String& name) override { m_progress.BeginCube(name); }
  void EndCube() override { m_progress.EndCube(); }
  bool Take(const CubeResult& cube) override;

  /// The form, ready for the end of the result.
  Form& FormOf(const Result& result);
  /// Tells what has not been told yet.
  void Tell(const Messages& messages);
  /// To be called once the form has written everything. False when the result was cut short, or
  /// there was an interruption before all of it was in its place. `isPartial` says that the result
  /// tells of an interruption.
  bool Finish(bool isPartial);

 private:
  void Write(std::string_view text) override;
  void TellWarnings(const Messages& messages);

  Output& m_output;
  Progress& m_progress;
  ResultText m_text;
  const std::unique_ptr<Form> m_form;
  bool m_hasBegun = false;
  std::size_t m_toldWarnings = 0;
};
