#pragma once

#include <vector>

#include "Import/OTXMLAHierarchy.h"
#include "SUXMLASAXProviderRules.h"
#include "Utility/Generic/RefCnt.h"
#include "Utility/XMLASAX/XmlALevel.h"

/// The levels of one hierarchy with their member properties, in ascending order of level number.
/// Two levels with one number are a logic error (VXAssert).
OTXMLALevels ImportLevels(std::vector<RefCnt<XmlALevel>> rows, const ProviderRules& rules);
