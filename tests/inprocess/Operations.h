#pragma once

#include <string>
#include <vector>

#include "Import/OTXMLAImportAPI.h"
#include "SampleProvider.h"
#include "Utility/XMLASAX/XmlADiscoverAgent.h"

/// What the library can be asked for, one entry a question, each with a text of all that came back.
namespace inprocess {

/// One exchange of a discover agent.
struct Exchange {
  const char* requestType;    ///< the request whose reply it reads
  const wchar_t* recordName;  ///< the element that makes one record; null when it is not so simple
  /// The records, one a line, the last incomplete ones included when it throws.
  void (*run)(XmlADiscoverAgent& agent, std::string& records);
};
const std::vector<Exchange>& Exchanges();
/// The exchange that reads replies of that request; the hierarchies' when there is none.
const Exchange& ExchangeFor(std::string_view requestType);

/// One import operation of the host's interface.
struct ImportOperation {
  const char* name;
  void (*run)(OTXMLAImportAPI& import, std::string& result, String& errors, String& warnings);
};
const std::vector<ImportOperation>& ImportOperations();

/// An agent and an import of the kind, connected to the server inside the process.
XmlADiscoverAgentHeap MakeAgent(ServerInfo::TargetType target);
Heap<OTXMLAImportAPI> MakeImport(ServerInfo::TargetType target);

}  // namespace inprocess
