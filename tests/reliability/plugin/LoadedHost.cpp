// A host that is itself a plug-in: loading and unloading it loads and unloads everything that the
// import needs.

#include <dlfcn.h>

#include <chrono>
#include <memory>
#include <thread>

#include "Import/OTXMLAImportEntry.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/ImportSettings.h"
#include "Utility/Generic/VXThread.h"

/// Loads the import library, imports a cube and unloads the library. Returns the number of records,
/// or -1 if the library cannot be loaded. Cancels the import after `cancelAfterMilliseconds`.
extern "C" __attribute__((visibility("default"))) int WorkOnce(const char* library,
                                                               const wchar_t* url,
                                                               int cancelAfterMilliseconds) {
  void* const handle = dlopen(library, RTLD_NOW | RTLD_LOCAL);
  if (!handle) return -1;
  const auto create =
      reinterpret_cast<OTXMLACreateImportFunction*>(dlsym(handle, "OTXMLACreateImport"));
  std::size_t records = 0;
  try {
    ImportSettings settings = ImportSettings::Current();
    settings.http.authSchemes |= kAuthNegotiate;
    const ImportSettings::Scope settingsScope(settings);
    const std::unique_ptr<OTXMLAImportAPI> import(create());
    import->SetupConnInfo(url, L"", L"", ServerInfo::kAnalysisServices2005, ServerInfo::kCLIXMLA);
    import->SetImportChoiceInfo(L"NORTHQUAY", L"Larkspur Finance", L"Ledger");
    VXExecutionState state;
    std::thread canceller;
    if (cancelAfterMilliseconds >= 0) {
      canceller = std::thread([&state, cancelAfterMilliseconds] {
        std::this_thread::sleep_for(std::chrono::milliseconds(cancelAfterMilliseconds));
        state.RequestCancellation(VXExecutionState::kCancelReasonHost);
      });
    }
    const VXExecutionState::Scope scope(state);
    std::vector<OTXMLAUnit> units;
    std::vector<OTXMLAHierarchy> hierarchies;
    String errors;
    String warnings;
    import->GetMeasuresAndCalcMembers(units, errors, warnings);
    if (errors.empty()) import->GetHierarchies(hierarchies, errors, warnings);
    records = units.size() + hierarchies.size();
    if (canceller.joinable()) canceller.join();
  } catch (const ErrorMessage&) {
    records = 0;
  }
  dlclose(handle);
  return static_cast<int>(records);
}
