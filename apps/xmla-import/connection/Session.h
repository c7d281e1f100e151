#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "base/Messages.h"
#include "connection/Connection.h"
#include "connection/ImportLibrary.h"

/// The connection of one call: provider, target kind, and import objects.
class Session {
 public:
  /// Without an import log, `logDirectory` is empty. The references must outlive the session.
  Session(const ImportLibrary& library, const Connection& connection, std::string logDirectory);

  /// Sets the target kind: the configured one, else the one that fits the provider's identity, for
  /// which it asks if it is not known. On failure, returns false and adds an error.
  bool Identify(Messages& messages);
  /// Requests the provider's identity. On failure, returns false and adds an error.
  bool AskIdentity(Messages& messages);
  /// Requests the provider's identity for the output, if this was not done before. Not thread-safe
  /// on its first call.
  void ReadIdentity();
  /// Completes messages that are the consequence of a wrong --target: names the kind of the server,
  /// and the option that selects it. Calls ReadIdentity if there are any.
  void ExplainTarget(Messages& messages);

  const Connection& Service() const { return m_connection; }
  const OTXMLAProviderIdentity& Identity() const { return m_identity; }
  /// The kind in use; nullopt before Identify, unless configured.
  std::optional<ServerInfo::TargetType> Target() const { return m_target; }
  bool IsSapBw() const;

  /// Creates a connected import object. Returns null on failure and adds an error. Null without an
  /// error means that the call was interrupted. Objects that run in parallel need different values
  /// of `logFolder`, a folder below the log directory.
  std::unique_ptr<OTXMLAImportAPI> Import(Messages& messages, const std::string& logFolder = {});
  /// True after a call of Import. Only requests of import objects are logged.
  bool HasImport() const { return m_hasImport; }

 private:
  const ImportLibrary& m_library;
  const Connection& m_connection;
  std::string m_logDirectory;
  const bool m_hasLogOption;
  OTXMLAProviderIdentity m_identity;
  bool m_identified = false;
  bool m_hasAsked = false;  ///< for the identity
  std::optional<ServerInfo::TargetType> m_target;
  bool m_hasImport = false;
  std::mutex m_connecting;  // serializes the choice of log names
};
