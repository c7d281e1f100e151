#include "Utility/Generic/SUSystemConfig.h"

#include <unistd.h>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ImportSettings.h"
#include "Utility/Generic/SystemUtility.h"
#include "system/PrivateDirectory.h"

namespace {

String WithoutTrailingSlash(const String& directory) {
  std::size_t length = directory.size();
  while (length > 1 && directory[length - 1] == L'/') --length;
  return directory.substr(0, length);
}

/// Gets the value of a variable if it is an absolute path. The XDG specification says to ignore
/// relative paths.
bool GetAbsolutePath(const wchar_t* variable, String& path) {
  String value;
  if (!SystemUtility::Getenv(variable, value) || value.empty() || value[0] != L'/') return false;
  path = WithoutTrailingSlash(value);
  return true;
}

String Below(const String& directory, const wchar_t* name) {
  return directory == L"/" ? directory + name : directory + L"/" + name;
}

constexpr const wchar_t* kFolder = L"xmla-import";

/// The user's state directory.
bool GetStateDirectory(String& directory) {
  if (GetAbsolutePath(L"XDG_STATE_HOME", directory)) return true;
  if (!GetAbsolutePath(L"HOME", directory)) return false;
  directory = Below(directory, L".local/state");
  return true;
}

/// A directory below the temporary directory. Its name contains the user's number, because all
/// users share the temporary directory.
String TemporaryDirectory() {
  String directory;
  if (!GetAbsolutePath(L"TMPDIR", directory)) directory = L"/tmp";
  return Below(directory, kFolder) + L"-" +
         BaseStringUtil::StringFrom(static_cast<std::uint64_t>(::geteuid()));
}

}  // namespace

SUSystemConfig& SUSystemConfig::GetSystemConfig() {
  static SUSystemConfig config;
  return config;
}

String SUSystemConfig::GetLogDirectory() const {
  String directory = ImportSettings::Current().logDirectory;
  if (!directory.empty()) return WithoutTrailingSlash(directory);
  if (SystemUtility::Getenv(L"XMLA_IMPORT_LOG_DIR", directory) && !directory.empty())
    return WithoutTrailingSlash(directory);
  if (GetStateDirectory(directory)) return Below(directory, kFolder);
  directory = TemporaryDirectory();
  CreatePrivateDirectory(directory);
  return directory;
}
