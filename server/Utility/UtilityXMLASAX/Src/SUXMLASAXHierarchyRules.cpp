#include "SUXMLASAXHierarchyRules.h"

#include "Import/OTXMLAHierarchy.h"
#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/MessageNumbers.h"

int SkipReason(const XmlAHierarchy& row, const ProviderRules& rules) {
  if (!row.NotMeasure() && rules.skipsMeasuresHierarchy) return kMessageMeasuresHierarchy;
  if (rules.skipsUnknownStructure &&
      row.GetHierarchyType() == OTXMLAHierarchy::kHierarchyTypeUnknown)
    return kMessageUnknownStructure;
  return row.Virtual() ? kMessageVirtualHierarchy : 0;
}

bool NeedsMemberLookup(const XmlAHierarchy& row, const ProviderRules& rules) {
  return !rules.allMemberNeedsNoLookup ||
         !BaseStringUtil::IsCaseInsensitiveMatch(row.GetDefaultMember(), row.GetAllMember());
}
