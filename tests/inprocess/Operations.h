#pragma once

#include <string>
#include <vector>

#include "Import/OTXMLAImportAPI.h"
#include "SampleProvider.h"
#include "Utility/XMLASAX/XmlADiscoverAgent.h"

/// The operations of the library as tables. Each operation writes everything it returned as text.
namespace inprocess {

/// One operation of a discover agent.
struct Exchange {
  const char* requestType;  ///< the request whose reply it reads
  const wchar_t*
      recordName;  ///< the element that makes one record; null if there is no such element
  /// Appends the records, one per line. Also appends the complete records before an exception.
  void (*run)(XmlADiscoverAgent& agent, std::string& records);
};
const std::vector<Exchange>& Exchanges();
/// The operation that reads replies of this request type; that of the hierarchies if there is none.
const Exchange& ExchangeFor(std::string_view requestType);

/// One operation of the host's import interface.
struct ImportOperation {
  const char* name;
  void (*run)(OTXMLAImportAPI& import, std::string& result, String& errors, String& warnings);
};
const std::vector<ImportOperation>& ImportOperations();

/// An agent and an import object of this kind, connected to the in-process server.
XmlADiscoverAgentHeap MakeAgent(ServerInfo::TargetType target);
Heap<OTXMLAImportAPI> MakeImport(ServerInfo::TargetType target);

}  // namespace inprocess
