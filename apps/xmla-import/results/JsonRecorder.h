#pragma once

#include <memory>
#include <string>

#include "commands/ResultReceiver.h"
#include "results/Form.h"

/// Keeps a result as JSON instead of writing it. Tells another receiver about the progress.
class JsonRecorder : public ResultReceiver, private TextSink {
 public:
  explicit JsonRecorder(ResultReceiver& progress)
      : m_progress(progress), m_text(*this, false), m_form(MakeCompactJsonForm(m_text)) {}

  void BeginCubes(ImportResult& result, std::size_t count) override {
    m_form->BeginImport(result);
    m_hasBegun = true;
    CountCubes(count);
  }
  void CountCubes(std::size_t count) override { m_progress.CountCubes(count); }
  void BeginCube(const String& name) override { m_progress.BeginCube(name); }
  void EndCube() override { m_progress.EndCube(); }
  bool Take(const CubeResult& cube) override {
    m_form->AddCube(cube);
    return true;
  }
  void BeginSteps(const CheckResult& result) override { m_progress.BeginSteps(result); }
  void Take(const CheckStep& step) override { m_progress.Take(step); }

  /// The document of a result of `import`, `cube` or `tree`.
  std::string Finish(const Result& result);

 private:
  void Write(std::string_view text) override { m_document += text; }

  ResultReceiver& m_progress;
  std::string m_document;
  ResultText m_text;
  const std::unique_ptr<Form> m_form;
  bool m_hasBegun = false;
};
