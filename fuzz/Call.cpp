// The tool's call: its arguments, its environment and its password file.
//
// An input is words, each ended by a null character: those of the command line up to an empty one,
// then the values of environment variables, four of the tool and two of the library, then the bytes
// of the password file.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>

#include "Input.h"
#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/SUSystemConfig.h"
#include "Utility/Generic/SystemUtility.h"
#include "Utility/XMLASAX/OTXMLAAnaTamImportAPI.h"
#include "base/TerminalText.h"
#include "base/Text.h"
#include "call/Arguments.h"
#include "connection/Connection.h"
#include "connection/Password.h"
#include "inprocess/PlainText.h"
#include "inprocess/Server.h"

namespace {

using fuzz::Require;

constexpr const char* kTimeout = "MORVEN_BI_XMLA_HTTP_TIMEOUT";
constexpr const char* kLogDirectory = "XMLA_IMPORT_LOG_DIR";
constexpr std::array kVariables{"XMLA_IMPORT_URL",      "XMLA_IMPORT_USER", "XMLA_IMPORT_TARGET",
                                "XMLA_IMPORT_PASSWORD", kTimeout,           kLogDirectory};

constexpr CommandOption kOptions[] = {
    {.name = "--source", .help = "one", .names = &Arguments::sources},
    {"--cube", "several", true, &Arguments::cubes},
    {.name = "--jobs", .help = "a number", .count = &Arguments::jobs},
};
const std::vector<CommandForm> kCommands{{"sources", "nothing else", {}},
                                         {"import", "with options", kOptions}};

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
  if (line.starts_with("\xEF\xBB\xBF")) line.remove_prefix(3);
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
  const std::string url = std::getenv("XMLA_IMPORT_URL");
  const std::string text = ErrorOfConnecting(arguments);
  Require(std::getenv("XMLA_IMPORT_PASSWORD") == nullptr, "a password left in the environment");
  // Whatever it says, the password has no part in it.
  setenv("XMLA_IMPORT_PASSWORD", "another password", 1);
  setenv("XMLA_IMPORT_URL", url.c_str(), 1);
  Require(ErrorOfConnecting(arguments) == text, "an error that knows the password", text);
}

std::wstring Variable(const char* name) { return inprocess::PlainDecode(std::getenv(name)); }

/// The library reads it once, when it is loaded; here its two steps are repeated.
void CheckTimeout() {
  String value;
  Require(SystemUtility::Getenv(L"MORVEN_BI_XMLA_HTTP_TIMEOUT", value) &&
              value.view() == Variable(kTimeout),
          "another value than the environment's");
  const std::wstring text(value.view());
  const std::size_t begin = text.find_first_not_of(L" \t\r\n");
  if (begin == text.npos || text[begin] < L'0' || text[begin] > L'9') return;
  std::uint64_t seconds = 0;
  for (std::size_t i = begin; i < text.size() && text[i] >= L'0' && text[i] <= L'9'; ++i)
    seconds = std::min<std::uint64_t>(seconds * 10 + static_cast<std::uint64_t>(text[i] - L'0'),
                                      0xFFFFFFFF);
  Require(BaseStringUtil::UIntFrom(value) == seconds, "another number of seconds");
}

/// A folder of this process, emptied before each use.
const std::filesystem::path& OwnFolder() {
  static const struct Folder {
    Folder() {
      std::string name = std::filesystem::temp_directory_path() / "fuzz-call.XXXXXX";
      Require(mkdtemp(name.data()) != nullptr, "no folder");
      path = name;
    }
    ~Folder() { std::filesystem::remove_all(path); }
    std::filesystem::path path;
  } folder;
  return folder.path;
}

/// A log below a folder of our own: the import begins, or one error says why not.
void WriteLog(const std::string& directory) {
  setenv(kLogDirectory, directory.c_str(), 1);
  try {
    OTXMLAAnaTamImportAPI import;
    import.SetupConnInfo(inprocess::kUrl, L"ann", L"secret123", ServerInfo::kSAP_BW,
                         ServerInfo::kCLIXMLA);
  } catch (const ErrorMessage& error) {
    Require(Lines(error).size() == 1, "an error that is not one line", Lines(error).back());
    return;
  }
  std::size_t logs = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(OwnFolder())) {
    if (entry.is_directory()) continue;
    Require(entry.path().filename().string().starts_with("OT_xmla_"), "another file than a log",
            entry.path().string());
    std::ifstream file(entry.path());
    const std::string text(std::istreambuf_iterator<char>(file), {});
    Require(text.starts_with("\xEF\xBB\xBF") && text.find("secret123") == text.npos, "the log",
            text);
    ++logs;
  }
  Require(logs == 1, "no log, or several");
}

