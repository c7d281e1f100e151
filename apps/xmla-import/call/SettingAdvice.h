#pragma once

#include <map>
#include <string>

#include "Utility/Generic/HTTPClientWrapper.h"

/// Where the settings of a connection come from.
struct SettingOrigins {
  /// The service in the server file, for the middle of a message. Empty if it is not there.
  std::string server;
  /// Of the values in use, as clauses such as "the proxy comes from http_proxy".
  std::map<HTTPSetting, std::string> clauses;
};

/// Advice on a setting of the connection. If the origin of its value is known, the advice names it.
/// Otherwise it names the option that sets the value, and the key of the server file. Empty if no
/// option sets it.
std::string SettingAdvice(HTTPSetting setting, const SettingOrigins& origins);

/// True if the response is not XML for Analysis, and a proxy without a tunnel may have sent it.
bool MayBeFromProxy(const HTTPExchangeInfo& info);

/// For such a response: where the proxy comes from, and its possible role. Empty without a proxy.
std::string ProxyDoubt(const SettingOrigins& origins);

/// Adds keys of the server file to an advice. `keys` is null if no key has the effect of the
/// option. `server` is SettingOrigins::server. Without keys or server, the advice stays as it is.
std::string WithServerKey(const std::string& advice, const char* keys, const std::string& server);
