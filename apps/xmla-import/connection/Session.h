#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "base/Messages.h"
#include "connection/Connection.h"
#include "connection/ImportLibrary.h"

/// One call's dealings with the library: a provider, the kind in force, and import objects that are
/// connected to it.
class Session {
 public:
  /// `logDirectory` is empty when no import log is asked for. All references outlive the session.
  Session(const ImportLibrary& library, const Connection& connection, std::string logDirectory);

  /// Puts a kind in force: the configured one, else the one that the provider's identity makes it.
  /// False when the provider could not be asked; the reason is then among the errors.
  bool Identify(Messages& messages);
  /// Asks the provider for its identity even when the kind is configured, for show alone.
  void LearnIdentity();

  const OTXMLAProviderIdentity& Identity() const { return m_identity; }
  /// The kind in force; nothing before Identify.
  std::optional<ServerInfo::TargetType> Target() const { return m_target; }
  bool IsSapBw() const;

  /// An import object that is connected as the kind in force. Nothing when that fails; the reason
  /// is then among the errors. `logFolder` is a folder of its own below the log directory for an
  /// object that works beside others, since logs begun in one second share a name.
  std::unique_ptr<OTXMLAImportAPI> Import(Messages& messages, const std::string& logFolder = {});

 private:
  const ImportLibrary& m_library;
  const Connection& m_connection;
  std::string m_logDirectory;
  OTXMLAProviderIdentity m_identity;
  bool m_identified = false;
  std::optional<ServerInfo::TargetType> m_target;
  std::mutex m_connecting;  // no two logs get one name
};
