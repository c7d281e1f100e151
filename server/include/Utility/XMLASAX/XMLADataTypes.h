#pragma once

#include "Import/VXDataType.h"
#include "Utility/Generic/String.h"

// From the text of a DATA_TYPE column to the host's data type. Pure functions that accept any text.

/// From an OLE DB type indicator in decimal digits (Analysis Services).
VXDataType XmlA2VXDataType(const String& code);
/// From the name of an ABAP type (SAP BW).
VXDataType SAPBW2VXDataType(const String& typeName);
/// From the type code of a level property (Tamarind).
VXDataType Tamarind2VXDataType(const String& code);
