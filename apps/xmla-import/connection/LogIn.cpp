#include "connection/LogIn.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/Secret.h"
#include "base/Interrupt.h"
#include "base/Secret.h"
#include "base/Text.h"
#include "call/AuthSchemes.h"
#include "call/SettingAdvice.h"
#include "connection/Password.h"
#include "connection/PasswordCommand.h"

namespace {

constexpr const char* kSeeLogIn = "; see xmla-import help log-in";

[[noreturn]] void FailTogether(const std::string& one, const std::string& other) {
  throw UsageError(one + " and " + other + " cannot be combined" + kSeeLogIn);
}

/// A control character could end a header line, so that the rest becomes another header.
bool HasControlCharacter(const String& text) {
  return std::ranges::any_of(text.view(), [](wchar_t c) { return c < L' ' || c == L'\x7F'; });
}

constexpr const char* kControlCharacter =
    " contains a control character, such as a line break, and cannot be used; check how it was "
    "entered";

/// The secret as text. `noun` names it for messages, with its place.
String TextOfSecret(std::string&& bytes, const std::string& noun) {
  const Secret<NarrowString> given{NarrowString(bytes)};
  String text = WideSecret(std::move(bytes));
  // The conversion replaces ill-formed bytes.
  const Secret<NarrowString> back(BaseStringUtil::ToUTF8(text));
  const bool isUTF8 = back.view() == given.view();
  const bool hasControl = HasControlCharacter(text);
  if (isUTF8 && !hasControl) return text;
  Erase(text);
  throw UsageError(noun + (isUTF8 ? kControlCharacter
                                  : " is not valid UTF-8; save it as UTF-8, or use a terminal or "
                                    "environment with UTF-8"));
}

/// A secret from a file, or typed if the file is standard input and that is a terminal.
String ReadSecret(const std::string& noun, const Setting<std::string>& file,
                  const std::string& prompt) {
  std::optional<std::string> typed;
  if (file.value == "-" && isatty(STDIN_FILENO) == 1) typed = SecretFromTerminal(noun, prompt);
  const std::string what = file.begin + "the " + noun;
  return TextOfSecret(typed ? std::move(*typed) : SecretFromFile(what, file.value, file.name),
                      what + " (" + file.name + ")");
}

class LogInChoice {
 public:
  LogInChoice(const Sources& sources, Source urlSource, Connection& connection)
      : m_sources(sources),
        m_urlSource(urlSource),
        m_connection(connection),
        m_urlHasUser(!connection.user.empty()),
        m_urlHasCredentials(m_urlHasUser || !connection.password.empty()),
        m_user(sources.Find(&Arguments::user)),
        m_passwordFile(sources.Find(&Arguments::passwordFile)),
        m_tokenFile(sources.Find(&Arguments::tokenFile)),
        m_keyPasswordFile(sources.Find(&Arguments::keyPasswordFile)),
        m_auth(sources.Find(&Arguments::auth)),
        m_passwordCommand(sources.PasswordCommand()) {}

  void Make() {
    ChooseCertificate();
    const Source token = SourceOfToken();
    const Source user = SourceOfUser();
    const bool usesToken = token != Source::kNone && token <= user;
    if (usesToken && token == user) FailTogether(BeginOfToken() + NameOfToken(), NameOfUser(user));
    RequireOneInput(usesToken);
    ReadKeyPassword();
    if (usesToken)
      UseToken(token);
    else
      UseUser();
    // Those of the URL may contain them, too.
    if (HasControlCharacter(m_connection.user))
      throw UsageError(BeginOfUser() + "the user name" + kControlCharacter);
    if (HasControlCharacter(m_connection.password))
      throw UsageError(BeginOfUser() + "the password" + kControlCharacter);
    auto& clauses = m_connection.origins.clauses;
    if (usesToken)
      clauses[HTTPSetting::kToken] = "the token comes from " + OriginOfToken();
    else if (!m_passwordOrigin.empty())
      clauses[HTTPSetting::kUser] = ClauseOfUser();
  }

 private:
  Source SourceOfToken() const {
    if (m_tokenFile.source == Source::kOption) return Source::kOption;
    if (!m_sources.Secrets().token.empty()) return Source::kEnvironment;
    return m_tokenFile.source;
  }

