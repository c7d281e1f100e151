#pragma once

#include "Import/OTXMLAImportAPI.h"
#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/ServerInfo.h"
#include "Utility/Generic/String.h"

/// What a provider says of itself, and the kind that this makes it.
struct OTXMLAProviderIdentity {
  String name;     ///< ProviderName
  String version;  ///< ProviderVersion
  ServerInfo::TargetType target = ServerInfo::kTessera;
};

// The two functions that a host looks up in the loaded library (dlsym) by their plain names.
extern "C" {

/// A new import object. The caller owns it and destroys it with `delete`, before the library is
/// unloaded.
XMLAHOST_API OTXMLAImportAPI* OTXMLACreateImport();

/// Asks a provider for its name and version (DISCOVER_PROPERTIES); when that yields no name or a
/// SOAP fault, once more the way of the Tamarind family (name from DISCOVER_DATASOURCES). True when
/// the provider answered; false with the reason appended to `errors` otherwise. Never logged.
XMLAHOST_API bool OTXMLAIdentifyProvider(const String& url, const String& user,
                                         const String& password, ServerInfo::CLIType cliType,
                                         OTXMLAProviderIdentity& identity, String& errors);
}

using OTXMLACreateImportFunction = decltype(OTXMLACreateImport);
using OTXMLAIdentifyProviderFunction = decltype(OTXMLAIdentifyProvider);
