#pragma once

#include <string>
#include <string_view>

#include "Utility/Generic/String.h"

/// Rules for the URL of a service.
namespace HTTPUrl {

/// Takes "user:password@" out of the URL's authority; true when there was one. The two texts are
/// the decoded credentials.
bool RemoveCredentials(String& url, String& user, String& password);

/// The URL for an error text: also in a text that is no proper URL, nothing that may be part of a
/// password is left.
String ForDisplay(const String& url);

/// True for the scheme http or https, a host of ASCII characters, and nothing that no URL holds.
/// The finer rules are the HTTP library's.
bool IsValid(const String& url);

bool IsHTTPS(const String& url);

/// True when the host is certainly this machine: "localhost" or an address of the loopback device.
bool IsLoopback(const String& url);

/// True for U+0000 to U+001F and U+007F, which end or break a header line.
bool HasControlCharacter(std::wstring_view text);

/// The URL without blanks around it and without fragment, other characters than ASCII
/// percent-encoded as UTF-8.
NarrowString ForRequest(const String& url);

/// The path of such a URL, "/" if it has none.
std::string PathForRequest(const NarrowString& request);

}  // namespace HTTPUrl
