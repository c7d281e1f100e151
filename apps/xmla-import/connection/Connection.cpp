#include "connection/Connection.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/WholeNumber.h"
#include "base/Interrupt.h"
#include "base/Secret.h"
#include "base/Text.h"
#include "call/SecretOption.h"
#include "call/TargetNames.h"
#include "connection/Password.h"

namespace {

/// The option's value, or the environment variable's if the option is absent.
std::string OptionOr(const std::string& option, const char* variable) {
  if (!option.empty()) return option;
  const char* const value = std::getenv(variable);
  return value ? value : "";
}

std::string Origin(bool option, const char* name, const char* variable) {
  return option ? name : variable;
}

/// Returns the variable's value and erases it from the environment block, which other processes can
/// read.
std::optional<std::string> TakeFromEnvironment(const char* variable) {
  char* const value = std::getenv(variable);
  if (!value) return std::nullopt;
  std::string taken = value;
  explicit_bzero(value, taken.size());
  unsetenv(variable);
  return taken;
}

void ServeSample(const Arguments& arguments, Connection& connection) {
  const std::string& name = arguments.sample;
  const std::optional<sample::Kind> kind = sample::KindFromName(name);
  if (!kind)
    throw UsageError(UnknownValue("--sample", name, {"analysis-services", "sap-bw", "tamarind"},
                                  "analysis-services, sap-bw, tamarind") +
                     SeeHelp(arguments.command));
  try {
    connection.provider = std::make_unique<sample::Provider>();
  } catch (const std::runtime_error& error) {
    throw std::runtime_error("the sample provider cannot be started: " + OneLine(error.what()));
  }
  connection.url = Wide(connection.provider->Url(*kind));
  // Local server: ignore the proxies of the environment.
  connection.http.proxy = String();
}

void Hide(char* begin, char* end) { std::fill(begin, end, 'x'); }

void HideInUrl(char* word) {
  char* const scheme = std::strstr(word, "://");
  if (!scheme) return;
  char* const begin = scheme + 3;
  char* const authorityEnd = begin + std::strcspn(begin, "/?#");
  // A password that is not escaped may contain slashes, so search for the last @ of the whole URL.
  char* const at = std::strrchr(begin, '@');
  const bool isInAuthority = std::find(begin, authorityEnd, '@') != authorityEnd;
  if (at && (isInAuthority || std::find(begin, at, ':') != at)) Hide(begin, at);
}

/// Takes URL and credentials from --url or the environment.
void UseUrl(const Arguments& arguments, Connection& connection) {
  std::string url = OptionOr(arguments.url, "XMLA_IMPORT_URL");
  if (url.empty())
    throw UsageError("no service given; use --url URL (or XMLA_IMPORT_URL) or --sample KIND" +
                     SeeHelp(arguments.command));
  connection.url = WideSecret(std::move(url));
  if (char* const variable = std::getenv("XMLA_IMPORT_URL")) HideInUrl(variable);
  // The message omits the URL, which may contain a password.
  if (!HTTPClientWrapper::TakeCredentials(connection.url, connection.user, connection.password))
    throw UsageError(Origin(!arguments.url.empty(), "--url", "XMLA_IMPORT_URL") +
                     " cannot be used: " + Utf8(HTTPClientWrapper::URLProblem(connection.url)) +
                     SeeHelp(arguments.command));
}

/// The library uses its default for values that are not numbers. The tool rejects them.
void CheckTimeout() {
  constexpr const char* kVariable = "MORVEN_BI_XMLA_HTTP_TIMEOUT";
  const char* const value = std::getenv(kVariable);
  if (!value) return;
  if (!IsWholeNumber(Wide(value)))
    throw UsageError(std::string(kVariable) + " is \"" + OneLine(value) +
                     "\": give a whole number of seconds, or 0 for no limit");
}

void UseCredentials(const Arguments& arguments, std::optional<std::string> environmentPassword,
                    Connection& connection) {
  const bool fromUrl = !connection.user.empty() || !connection.password.empty();
  const String user = Wide(arguments.user);
  if (!arguments.user.empty()) {
    // A password in the URL belongs to the user in the URL.
    if (!connection.user.empty() && !(connection.user == user)) Erase(connection.password);
    connection.user = user;
  } else if (!fromUrl) {
    connection.user = Wide(OptionOr("", "XMLA_IMPORT_USER"));
  }
  if (!arguments.passwordFile.empty()) {
    if (connection.user.empty())
      throw UsageError("--password-file needs a user name; use --user NAME" +
                       SeeHelp(arguments.command));
    // Disable the echo if standard input is a terminal.
    std::optional<std::string> typed;
    if (arguments.passwordFile == "-" && isatty(STDIN_FILENO) == 1)
      typed = PasswordFromTerminal(Utf8(connection.user));
    Erase(connection.password);
    connection.password =
        WideSecret(typed ? std::move(*typed) : PasswordFromFile(arguments.passwordFile));
    return;
  }
  if (connection.user.empty() || !connection.password.empty()) return;
  if (environmentPassword && !environmentPassword->empty())
    connection.password = WideSecret(std::move(*environmentPassword));
  else if (auto typed = PasswordFromTerminal(Utf8(connection.user)))
    connection.password = WideSecret(std::move(*typed));
  else if (!MustStop())  // an empty password on every run would lock the account
    throw UsageError("user " + Listed({Utf8(connection.user)}) +
                     " needs a password, and there is no terminal to ask for it; use "
                     "--password-file FILE (or XMLA_IMPORT_PASSWORD); see xmla-import help log-in");
}

std::optional<ServerInfo::TargetType> ConfiguredTarget(const Arguments& arguments) {
  const std::string name = OptionOr(arguments.target, "XMLA_IMPORT_TARGET");
  if (name.empty() || name == kAutoTarget) return std::nullopt;
  const std::optional<ServerInfo::TargetType> target = TargetFromName(name);
  if (!target)
    throw UsageError(
        UnknownValue(Origin(!arguments.target.empty(), "--target", "XMLA_IMPORT_TARGET"), name,
                     TargetNameList(), TargetNames()) +
        SeeHelp(arguments.command));
  return target;
}

}  // namespace

