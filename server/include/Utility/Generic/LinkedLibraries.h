#pragma once

/// \file
/// The names and versions of the libraries that are in use.

#include <vector>

#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// The libraries behind the host services, as they are loaded in this process. For version texts
/// and problem reports: the names are those that the libraries give themselves.
struct LinkedLibraries {
  /// NAME/VERSION, such as "libcurl/7.88.1": the HTTP library and its parts (TLS, decompression,
  /// HTTP/2), the XML parser, and Kerberos. Kerberos libraries do not tell their version: it is the
  /// one that the services were built with.
  std::vector<String> versions;
  /// What the HTTP library can do, such as "NTLM", in alphabetical order.
  std::vector<String> features;
};

/// Call it from any thread. Throws only std::bad_alloc.
XMLAHOST_API LinkedLibraries GetLinkedLibraries();