  bool IsTokenInFile() const { return m_tokenFile && m_tokenFile.source == SourceOfToken(); }
  std::string BeginOfToken() const { return IsTokenInFile() ? m_tokenFile.begin : ""; }
  std::string NameOfToken() const {
    return IsTokenInFile() ? m_tokenFile.name : "XMLA_IMPORT_TOKEN";
  }

  std::string OriginOfToken() const {
    return IsTokenInFile() ? OriginOfFile(m_tokenFile) : NameOfToken();
  }

  std::string ClauseOfUser() const {
    if (m_userOrigin == m_passwordOrigin) return "user name and password come from " + m_userOrigin;
    return "the user name comes from " + m_userOrigin + ", and the password from " +
           m_passwordOrigin;
  }

  static std::string OriginOfFile(const Setting<std::string>& file) {
    return file.name + ' ' + Listed({file.value}) + file.owner + file.place;
  }

  std::string OriginOfURL() const { return m_sources.Find(&Arguments::url).Origin(); }

  /// The first source with a user, or with a password that replaces that of a later source.
  Source SourceOfUser() const {
    Source source = std::min(m_user.source, m_passwordFile.source);
    if (m_urlHasCredentials) source = std::min(source, m_urlSource);
    source = std::min(source, m_passwordCommand.source);
    return source;
  }

  std::string NameOfUser(Source source) const {
    if (m_user.source == source) return m_user.name;
    if (m_passwordFile.source == source) return m_passwordFile.name;
    return m_urlHasCredentials && m_urlSource == source ? "the user in the URL"
                                                        : m_passwordCommand.name;
  }

  /// Begins a message about user or password, if they come from the server file.
  std::string BeginOfUser() const {
    if (m_urlHasUser && m_urlSource == Source::kServerFile && m_urlSource <= m_user.source)
      return m_sources.Find(&Arguments::url).begin;
    return m_user.begin;
  }

  /// The option to use, or the key of the server file. `begin` is that of the message.
  std::string Advice(const std::string& begin, const char* option, const char* key) const {
    return WithServerKey(option, key, begin.empty() ? m_sources.ServerMention() : " there");
  }

  void RequireOneInput(bool usesToken) const {
    std::vector<std::string> readers;
    for (const Setting<std::string>* const file :
         {usesToken ? &m_tokenFile : &m_passwordFile, &m_keyPasswordFile})
      if (file->value == "-") readers.push_back(file->Mention());
    if (readers.size() > 1)
      throw UsageError(readers[0] + " and " + readers[1] +
                       " cannot both read standard input; give a file to one of them");
  }

  void UseToken(Source source) {
    if (m_auth.source <= source && m_auth)
      throw UsageError(m_auth.Subject() + " cannot be combined with a token (" + NameOfToken() +
                       "), which needs no scheme" + kSeeLogIn);
    HTTPClientOptions& http = m_connection.http;
    for (String* const unused : {&m_connection.user, &m_connection.password}) Erase(*unused);
    if (m_tokenFile.source == source)
      http.bearerToken = ReadSecret("token", m_tokenFile, "Token for " + Authority());
    else
      http.bearerToken = WideSecret(std::string(m_sources.Secrets().token));
    const auto isOfToken = [](wchar_t c) { return L'!' <= c && c <= L'~'; };
    if (http.bearerToken.empty() || !std::ranges::all_of(http.bearerToken.view(), isOfToken))
      throw UsageError(BeginOfToken() + "the token (" + NameOfToken() +
                       ") is empty or contains a blank or another character that no token has; "
                       "give the token alone, without \"Bearer\"");
    // For a proxy's user.
    http.authSchemes = kAuthPasswordSchemes;
  }

  void UseUser() {
    ChooseUser();
    const bool hasUser = !m_connection.user.empty();
    unsigned int& schemes = m_connection.http.authSchemes;
    // Negotiate uses the caller's Kerberos ticket, so by default it is allowed only without a user
    // name. Without one, the password schemes are for a proxy's user.
    schemes = hasUser ? kAuthPasswordSchemes : kAuthNegotiate | kAuthPasswordSchemes;
    if (m_auth) schemes = AuthSchemes(m_auth.name, m_auth.value);
    const bool usesPassword = (schemes & kAuthPasswordSchemes) != 0;
    if (m_passwordFile.source == Source::kOption) RequireUse(hasUser, usesPassword);
    // Neither option nor environment gives a user.
    if (!hasUser && usesPassword) {
      RejectWithoutUser(m_passwordFile);
      RejectWithoutUser(m_passwordCommand);
    }
    if (!hasUser && m_auth && !(schemes & kAuthNegotiate) && !m_connection.http.proxy)
      throw UsageError(m_auth.Subject() + ' ' + Listed({m_auth.value}) + " needs a user name; " +
                       Advice(m_auth.begin, "use --user NAME", "user") + ", or allow negotiate" +
                       kSeeLogIn);
    if (hasUser && usesPassword)
      FindPassword();
    else
      Erase(m_connection.password);
  }

