#include "call/SettingAdvice.h"

namespace {

struct Advice {
  HTTPSetting setting;
  const char* text;
  const char* keys;  // of the server file
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
    {HTTPSetting::kUser, "use --user NAME and --password-file FILE for another log-in",
     "user and password-command"},
    {HTTPSetting::kAuthSchemes, "use --auth SCHEMES for other ways to log in", "auth"},
    {HTTPSetting::kToken, "use --token-file FILE for a token", "token-file"},
    {HTTPSetting::kRetries, "use --retry N to try again automatically", "retry"},
};

}  // namespace

std::string SettingAdvice(HTTPSetting setting, const std::string& server) {
  for (const Advice& advice : kAdvice)
    if (advice.setting == setting) return WithServerKey(advice.text, advice.keys, server);
  return {};
}

std::string WithServerKey(const std::string& advice, const char* keys, const std::string& server) {
  return keys && !server.empty() ? advice + ", or set " + keys + server : advice;
}
