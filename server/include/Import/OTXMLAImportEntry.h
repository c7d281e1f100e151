#pragma once

/// \file
/// The functions of the import library that a host looks up with dlsym.

#include "Import/OTXMLAImportAPI.h"
#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/ServerInfo.h"
#include "Utility/Generic/String.h"

/// The identity of a provider (DISCOVER_PROPERTIES) and its detected kind.
struct OTXMLAProviderIdentity {
  String name;                                           ///< ProviderName
  String version;                                        ///< ProviderVersion
  ServerInfo::TargetType target = ServerInfo::kTessera;  ///< the detected kind
};

// The two exported functions, without C++ name mangling, for dlsym. Thread-safe.
extern "C" {

/// Creates an import object. The caller must `delete` it before the library is unloaded. Throws
/// std::bad_alloc.
///
/// \code
/// #include <dlfcn.h>
///
/// #include <stdexcept>
///
/// #include "Import/OTXMLAImportEntry.h"
///
/// // XMLA_IMPORT_LIBRARY is the file of the import library, see host.md. It stays loaded.
/// OTXMLAImportAPI* NewImport() {
///   void* const library = dlopen(XMLA_IMPORT_LIBRARY, RTLD_NOW | RTLD_LOCAL);
///   if (!library) throw std::runtime_error(dlerror());
///   void* const create = dlsym(library, "OTXMLACreateImport");
///   if (!create) throw std::runtime_error(dlerror());
///   return reinterpret_cast<OTXMLACreateImportFunction*>(create)();
/// }
/// \endcode
XMLAHOST_API OTXMLAImportAPI* OTXMLACreateImport();

/// Reads the name and version of a provider (DISCOVER_PROPERTIES). If that gives no name or a SOAP
/// fault, tries again by the rules of the Tamarind family (name from DISCOVER_DATASOURCES). On
/// failure, returns false and appends the reason to `errors`. Writes no import log.
XMLAHOST_API bool OTXMLAIdentifyProvider(const String& url, const String& user,
                                         const String& password, ServerInfo::CLIType cliType,
                                         OTXMLAProviderIdentity& identity, String& errors);
}

/// Types of the two functions, for the result of dlsym. Pointers to them are valid until the
/// library is unloaded.
/// @{
using OTXMLACreateImportFunction = decltype(OTXMLACreateImport);
using OTXMLAIdentifyProviderFunction = decltype(OTXMLAIdentifyProvider);
/// @}
