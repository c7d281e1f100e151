#pragma once

#include "Utility/Generic/String.h"

/// The parts of a service's URL that matter beside the URL itself.
namespace HTTPUrl {

/// Takes "user:password@" out of the URL's authority; true when there was one. The two texts are
/// the decoded credentials.
bool CutCredentials(String& url, String& user, String& password);

/// The URL for an error text: also in a text that is no proper URL, nothing that may be part of a
/// password is left.
String ForDisplay(const String& url);

/// True for the scheme http or https, a host of ASCII characters, and nothing that no URL holds.
/// The finer rules are the HTTP library's.
bool LooksUsable(const String& url);

/// The URL without blanks around it and without fragment, other characters than ASCII
/// percent-encoded as UTF-8.
NarrowString ForRequest(const String& url);

}  // namespace HTTPUrl
