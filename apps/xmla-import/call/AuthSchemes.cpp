#include "call/AuthSchemes.h"

#include "Utility/Generic/HTTPClientWrapper.h"
#include "call/UsageError.h"

namespace {

struct Scheme {
  std::string_view name;
  HTTPAuthScheme scheme;
};

constexpr Scheme kSchemes[] = {{"negotiate", kAuthNegotiate},
                               {"ntlm", kAuthNTLM},
                               {"digest", kAuthDigest},
                               {"basic", kAuthBasic}};

unsigned int SchemeNamed(std::string_view option, std::string_view name) {
  for (const Scheme& each : kSchemes)
    if (each.name == name) return each.scheme;
  const std::vector<std::string> names = AuthSchemeNames();
  const std::string hint = name == "kerberos" ? "; Kerberos is negotiate" : "";
  throw UsageError(UnknownValue(option, name, names, Enumerated(names)) + hint);
}

}  // namespace

unsigned int AuthSchemes(std::string_view name, std::string_view list) {
  unsigned int schemes = 0;
  for (;;) {
    const std::size_t end = list.find(',');
    schemes |= SchemeNamed(name, list.substr(0, end));
    if (end == list.npos) return schemes;
    list.remove_prefix(end + 1);
  }
}

std::vector<std::string> AuthSchemeNames() {
  std::vector<std::string> names;
  for (const Scheme& each : kSchemes) names.emplace_back(each.name);
  return names;
}
