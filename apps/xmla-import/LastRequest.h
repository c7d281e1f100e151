#pragma once

#include <string>

#include "Utility/Generic/String.h"

// The request that a thread sent last: what a failed import was asking for.

/// Keeps the body of the calling thread's latest request.
void RememberRequest(const NarrowString& body);
/// What the calling thread's latest request asked for inside a cube, such as
/// `MDSCHEMA_PROPERTIES of hierarchy "[Time]", level "[Time].[Day]"`; empty when it named no
/// hierarchy, or there was none.
std::string PlaceOfLastRequest();
