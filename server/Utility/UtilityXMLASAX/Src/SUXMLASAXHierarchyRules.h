#pragma once

#include "SUXMLASAXProviderRules.h"
#include "Utility/XMLASAX/XmlAHierarchy.h"

// Which requests the import sends for a hierarchy.

/// The number of the warning for a skipped hierarchy, or 0 if it is imported.
int SkipReason(const XmlAHierarchy& row, const ProviderRules& rules);

/// True if the type of the default member is looked up in the members.
bool NeedsMemberLookup(const XmlAHierarchy& row, const ProviderRules& rules);
