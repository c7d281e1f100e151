#pragma once

#include <memory>
#include <string>

#include "Import/OTXMLAImportEntry.h"

/// The import library, loaded at run time as a host does. Objects and records from the library must
/// be destroyed before this object.
class ImportLibrary {
 public:
  /// Throws std::runtime_error when the library cannot be loaded or lacks an entry point.
  ImportLibrary();
  ~ImportLibrary();
  ImportLibrary(const ImportLibrary&) = delete;
  ImportLibrary& operator=(const ImportLibrary&) = delete;

  std::unique_ptr<OTXMLAImportAPI> CreateImport() const;
  /// Calls OTXMLAIdentifyProvider.
  bool Identify(const String& url, const String& user, const String& password,
                OTXMLAProviderIdentity& identity, String& errors) const;

 private:
  void* Symbol(const char* name) const;

  std::string m_file;
  void* m_handle = nullptr;
  OTXMLACreateImportFunction* m_create = nullptr;
  OTXMLAIdentifyProviderFunction* m_identify = nullptr;
};
