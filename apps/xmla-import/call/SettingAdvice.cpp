#include "call/SettingAdvice.h"

#include <algorithm>
#include <iterator>

namespace {

struct Advice {
  HTTPSetting setting;
  const char* text;
  const char* keys;               // of the server file
  const char* correct = nullptr;  // behind the origin of the value in use; null: `text`
};
constexpr Advice kAdvice[] = {
    {HTTPSetting::kURL, "use --url URL for another URL", "url"},
    {HTTPSetting::kProxy, "use --proxy URL for another proxy, or --proxy \"\" for none", "proxy"},
    {HTTPSetting::kConnectTimeout, "use --connect-timeout SECONDS to wait longer",
     "connect-timeout"},
    {HTTPSetting::kTimeout, "use --timeout SECONDS to wait longer", "timeout"},
    {HTTPSetting::kCAFile, "use --ca-file FILE for trusted certificates", "ca-file"},
    {HTTPSetting::kCertificate, "use --cert FILE for the client certificate", "cert"},
    {HTTPSetting::kKey, "use --key FILE for the private key", "key"},
    {HTTPSetting::kKeyPassword, "use --key-password-file FILE for the password of the key",
     "key-password-file"},
    {HTTPSetting::kUser,
     // The error itself says that a user is missing.
     "use --password-file FILE unless you want to type the password", "password-command",
     "correct the one that is wrong"},
    {HTTPSetting::kAuthSchemes, "use --auth SCHEMES for other ways to log in", "auth"},
    {HTTPSetting::kToken, "use --token-file FILE for a token", "token-file", "replace it there"},
    {HTTPSetting::kRetries, "use --retry N to try again automatically", "retry"},
};

}  // namespace

std::string SettingAdvice(HTTPSetting setting, const SettingOrigins& origins) {
  const auto* const advice = std::ranges::find(kAdvice, setting, &Advice::setting);
  if (advice == std::end(kAdvice)) return {};
  const auto clause = origins.clauses.find(setting);
  if (clause == origins.clauses.end())
    return WithServerKey(advice->text, advice->keys, origins.server);
  return clause->second + "; " + (advice->correct ? advice->correct : advice->text);
}

bool MayBeFromProxy(const HTTPExchangeInfo& info) {
  return info.failedStep >= HTTPStep::kResponse && info.status != 0 && info.reply.empty() &&
         info.url.view().starts_with(L"http:");
}

std::string ProxyDoubt(const SettingOrigins& origins) {
  const auto proxy = origins.clauses.find(HTTPSetting::kProxy);
  if (proxy == origins.clauses.end()) return {};
  return proxy->second + "; if the request went through it, it may have sent the response";
}

std::string WithServerKey(const std::string& advice, const char* keys, const std::string& server) {
  return keys && !server.empty() ? advice + ", or set " + keys + server : advice;
}
