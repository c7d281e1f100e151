#include "http/HTTPStatus.h"

#include "Utility/Generic/BaseStringUtil.h"

namespace HTTPStatus {
namespace {

struct Status {
  long number;
  const wchar_t* phrase;
  const wchar_t* advice;
  HTTPSetting setting = HTTPSetting::kNone;
};

/// For a redirect without a target.
constexpr const wchar_t* kElsewhere =
    L"check the URL: the service is elsewhere, but the server does not say where";

constexpr Status kStatuses[] = {
    {200, L"OK", L""},
    {201, L"Created", L""},
    {202, L"Accepted", L""},
    {203, L"Non-Authoritative Information", L""},
    {204, L"No Content", L""},
    {205, L"Reset Content", L""},
    {206, L"Partial Content", L""},
    {300, L"Multiple Choices", L"use the URL of the service itself", HTTPSetting::kURL},
    {301, L"Moved Permanently", kElsewhere, HTTPSetting::kURL},
    {302, L"Found", kElsewhere, HTTPSetting::kURL},
    {303, L"See Other", kElsewhere, HTTPSetting::kURL},
    {304, L"Not Modified", L""},
    {305, L"Use Proxy", L"set this proxy", HTTPSetting::kProxy},
    {307, L"Temporary Redirect", kElsewhere, HTTPSetting::kURL},
    {308, L"Permanent Redirect", kElsewhere, HTTPSetting::kURL},
    {400, L"Bad Request", L"check that the URL leads to an XML for Analysis service",
     HTTPSetting::kURL},
    {401, L"Unauthorized", L"check user name and password", HTTPSetting::kUser},
    {402, L"Payment Required", L""},
    {403, L"Forbidden", L"ask the server's administrator for the right to use the service"},
    {404, L"Not Found", L"check the path of the URL", HTTPSetting::kURL},
    {405, L"Method Not Allowed", L"check the path of the URL, which does not accept POST",
     HTTPSetting::kURL},
    {406, L"Not Acceptable", L""},
    {407, L"Proxy Authentication Required", L"put the proxy's user name and password into its URL",
     HTTPSetting::kProxy},
    {408, L"Request Timeout", L"try again", HTTPSetting::kRetries},
    {409, L"Conflict", L"try again", HTTPSetting::kRetries},
    {410, L"Gone", L"ask the server's administrator where the service is now", HTTPSetting::kURL},
    {411, L"Length Required", L""},
    {412, L"Precondition Failed", L""},
    {413, L"Content Too Large", L"ask the server's administrator to accept larger requests"},
    {414, L"URI Too Long", L"check the URL", HTTPSetting::kURL},
    {415, L"Unsupported Media Type", L"check that the URL leads to an XML for Analysis service",
     HTTPSetting::kURL},
    {417, L"Expectation Failed", L""},
    {421, L"Misdirected Request", L"check the host name of the URL", HTTPSetting::kURL},
    {422, L"Unprocessable Content", L""},
    {426, L"Upgrade Required", L"use https", HTTPSetting::kURL},
    {429, L"Too Many Requests", L"try again later", HTTPSetting::kRetries},
    {431, L"Request Header Fields Too Large", L""},
    {451, L"Unavailable For Legal Reasons", L""},
    {500, L"Internal Server Error", L"look at the log of the server"},
    {501, L"Not Implemented", L"check that the URL leads to an XML for Analysis service",
     HTTPSetting::kURL},
    {502, L"Bad Gateway", L"the gateway cannot reach the service; try again later",
     HTTPSetting::kRetries},
    {503, L"Service Unavailable", L"try again later", HTTPSetting::kRetries},
    {504, L"Gateway Timeout", L"the gateway waited too long for the service; try again later",
     HTTPSetting::kRetries},
    {505, L"HTTP Version Not Supported", L""},
    {507, L"Insufficient Storage", L"look at the log of the server"},
    {511, L"Network Authentication Required", L"log in to the network first"},
};

const Status* Find(long number) {
  for (const Status& status : kStatuses)
    if (status.number == number) return &status;
  return nullptr;
}

}  // namespace

String Line(long status) {
  String line = L"HTTP " + BaseStringUtil::StringFrom(static_cast<std::uint64_t>(status));
  if (const Status* const known = Find(status)) line += String(L" ") + known->phrase;
  return line;
}

String Advice(long status) {
  const Status* const known = Find(status);
  return known ? known->advice : L"";
}

HTTPSetting Setting(long status) {
  const Status* const known = Find(status);
  return known ? known->setting : HTTPSetting::kNone;
}

}  // namespace HTTPStatus
