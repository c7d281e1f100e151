#pragma once

#include <string>

#include "Envelope.h"
#include "Metadata.h"

namespace sample {

/// Answers as if the provider had each cube `copies` times, with the names "NAME, copy 1"
/// and so on. A request for a copy is answered with the cube itself.
HttpReply AnswerWithCopies(Kind kind, std::string request, int copies);

}  // namespace sample
