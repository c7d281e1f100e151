#include "tool/TableReading.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include "support/ChildProcess.h"
#include "support/TempDir.h"

namespace tool {

bool CanReadTables() {
  static const bool can =
      support::RunChild("/bin/sh", {"-c",
                                    "/usr/bin/python3 -c 'import openpyxl' && cmark-gfm "
                                    "--version"})
          .exitStatus == 0;
  if (!can && std::getenv("XMLA_REQUIRE_ALL_TESTS"))
    ADD_FAILURE() << "the packages python3-openpyxl and cmark-gfm are missing";
  return can;
}

std::vector<ReadTable> ReadTables(const std::string& format, const std::string& bytes) {
  const support::TempDir folder;
  const std::string file = folder.Path() / "result";
  std::ofstream(file, std::ios::binary) << bytes;
  const support::ChildResult result =
      support::RunChild("/usr/bin/python3", {READ_TABLES, format, file});
  if (result.exitStatus != 0) throw std::runtime_error(result.err);
  std::vector<ReadTable> tables;
  for (const Json& each : Json::parse(result.out)) {
    ReadTable& table = tables.emplace_back();
    table.name = each["name"].get<std::vector<std::string>>();
    table.frozen = each.value("frozen", "");
    table.filter = each.value("filter", "");
    table.hidden = each.value("hidden", std::vector<std::string>());
    for (const Json& row : each["rows"]) {
      if (table.headings.empty())
        table.headings = row.get<std::vector<std::string>>();
      else
        table.rows.push_back(row.get<std::vector<Json>>());
    }
  }
  return tables;
}

}  // namespace tool
