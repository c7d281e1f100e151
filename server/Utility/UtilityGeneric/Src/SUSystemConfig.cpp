#include "Utility/Generic/SUSystemConfig.h"

#include "Utility/Generic/SystemUtility.h"

namespace {

String WithoutTrailingSlash(const String& directory) {
  std::size_t length = directory.size();
  while (length > 1 && directory[length - 1] == L'/') --length;
  return directory.substr(0, length);
}

/// The variable's value when it is an absolute path: the rule of the XDG base directories, where a
/// relative path is to be ignored.
bool GetAbsolutePath(const wchar_t* variable, String& path) {
  String value;
  if (!SystemUtility::Getenv(variable, value) || value.empty() || value[0] != L'/') return false;
  path = WithoutTrailingSlash(value);
  return true;
}

String Below(const String& directory, const wchar_t* name) {
  return directory == L"/" ? directory + name : directory + L"/" + name;
}

String StateDirectory() {
  String directory;
  if (GetAbsolutePath(L"XDG_STATE_HOME", directory)) return directory;
  if (GetAbsolutePath(L"HOME", directory)) return Below(directory, L".local/state");
  if (GetAbsolutePath(L"TMPDIR", directory)) return directory;
  return L"/tmp";
}

}  // namespace

SUSystemConfig::SUSystemConfig() = default;
SUSystemConfig::~SUSystemConfig() = default;

SUSystemConfig& SUSystemConfig::GetSystemConfig() {
  static SUSystemConfig config;
  return config;
}

String SUSystemConfig::GetLogDirectory() const {
  {
    const std::lock_guard lock(m_mutex);
    if (!m_logDirectory.empty()) return m_logDirectory;
  }
  String directory;
  if (SystemUtility::Getenv(L"XMLA_IMPORT_LOG_DIR", directory) && !directory.empty())
    return WithoutTrailingSlash(directory);
  return Below(StateDirectory(), L"xmla-import");
}

void SUSystemConfig::SetLogDirectory(const String& directory) {
  String kept = WithoutTrailingSlash(directory);
  const std::lock_guard lock(m_mutex);
  m_logDirectory = std::move(kept);
}
