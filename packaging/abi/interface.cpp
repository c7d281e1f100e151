// Everything that a host can name: the public headers, which the script includes before this file,
// and the records and classes that cross the boundary. Only the debug information of the compiled
// file is used.
#include "Import/EnumNames.h"
#include "Import/OTXMLAImportEntry.h"

extern "C" void XMLAInterface(OTXMLAImportAPI*, OTXMLAProviderIdentity*, OTXMLAImportOption*,
                              OTDataSource*, OTCatalog*, OTCube*, OTXMLAHierarchy*, OTXMLALevel*,
                              OTXMLAUnit*, XmlACubeVariable*, ImportSettings*, HTTPClientOptions*,
                              VXExecutionState*, ErrorMessage*) {}
