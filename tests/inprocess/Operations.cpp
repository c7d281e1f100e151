#include "inprocess/Operations.h"

#include "Utility/XMLASAX/OTXMLAAnaTamImportAPI.h"
#include "inprocess/Server.h"

namespace inprocess {
namespace {

const support::Place& ThePlace() {
  static const support::Place place{
      L"S",
      L"C",
      L"Q",
      L"[A]",
      L"[A].[All]",
      RefCnt<XmlAHierarchy>(new XmlAHierarchy(ServerInfo::kTessera, ServerInfo::kCLIXMLA))};
  return place;
}

const support::AgentOperation& Named(std::string_view name) {
  for (const support::AgentOperation& operation : support::AgentOperations())
    if (name == operation.name) return operation;
  throw std::logic_error("unknown operation");
}

}  // namespace

void Exchange::Run(XmlADiscoverAgent& agent, support::Outputs& outputs) const {
  operation.run(agent, ThePlace(), outputs);
}

const std::vector<Exchange>& Exchanges() {
  // Inputs in fuzz/seeds select an exchange by its position.
  static const std::vector<Exchange> exchanges = {
      {"MDSCHEMA_HIERARCHIES", L"row", Named("agent: hierarchies")},
      {"DISCOVER_PROPERTIES", nullptr, Named("agent: identity")},
      {"DISCOVER_DATASOURCES", nullptr, Named("agent: sources")},
      {"DBSCHEMA_CATALOGS", L"CATALOG_NAME", Named("agent: catalogs")},
      {"MDSCHEMA_CUBES", L"CUBE_NAME", Named("agent: cubes")},
      {"MDSCHEMA_DIMENSIONS", L"row", Named("agent: dimensions")},
      {"MDSCHEMA_LEVELS", nullptr, Named("agent: levels")},
      {"MDSCHEMA_PROPERTIES", nullptr, Named("agent: levels")},
      {"MDSCHEMA_MEMBERS", nullptr, Named("agent: member")},
      {"MDSCHEMA_MEASURES", L"row", Named("agent: measures")},
      {"SAP_VARIABLES", L"row", Named("agent: variables")},
  };
  return exchanges;
}

const Exchange& ExchangeFor(std::string_view requestType) {
  for (const Exchange& exchange : Exchanges())
    if (requestType == exchange.requestType) return exchange;
  return Exchanges().front();
}

XmlADiscoverAgentHeap MakeAgent(ServerInfo::TargetType target) {
  return XmlADiscoverAgent::Create(kUrl, L"", L"", target, ServerInfo::kCLIXMLA, false);
}

Heap<OTXMLAImportAPI> MakeImport(ServerInfo::TargetType target) {
  auto import = std::make_unique<OTXMLAAnaTamImportAPI>();
  import->SetupConnInfo(kUrl, L"", L"", target, ServerInfo::kCLIXMLA);
  import->SetImportChoiceInfo(ThePlace().source, ThePlace().catalog, ThePlace().cube);
  return import;
}

}  // namespace inprocess
