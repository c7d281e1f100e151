#include "connection/ImportLibrary.h"

#include <dlfcn.h>

#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "base/Text.h"

namespace {

constexpr const char* kLibraryName = "libUtilityXMLASAX.so";

/// The path of the library, relative to the tool: as installed, in a build folder, or in the tool's
/// folder.
std::string LibraryFile() {
  std::error_code error;
  const std::filesystem::path tool = std::filesystem::read_symlink("/proc/self/exe", error);
  const std::filesystem::path folder = tool.parent_path();
  for (const auto& file : {folder / XMLA_INSTALLED_LIBRARY,
                           folder.parent_path() / "lib" / kLibraryName, folder / kLibraryName})
    if (std::filesystem::exists(file, error)) return file;
  return kLibraryName;  // search path of the dynamic loader
}

}  // namespace

ImportLibrary::ImportLibrary() : m_file(LibraryFile()) {
  m_handle = dlopen(m_file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!m_handle)
    throw std::runtime_error("the import library cannot be loaded: " + OneLine(dlerror()));
  m_create = reinterpret_cast<OTXMLACreateImportFunction*>(Symbol("OTXMLACreateImport"));
  m_identify = reinterpret_cast<OTXMLAIdentifyProviderFunction*>(Symbol("OTXMLAIdentifyProvider"));
}

ImportLibrary::~ImportLibrary() { dlclose(m_handle); }

void* ImportLibrary::Symbol(const char* name) const {
  void* const symbol = dlsym(m_handle, name);
  if (symbol) return symbol;
  const std::string reason = OneLine(dlerror());
  dlclose(m_handle);
  throw std::runtime_error("the import library does not match this tool: " + reason);
}

std::unique_ptr<OTXMLAImportAPI> ImportLibrary::CreateImport() const {
  return std::unique_ptr<OTXMLAImportAPI>(m_create());
}

bool ImportLibrary::Identify(const String& url, const String& user, const String& password,
                             OTXMLAProviderIdentity& identity, String& errors) const {
  return m_identify(url, user, password, ServerInfo::kCLIXMLA, identity, errors);
}
