#pragma once

#include <string>

#include "Import/OTXMLAUnit.h"

/// The data type without length: "VarChar", or "code 7" for an unknown one.
std::string TypeName(VXDataType type);
/// True if the server sent -1.
bool IsPrecisionUnknown(const OTXMLAUnit& unit);
/// The data type of a measure or property with length, or precision and scale, as far as the server
/// knows them: "VarChar", "VarChar(20)", "Double(15, 2)", "Double(10, ?)".
std::string TextColumn(const OTXMLAUnit& unit);
