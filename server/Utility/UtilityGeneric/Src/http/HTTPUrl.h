#pragma once

#include <string>
#include <string_view>

#include "Utility/Generic/String.h"

/// Functions for the URL of a service.
namespace HTTPUrl {

/// Removes "user:password@" from the URL and stores both decoded. Returns false, without changes,
/// if there are no credentials.
bool RemoveCredentials(String& url, String& user, String& password);

/// The URL for error texts, without credentials. What else precedes the last "@" could be part of a
/// password, also in a valid URL, and is shown as "...".
String ForDisplay(const String& url);

/// True for a result of ForDisplay in which "..." replaces something.
bool HidesPart(const String& shownUrl);

/// Why the URL cannot be used, and what to write instead. Empty for an http or https URL with a
/// host of ASCII characters, a valid port, no backslash behind them, no space, no control character
/// and no second "://" before an "@". libcurl checks the rest. The text does not repeat parts of
/// the URL, which may be a password.
String Problem(const String& url);

/// The same for a URL with any scheme.
String AuthorityProblem(const String& url);

bool IsHTTPS(const String& url);

/// True if the host is "localhost" or a loopback address.
bool IsLoopback(const String& url);

/// True for an IP address of this machine's loopback interface, such as "127.0.0.1".
bool IsLoopbackAddress(std::string_view address);

/// True if the text contains U+0000 to U+001F or U+007F, which can end a header line.
bool HasControlCharacter(std::wstring_view text);

/// The URL as sent: trimmed, without a fragment, with non-ASCII characters percent-encoded.
NarrowString ForRequest(const String& url);

/// The path of a result of ForRequest; "/" if it has none.
std::string PathForRequest(const NarrowString& request);

}  // namespace HTTPUrl