  template <class Type>
  void RejectWithoutUser(const Setting<Type>& password) const {
    if (password)
      throw UsageError(password.Subject() + " needs a user name; " +
                       Advice(password.begin, "use --user NAME", "user") + kSeeLogIn);
  }

  void RequireUse(bool hasUser, bool usesPassword) const {
    if (!hasUser) RejectWithoutUser(m_passwordFile);
    if (!usesPassword)
      throw UsageError(m_passwordFile.name + " has no effect with " + m_auth.name + " negotiate" +
                       m_auth.owner + ", which uses your Kerberos ticket; leave one of them out");
  }

  void ChooseUser() {
    // A user of the URL overrides a variable and the key of another source.
    const bool isOverridden =
        m_user &&
        (!m_urlHasCredentials || m_user.source == Source::kOption || m_user.source < m_urlSource ||
         (m_user.source == m_urlSource && m_urlSource == Source::kServerFile));
    m_userOrigin = isOverridden ? m_user.Origin() : OriginOfURL();
    m_userSource = isOverridden ? m_user.source : m_urlSource;
    if (!isOverridden) return;
    const String user = Wide(m_user.value);
    // A password in the URL belongs to the user in the URL.
    if (m_urlHasUser && !(m_connection.user == user)) Erase(m_connection.password);
    m_connection.user = user;
  }

  /// A password of the server file belongs to the user there, if it has one.
  bool IsUserOfServer() const {
    if (!m_sources.HasServer()) return false;
    const Setting<std::string> own = m_sources.FindIn(Source::kServerFile, &Arguments::user);
    return !own || m_connection.user == Wide(own.value);
  }

  void FindPassword() {
    const std::string user = Utf8(m_connection.user);
    String& password = m_connection.password;
    const bool isInUrl = !password.empty();
    m_passwordOrigin = isInUrl ? OriginOfURL() : "the prompt";
    if (m_passwordFile.source == Source::kOption) return ReadPasswordFile(user);
    if (isInUrl && m_urlSource != Source::kServerFile) return;
    if (!m_sources.Secrets().password.empty()) {
      m_passwordOrigin = "XMLA_IMPORT_PASSWORD";
      Erase(password);
      password = TextOfSecret(std::string(m_sources.Secrets().password),
                              "the password (" + m_passwordOrigin + ")");
      return;
    }
    if (IsUserOfServer()) {
      if (m_passwordFile && m_passwordCommand)
        FailTogether(m_passwordFile.Subject(), m_passwordCommand.name);
      if (m_passwordFile) return ReadPasswordFile(user);
      if (m_passwordCommand) {
        m_passwordOrigin = m_passwordCommand.Origin();
        const std::string what = m_passwordCommand.Subject();
        Erase(password);
        password = TextOfSecret(PasswordFromCommand(m_passwordCommand.value, what),
                                m_passwordCommand.begin + "the password (password-command)");
        return;
      }
    }
    if (isInUrl) return;
    if (auto typed = SecretFromTerminal("password", Prompt(user)))
      password = TextOfSecret(std::move(*typed), "the password");
    else  // an empty password on every run would lock the account
      throw UsageError(
          BeginOfUser() + "user " + ShownUser(user) +
          (m_userSource == Source::kEnvironment ? " (from " + m_userOrigin + ")" : "") +
          " needs a password, and there is no terminal to ask for it" + WhyNotOfServer() + "; " +
          Advice(BeginOfUser(), "use --password-file FILE (or XMLA_IMPORT_PASSWORD)",
                 IsUserOfServer() ? "password-command or password-file" : nullptr) +
          kSeeLogIn);
  }

  /// Why a password of the server file is not used.
  std::string WhyNotOfServer() const {
    if (IsUserOfServer() || (!m_passwordFile && !m_passwordCommand)) return {};
    const std::string own = m_passwordFile ? m_passwordFile.Origin() : m_passwordCommand.Origin();
    return "; " + own + " is only for user " +
           Listed({m_sources.FindIn(Source::kServerFile, &Arguments::user).value});
  }

