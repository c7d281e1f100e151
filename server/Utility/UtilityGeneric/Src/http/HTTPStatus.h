#pragma once

#include "Utility/Generic/String.h"

/// The HTTP statuses as people read them. The server's own phrase is not used: newer protocol
/// versions have none, and it may hold anything.
namespace HTTPStatus {

/// "HTTP 503 Service Unavailable"; the number alone for a status that is not known.
String Line(long status);
/// What to try; empty when there is nothing to say.
String Advice(long status);

}  // namespace HTTPStatus
