#pragma once

#include <string_view>
#include <vector>

#include "SampleProvider.h"
#include "support/Operations.h"

namespace inprocess {

/// The operation of a discover agent that reads the replies of a request type.
struct Exchange {
  const char* requestType;
  const wchar_t*
      recordName;  ///< the element that makes one record; null if there is no such element
  const support::AgentOperation& operation;

  void Run(XmlADiscoverAgent& agent, support::Outputs& outputs) const;
};
const std::vector<Exchange>& Exchanges();
/// The exchange for this request type; that of the hierarchies if there is none.
const Exchange& ExchangeFor(std::string_view requestType);

/// An agent and an import object of this kind, connected to the in-process server.
XmlADiscoverAgentHeap MakeAgent(ServerInfo::TargetType target);
Heap<OTXMLAImportAPI> MakeImport(ServerInfo::TargetType target);

}  // namespace inprocess
