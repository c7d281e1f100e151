#pragma once

#include <string>

#include "Utility/Generic/ImportSettings.h"
#include "support/Text.h"

namespace support {

/// Import settings that are in force on the calling thread while this object lives. To be changed
/// before they are used.
class Settings : public ImportSettings {
 public:
  Settings() : m_scope(*this) {}
  Settings(const Settings&) = delete;
  Settings& operator=(const Settings&) = delete;

 private:
  Scope m_scope;
};

/// Sends the import logs of the calling thread into a directory.
class LogInto : public Settings {
 public:
  explicit LogInto(const std::string& directory) { logDirectory = Wide(directory); }
};

}  // namespace support
