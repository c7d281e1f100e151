#include "connection/Sources.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <utility>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/WholeNumber.h"
#include "base/Secret.h"
#include "base/Text.h"
#include "call/CommonOptions.h"
#include "call/OptionValue.h"
#include "connection/ServerFile.h"

namespace {

/// The library uses its default for values that are not numbers. The tool rejects them.
int Seconds(const char* variable, const char* value) {
  const String text = Wide(value);
  if (!IsWholeNumber(text))
    throw UsageError(std::string(variable) + " is \"" + OneLine(value) +
                     "\": give a whole number of seconds, or 0 for no limit");
  constexpr std::uint32_t kMax = std::numeric_limits<int>::max();
  return static_cast<int>(std::min<std::uint32_t>(BaseStringUtil::UIntFrom(text), kMax));
}

}  // namespace

Sources::Sources(const Arguments& arguments, EnvironmentSecrets secrets)
    : m_secrets(std::move(secrets)) {
  m_values[static_cast<std::size_t>(Source::kOption)] = arguments;
  ReadEnvironment();
  ChooseService();
}

Sources::~Sources() {
  for (Arguments& values : m_values) EraseSecrets(values);
}

std::span<const CommandOption> Sources::Options() { return CommonOptions(); }

std::string Sources::NameOf(Source source, const CommandOption& option) const {
  if (source == Source::kOption) return option.name;
  if (source == Source::kEnvironment) return option.variable;
  return option.name + 2;
}

std::string Sources::ServerWords() const { return "server " + Listed({m_server.name}); }

std::string Sources::ServerMention() const {
  return HasServer() ? " of " + ServerWords() + " (" + m_server.place + ")" : "";
}

Setting<std::vector<std::string>> Sources::PasswordCommand() const {
  if (m_server.passwordCommand.empty()) return {};
  Setting<std::vector<std::string>> found{
      m_server.passwordCommand, Source::kServerFile, "password-command", {}, {}, {}};
  Locate(found);
  return found;
}

void Sources::ReadEnvironment() {
  Arguments& values = m_values[static_cast<std::size_t>(Source::kEnvironment)];
  for (const CommandOption& option : CommonOptions()) {
    const char* const value = *option.variable ? std::getenv(option.variable) : nullptr;
    if (!value) continue;
    if (IsNumber(option))
      values.*std::get<std::optional<int> Arguments::*>(option.value) =
          Seconds(option.variable, value);
    else if (*value)
      SetValue(option, option.variable, value, values);
  }
  values.url = m_secrets.url;
}

void Sources::ChooseService() {
  Arguments& given = m_values[static_cast<std::size_t>(Source::kOption)];
  Arguments& variables = m_values[static_cast<std::size_t>(Source::kEnvironment)];
  if (!given.url.empty() || !given.server.empty() || !given.sample.empty()) {
    Erase(variables.url);
    variables.server.clear();
  }
  if (!given.sample.empty()) return;
  if (!variables.url.empty() && !variables.server.empty())
    throw UsageError(
        "XMLA_IMPORT_URL and XMLA_IMPORT_SERVER cannot be combined; unset one of them, or use "
        "--url or --server");
  if (const Setting<std::string> name = Find(&Arguments::server)) {
    const ServerFile file = ReadServerFile();
    m_server = FindServer(file, name.value, name.name);
    m_values[static_cast<std::size_t>(Source::kServerFile)] = m_server.values;
    EraseSecrets(m_server.values);
  } else if (given.url.empty() && variables.url.empty()) {
    throw UsageError(
        "no service given; use --url URL (or XMLA_IMPORT_URL), --server NAME (or "
        "XMLA_IMPORT_SERVER) or --sample KIND" +
        std::string(given.command == "diff" ? ", or give NEW, a second file" : "") +
        SeeHelp(given.command));
  }
}

std::string Sources::ProxyVariable(bool isHTTPS) {
  // The variables that the HTTP client uses, in its order.
  constexpr const char* kForHTTP[] = {"http_proxy", "all_proxy", "ALL_PROXY"};
  constexpr const char* kForHTTPS[] = {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"};
  using Names = std::span<const char* const>;
  for (const char* const name : isHTTPS ? Names(kForHTTPS) : Names(kForHTTP))
    if (const char* const value = std::getenv(name); value && *value) return name;
  return {};
}

void EraseSecrets(Arguments& arguments) {
  Erase(arguments.url);
  if (arguments.proxy) Erase(*arguments.proxy);
}
