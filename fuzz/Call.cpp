// Fuzzes the command line: arguments, environment variables, password file and token.
//
// An input is a list of words, each terminated by a null character: arguments up to an empty word,
// then the values of six environment variables (four of the tool, two of the library). The
// remaining bytes are the password file.

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
    {.name = "--source", .help = "one", .value = &Arguments::sources},
    {.name = "--cube", .help = "several", .value = &Arguments::cubes, .mayRepeat = true},
    {.name = "--jobs",
     .help = "a number",
     .value = &Arguments::jobs,
     .placeholder = "N",
     .max = 64},
};
const std::vector<CommandForm> kCommands{{"sources", "nothing else", {}},
                                         {"import", "with options", kOptions}};
constexpr std::string_view kImport[] = {"import"};
constexpr OutputFormat kFormats[] = {
    {.name = "text", .help = "for people"},
    {.name = "json", .help = "for programs", .extension = ".json"},
    {.name = "csv", .help = "a table", .extension = ".csv", .commands = kImport},
};

bool IsOneLine(std::string_view text) {
  return !text.empty() && std::none_of(text.begin(), text.end(), [](char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
  });
}

/// An in-memory file with the given bytes and a path.
class MemoryFile {
 public:
  explicit MemoryFile(std::string_view bytes)
      : m_descriptor(memfd_create("password", MFD_CLOEXEC)) {
    Require(m_descriptor >= 0, "cannot create an in-memory file");
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
  if (line.starts_with("\xEF\xBB\xBF")) line.remove_prefix(3);
  const bool isReadable = !isTooLong && !line.empty();
  const MemoryFile file(bytes);
  try {
    const std::string password = SecretFromFile("the password", file.Name(), "file");
    Require(isReadable && password == line, "not the password of the file's first line");
    Require(!isReadable || bytes.size() > kMost || FirstLine(std::string(bytes)) == line,
            "not the first line of a command's output");
  } catch (const UsageError& error) {
    Require(!isReadable && IsOneLine(error.what()), "the password file", error.what());
  }
}

/// Returns the error text of connecting; empty on success.
std::string ErrorOfConnecting(const Arguments& arguments) {
  try {
    Connection connection = Connect(arguments, EnvironmentSecrets::Take());
    String user;
    String password;
    Require(HTTPClientWrapper::TakeCredentials(connection.url, user, password),
            "an address that cannot be used");
    Require(user.empty() && password.empty(), "the URL still contains credentials");
  } catch (const UsageError& error) {
    Require(IsOneLine(error.what()), "the error is not one line", error.what());
    return error.what();
  }
  return {};
}

/// The error of connecting with a password from the environment, which connecting removes.
std::string ErrorWithPassword(const Arguments& arguments, const std::string& url,
                              const std::string& password) {
  setenv("XMLA_IMPORT_PASSWORD", password.c_str(), 1);
  setenv("XMLA_IMPORT_URL", url.c_str(), 1);
  const std::string text = ErrorOfConnecting(arguments);
  Require(std::getenv("XMLA_IMPORT_PASSWORD") == nullptr,
          "the password is still in the environment");
  return text;
}

void CheckConnecting(const Arguments& arguments) {
  const std::string url = std::getenv("XMLA_IMPORT_URL");
  ErrorWithPassword(arguments, url, std::getenv("XMLA_IMPORT_PASSWORD"));
  // No message contains the password.
  const std::string text = ErrorWithPassword(arguments, url, "one password");
  Require(ErrorWithPassword(arguments, url, "another password") == text,
          "the error depends on the password", text);
}

std::wstring Variable(const char* name) { return inprocess::PlainDecode(std::getenv(name)); }

/// The library reads the variable once, when it is loaded. This repeats its two steps.
void CheckTimeout() {
  String value;
  Require(SystemUtility::Getenv(L"MORVEN_BI_XMLA_HTTP_TIMEOUT", value) &&
              value.view() == Variable(kTimeout),
          "not the value of the environment");
  const std::wstring text(value.view());
  const std::size_t begin = text.find_first_not_of(L" \t\r\n");
  if (begin == text.npos || text[begin] < L'0' || text[begin] > L'9') return;
  std::uint64_t seconds = 0;
  for (std::size_t i = begin; i < text.size() && text[i] >= L'0' && text[i] <= L'9'; ++i)
    seconds = std::min<std::uint64_t>(seconds * 10 + static_cast<std::uint64_t>(text[i] - L'0'),
                                      0xFFFFFFFF);
  Require(BaseStringUtil::UIntFrom(value) == seconds, "wrong number of seconds");
}

/// A directory of this process, emptied before each use.
const std::filesystem::path& OwnFolder() {
  static const struct Folder {
    Folder() {
      std::string name = std::filesystem::temp_directory_path() / "fuzz-call.XXXXXX";
      Require(mkdtemp(name.data()) != nullptr, "cannot create the directory");
      path = name;
    }
    ~Folder() { std::filesystem::remove_all(path); }
    std::filesystem::path path;
  } folder;
  return folder.path;
}

/// With a log in the directory, the import starts, or one error says why not.
void WriteLog(const std::string& directory) {
  setenv(kLogDirectory, directory.c_str(), 1);
  try {
    OTXMLAAnaTamImportAPI import;
    import.SetupConnInfo(inprocess::kUrl, L"ann", L"secret123", ServerInfo::kSAP_BW,
                         ServerInfo::kCLIXMLA);
  } catch (const ErrorMessage& error) {
    Require(Lines(error).size() == 1, "the error is not one line", Lines(error).back());
    return;
  }
  std::size_t logs = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(OwnFolder())) {
    if (entry.is_directory()) continue;
    Require(entry.path().filename().string().starts_with("OT_xmla_"), "a file that is not a log",
            entry.path().string());
    std::ifstream file(entry.path());
    const std::string text(std::istreambuf_iterator<char>(file), {});
    Require(text.starts_with("\xEF\xBB\xBF") && text.find("secret123") == text.npos, "the log",
            text);
    ++logs;
  }
  Require(logs == 1, "not exactly one log");
}

