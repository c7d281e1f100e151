#pragma once

#include "Utility/Generic/String.h"

/// True if the library can find rows or a fault in the reply, or if it is a SOAP envelope with an
/// empty result. Like the library, ignores prefixes, namespaces and case. Other XML, which the
/// library reads as an empty result, is no reply to Discover.
bool IsDiscoverReply(const NarrowString& reply);
