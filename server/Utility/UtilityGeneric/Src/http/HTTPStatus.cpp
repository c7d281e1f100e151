#include "http/HTTPStatus.h"

#include "Utility/Generic/BaseStringUtil.h"

namespace HTTPStatus {
namespace {

struct Status {
  long number;
  const wchar_t* phrase;
  const wchar_t* advice;
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
    {300, L"Multiple Choices", L"use the URL of the service itself"},
    {301, L"Moved Permanently", kElsewhere},
    {302, L"Found", kElsewhere},
    {303, L"See Other", kElsewhere},
    {304, L"Not Modified", L""},
    {305, L"Use Proxy", L"set this proxy"},
    {307, L"Temporary Redirect", kElsewhere},
    {308, L"Permanent Redirect", kElsewhere},
    {400, L"Bad Request", L"check that the URL leads to an XML for Analysis service"},
    {401, L"Unauthorized", L"check user name and password"},
    {402, L"Payment Required", L""},
    {403, L"Forbidden", L"ask the server's administrator for the right to use the service"},
    {404, L"Not Found", L"check the path of the URL"},
    {405, L"Method Not Allowed", L"check the path of the URL, which does not accept POST"},
    {406, L"Not Acceptable", L""},
    {407, L"Proxy Authentication Required", L"put the proxy's user name and password into its URL"},
    {408, L"Request Timeout", L"try again"},
    {409, L"Conflict", L"try again"},
    {410, L"Gone", L"ask the server's administrator where the service is now"},
    {411, L"Length Required", L""},
    {412, L"Precondition Failed", L""},
    {413, L"Content Too Large", L"ask the server's administrator to accept larger requests"},
    {414, L"URI Too Long", L"check the URL"},
    {415, L"Unsupported Media Type", L"check that the URL leads to an XML for Analysis service"},
    {417, L"Expectation Failed", L""},
    {421, L"Misdirected Request", L"check the host name of the URL"},
    {422, L"Unprocessable Content", L""},
    {426, L"Upgrade Required", L"use https"},
    {429, L"Too Many Requests", L"try again later"},
    {431, L"Request Header Fields Too Large", L""},
    {451, L"Unavailable For Legal Reasons", L""},
    {500, L"Internal Server Error", L"look at the log of the server"},
    {501, L"Not Implemented", L"check that the URL leads to an XML for Analysis service"},
    {502, L"Bad Gateway", L"the gateway cannot reach the service; try again later"},
    {503, L"Service Unavailable", L"try again later"},
    {504, L"Gateway Timeout", L"the gateway waited too long for the service; try again later"},
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

}  // namespace HTTPStatus
