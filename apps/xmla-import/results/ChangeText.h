#pragma once

#include <string>

#include "commands/Results.h"

// Changes in words, in UTF-8.

/// Such as: cube "Sales", measure "Net Sales". For an empty path: the document.
std::string PathText(const std::vector<PathPart>& path);
/// Such as "removed", or "type: VarChar, now Double".
std::string ChangeText(const Change& change);
/// Such as "2 breaking changes, 1 addition"; "no differences" for none.
std::string FoundText(const DiffResult& result);
/// A note if only the order differs, which --sort may be the cause of; else empty. `isSorted`: with
/// --sort. `hasService`: NEW is the service.
std::string OrderNote(const DiffResult& result, bool isSorted, bool hasService);
/// Such as "5 cubes, 42 hierarchies, 110 levels".
std::string ComparedText(const DiffResult& result);
