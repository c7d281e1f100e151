#pragma once

#include <string>
#include <string_view>

/// What all pages say alike.
struct PageEdition {
  std::string_view date;  ///< may be empty
  std::string_view version;
};

/// xmla-import(1), from the tables that also make --help.
std::string ToolPage(const PageEdition& edition);
/// xmla-import-servers(5).
std::string ServersPage(const PageEdition& edition);
/// xmla-sample-provider(1), from the options of its command line.
std::string ProviderPage(const PageEdition& edition);
