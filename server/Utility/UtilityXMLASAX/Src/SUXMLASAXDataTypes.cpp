#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/XMLASAX/XMLADataTypes.h"

namespace {

struct TypeCode {
  int code;  // OLE DB type indicator
  VXDataType type;
};

// Intentionally lossy: the host handles signed integers and currency as doubles, and timestamps as
// dates.
constexpr TypeCode kTypeCodes[] = {
    {2, VXDoubleData},            // DBTYPE_I2
    {3, VXDoubleData},            // DBTYPE_I4
    {4, VXDoubleData},            // DBTYPE_R4
    {5, VXDoubleData},            // DBTYPE_R8
    {6, VXDoubleData},            // DBTYPE_CY
    {7, VXDateData},              // DBTYPE_DATE
    {8, VXLongVarCharData},       // DBTYPE_BSTR
    {11, VXBitData},              // DBTYPE_BOOL
    {12, VXLongVarCharData},      // DBTYPE_VARIANT
    {14, VXDecimalData},          // DBTYPE_DECIMAL
    {17, VXInt1Data},             // DBTYPE_UI1
    {18, VXNumericData},          // DBTYPE_UI2
    {19, VXNumericData},          // DBTYPE_UI4
    {20, VXDoubleData},           // DBTYPE_I8
    {21, VXNumericData},          // DBTYPE_UI8
    {129, VXLongVarCharData},     // DBTYPE_STR
    {130, VXCharData},            // DBTYPE_WSTR
    {131, VXNumericData},         // DBTYPE_NUMERIC
    {133, VXDateData},            // DBTYPE_DBDATE
    {135, VXDateData},            // DBTYPE_DBTIMESTAMP
    {16384, VXLongVarBinaryData}  // DBTYPE_BYREF
};

}  // namespace

VXDataType XmlA2VXDataType(const String& code) {
  const int number = BaseStringUtil::Int16From(code);
  for (const TypeCode& entry : kTypeCodes)
    if (entry.code == number) return entry.type;
  return VXUnknown;
}

VXDataType SAPBW2VXDataType(const String& typeName) {
  return BaseStringUtil::CaseInsensitiveCompare(typeName, L"FLTP") == 0 ? VXFloatData : VXUnknown;
}

VXDataType Tamarind2VXDataType(const String& code) {
  return BaseStringUtil::IsCaseInsensitiveMatch(code, L"3") ? VXVarCharData : VXDoubleData;
}
