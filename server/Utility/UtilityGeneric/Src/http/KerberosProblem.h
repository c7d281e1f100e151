#pragma once

#include <string_view>

#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/String.h"

/// Why a Kerberos log-in failed, for an error line.
struct KerberosProblem {
  String what;
  String advice;
  bool isWithoutTicket = false;  ///< another way to log in may be meant
  HTTPSetting setting = HTTPSetting::kNone;
};

/// `text` is libcurl's message with the error text of MIT Kerberos. For a text that is not known,
/// the result is general.
KerberosProblem DescribeKerberosProblem(std::string_view text);