Connection::~Connection() { Erase(password); }

Connection Connect(const Arguments& arguments) {
  Connection connection;
  std::optional<std::string> environmentPassword = TakeFromEnvironment("XMLA_IMPORT_PASSWORD");
  CheckTimeout();
  connection.target = ConfiguredTarget(arguments);
  if (!arguments.sample.empty()) {
    ServeSample(arguments, connection);
    return connection;
  }
  UseUrl(arguments, connection);
  UseCredentials(arguments, std::move(environmentPassword), connection);
  // Negotiate uses the caller's Kerberos ticket, so it is allowed only without a user name. The
  // password schemes are for a proxy's user.
  connection.http.authSchemes =
      connection.user.empty() ? kAuthNegotiate | kAuthPasswordSchemes : kAuthPasswordSchemes;
  connection.http.missingUserAdvice = L"use --user NAME";
  connection.http.logInMemory = std::make_shared<HTTPLogInMemory>();
  return connection;
}

void HideCredentials(int argc, char** argv) {
  // Backwards, because each argument is checked against the one before it, which must still be
  // unchanged.
  for (int i = argc - 1; i > 0; --i) {
    char* const word = argv[i];
    char* const end = word + std::strlen(word);
    const std::string_view name = std::string_view(word).substr(0, std::strcspn(word, "="));
    const bool nameTakesSecret = MayTakeSecret(name);
    const std::string_view last = i > 1 ? argv[i - 1] : "";
    const std::size_t sign = last.find('=');
    const bool takesNext = sign == last.npos || sign + 1 == last.size();
    HideInUrl(word);
    if (takesNext && MayTakeSecret(last))
      Hide(word, end);
    else if (word + name.size() < end && nameTakesSecret)
      Hide(word + name.size() + 1, end);
    else if (std::string_view(word).starts_with("-p"))
      Hide(word + 2, end);
  }
}
