// Writes the manual pages into a folder. Runs in the build.

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <string>

#include "Pages.h"

namespace {

/// The date of SOURCE_DATE_EPOCH, so that equal sources give equal pages; else no date.
std::string Date() {
  const char* const epoch = std::getenv("SOURCE_DATE_EPOCH");
  if (!epoch) return {};
  const std::time_t time = std::strtoll(epoch, nullptr, 10);
  std::tm parts{};
  char text[sizeof "2000-01-01"];
  if (!gmtime_r(&time, &parts) || std::strftime(text, sizeof text, "%Y-%m-%d", &parts) == 0)
    return {};
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: make-manual-pages FOLDER\n";
    return 2;
  }
  const std::string date = Date();
  const PageEdition edition{date, XMLA_VERSION};
  for (const auto& [name, text] : {std::pair{"xmla-import.1", ToolPage(edition)},
                                   {"xmla-import-servers.5", ServersPage(edition)},
                                   {"xmla-sample-provider.1", ProviderPage(edition)}}) {
    const std::string file = std::string(argv[1]) + '/' + name;
    std::ofstream out(file, std::ios::binary);
    out << text << std::flush;
    if (!out) {
      std::cerr << "make-manual-pages: cannot write " << file << '\n';
      return 1;
    }
  }
  return 0;
}
