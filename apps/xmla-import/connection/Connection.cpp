#include "connection/Connection.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>

#include "Utility/Generic/HTTPClientWrapper.h"
#include "base/Secret.h"
#include "base/Text.h"
#include "call/SecretOption.h"
#include "call/TargetNames.h"
#include "connection/LogIn.h"
#include "connection/Sources.h"

namespace {

void ServeSample(const Arguments& arguments, Connection& connection) {
  try {
    connection.provider = std::make_unique<sample::Provider>();
  } catch (const std::runtime_error& error) {
    throw std::runtime_error("the sample provider cannot be started: " + OneLine(error.what()));
  }
  connection.url = Wide(connection.provider->Url(*sample::KindFromName(arguments.sample)));
  // Local server: ignore the proxies of the environment.
  connection.http.proxy = String();
}

void Hide(char* begin, char* end) { std::fill(begin, end, 'x'); }

void HideInUrl(char* word, bool needsScheme = true) {
  char* const scheme = std::strstr(word, "://");
  if (!scheme && needsScheme) return;
  char* const begin = scheme ? scheme + 3 : word;
  char* const authorityEnd = begin + std::strcspn(begin, "/?#");
  // A password that is not escaped may contain slashes, so search for the last @ of the whole URL.
  char* const at = std::strrchr(begin, '@');
  const bool isInAuthority = std::find(begin, authorityEnd, '@') != authorityEnd;
  if (at && (!scheme || isInAuthority || std::find(begin, at, ':') != at)) Hide(begin, at);
}

/// Takes URL and its credentials. Returns the source.
Source UseUrl(const Sources& sources, const std::string& command, Connection& connection) {
  Setting<std::string> url = sources.Find(&Arguments::url);
  connection.url = WideSecret(std::move(url.value));
  // The message omits the URL, which may contain a password.
  const std::string problem = TakeCredentials(connection.url, connection.user, connection.password);
  if (!problem.empty())
    throw UsageError(url.Subject() + " cannot be used: " + problem + SeeHelp(command));
  return url.source;
}

void UseTransport(const Sources& sources, HTTPClientOptions& http) {
  const auto number = [](const std::optional<int>& value) -> std::optional<std::uint32_t> {
    if (!value) return std::nullopt;
    return static_cast<std::uint32_t>(*value);
  };
  http.connectTimeoutSeconds = number(sources.Find(&Arguments::connectTimeout).value);
  http.timeoutSeconds = number(sources.Find(&Arguments::timeout).value);
  http.maxRetries = number(sources.Find(&Arguments::retry).value).value_or(0);
}

/// The client itself reads the variables of proxy and trusted certificates. Messages about them
/// name the key of the server file that has no effect, because it would be corrected in vain.
void UseProxyAndAuthorities(const Sources& sources, const std::string& command,
                            Connection& connection) {
  const Setting<std::string> file = sources.Find(&Arguments::caFile);
  auto& clauses = connection.origins.clauses;
  if (file.source == Source::kEnvironment) {
    clauses[HTTPSetting::kCAFile] =
        "the trusted certificates come from " + file.name + sources.Overridden(&Arguments::caFile);
  } else {
    RequireReadable(file);
    connection.http.caFile = Wide(file.value);
  }
  Setting<std::optional<std::string>> proxy = sources.Find(&Arguments::proxy);
  const bool isHTTPS = Utf8(connection.url.substr(0, 6)).find(':') == 5;
  const std::string variable = Sources::ProxyVariable(isHTTPS);
  const bool isVariable = !variable.empty() && proxy.source != Source::kOption;
  if (isVariable || !proxy.value.value_or("").empty())
    clauses[HTTPSetting::kProxy] =
        "the proxy comes from " +
        (isVariable ? variable + sources.Overridden(&Arguments::proxy) : proxy.Origin());
  if (proxy.value && !isVariable) connection.http.proxy = WideSecret(std::move(*proxy.value));
  if (proxy.value) Erase(*proxy.value);
  if (!connection.http.proxy) return;
  const std::string problem = Utf8(HTTPClientWrapper::ProxyProblem(*connection.http.proxy));
  // The message omits the URL, which may contain a password.
  if (!problem.empty())
    throw UsageError(proxy.Subject() + " cannot be used: " + problem + SeeHelp(command));
}

void UseTarget(const Sources& sources, const std::string& command, Connection& connection) {
  const Setting<std::string> name = sources.Find(&Arguments::target);
  if (!name || name.value == kAutoTarget) return;
  connection.target = TargetFromName(name.value);
  if (!connection.target)
    throw UsageError(UnknownValue(name.name, name.value, TargetNameList(), TargetNames()) +
                     SeeHelp(command));
  connection.targetSetting = name.Origin();
}

}  // namespace

std::string TakeCredentials(String& url, String& user, String& password) {
  const String shown = HTTPClientWrapper::ShownURL(url);
  if (!HTTPClientWrapper::TakeCredentials(url, user, password))
    return Utf8(HTTPClientWrapper::URLProblem(url));
  if (shown == url) return "";
  return "it may contain a part of a password, since an \"@\" behind the host may end one" +
         Utf8(kURLPasswordAdvice) + "; in a path or a query, write @ as %40";
}

Connection::~Connection() {
  for (String* const secret : {&password, &http.keyPassword, &http.bearerToken}) Erase(*secret);
  if (http.proxy) Erase(*http.proxy);
}

Connection Connect(const Arguments& arguments, EnvironmentSecrets secrets) {
  const bool hasPassword = !secrets.password.empty();
  const Sources sources(arguments, std::move(secrets));
  Connection connection;
  connection.origins.server = sources.ServerMention();
  UseTarget(sources, arguments.command, connection);
  UseTransport(sources, connection.http);
  if (!arguments.sample.empty()) {
    ServeSample(arguments, connection);
    return connection;
  }
  const Source urlSource = UseUrl(sources, arguments.command, connection);
  UseProxyAndAuthorities(sources, arguments.command, connection);
  LogIn(sources, urlSource, connection);
  connection.http.missingUserAdvice =
      Wide(WithServerKey("use --user NAME", "user", connection.origins.server) +
           (hasPassword ? "; XMLA_IMPORT_PASSWORD is set, but not used without a user name" : ""));
  connection.http.logInMemory = std::make_shared<HTTPLogInMemory>();
  return connection;
}

void HideCredentials(int argc, char** argv) {
  // The URL of a proxy may lack the scheme.
  constexpr std::string_view kProxy = "--proxy";
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
    else if (takesNext && last == kProxy)
      HideInUrl(word, false);
    else if (name == kProxy && word + name.size() < end)
      HideInUrl(word + name.size() + 1, false);
  }
}