  /// Hides what may be a password behind a colon.
  static std::string ShownUser(const std::string& user) {
    const std::size_t colon = user.find(':');
    return Listed({user.substr(0, colon)}) +
           (colon == user.npos ? "" : " (give the name alone, without a colon and a password)");
  }

  void ReadPasswordFile(const std::string& user) {
    m_passwordOrigin = OriginOfFile(m_passwordFile);
    Erase(m_connection.password);
    m_connection.password = ReadSecret("password", m_passwordFile, Prompt(user));
  }

  std::string Prompt(const std::string& user) const {
    return "Password of " + user + " for " + Authority();
  }

  /// Host and port of the service.
  std::string Authority() const {
    const std::string url = Utf8(m_connection.url);
    const std::size_t begin = url.find("://") + 3;
    return url.substr(begin, url.find_first_of("/?#\\ ", begin) - begin);
  }

  /// A key belongs to its certificate, and a password to its key. What a later source says about
  /// them is not used.
  void ChooseCertificate() {
    m_cert = m_sources.Find(&Arguments::cert);
    m_key = m_sources.Find(&Arguments::key);
    if (m_key.source > m_cert.source) m_key = {};
    if (m_keyPasswordFile.source > std::min(m_cert.source, m_key.source)) m_keyPasswordFile = {};
    for (const Setting<std::string>* const each : {&m_key, &m_keyPasswordFile})
      if (*each && !m_cert)
        throw UsageError(each->Subject() + " needs a certificate; " +
                         Advice(each->begin, "use --cert FILE", "cert"));
    RequireReadable(m_cert);
    RequireReadable(m_key);
    if (m_cert) m_connection.certificateNames[HTTPSetting::kCertificate] = m_cert.Subject();
    if (m_key) m_connection.certificateNames[HTTPSetting::kKey] = m_key.Subject();
    if (m_keyPasswordFile)
      m_connection.certificateNames[HTTPSetting::kKeyPassword] = m_keyPasswordFile.Subject();
    m_connection.http.certificateFile = Wide(m_cert.value);
    m_connection.http.keyFile = Wide(m_key.value);
  }

  void ReadKeyPassword() {
    if (m_keyPasswordFile)
      m_connection.http.keyPassword =
          ReadSecret("password of the key", m_keyPasswordFile, "Password of the key");
  }

  const Sources& m_sources;
  const Source m_urlSource;
  Connection& m_connection;
  const bool m_urlHasUser;
  const bool m_urlHasCredentials;
  const Setting<std::string> m_user;
  const Setting<std::string> m_passwordFile;
  const Setting<std::string> m_tokenFile;
  Setting<std::string> m_keyPasswordFile;
  const Setting<std::string> m_auth;
  const Setting<std::vector<std::string>> m_passwordCommand;
  Setting<std::string> m_cert;
  Setting<std::string> m_key;
  std::string m_userOrigin;
  Source m_userSource = Source::kNone;
  std::string m_passwordOrigin;  // empty: no password is used
};

}  // namespace

void RequireReadable(const Setting<std::string>& file) {
  if (!file) return;
  struct stat status {};
  int error = access(file.value.c_str(), R_OK) == 0 ? 0 : errno;
  if (error == 0 && stat(file.value.c_str(), &status) == 0 && S_ISDIR(status.st_mode))
    error = EISDIR;
  if (error != 0)
    throw UsageError(file.Subject() + ' ' + Listed({file.value}) +
                     " cannot be read: " + std::strerror(error));
}

void RequireUsableCertificate(const Connection& connection) {
  HTTPSetting setting = HTTPSetting::kNone;
  std::string problem = Utf8(HTTPClientWrapper::CertificateProblem(connection.http, setting));
  if (problem.empty()) return;
  if (problem.starts_with("The ")) problem[0] = 't';
  const auto& names = connection.certificateNames;
  const bool isGiven = names.contains(setting);
  throw UsageError(names.at(isGiven ? setting : HTTPSetting::kCertificate) +
                   " cannot be used: " + problem +
                   (isGiven ? "" : "; " + SettingAdvice(setting, connection.origins)) + kSeeLogIn);
}

void LogIn(const Sources& sources, Source urlSource, Connection& connection) {
  LogInChoice(sources, urlSource, connection).Make();
}
