#pragma once

#include "Utility/Generic/HTTPReadAhead.h"
#include "Utility/Generic/ServerInfo.h"
#include "Utility/Generic/String.h"

/// Predicts the requests of the import of hierarchies:
///
///   reply to                then requested
///   MDSCHEMA_HIERARCHIES    with an import log: MDSCHEMA_DIMENSIONS; for each row that the
///                           provider's rules do not skip: MDSCHEMA_MEMBERS of the default member,
///                           if it is looked up, and MDSCHEMA_LEVELS
///   MDSCHEMA_LEVELS         for each row: MDSCHEMA_PROPERTIES
///
/// Each body equals the one that the import sends later, byte for byte. Nothing follows from a
/// reply that the library rejects. The import may still send fewer requests, if one of them fails.
///
/// A pure function of its members, the exchange, and ImportSettings::limits of the calling thread.
/// Any thread may call it.
class RequestPrediction final : public HTTPPrediction {
 public:
  RequestPrediction(ServerInfo::TargetType target, ServerInfo::CLIType cli, bool hasLog) noexcept
      : m_target(target), m_cli(cli), m_hasLog(hasLog) {}

  bool IsFollowed(const NarrowString& request) const override;
  /// False for a fault, and for a reply that is not well-formed.
  bool IsAccepted(NarrowString reply) const override;
  Requests RequestsAfter(const NarrowString& request, NarrowString reply) const override;

 private:
  const ServerInfo::TargetType m_target;
  const ServerInfo::CLIType m_cli;
  const bool m_hasLog;
};
