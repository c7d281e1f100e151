#pragma once

#include <string>

/// Environment variables that may contain a secret. Empty if they are absent.
struct EnvironmentSecrets {
  EnvironmentSecrets() = default;
  EnvironmentSecrets(EnvironmentSecrets&&) = default;
  EnvironmentSecrets& operator=(EnvironmentSecrets&&) = default;
  ~EnvironmentSecrets();  ///< erases them

  /// Takes them out of the environment block, which other processes of the user and programs
  /// started by the tool can read. Call before threads are started.
  static EnvironmentSecrets Take();

  std::string url;       ///< XMLA_IMPORT_URL
  std::string password;  ///< XMLA_IMPORT_PASSWORD
  std::string token;     ///< XMLA_IMPORT_TOKEN
};
