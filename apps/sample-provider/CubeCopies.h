#pragma once

#include <string>

#include "Envelope.h"
#include "Metadata.h"

namespace sample {

/// Answers as if the provider had each cube `copies` times, under names of their own: the cube's
/// name, ", copy " and a number. A request for a copy is answered with the cube itself.
HttpReply AnswerWithCopies(Kind kind, std::string request, int copies);

}  // namespace sample
