#pragma once

#include <exception>
#include <functional>
#include <string>

#include "commands/Results.h"

/// Asked again and again while a result is rendered, from several threads.
using StopCheck = std::function<bool()>;

/// Rendering was told to stop before its end.
class RenderingStopped : public std::exception {
 public:
  const char* what() const noexcept override {
    return "interrupted while the result was made; it is not written";
  }
};

/// The result as the tool's JSON document: keys in their fixed order, each present, UTF-8, with a
/// line feed at the end. Of an import's cubes, `jobs` are rendered at a time. Throws
/// RenderingStopped.
std::string RenderJson(const Result& result, int jobs, const StopCheck& isToStop);

/// The result as text for people: an indented tree, without errors and warnings. For a terminal,
/// names are made harmless. Throws RenderingStopped.
std::string RenderText(const Result& result, bool forTerminal, const StopCheck& isToStop);
