#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "call/Arguments.h"

/// A service of the server file: a table with the names of long options as keys.
struct Server {
  std::string name;
  std::string place;  ///< file and line
  Arguments values;   ///< names of files are complete
  std::vector<std::string> passwordCommand;
  std::map<std::string, std::string> keys;  ///< file and line of those that it has
};

struct ServerFile {
  std::string name;
  bool exists = false;
  std::vector<Server> servers;  ///< in the order of the file
};

/// Reads the file in XMLA_IMPORT_SERVERS, else xmla-import/servers.toml in XDG_CONFIG_HOME or
/// ~/.config. If the file does not exist, the result has no servers. Throws UsageError if others
/// can write to the file, or if its content is invalid.
ServerFile ReadServerFile();

/// The servers in a text. `file` is the name of the file for messages, and names of files are
/// relative to `folder`. Throws UsageError.
std::vector<Server> ParseServers(std::string_view text, const std::string& file,
                                 const std::string& folder);

/// Finds a server. `origin` is the option or variable with the name. Throws UsageError.
const Server& FindServer(const ServerFile& file, const std::string& name,
                         const std::string& origin);
