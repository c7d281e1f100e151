#pragma once

#include <string>
#include <vector>

#include "call/Arguments.h"
#include "connection/EnvironmentSecrets.h"
#include "connection/ServerFile.h"

/// Where a value comes from. An earlier source overrides a later one.
enum class Source { kOption, kEnvironment, kServerFile, kNone };

/// A value, its source, and what messages say about it. `place` begins a message about a value of
/// the server file.
template <class Type>
struct Setting {
  Type value{};
  Source source = Source::kNone;
  std::string name;     ///< of the option, variable or key
  std::string place;    ///< see ServerKey; empty for other sources
  std::string written;  ///< see ServerKey
  std::string owner;    ///< the server, for the middle of a message

  /// Begins a message.
  std::string Subject() const { return place + name; }
  /// In the middle of a message.
  std::string Mention() const { return name + owner; }
  explicit operator bool() const { return source != Source::kNone; }
};

/// The settings of a connection from the command line, the environment and the server file.
class Sources {
 public:
  /// Chooses the service and reads the server file, if it is needed. Throws UsageError.
  Sources(const Arguments& arguments, EnvironmentSecrets secrets);
  ~Sources();  ///< erases URLs
  Sources(const Sources&) = delete;
  Sources& operator=(const Sources&) = delete;

  /// The value of an option from the first source that has it.
  template <class Type>
  Setting<Type> Find(Type Arguments::*member) const {
    for (const Source source : {Source::kOption, Source::kEnvironment, Source::kServerFile})
      if (Setting<Type> found = FindIn(source, member)) return found;
    return {};
  }
  template <class Type>
  Setting<Type> FindIn(Source source, Type Arguments::*member) const {
    const Type& value = m_values[static_cast<std::size_t>(source)].*member;
    if (IsAbsent(value)) return {};
    Setting<Type> found{value, source, NameOf(source, member), {}, {}, {}};
    const auto key = m_serverKeys.find(found.name);
    if (source != Source::kServerFile || key == m_serverKeys.end()) return found;
    found.place = key->second.place;
    found.written = key->second.written;
    found.owner = Owner();
    return found;
  }

  const EnvironmentSecrets& Secrets() const { return m_secrets; }
  /// The chosen server of the server file; empty if there is none.
  const std::string& ServerName() const { return m_serverName; }
  const std::vector<std::string>& PasswordCommand() const { return m_passwordCommand; }
  /// True if the environment names a proxy for URLs with this scheme.
  static bool HasProxyInEnvironment(bool isHTTPS);

 private:
  static bool IsAbsent(const std::string& text) { return text.empty(); }
  template <class Type>
  static bool IsAbsent(const std::optional<Type>& value) {
    return !value;
  }
  template <class Type>
  std::string NameOf(Source source, Type Arguments::*member) const {
    for (const CommandOption& option : Options())
      if (const auto* const own = std::get_if<Type Arguments::*>(&option.value); own)
        if (*own == member) return NameOf(source, option);
    return {};
  }
  static std::span<const CommandOption> Options();
  std::string NameOf(Source source, const CommandOption& option) const;
  std::string Owner() const;
  void ReadEnvironment();
  void ChooseService();

  Arguments m_values[3];  // by Source
  EnvironmentSecrets m_secrets;
  std::string m_serverName;
  std::vector<std::string> m_passwordCommand;
  std::map<std::string, ServerKey> m_serverKeys;
};

/// Erases what may hold a password.
void EraseSecrets(Arguments& arguments);
