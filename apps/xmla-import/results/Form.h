#pragma once

#include <memory>

#include "commands/Results.h"
#include "results/ResultText.h"

/// A form in which results are written. An import is written in pieces, its cubes one by one; all
/// others at once. Where the text is to stop, lists end early, and a form that shows errors says
/// so in those of the object that is cut short.
class Form {
 public:
  explicit Form(ResultText& text) : m_text(text) {}
  virtual ~Form() = default;
  Form(const Form&) = delete;
  Form& operator=(const Form&) = delete;

  virtual void Write(const NoResult& result) = 0;
  virtual void Write(const SourcesResult& result) = 0;
  virtual void Write(const TreeResult& result) = 0;
  virtual void Write(const CubeResult& result) = 0;

  /// Begins with what is known of the provider by now. To be followed by the cubes and the end.
  virtual void BeginImport(const ImportResult& result) = 0;
  virtual void AddCube(const CubeResult& cube) = 0;
  virtual void EndImport(const ImportResult& result) = 0;

  /// True when something was left out.
  bool IsCut() const { return m_isCut; }

 protected:
  ResultText& Text() { return m_text; }
  /// To be asked before each element of a list.
  bool IsToStop() {
    m_isCut = m_isCut || m_text.IsToStop();
    return m_isCut;
  }

 private:
  ResultText& m_text;
  bool m_isCut = false;
};

/// What is said of a result that was cut short.
inline constexpr const char* kCutShort =
    "interrupted while the result was written; the rest of it is missing";

/// The result as the tool's JSON document: keys in their fixed order, each present, UTF-8, with a
/// line feed at the end.
std::unique_ptr<Form> MakeJsonForm(ResultText& text);
/// The result as text for people: an indented tree, without errors and warnings.
std::unique_ptr<Form> MakeTextForm(ResultText& text);
