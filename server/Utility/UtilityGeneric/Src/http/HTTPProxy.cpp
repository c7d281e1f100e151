#include "http/HTTPProxy.h"

#include <algorithm>
#include <iterator>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/Secret.h"
#include "Utility/Generic/SystemUtility.h"
#include "http/HTTPUrl.h"

namespace HTTPProxy {
namespace {

constexpr const wchar_t* kSchemeEnd = L"://";
constexpr const wchar_t* kSchemes[] = {L"http",    L"https",  L"socks4",
                                       L"socks4a", L"socks5", L"socks5h"};

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

String Problem(const String& proxy) {
  if (proxy.empty()) return L"";
  Secret<String> url(WithScheme(proxy));
  const std::wstring_view scheme = url.view().substr(0, url.find(kSchemeEnd));
  const bool isSupported =
      std::any_of(std::begin(kSchemes), std::end(kSchemes), [scheme](const wchar_t* known) {
        return BaseStringUtil::IsCaseInsensitiveMatch(scheme, known);
      });
  if (!isSupported) return L"its scheme must be http, https, socks4, socks4a, socks5 or socks5h";
  if (url.find(L" ") != String::npos) return L"it contains a space; remove it, or write %20";
  Secret<String> user;
  Secret<String> password;
  HTTPUrl::RemoveCredentials(url, user, password);
  String problem = HTTPUrl::AuthorityProblem(url);
  if (!problem.empty() || url.find(L"@") == String::npos) return problem;
  return String(L"it has an \"@\" behind the host") + kURLPasswordAdvice;
}

bool IsUnencrypted(const String& proxy) {
  const Secret<String> url(WithScheme(proxy));
  return !HTTPUrl::IsHTTPS(url) && !HTTPUrl::IsLoopback(url);
}

}  // namespace HTTPProxy
