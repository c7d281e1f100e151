#include "call/SettingAdvice.h"

namespace {

struct Advice {
  HTTPSetting setting;
  const char* text;
};
constexpr Advice kAdvice[] = {
    {HTTPSetting::kURL, "use --url URL for another URL"},
    {HTTPSetting::kProxy, "use --proxy URL for another proxy, or --proxy \"\" for none"},
    {HTTPSetting::kConnectTimeout, "use --connect-timeout SECONDS to wait longer"},
    {HTTPSetting::kTimeout, "use --timeout SECONDS to wait longer"},
    {HTTPSetting::kCAFile, "use --ca-file FILE for trusted certificates"},
    {HTTPSetting::kCertificate, "use --cert FILE for the client certificate"},
    {HTTPSetting::kKey, "use --key FILE for the private key"},
    {HTTPSetting::kKeyPassword, "use --key-password-file FILE for the password of the key"},
    {HTTPSetting::kUser, "use --user NAME and --password-file FILE for another log-in"},
    {HTTPSetting::kAuthSchemes, "use --auth SCHEMES for other ways to log in"},
    {HTTPSetting::kToken, "use --token-file FILE for a token"},
    {HTTPSetting::kRetries, "use --retry N to try again automatically"},
};

}  // namespace

const char* SettingAdvice(HTTPSetting setting) {
  for (const Advice& advice : kAdvice)
    if (advice.setting == setting) return advice.text;
  return nullptr;
}
