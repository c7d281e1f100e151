#pragma once

#include "Import/VXDataType.h"
#include "Utility/Generic/String.h"

// Conversions of a DATA_TYPE column to the host's data type. They accept any text.

/// Analysis Services: an OLE DB type indicator in decimal digits. VXUnknown for other texts.
VXDataType XmlA2VXDataType(const String& code);
/// SAP BW: the name of an ABAP type. VXUnknown except for FLTP.
VXDataType SAPBW2VXDataType(const String& typeName);
/// Tamarind: the type code of a level property.
VXDataType Tamarind2VXDataType(const String& code);
