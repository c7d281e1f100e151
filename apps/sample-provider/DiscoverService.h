#pragma once

#include <string>
#include <string_view>

#include "Envelope.h"
#include "Metadata.h"

namespace sample {

/// Answers a request body like a server of this kind: with rows, or with a SOAP fault for invalid
/// requests and unknown names.
HttpReply Answer(Kind kind, std::string_view body);
/// The same with other metadata of this kind of server.
HttpReply Answer(Kind kind, std::string_view body, const Metadata& metadata);

/// The fault that a server of this kind reports for an internal error.
HttpReply InternalFault(Kind kind);

/// The request type of a Discover call, or "" if the body is invalid.
std::string RequestTypeOf(std::string_view body);

}  // namespace sample
