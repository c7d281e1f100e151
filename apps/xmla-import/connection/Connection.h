#pragma once

#include <memory>
#include <optional>

#include "SampleProvider.h"
#include "Utility/Generic/ImportSettings.h"
#include "Utility/Generic/ServerInfo.h"
#include "Utility/Generic/String.h"
#include "call/Arguments.h"

/// Where to import from, with everything that the call and the environment say about it.
struct Connection {
  Connection() = default;
  Connection(Connection&&) = default;
  ~Connection();  ///< erases the password

  String url;  ///< without credentials
  String user;
  String password;
  /// The configured kind; nothing: the provider is asked.
  std::optional<ServerInfo::TargetType> target;
  /// How to reach the service. All clients of the call share the memory of log-ins.
  HTTPClientOptions http;
  /// The embedded provider, when it is the one to import from.
  std::unique_ptr<sample::Provider> provider;
};

/// Options come before the environment; of credentials, those inside the URL come between. Starts
/// the sample provider when it is asked for, and asks for a password when one is missing. Throws
/// UsageError.
Connection Connect(const Arguments& arguments);

/// Overwrites the value of --user, and user names and passwords inside URLs, on the command line,
/// so that a list of processes no longer shows them.
void HideCredentials(int argc, char** argv);
