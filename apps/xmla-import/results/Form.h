#pragma once

#include <memory>
#include <string>
#include <vector>

#include "commands/Results.h"
#include "results/ResultText.h"

/// An output format. The result of an import is written in pieces, cube by cube, all others at
/// once. If the output must end early, lists are truncated, and a format that shows errors adds one
/// to the truncated object.
///
/// | call      | functions                                        |
/// | --------- | ------------------------------------------------ |
/// | `servers` | Write(ServersResult)                             |
/// | `sources` | Write(SourcesResult)                             |
/// | `tree`    | Write(TreeResult)                                |
/// | `cube`    | Write(CubeResult)                                |
/// | `import`  | BeginImport, AddCube for each cube, EndImport    |
/// | `diff`    | Write(DiffResult)                                |
/// | `completion` | Write(CompletionResult)                       |
/// | `check`   | BeginSteps, AddStep for each step, EndSteps      |
/// | other     | Write(NoResult): a usage error without a command |
///
/// They are called after a failure, too; then the result contains its errors, and what was read.
class Form {
 public:
  explicit Form(ResultText& text) : m_text(text) {}
  virtual ~Form() = default;
  Form(const Form&) = delete;
  Form& operator=(const Form&) = delete;

  virtual void Write(const NoResult& result) = 0;
  virtual void Write(const ServersResult& result) = 0;
  virtual void Write(const SourcesResult& result) = 0;
  virtual void Write(const TreeResult& result) = 0;
  virtual void Write(const CubeResult& result) = 0;
  /// Only for the formats of `diff`.
  virtual void Write(const DiffResult&) {}
  /// Only for the text format.
  virtual void Write(const CompletionResult&) {}

  /// Writes the provider's identity. AddCube and EndImport follow.
  virtual void BeginImport(const ImportResult& result) = 0;
  virtual void AddCube(const CubeResult& cube) = 0;
  virtual void EndImport(const ImportResult& result) = 0;

  virtual void BeginSteps(const CheckResult& result) = 0;
  virtual void AddStep(const CheckStep& step) = 0;
  virtual void EndSteps(const CheckResult& result) = 0;

  /// True if the result is truncated.
  bool IsCut() const { return m_isCut; }
  /// What the format could not hold, for people.
  const std::vector<std::string>& Notices() const { return m_notices; }

 protected:
  ResultText& Text() { return m_text; }
  void AddNotice(const std::string& text) { m_notices.push_back(text); }
  /// Ask before each element of a list.
  bool MustStop() {
    m_isCut = m_isCut || m_text.MustStop();
    return m_isCut;
  }
  void SetCut() { m_isCut = true; }

 private:
  ResultText& m_text;
  bool m_isCut = false;
  std::vector<std::string> m_notices;
};

/// A format for `tree`, `cube` and `import` only. Of other results, it writes the messages.
class CubesForm : public Form {
 public:
  using Form::Form;
  using Form::Write;

  void Write(const NoResult& result) override { WriteOnly(result.messages); }
  void Write(const ServersResult& result) override { WriteOnly(result.messages); }
  void Write(const SourcesResult& result) override { WriteOnly(result.messages); }
  void BeginSteps(const CheckResult&) override {}
  void AddStep(const CheckStep&) override {}
  void EndSteps(const CheckResult& result) override { WriteOnly(result.messages); }

 protected:
  /// Writes a result that has nothing but messages.
  virtual void WriteOnly(const Messages& messages) = 0;
};

/// The error text for a truncated result.
inline constexpr const char* kCutShort = "interrupted: the rest of the result is missing";

/// JSON document in UTF-8. All keys are present, in fixed order. Ends with a line feed.
std::unique_ptr<Form> MakeJsonForm(ResultText& text);
/// The same without line feeds and indentation.
std::unique_ptr<Form> MakeCompactJsonForm(ResultText& text);
/// One JSON document per line, for imports.
std::unique_ptr<Form> MakeJsonLinesForm(ResultText& text);
/// Comma-separated values (RFC 4180) in UTF-8.
std::unique_ptr<Form> MakeCsvForm(ResultText& text);
/// Headings and tables of GitHub Flavored Markdown.
std::unique_ptr<Form> MakeMarkdownForm(ResultText& text);
/// A workbook for spreadsheets, in memory until it is complete.
std::unique_ptr<Form> MakeXlsxForm(ResultText& text);
/// Indented text for people, without errors and warnings.
std::unique_ptr<Form> MakeTextForm(ResultText& text);
/// Page for a browser, of `cube`, `import` and `diff`. Keeps the result in memory until its end.
std::unique_ptr<Form> MakeHtmlForm(ResultText& text);