void CheckLogDirectory() {
  const std::string value = std::getenv(kLogDirectory);
  if (value.empty()) return;
  std::wstring plain = Variable(kLogDirectory);
  while (plain.size() > 1 && plain.back() == L'/') plain.pop_back();
  Require(SUSystemConfig::GetSystemConfig().GetLogDirectory().view() == plain,
          "not the directory of the environment");
  // Files are slow, so most inputs skip this.
  static std::string last;
  if (std::exchange(last, value) == value) return;
  // Nothing is written outside of the directory.
  if (("/" + value + "/").find("/../") != std::string::npos || value.size() > 1000) return;
  std::filesystem::remove_all(OwnFolder());
  std::filesystem::create_directory(OwnFolder());
  WriteLog(OwnFolder().string() + "/" + value);
}

/// The characters that a terminal interprets, as listed by the standards, and no others.
bool IsActive(wchar_t c) {
  const bool isControl = c < 0x20 || (0x7F <= c && c < 0xA0);  // general category Cc
  const bool breaksLine = c == 0x2028 || c == 0x2029;          // Zl, Zp
  // Bidi_Control
  const bool directs = c == 0x061C || c == 0x200E || c == 0x200F || (0x202A <= c && c <= 0x202E) ||
                       (0x2066 <= c && c <= 0x2069);
  return isControl || breaksLine || directs || c == 0xFEFF;
}

/// Each active character is replaced by its code point; nothing else changes.
void CheckTerminal(std::string_view bytes) {
  std::wstring plain;
  for (const wchar_t c : inprocess::PlainDecode(bytes)) {
    wchar_t number[8];
    if (IsActive(c)) std::swprintf(number, std::size(number), L"\\u%04X", static_cast<unsigned>(c));
    plain += IsActive(c) ? std::wstring(number) : std::wstring(1, c);
  }
  const std::string shown = EscapedForTerminal(bytes);
  const std::wstring text = inprocess::PlainDecode(shown);
  Require(std::none_of(text.begin(), text.end(), IsActive), "an unescaped control character");
  Require(shown == inprocess::PlainEncode(plain), "wrong text on a terminal", shown);
}

/// The command line as a process list shows it after the passwords were overwritten.
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
    Require(changed[i].size() == words[i].size(), "a word changed its length");
    String url = Wide(words[i]);
    String user;
    String password;
    HTTPClientWrapper::TakeCredentials(url, user, password);
    if (user.empty() && password.empty()) continue;
    const std::size_t begin = words[i].find("://") + 3;
    const std::size_t at = words[i].rfind('@');
    Require(at != std::string::npos && at > begin && changed[i].find_first_not_of('x', begin) >= at,
            "the process list shows credentials", changed[i]);
  }
}

/// A valid call without one of its words still hides the user.
void CheckHidingOf(const std::string& user, const std::vector<std::string>& words) {
  if (user.find_first_not_of('x') == std::string::npos) return;
  const auto showing = [&](const std::vector<std::string>& line) {
    return std::count(line.begin(), line.end(), user) +
           std::count(line.begin(), line.end(), "--user=" + user);
  };
  Require(showing(Hidden(words)) < showing(words), "the process list shows a user name", user);
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
    // The password file always exists, even if empty, so that the tool never prompts.
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
    ParseArguments(static_cast<int>(argv.size()), argv.data(), kCommands, kFormats, arguments);
  } catch (const UsageError& error) {
    Require(IsOneLine(error.what()), "the error is not one line", error.what());
    return 0;
  }
  if (!arguments.information.empty() || arguments.wantsVersion) return 0;
  Require(!arguments.command.empty(), "the command is missing");
  const OutputFormat* const format = FindFormat(kFormats, arguments.format);
  Require(format && Supports(*format, arguments.command), "wrong format");
  CheckHidingOf(arguments.user, words);
  Require(arguments.jobs >= 1 && arguments.jobs <= 64, "wrong number of jobs");
  if (sample::KindFromName(arguments.sample)) return 0;  // --sample would start a server
  const MemoryFile password(file);
  for (std::string* const name :
       {&arguments.passwordFile, &arguments.tokenFile, &arguments.keyPasswordFile})
    if (!name->empty()) *name = password.Name();
  CheckConnecting(arguments);
  return 0;
}
