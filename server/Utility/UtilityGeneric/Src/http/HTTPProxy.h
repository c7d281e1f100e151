#pragma once

#include "Utility/Generic/String.h"

/// Functions for the URL of a proxy; empty: no proxy.
namespace HTTPProxy {

/// The proxy of the environment for http or https, by libcurl's rules. libcurl itself applies
/// `no_proxy`.
String FromEnvironment(bool isHTTPS);

/// Gets the decoded credentials inside the proxy's URL. Returns false, without changing them, if
/// there are none.
bool GetCredentials(const String& proxy, String& user, String& password);

/// The proxy's URL for people: with a scheme, without credentials.
String ForDisplay(const String& proxy);

/// Why the URL cannot be used, and what to write instead; empty if it can. Does not repeat the URL,
/// which may contain a password.
String Problem(const String& proxy);

/// True if others on the network can read what is sent to the proxy itself.
bool IsUnencrypted(const String& proxy);

}  // namespace HTTPProxy
