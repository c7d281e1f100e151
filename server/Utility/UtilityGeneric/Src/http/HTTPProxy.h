#pragma once

#include "Utility/Generic/String.h"

/// The proxy on the way to a service, given by its URL; empty for none.
namespace HTTPProxy {

/// The proxy that the environment names for services of http or https, by libcurl's rules. What
/// `no_proxy` lists is left to libcurl.
String FromEnvironment(bool isHTTPS);

/// The decoded credentials inside the proxy's URL; false, and they stay untouched, when there are
/// none.
bool GetCredentials(const String& proxy, String& user, String& password);

/// True when others on the way can read what is sent to the proxy itself.
bool IsUnencrypted(const String& proxy);

}  // namespace HTTPProxy
