// The tool's call: its arguments, its environment and its password file.
//
// An input is words, each ended by a null character: those of the command line up to an empty one,
// then the values of four environment variables, then the bytes of the password file.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "Arguments.h"
#include "Connection.h"
#include "Input.h"
#include "Password.h"
#include "TerminalText.h"
#include "Text.h"
#include "Utility/Generic/HTTPClientWrapper.h"

namespace {

using fuzz::Require;

constexpr std::array kVariables{"XMLA_IMPORT_URL", "XMLA_IMPORT_USER", "XMLA_IMPORT_TARGET",
                                "XMLA_IMPORT_PASSWORD"};

bool IsOneLine(std::string_view text) {
  return !text.empty() && std::none_of(text.begin(), text.end(), [](char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
  });
}

/// A file of given bytes that has a name but no place on a disk.
class MemoryFile {
 public:
  explicit MemoryFile(std::string_view bytes)
      : m_descriptor(memfd_create("password", MFD_CLOEXEC)) {
    Require(m_descriptor >= 0, "no memory file");
    Require(write(m_descriptor, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
            "no room in a memory file");
  }
  ~MemoryFile() { close(m_descriptor); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  std::string Name() const { return "/proc/self/fd/" + std::to_string(m_descriptor); }

 private:
  int m_descriptor;
};

void CheckPassword(std::string_view bytes) {
  constexpr std::size_t kMost = std::size_t{64} * 1024;
  const std::size_t end = bytes.find('\n');
  std::string_view line = bytes.substr(0, end);
  const bool isTooLong = line.size() >= kMost;
  if (end != bytes.npos && line.ends_with('\r')) line.remove_suffix(1);
  const bool isReadable = !isTooLong && !(end == bytes.npos && line.empty());
  const MemoryFile file(bytes);
  try {
    const std::string password = PasswordFromFile(file.Name());
    Require(isReadable && password == line, "another password than the file's first line");
  } catch (const UsageError& error) {
    Require(!isReadable && IsOneLine(error.what()), "the password file", error.what());
  }
}

/// What connecting says; empty when it succeeds.
std::string ErrorOfConnecting(const Arguments& arguments) {
  try {
    Connection connection = Connect(arguments);
    String user;
    String password;
    Require(HTTPClientWrapper::TakeCredentials(connection.url, user, password),
            "an address that cannot be used");
    Require(user.empty() && password.empty(), "credentials left in the address");
  } catch (const UsageError& error) {
    Require(IsOneLine(error.what()), "an error that is not one line", error.what());
    return error.what();
  }
  return {};
}

void CheckConnecting(const Arguments& arguments) {
  const std::string text = ErrorOfConnecting(arguments);
  // Whatever it says, the password has no part in it.
  setenv("XMLA_IMPORT_PASSWORD", "another password", 1);
  Require(ErrorOfConnecting(arguments) == text, "an error that knows the password", text);
}

void CheckHiding(const std::vector<std::string>& words) {
  std::vector<std::string> changed = words;
  std::vector<char*> argv;
  for (std::string& word : changed) argv.push_back(word.data());
  argv.push_back(nullptr);
  HideCredentials(static_cast<int>(words.size()), argv.data());
  for (std::size_t i = 1; i < words.size(); ++i) {
    Require(changed[i].size() == words[i].size(), "a word of another length");
    String url = Wide(words[i]);
    String user;
    String password;
    HTTPClientWrapper::TakeCredentials(url, user, password);
    if (user.empty() && password.empty()) continue;
    const std::size_t at = changed[i].rfind('@');
    const std::size_t begin = changed[i].find("://") + 3;
    Require(at != std::string::npos && at > begin && changed[i].find_first_not_of('x', begin) >= at,
            "credentials left in the list of processes", changed[i]);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const std::vector<std::string_view> parts = fuzz::Parts(bytes, fuzz::kNextWord);
  std::size_t next = 0;
  std::vector<std::string> words{"xmla-import"};
  while (next < parts.size() && !parts[next].empty()) words.emplace_back(parts[next++]);
  ++next;
  for (const char* const variable : kVariables) {
    const std::string value(next < parts.size() ? parts[next] : "");
    ++next;
    // Always there, even when it is empty: nobody shall be asked on a terminal.
    setenv(variable, value.c_str(), 1);
  }
  std::string_view file;
  if (next < parts.size())
    file = bytes.substr(static_cast<std::size_t>(parts[next].data() - bytes.data()));

  CheckPassword(file);
  CheckHiding(words);
  Require(HarmlessOnTerminal(bytes).find('\x1B') == std::string::npos, "an escape character");

  std::vector<const char*> argv;
  for (const std::string& word : words) argv.push_back(word.c_str());
  Arguments arguments;
  try {
    ParseArguments(static_cast<int>(argv.size()), argv.data(), arguments);
  } catch (const UsageError& error) {
    Require(IsOneLine(error.what()), "an error that is not one line", error.what());
    return 0;
  }
  if (!arguments.information.empty()) return 0;
  Require(arguments.command != Command::kNone, "no command");
  Require(arguments.jobs >= 1 && arguments.jobs <= 64, "a number of jobs");
  if (sample::KindFromName(arguments.sample)) return 0;  // it would be served
  const MemoryFile password(file);
  if (!arguments.passwordFile.empty()) arguments.passwordFile = password.Name();
  CheckConnecting(arguments);
  return 0;
}
