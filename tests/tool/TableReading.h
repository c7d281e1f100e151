#pragma once

#include <string>
#include <vector>

#include "tool/ToolProcess.h"

namespace tool {

/// A table of a csv, xlsx or markdown result, read by programs that know nothing about the tool.
struct ReadTable {
  std::vector<std::string> name;  ///< of a sheet, or the headings above a table of Markdown
  std::vector<std::string> headings;
  std::vector<std::vector<Json>> rows;  ///< without the headings
  std::string frozen, filter;           ///< of a sheet
  std::vector<std::string> hidden;      ///< headings of hidden columns of a sheet
};

/// True if the programs are installed. If not, the test must skip itself, or fails if all tests are
/// required.
bool CanReadTables();

/// Reads a result in this format. Throws std::runtime_error with the reason if it is not valid.
std::vector<ReadTable> ReadTables(const std::string& format, const std::string& bytes);

}  // namespace tool
