#pragma once

#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// Names that the library's parts share.
namespace XmlASaxDefsNameSpace {

/// Element name of a catalog restriction: the host's CATALOG_NAME.
extern const wchar_t* CatalogName;
/// Names of the STRUCTURE codes 0 to 3 of MDSCHEMA_HIERARCHIES.
extern const wchar_t* const HierarchyStructures[4];

}  // namespace XmlASaxDefsNameSpace

/// True for the SOAP and Discover wrapper elements and those of the inline XML schema that stands
/// before the rows of a rowset; `localName` is compared ignoring case.
bool IsSchemaElement(const String& localName);

// Visible to the host.
/// Name of the environment variable that makes every agent treat its server as Tamarind.
extern XMLAHOST_API const wchar_t* OT_XMLA_IMPORT_FROM_TAMARIND;
/// Name of the environment variable that switches the import log on.
extern XMLAHOST_API const wchar_t* OT_XMLA_IMPORT_LOGGING_NAME;
/// The line between two entries of the import log.
extern XMLAHOST_API const wchar_t* DELIMIT_LINE;
