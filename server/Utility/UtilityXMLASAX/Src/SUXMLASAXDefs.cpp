#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/HostConstants.h"
#include "Utility/XMLASAX/XmlASaxDefs.h"

const wchar_t* XmlASaxDefsNameSpace::CatalogName = S_CATALOG_NAME;

const wchar_t* const XmlASaxDefsNameSpace::HierarchyStructures[4] = {
    L"MD_STRUCTURE_FULLYBALANCED",
    L"MD_STRUCTURE_RAGGEDBALANCED",
    L"MD_STRUCTURE_UNBALANCED",
    L"MD_STRUCTURE_NETWORK",
};

const wchar_t* OT_XMLA_IMPORT_FROM_TAMARIND = L"OT_XMLA_IMPORT_TAMARIND";
const wchar_t* OT_XMLA_IMPORT_LOGGING_NAME = L"OT_XMLA_IMPORT_LOGGING";
const wchar_t* DELIMIT_LINE = L"\n##############################################\n";

bool IsSchemaElement(const String& localName) {
  static constexpr String::View kNames[] = {
      L"element", L"complexType", L"sequence",         L"choice", L"schema",
      L"root",    L"return",      L"DiscoverResponse", L"Body",   L"Envelope",
  };
  for (const String::View name : kNames)
    if (BaseStringUtil::IsCaseInsensitiveMatch(localName, name)) return true;
  return false;
}
