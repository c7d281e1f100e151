#pragma once

#include "Utility/Generic/String.h"

/// True if the XML is a reply to Discover: it has rows or a fault, or it is a SOAP envelope with an
/// empty result. Ignores prefixes, namespaces and case, as the library does. The library reads any
/// other XML as an empty result.
bool IsDiscoverReply(const NarrowString& reply);
