#include "commands/ConnectionSteps.h"

#include <fmt/format.h>

#include "base/Text.h"
#include "call/SettingAdvice.h"

namespace {

using Status = CheckStep::Status;

constexpr int kFewDays = 30;
constexpr int kFirstRedirect = 300;  // statuses below mean success

CheckStep Ok(std::string found) { return {.name = {}, .found = std::move(found)}; }

std::optional<double> Positive(double seconds) {
  return seconds > 0 ? std::optional(seconds) : std::nullopt;
}

CheckStep NameResolution(const HTTPExchangeInfo& info, const Connection&) {
  const std::string address = Utf8(info.connection.address);
  if (address.empty()) return Ok("left to the proxy");
  CheckStep step = Ok("found " + address.substr(0, address.rfind(':')));
  step.seconds = Positive(info.connection.resolveSeconds);
  return step;
}

CheckStep Proxy(const HTTPExchangeInfo& info, const Connection& connection) {
  if (info.connection.proxy.empty()) return Ok("none");
  const auto origin = connection.origins.clauses.find(HTTPSetting::kProxy);
  const bool isKnown = origin != connection.origins.clauses.end();
  return Ok(Utf8(info.connection.proxy) + (isKnown ? "; " + origin->second : ""));
}

CheckStep Connecting(const HTTPExchangeInfo& info, const Connection&) {
  CheckStep step = Ok("to " + Utf8(info.connection.address));
  step.seconds = Positive(info.connection.connectSeconds);
  return step;
}

CheckStep TLS(const HTTPExchangeInfo& info, const Connection&) {
  const HTTPConnectionDetails& details = info.connection;
  if (info.url.view().starts_with(L"http:"))
    return Ok("not used, because the URL begins with http:");
  CheckStep step = Ok(Utf8(details.tlsProtocol));
  step.seconds = Positive(details.tlsSeconds);
  if (!details.certificateSubject.empty())
    step.found += "; certificate of " + Utf8(details.certificateSubject) + ", issued by " +
                  Utf8(details.certificateIssuer);
  if (!details.certificateDays) return step;
  step.found += fmt::format(", expires in {} days", *details.certificateDays);
  if (*details.certificateDays < kFewDays) {
    step.status = Status::kWarning;
    step.advice = "renew the server's certificate";
  }
  return step;
}

std::string WhyThisScheme(const std::string& scheme, const Connection& connection) {
  if (scheme == "Bearer") return "the token";
  if (scheme == "Negotiate") return "the caller's Kerberos ticket";
  return "user " + Listed({Utf8(connection.user)});
}

CheckStep LogIn(const HTTPExchangeInfo& info, const Connection& connection) {
  const HTTPConnectionDetails& details = info.connection;
  const std::string scheme = Utf8(details.usedScheme);
  if (info.status == 0)
    return {.name = {}, .status = Status::kSkipped, .found = "the server sent no HTTP response"};
  if (scheme.empty()) {
    CheckStep step = Ok("the server did not ask for one");
    // Another URL of the server may require one.
    if (info.status >= kFirstRedirect)
      step.found += fmt::format(" before it answered with status {}", info.status);
    if (!connection.user.empty()) step.found += "; the password was not sent";
    return step;
  }
  CheckStep step = Ok(scheme + " with " + WhyThisScheme(scheme, connection));
  if (!details.offeredSchemes.empty())
    step.found += ", the strongest allowed one of those that the server offers: " +
                  Utf8(details.offeredSchemes);
  if (info.basicInClear) {
    step.status = Status::kWarning;
    step.found += "; sent over plain http to another machine, others on the network can read it";
    step.advice = "use https";
  }
  return step;
}

struct ConnectionStep {
  const char* name;
  HTTPStep step;
  CheckStep (*describe)(const HTTPExchangeInfo& info, const Connection& connection);
};
constexpr ConnectionStep kConnectionSteps[] = {
    {"name resolution", HTTPStep::kNameResolution, &NameResolution},
    {"proxy", HTTPStep::kProxy, &Proxy},
    {"connection", HTTPStep::kConnection, &Connecting},
    {"TLS", HTTPStep::kTLS, &TLS},
    {"log-in", HTTPStep::kLogIn, &LogIn},
};

}  // namespace

const char* NameOfStep(HTTPStep step) {
  for (const ConnectionStep& each : kConnectionSteps)
    if (each.step == step) return each.name;
  return "response";
}

/// The error text is "URL: problem; advice (details)".
CheckStep FailedExchange(std::string name, const HTTPExchangeInfo& info,
                         const Connection& connection) {
  CheckStep step{.name = std::move(name), .status = Status::kFailed, .found = Utf8(info.problem)};
  const std::string text = Utf8(info.error);
  const std::size_t end = (Utf8(info.url) + ": " + step.found).size();
  if (end < text.size()) step.advice = text.substr(end + (text[end] == ';' ? 2 : 1));
  const std::string option = SettingAdvice(info.setting, connection.origins);
  if (!option.empty() && step.advice.find(" --") == std::string::npos)
    step.advice += (step.advice.empty() ? "" : "; ") + option;
  const std::string proxy = MayBeFromProxy(info) ? ProxyDoubt(connection.origins) : "";
  if (!proxy.empty()) step.advice += (step.advice.empty() ? "" : "; ") + proxy;
  return step;
}

void TakeConnectionSteps(const HTTPExchangeInfo& first, const Connection& connection, HTTPStep end,
                         const std::function<void(CheckStep)>& take) {
  for (const auto& [name, number, describe] : kConnectionSteps) {
    if (number >= end) return;
    if (first.failedStep == number) return take(FailedExchange(name, first, connection));
    CheckStep step = describe(first, connection);
    step.name = name;
    take(std::move(step));
  }
}

CheckStep ResponseStep(const HTTPExchangeInfo& first, std::optional<bool> isReused) {
  const HTTPConnectionDetails& details = first.connection;
  CheckStep step{.name = "response", .found = fmt::format("status {}", first.status)};
  const auto add = [&](const String& part) {
    if (!part.empty()) step.found += ", " + Utf8(part);
  };
  add(details.server);
  add(details.contentType);
  add(details.contentEncoding.empty() ? String(L"not compressed") : details.contentEncoding);
  step.seconds = first.firstByteSeconds;
  if (!isReused) return step;
  step.found += *isReused ? ", connection kept open" : ", connection closed after each reply";
  if (!*isReused) {
    step.status = Status::kWarning;
    step.advice = "allow kept-alive connections on the server or proxy; imports will be faster";
  }
  return step;
}
