#pragma once

#include <string>

#include "Utility/Generic/String.h"

// The request that a thread sent last: what a failed import was asking for.

/// Keeps the body of the calling thread's latest request.
void RememberRequest(const NarrowString& body);
/// What a request asks for: its type and, where it has them, catalog, cube, hierarchy and level.
std::string Described(const NarrowString& request);
/// What the calling thread's latest request asked for inside a cube, such as
/// `MDSCHEMA_LEVELS of catalog "C", cube "Q", hierarchy "[Time]"`; empty when it named no
/// hierarchy, or there was none.
std::string PlaceOfLastRequest();