void CheckLogDirectory() {
  const std::string value = std::getenv(kLogDirectory);
  if (value.empty()) return;
  std::wstring plain = Variable(kLogDirectory);
  while (plain.size() > 1 && plain.back() == L'/') plain.pop_back();
  Require(SUSystemConfig::GetSystemConfig().GetLogDirectory().view() == plain,
          "another directory than the environment's");
  // Most inputs differ elsewhere, and files are slow.
  static std::string last;
  if (std::exchange(last, value) == value) return;
  // Nothing is written outside of the folder.
  if (("/" + value + "/").find("/../") != std::string::npos || value.size() > 1000) return;
  std::filesystem::remove_all(OwnFolder());
  std::filesystem::create_directory(OwnFolder());
  WriteLog(OwnFolder().string() + "/" + value);
}

/// What the terminal would act upon, as the standards list it, and no more than that.
bool IsActive(wchar_t c) {
  const bool isControl = c < 0x20 || (0x7F <= c && c < 0xA0);  // general category Cc
  const bool breaksLine = c == 0x2028 || c == 0x2029;          // Zl, Zp
  // Bidi_Control
  const bool directs = c == 0x061C || c == 0x200E || c == 0x200F || (0x202A <= c && c <= 0x202E) ||
                       (0x2066 <= c && c <= 0x2069);
  return isControl || breaksLine || directs || c == 0xFEFF;
}

/// Each active character gives way to its number, and nothing else changes.
void CheckTerminal(std::string_view bytes) {
  std::wstring plain;
  for (const wchar_t c : inprocess::PlainDecode(bytes)) {
    wchar_t number[8];
    if (IsActive(c)) std::swprintf(number, std::size(number), L"\\u%04X", static_cast<unsigned>(c));
    plain += IsActive(c) ? std::wstring(number) : std::wstring(1, c);
  }
  const std::string shown = EscapedForTerminal(bytes);
  const std::wstring text = inprocess::PlainDecode(shown);
  Require(std::none_of(text.begin(), text.end(), IsActive), "a character that acts on a terminal");
  Require(shown == inprocess::PlainEncode(plain), "another text on a terminal", shown);
}

/// The words of the line as a list of processes shows them later.
std::vector<std::string> Hidden(std::vector<std::string> words) {
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  HideCredentials(static_cast<int>(words.size()), argv.data());
  return words;
}

void CheckHiding(const std::vector<std::string>& words) {
  const std::vector<std::string> changed = Hidden(words);
  for (std::size_t i = 1; i < words.size(); ++i) {
    Require(changed[i].size() == words[i].size(), "a word of another length");
    // The value of --user, whatever it is.
    const std::size_t value = words[i].starts_with("--user=") ? std::strlen("--user=") : 0;
    if (changed[i].find_first_not_of('x', value) == std::string::npos) continue;
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

/// One word less gives away the user of a call that is right.
void CheckHidingOf(const std::string& user, const std::vector<std::string>& words) {
  if (user.find_first_not_of('x') == std::string::npos) return;
  const auto showing = [&](const std::vector<std::string>& line) {
    return std::count(line.begin(), line.end(), user) +
           std::count(line.begin(), line.end(), "--user=" + user);
  };
  Require(showing(Hidden(words)) < showing(words), "a user name left in the list of processes",
          user);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  setenv("OT_XMLA_IMPORT_LOGGING", "1", 1);
  return 0;
}

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
  CheckTerminal(bytes);
  CheckTimeout();
  CheckLogDirectory();

  std::vector<const char*> argv;
  for (const std::string& word : words) argv.push_back(word.c_str());
  Arguments arguments;
  try {
    ParseArguments(static_cast<int>(argv.size()), argv.data(), kCommands, {"text", "json"},
                   arguments);
  } catch (const UsageError& error) {
    Require(IsOneLine(error.what()), "an error that is not one line", error.what());
    return 0;
  }
  if (!arguments.information.empty()) return 0;
  Require(!arguments.command.empty(), "no command");
  CheckHidingOf(arguments.user, words);
  Require(arguments.jobs >= 1 && arguments.jobs <= 64, "a number of jobs");
  if (sample::KindFromName(arguments.sample)) return 0;  // it would be served
  const MemoryFile password(file);
  if (!arguments.passwordFile.empty()) arguments.passwordFile = password.Name();
  CheckConnecting(arguments);
  return 0;
}
