#pragma once

#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/String.h"

/// Texts for HTTP status codes. The server's own phrase is not used: newer protocol versions have
/// none, and it is not trusted.
namespace HTTPStatus {

/// For example "HTTP 503 Service Unavailable", or "HTTP 599" for an unknown status.
String Line(long status);
/// What to try; may be empty.
String Advice(long status);
/// The setting that the advice is about.
HTTPSetting Setting(long status);

}  // namespace HTTPStatus
