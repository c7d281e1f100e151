#pragma once

#include <string>
#include <string_view>

#include "Envelope.h"

namespace sample {

// Answers one request body as a server of the kind does: with rows, or with a SOAP fault for
// what it cannot read or does not have.
HttpReply Answer(Kind kind, std::string_view body);

// A fault that a server of the kind reports when it fails for reasons of its own.
HttpReply InternalFault(Kind kind);

// The request type of a Discover call, or "" when it cannot be read.
std::string RequestTypeOf(std::string_view body);

}  // namespace sample
