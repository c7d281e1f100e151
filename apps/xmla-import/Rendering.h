#pragma once

#include <string>

#include "Results.h"

/// The result as the tool's JSON document: keys in their fixed order, each present, UTF-8, with a
/// line feed at the end. Of an import's cubes, `jobs` are rendered at a time.
std::string RenderJson(const Result& result, int jobs);

/// The result as text for people: an indented tree, without errors and warnings. For a terminal,
/// names are made harmless.
std::string RenderText(const Result& result, bool forTerminal);
