#include "call/TargetNames.h"

namespace {

struct NamedTarget {
  std::string_view name;
  ServerInfo::TargetType target;
};

constexpr std::string_view kTessera = "tessera";

constexpr NamedTarget kTargets[] = {
    {"analysis-services-2000", ServerInfo::kAnalysisServices2000},
    {"analysis-services-2005", ServerInfo::kAnalysisServices2005},
    {"analysis-services-2008", ServerInfo::kAnalysisServices2008},
    {"analysis-services-2012", ServerInfo::kAnalysisServices2012},
    {"sap-bw", ServerInfo::kSAP_BW},
    {"sap-bw35", ServerInfo::kSAP_BW35},
    {"tamarind-7", ServerInfo::kTamarind7},
    {"tamarind-9", ServerInfo::kTamarind9},
    {"tamarind-11", ServerInfo::kTamarind11},
    {"tamarind-11.1.2.3.500", ServerInfo::kTamarind11_1_2_3_500},
    {kTessera, ServerInfo::kTessera},
};

}  // namespace

std::optional<ServerInfo::TargetType> TargetFromName(std::string_view name) {
  for (const NamedTarget& entry : kTargets)
    if (entry.name == name) return entry.target;
  return std::nullopt;
}

std::string TargetName(ServerInfo::TargetType target) {
  for (const NamedTarget& entry : kTargets)
    if (entry.target == target) return std::string(entry.name);
  return std::to_string(static_cast<int>(target));
}

std::string ExplainedTarget(std::string_view name) {
  return std::string(name) + (name == kTessera ? " (any other XMLA server)" : "");
}

std::vector<std::string> TargetNameList() {
  std::vector<std::string> names;
  for (const NamedTarget& entry : kTargets) names.emplace_back(entry.name);
  names.emplace_back(kAutoTarget);
  return names;
}

std::string TargetNames() {
  std::string names;
  for (const NamedTarget& entry : kTargets) names += ExplainedTarget(entry.name) + ", ";
  return names + std::string(kAutoTarget);
}
