#include "http/KerberosProblem.h"

#include "Utility/Generic/BaseStringUtil.h"

namespace {

/// The first row whose text is found applies. "#" stands for the service's principal.
struct Known {
  std::string_view text;
  const wchar_t* what;
  const wchar_t* advice;
  bool isWithoutTicket = false;
  HTTPSetting setting = HTTPSetting::kNone;
};

constexpr const wchar_t* kNoKDC = L"no Kerberos server (KDC) of the ticket's realm can be reached";
constexpr const wchar_t* kCheckKDC =
    L"check the network, and the realm's kdc in /etc/krb5.conf or the file named by KRB5_CONFIG";
constexpr const wchar_t* kKey = L"the service cannot decrypt the Kerberos ticket";
constexpr const wchar_t* kRenewKey =
    L"run kinit again, or ask the administrator to give the service its current key (keytab)";

constexpr Known kKnown[] = {
    {"No credentials were supplied", L"there is no Kerberos ticket", L"run kinit", true},
    {"Ticket expired", L"the Kerberos ticket has expired", L"run kinit again"},
    {"Server krbtgt/", L"the Kerberos server (KDC) does not know the realm of the service",
     L"check host name and domain_realm in /etc/krb5.conf, or ask the administrator to set up "
     L"trust between the realms"},
    {"not found in Kerberos database", L"the Kerberos server (KDC) does not know the service #",
     L"check the host name, or ask the administrator to register the service (setspn or kadmin)"},
    {"Clock skew too great",
     L"the clocks of this machine, the Kerberos server (KDC) and the service differ too much",
     L"set the wrong clock"},
    {"No Kerberos server (KDC) has answered",
     L"the Kerberos server (KDC) of the ticket's realm does not answer",
     L"check the network, and the realm's kdc in /etc/krb5.conf or the file named by KRB5_CONFIG, "
     L"or try a longer time-out",
     false, HTTPSetting::kConnectTimeout},
    {"Cannot contact any KDC", kNoKDC, kCheckKDC},
    {"Cannot find KDC", kNoKDC, kCheckKDC},
    {"Key version is not available", kKey, kRenewKey},
    {"Decrypt integrity check failed", kKey, kRenewKey},
};

/// The principal in "Server HTTP/host@REALM not found", without the realm.
std::string_view PrincipalIn(std::string_view text) {
  constexpr std::string_view kBefore = "Server ";
  const std::size_t begin = text.find(kBefore);
  if (begin == std::string_view::npos) return {};
  text.remove_prefix(begin + kBefore.size());
  return text.substr(0, text.find_first_of("@ "));
}

}  // namespace

KerberosProblem DescribeKerberosProblem(std::string_view text) {
  for (const Known& known : kKnown) {
    if (text.find(known.text) == std::string_view::npos) continue;
    KerberosProblem problem{known.what, known.advice, known.isWithoutTicket, known.setting};
    BaseStringUtil::ReplacePatternInString(problem.what, L"#",
                                           BaseStringUtil::FromUTF8(PrincipalIn(text)));
    return problem;
  }
  return {L"the Kerberos log-in failed", L"check the ticket with klist"};
}
