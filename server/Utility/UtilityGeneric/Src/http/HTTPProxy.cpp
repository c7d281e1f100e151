#include "http/HTTPProxy.h"

#include "Utility/Generic/Secret.h"
#include "Utility/Generic/SystemUtility.h"
#include "http/HTTPUrl.h"

namespace HTTPProxy {
namespace {

constexpr const wchar_t* kSchemeEnd = L"://";

/// libcurl assumes http for a proxy URL without a scheme.
String WithScheme(const String& proxy) {
  return proxy.find(kSchemeEnd) == String::npos ? L"http://" + proxy : proxy;
}

}  // namespace

String FromEnvironment(bool isHTTPS) {
  // HTTP_PROXY is not used: a CGI server sets it to the "Proxy" header of a request.
  constexpr const wchar_t* kForHTTP[] = {L"http_proxy", L"all_proxy", L"ALL_PROXY"};
  constexpr const wchar_t* kForHTTPS[] = {L"https_proxy", L"HTTPS_PROXY", L"all_proxy",
                                          L"ALL_PROXY"};
  String proxy;
  const auto find = [&proxy](const auto& names) {
    for (const wchar_t* const name : names)
      if (SystemUtility::Getenv(name, proxy) && !proxy.empty()) return;
    proxy.clear();
  };
  if (isHTTPS)
    find(kForHTTPS);
  else
    find(kForHTTP);
  return proxy;
}

bool GetCredentials(const String& proxy, String& user, String& password) {
  Secret<String> url(WithScheme(proxy));
  return HTTPUrl::RemoveCredentials(url, user, password);
}

String ForDisplay(const String& proxy) {
  const Secret<String> url(WithScheme(proxy));
  return HTTPUrl::ForDisplay(url);
}

bool IsUnencrypted(const String& proxy) {
  const Secret<String> url(WithScheme(proxy));
  return !HTTPUrl::IsHTTPS(url) && !HTTPUrl::IsLoopback(url);
}

}  // namespace HTTPProxy
