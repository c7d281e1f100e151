#pragma once

#include <string>

#include "Utility/Generic/ImportSettings.h"
#include "support/Text.h"

namespace support {

/// Import settings of the calling thread during the object's life. Change them before they are
/// used.
class Settings : public ImportSettings {
 public:
  Settings() : m_scope(*this) {}
  Settings(const Settings&) = delete;
  Settings& operator=(const Settings&) = delete;

 private:
  Scope m_scope;
};

/// Sends the calling thread's import logs to a directory.
class LogInto : public Settings {
 public:
  explicit LogInto(const std::string& directory) { logDirectory = Wide(directory); }
};

}  // namespace support
