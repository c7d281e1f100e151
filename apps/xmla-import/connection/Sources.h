#pragma once

#include <string>
#include <vector>

#include "call/Arguments.h"
#include "connection/EnvironmentSecrets.h"
#include "connection/ServerFile.h"

/// Where a value comes from. An earlier source overrides a later one.
enum class Source { kOption, kEnvironment, kServerFile, kNone };

/// A value, its source, and what messages say about it.
template <class Type>
struct Setting {
  Type value{};
  Source source = Source::kNone;
  std::string name;   ///< of the option, variable or key
  std::string begin;  ///< of messages: file, line and server; empty for other sources
  std::string owner;  ///< the server, for the middle of a message
  std::string place;  ///< file and line in parentheses, for the middle of a message

  /// Begins a message.
  std::string Subject() const { return begin + name; }
  /// In the middle of a message.
  std::string Mention() const { return name + owner; }
  /// In the middle of a message that does not name the server file elsewhere.
  std::string Origin() const { return name + owner + place; }
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
    if (source == Source::kServerFile) Locate(found);
    return found;
  }

  /// Behind the name of a variable: which key of the server file it overrides. Empty if none.
  template <class Type>
  std::string Overridden(Type Arguments::*member) const {
    if (IsAbsent(m_values[static_cast<std::size_t>(Source::kServerFile)].*member)) return {};
    // Without its value, which may contain a password.
    Setting<Type> key{{}, Source::kServerFile, NameOf(Source::kServerFile, member), {}, {}, {}};
    Locate(key);
    return ", which overrides " + key.Origin() + " while it is set";
  }

  const EnvironmentSecrets& Secrets() const { return m_secrets; }
  /// False if the service is not in the server file.
  bool HasServer() const { return !m_server.name.empty(); }
  /// For the middle of a message: the chosen server, its file and line. Empty if there is none.
  std::string ServerMention() const;
  Setting<std::vector<std::string>> PasswordCommand() const;
  /// The environment variable that names a proxy for URLs with this scheme; empty if there is none.
  static std::string ProxyVariable(bool isHTTPS);

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
  /// Says where a key of the server file is.
  template <class Type>
  void Locate(Setting<Type>& found) const {
    const auto key = m_server.keys.find(found.name);
    if (key == m_server.keys.end()) return;
    found.begin = key->second + ": " + ServerWords() + ": ";
    found.owner = " of " + ServerWords();
    found.place = " (" + key->second + ")";
  }
  std::string ServerWords() const;
  void ReadEnvironment();
  void ChooseService();

  Arguments m_values[3];  // by Source
  EnvironmentSecrets m_secrets;
  Server m_server;  // of the server file; its values are in m_values
};

/// Erases what may hold a password.
void EraseSecrets(Arguments& arguments);
