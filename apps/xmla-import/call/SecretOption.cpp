#include "call/SecretOption.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr std::string_view kPassword =
    "because other users can read command lines; use --password-file FILE, XMLA_IMPORT_PASSWORD, "
    "or --user alone to be asked";
constexpr std::string_view kToken =
    "because other users can read command lines; use --token-file FILE or XMLA_IMPORT_TOKEN";
constexpr std::string_view kKeyPassword =
    "because other users can read command lines; use --key-password-file FILE";
constexpr std::string_view kProxyUser =
    "because user and password belong to the URL of --proxy, as in USER:PASSWORD@HOST:PORT";
constexpr std::string_view kPasswordCommand =
    "because it is a key of the server file (xmla-import help servers)";

struct Rejected {
  std::string_view beginning;  ///< of the option's name
  std::string_view instead;
};

// The first row that matches counts.
constexpr Rejected kRejected[] = {
    {"--password-c", kPasswordCommand},
    {"--pas", kPassword},
    {"--pw", kPassword},
    {"--key-pas", kKeyPassword},
    {"--key-pw", kKeyPassword},
    {"--keypas", kKeyPassword},
    {"--tok", kToken},
    {"--bear", kToken},
    {"--proxy-", kProxyUser},
};

// Names that are not rejected with an advice of their own, but may be followed by a secret.
constexpr std::string_view kMayTakeSecret[] = {"--user", "--secret", "--api-key"};

}  // namespace

std::string_view InsteadOfOption(std::string_view name) {
  if (name == "-p") return kPassword;
  // A misspelt --password-file is better explained by the option's name.
  if (name.find("-f") != name.npos && name.starts_with("--")) return {};
  for (const Rejected& row : kRejected)
    if (name.starts_with(row.beginning)) return row.instead;
  return {};
}

bool MayTakeSecret(std::string_view name) {
  if (name.ends_with("-file")) return false;
  const auto begins = [&](std::string_view beginning) { return name.starts_with(beginning); };
  return name == "-p" || std::ranges::any_of(kRejected, begins, &Rejected::beginning) ||
         std::ranges::any_of(kMayTakeSecret, begins);
}
