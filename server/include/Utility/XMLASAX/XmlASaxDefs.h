#pragma once

#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// Names that several parts of the library use.
namespace XmlASaxDefsNameSpace {

/// Element name of a catalog restriction: CATALOG_NAME.
extern const wchar_t* CatalogName;
/// Names of the STRUCTURE codes 0 to 3 of MDSCHEMA_HIERARCHIES.
extern const wchar_t* const HierarchyStructures[4];

}  // namespace XmlASaxDefsNameSpace

/// True for elements of the SOAP envelope, of the Discover response, and of the inline XML schema
/// before the rows. Compares `localName` ignoring case.
bool IsSchemaElement(const String& localName);

// Exported to the host.
/// Environment variable: if it exists, every agent treats its server as Tamarind.
extern XMLAHOST_API const wchar_t* OT_XMLA_IMPORT_FROM_TAMARIND;
/// Environment variable: if it exists, import logs are written.
extern XMLAHOST_API const wchar_t* OT_XMLA_IMPORT_LOGGING_NAME;
/// Separator line between entries of the import log.
extern XMLAHOST_API const wchar_t* DELIMIT_LINE;
