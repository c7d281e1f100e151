#include "Utility/Generic/ServerInfo.h"

namespace {

struct TargetName {
  ServerInfo::TargetType target;
  const wchar_t* name;
};

constexpr TargetName kTargetNames[] = {
    {ServerInfo::kAnalysisServices2000, L"Analysis Services 2000"},
    {ServerInfo::kAnalysisServices2005, L"Analysis Services 2005"},
    {ServerInfo::kAnalysisServices2008, L"Analysis Services 2008"},
    {ServerInfo::kAnalysisServices2012, L"Analysis Services 2012"},
    {ServerInfo::kSAP_BW, L"SAP BW"},
    {ServerInfo::kSAP_BW35, L"SAP BW 3.5"},
    {ServerInfo::kTamarind7, L"Tamarind 7"},
    {ServerInfo::kTamarind9, L"Tamarind 9"},
    {ServerInfo::kTamarind11, L"Tamarind 11"},
    {ServerInfo::kTamarind11_1_2_3_500, L"Tamarind 11.1.2.3.500"},
    {ServerInfo::kTessera, L"Tessera"},
};

}  // namespace

String ServerInfo::GetTargetNameFromEnum(TargetType target) {
  for (const TargetName& entry : kTargetNames)
    if (entry.target == target) return entry.name;
  return L"Unknown";
}
