#pragma once

#include <vector>

#include "Import/OTXMLAHierarchy.h"
#include "SUXMLASAXProviderRules.h"
#include "Utility/Generic/RefCnt.h"
#include "Utility/XMLASAX/XmlALevel.h"

/// Converts the levels of one hierarchy and their properties to records, in ascending order of the
/// level number. Two levels with the same number are a logic error (VXAssert).
OTXMLALevels ImportLevels(std::vector<RefCnt<XmlALevel>> rows, const ProviderRules& rules);
