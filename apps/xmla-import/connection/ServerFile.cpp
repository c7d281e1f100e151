#include "connection/ServerFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <toml++/toml.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "Utility/Generic/HTTPClientWrapper.h"
#include "base/Secret.h"
#include "base/Text.h"
#include "base/TrustedPath.h"
#include "call/AuthSchemes.h"
#include "call/CommonOptions.h"
#include "call/OptionValue.h"
#include "call/Suggestion.h"
#include "call/TargetNames.h"
#include "connection/Connection.h"

namespace {

constexpr std::size_t kMaxBytes = std::size_t{1} << 20;
constexpr std::string_view kPasswordCommand = "password-command";
constexpr const char* kDoubleBackslash = "; if a backslash is meant, write the backslash twice";
constexpr const char* kSeeHelp = "; see xmla-import help servers";

std::string Quoted(std::string_view text) { return Listed({std::string(text)}); }

bool HasControlCharacter(std::string_view text) {
  return std::ranges::any_of(
      text, [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

std::vector<std::string> KeyNames() {
  std::vector<std::string> keys;
  for (const CommandOption& option : CommonOptions())
    if (IsServerKey(option)) keys.emplace_back(option.name + 2);
  keys.emplace_back(kPasswordCommand);
  return keys;
}

const CommandOption* OptionOfKey(std::string_view key) {
  for (const CommandOption& option : CommonOptions())
    if (IsServerKey(option) && key == option.name + 2) return &option;
  return nullptr;
}

/// The parser's description without the text of the file that it repeats, which may be a secret. It
/// is quoted, like the characters that the parser expected.
std::string WithoutTextOfFile(std::string_view description) {
  constexpr std::size_t kLongestExpected = 5;
  description = description.substr(0, description.find(", saw"));
  std::string text;
  while (!description.empty()) {
    const std::size_t begin = description.find('\'');
    text += description.substr(0, begin);
    if (begin == description.npos) break;
    description.remove_prefix(begin + 1);
    const std::size_t end = std::min(description.rfind('\''), description.size());
    text += end <= kLongestExpected ? '\'' + std::string(description.substr(0, end)) + '\'' : "...";
    description.remove_prefix(std::min(end + 1, description.size()));
  }
  return OneLine(text);
}

/// What most likely is wrong, by a part of the parser's description.
constexpr std::string_view kParserHints[][2] = {
    {"escape", kDoubleBackslash},          // an unknown escape sequence
    {"unicode scalar", kDoubleBackslash},  // an incomplete one of a Unicode character
    {"could not determine value type", "; write a text in quotes"},
};

std::string_view ParserHint(std::string_view description) {
  for (const auto& [part, hint] : kParserHints)
    if (description.find(part) != std::string_view::npos) return hint;
  return {};
}

/// Reads the tables of one file.
class ServerReader {
 public:
  ServerReader(const std::string& file, const std::string& folder)
      : m_file(file), m_folder(folder) {}

  std::vector<Server> Read(std::string_view text) {
    const toml::table tables = Parse(text);
    std::vector<std::pair<toml::source_position, Server>> found;
    for (const auto& [key, node] : tables)
      found.emplace_back(key.source().begin, ReadServer(key, node));
    std::ranges::stable_sort(found, {}, [](const auto& each) { return each.first.line; });
    std::vector<Server> servers;
    for (auto& [position, server] : found) servers.push_back(std::move(server));
    return servers;
  }

 private:
  [[noreturn]] void Fail(const toml::source_region& place, const std::string& text) const {
    throw UsageError(PlaceOf(place) + ": " + OneLine(text) + kSeeHelp);
  }

  std::string PlaceOf(const toml::source_region& place) const {
    return Quoted(m_file) + ", line " + std::to_string(place.begin.line);
  }

  toml::table Parse(std::string_view text) const {
    try {
      return toml::parse(text);
    } catch (const toml::parse_error& error) {
      const toml::source_position place = error.source().begin;
      throw UsageError(Quoted(m_file) + ", line " + std::to_string(place.line) + ", column " +
                       std::to_string(place.column) + ": invalid TOML (" +
                       WithoutTextOfFile(error.description()) + ")" +
                       std::string(ParserHint(error.description())) + kSeeHelp);
    }
  }

  Server ReadServer(const toml::key& key, const toml::node& node) const {
    const std::string name(key.str());
    if (name.empty() || HasControlCharacter(name))
      Fail(key.source(), "the name of the server " + Quoted(name) +
                             " is empty or contains a control character; rename it");
    if (node.is_array() && !OptionOfKey(name))
      Fail(key.source(), "write the name in single brackets: [" + name + "]");
    const toml::table* const table = node.as_table();
    if (!table)
      Fail(key.source(), "the key " + Quoted(name) +
                             " belongs to no server; begin with the name of a server, as in "
                             "[sales]");
    Server server;
    server.name = name;
    server.place = PlaceOf(key.source());
    const std::string prefix = "server " + Quoted(name) + ": ";
    for (const auto& [entry, value] : *table) {
      server.keys[std::string(entry.str())] = PlaceOf(entry.source());
      try {
        ReadKey(entry.str(), value, server);
      } catch (const UsageError& error) {
        Fail(entry.source(), prefix + error.what());
      }
    }
    if (server.values.url.empty()) Fail(key.source(), prefix + "the key url is missing");
    return server;
  }

  void ReadKey(std::string_view key, const toml::node& value, Server& server) const {
    if (key == "password" || key == "token")
      throw UsageError(std::string(key) + " is not a key, because a file would show it; use " +
                       (key == "token" ? "token-file" : "password-command or password-file"));
    if (value.is_table())
      throw UsageError("it contains the table " + Quoted(key) +
                       "; write a name that contains a dot in quotes, as in [\"a.b\"]");
    if (key == kPasswordCommand) return ReadCommand(value, server);
    const CommandOption* const option = OptionOfKey(key);
    if (!option)
      throw UsageError("unknown key " + Quoted(key) + DidYouMean(key, KeyNames()) +
                       "; expected one of: " + Enumerated(KeyNames()));
    std::string text = TextOf(*option, key, value);
    const bool isInput = option->file == OptionFile::kSecret && text == "-";
    if (option->file != OptionFile::kNone && !text.empty() && !isInput)
      text = InFolder(std::move(text));
    SetValue(*option, key, text, server.values);
    if (key == "url") CheckUrl(text);
    if (key == "proxy") CheckProxy(text);
    if (key == "auth") AuthSchemes(key, text);
    if (key == "target" && text != kAutoTarget && !TargetFromName(text))
      throw UsageError(UnknownValue(key, text, TargetNameList(), TargetNames()));
    Erase(text);
  }

  static void CheckUrl(const std::string& text) {
    String url = Wide(text);
    String user;
    String password;
    const std::string problem = TakeCredentials(url, user, password);
    for (String* const secret : {&user, &password}) Erase(*secret);
    if (!problem.empty()) throw UsageError("url cannot be used: " + problem);
  }

  static void CheckProxy(const std::string& text) {
    String url = WideSecret(std::string(text));
    const std::string problem = Utf8(HTTPClientWrapper::ProxyProblem(url));
    Erase(url);
    if (!problem.empty()) throw UsageError("proxy cannot be used: " + problem);
  }

  static std::string TextOf(const CommandOption& option, std::string_view key,
                            const toml::node& value) {
    std::string text;
    if (IsNumber(option)) {
      const auto number = value.value_exact<std::int64_t>();
      if (!number) throw UsageError(std::string(key) + " needs a whole number without quotes");
      return std::to_string(*number);
    }
    if (key == "auth" && value.is_array()) {
      for (const std::string& each : ListOf(value, "auth needs a list of texts"))
        text += (text.empty() ? "" : ",") + each;
      return text;
    }
    const auto string = value.value_exact<std::string_view>();
    if (!string) throw UsageError(std::string(key) + " needs a text in quotes");
    if (HasControlCharacter(*string))
      throw UsageError(std::string(key) + " contains a control character" + kDoubleBackslash);
    return std::string(*string);
  }

  static std::vector<std::string> ListOf(const toml::node& value, const char* expected) {
    std::vector<std::string> list;
    if (const toml::array* const items = value.as_array())
      for (const toml::node& item : *items) {
        const auto text = item.value_exact<std::string_view>();
        if (!text) throw UsageError(expected);
        list.emplace_back(*text);
        if (HasControlCharacter(list.back()))
          throw UsageError(std::string("a text has a control character") + kDoubleBackslash);
      }
    if (list.empty()) throw UsageError(expected);
    return list;
  }

  void ReadCommand(const toml::node& value, Server& server) const {
    server.passwordCommand =
        ListOf(value,
               "password-command needs a program and its arguments, as in [\"secret-tool\", "
               "\"lookup\", \"service\", \"olap\"]");
    std::string& program = server.passwordCommand.front();
    if (program.empty()) throw UsageError("the program of password-command has no name");
    if (program.find('/') != program.npos) program = InFolder(std::move(program));
  }

  std::string InFolder(std::string name) const {
    if (name.starts_with("~/")) {
      const char* const home = std::getenv("HOME");
      if (!home || !*home) throw UsageError("~/ cannot be used, because HOME is not set");
      return home + name.substr(1);
    }
    return name.starts_with('/') ? name : m_folder + "/" + name;
  }

  const std::string& m_file;
  const std::string& m_folder;
};

std::string NameOfServerFile() {
  const auto variable = [](const char* name) {
    const char* const value = std::getenv(name);
    return std::string(value ? value : "");
  };
  if (std::string name = variable("XMLA_IMPORT_SERVERS"); !name.empty()) return name;
  constexpr const char* kBelow = "/xmla-import/servers.toml";
  // A relative path is invalid by the rules for this variable.
  if (const std::string folder = variable("XDG_CONFIG_HOME"); folder.starts_with('/'))
    return folder + kBelow;
  if (const std::string home = variable("HOME"); !home.empty()) return home + "/.config" + kBelow;
  throw UsageError(
      "there is no place for the server file; set HOME, or XMLA_IMPORT_SERVERS to its name");
}

/// Throws PathError if others can change the file or directory.
void RequireOwn(const struct stat& status, const std::string& what, const std::string& name) {
  if (status.st_uid != geteuid() && status.st_uid != 0)
    throw PathError(what + " belongs to another user; use your own");
  const bool isSticky = S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX);
  if ((status.st_mode & (S_IWGRP | S_IWOTH)) && !isSticky)
    throw PathError("others can write to " + what + "; run: chmod go-w " + name);
}

std::string Folder(const std::string& name) {
  const std::size_t slash = name.rfind('/');
  return slash == name.npos ? "." : slash == 0 ? "/" : name.substr(0, slash);
}

std::string TextOfFile(const std::string& name) {
  const TrustedPath path = TrustedPath::Find(name);
  if (!path.IsRegular()) throw PathError("it is not a regular file");
  RequireOwn(path.status, "it", Quoted(name));
  struct stat directory {};
  if (fstat(path.directory.Number(), &directory) != 0) throw PathError(std::strerror(errno));
  RequireOwn(directory, "its directory", Quoted(Folder(name)));
  const Descriptor file = path.Open(O_RDONLY);
  if (!file.IsOpen()) throw PathError(std::strerror(errno));
  std::string text(kMaxBytes + 1, '\0');
  std::size_t length = 0;
  while (length < text.size()) {
    const ssize_t count = read(file.Number(), text.data() + length, text.size() - length);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw PathError(std::strerror(errno));
    if (count == 0) break;
    length += static_cast<std::size_t>(count);
  }
  if (length > kMaxBytes) throw PathError("it is larger than 1 MiB; is it the right file?");
  text.resize(length);
  return text;
}

}  // namespace

std::vector<Server> ParseServers(std::string_view text, const std::string& file,
                                 const std::string& folder) {
  return ServerReader(file, folder).Read(text);
}

ServerFile ReadServerFile() {
  ServerFile file;
  file.name = NameOfServerFile();
  file.exists = access(file.name.c_str(), F_OK) == 0 || (errno != ENOENT && errno != ENOTDIR);
  if (!file.exists) return file;
  std::string text;
  try {
    text = TextOfFile(file.name);
  } catch (const PathError& error) {
    throw UsageError("the server file " + Quoted(file.name) +
                     " cannot be used: " + OneLine(error.what()));
  }
  file.servers = ParseServers(text, file.name, Folder(file.name));
  Erase(text);
  return file;
}

const Server& FindServer(const ServerFile& file, const std::string& name,
                         const std::string& origin) {
  std::vector<std::string> names;
  for (const Server& server : file.servers) {
    if (server.name == name) return server;
    names.push_back(server.name);
  }
  if (names.empty())
    throw UsageError(origin + " cannot be used: the server file " + Quoted(file.name) +
                     (file.exists ? " has no servers" : " does not exist") + kSeeHelp);
  Suggestion suggestion(name);
  for (const std::string& each : names) suggestion.Consider(each);
  const std::string best = suggestion.Best();
  throw UsageError("unknown " + origin + ' ' + Listed({name}) +
                   (best.empty() ? "" : " (did you mean " + Listed({best}) + "?)") +
                   "; expected one of: " + Listed(names) + "; they are in " + Quoted(file.name));
}
