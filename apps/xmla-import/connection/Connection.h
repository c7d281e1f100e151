#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "SampleProvider.h"
#include "Utility/Generic/ImportSettings.h"
#include "Utility/Generic/ServerInfo.h"
#include "Utility/Generic/String.h"
#include "call/Arguments.h"
#include "call/SettingAdvice.h"
#include "connection/EnvironmentSecrets.h"

/// The service to import from, with credentials and settings from options and environment.
struct Connection {
  Connection() = default;
  Connection(Connection&&) = default;
  ~Connection();  ///< erases the secrets

  String url;  ///< without credentials
  String user;
  String password;
  /// The configured kind; nullopt: detect it.
  std::optional<ServerInfo::TargetType> target;
  /// How to reach the service. All clients of the call share the memory of log-ins.
  HTTPClientOptions http;
  /// How messages begin that are about the client certificate, its key, and the password of that:
  /// with the option or the key of the server file.
  std::map<HTTPSetting, std::string> certificateNames;
  /// For advice after a failed request.
  SettingOrigins origins;
  /// How the kind was configured, for the middle of a message: the option, variable or key.
  std::string targetSetting = "--target";
  /// The embedded sample provider, if --sample is given.
  std::unique_ptr<sample::Provider> provider;
};

/// Removes the credentials from the URL of a service. Returns why the URL cannot be used, and what
/// to write instead; empty if it can. A URL that may still contain a part of a password is refused:
/// it would be shown and logged.
std::string TakeCredentials(String& url, String& user, String& password);

/// Precedence: options, environment, server file. Credentials in the URL precede the variables.
/// Starts the sample provider for --sample, and asks for a missing password. Throws UsageError.
Connection Connect(const Arguments& arguments, EnvironmentSecrets secrets);

/// Overwrites user names and passwords (--user, URLs, proxies) in argv, so that a process list does
/// not show them.
void HideCredentials(int argc, char** argv);
