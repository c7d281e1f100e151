#pragma once

#include <string>

#include "Utility/Generic/HTTPClientWrapper.h"

/// The advice to use the option that changes a setting of the connection. Empty if there is no such
/// option. `server`: see WithServerKey.
std::string SettingAdvice(HTTPSetting setting, const std::string& server);

/// Adds keys of the server file to an advice. `keys` is null if no key has the effect of the
/// option. `server` is Connection::server. Without keys or server, the advice stays as it is.
std::string WithServerKey(const std::string& advice, const char* keys, const std::string& server);
