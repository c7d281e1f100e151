// A small host: loads the import library, detects the kind of the server, and lists the hierarchies
// and measures of its first cube. With the library installed, CMakeLists.txt beside this file
// builds it. Without, in any folder, with PROJECT as the path of the source tree, in which ./demo
// has built the libraries:
//
// clang-format off
//   g++ -std=c++20 -I $PROJECT/server/include host-example.cpp -L $PROJECT/build/lib -lxmlahost -ldl -o host-example
//   LD_LIBRARY_PATH=$PROJECT/build/lib ./host-example http://server/xmla 30
// clang-format on
//
// The second argument is the number of seconds after which the import is cancelled. For a server
// that requires them, add a file with a bearer token (or "") and the file of a client certificate
// with its key. Trusted certificates are those of the system or of SSL_CERT_FILE. For a server that
// requires user and password, set the environment variables HOST_USER and HOST_PASSWORD: other
// users can read a command line.

#include <dlfcn.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>

#include "Import/EnumNames.h"
#include "Import/OTXMLAImportEntry.h"
#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/ImportSettings.h"
#include "Utility/Generic/VXExecutionState.h"

// The file of the import library. The installed CMake package and pkg-config say where it is.
#ifndef XMLA_IMPORT_LIBRARY
#  define XMLA_IMPORT_LIBRARY "libUtilityXMLASAX.so"
#endif

namespace {

using BaseStringUtil::FromUTF8;
using BaseStringUtil::ToUTF8;

/// The import library with its two functions. Unloads it; delete all import objects before.
class Library {
 public:
  Library() : m_handle(dlopen(XMLA_IMPORT_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {
    if (!m_handle) throw std::runtime_error(dlerror());
    Find("OTXMLACreateImport", create);
    Find("OTXMLAIdentifyProvider", identify);
  }
  ~Library() { dlclose(m_handle); }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  OTXMLACreateImportFunction* create = nullptr;
  OTXMLAIdentifyProviderFunction* identify = nullptr;

 private:
  template <class Function>
  void Find(const char* name, Function*& function) {
    function = reinterpret_cast<Function*>(dlsym(m_handle, name));
    if (function) return;
    dlclose(m_handle);
    throw std::runtime_error(std::string("the import library has no function ") + name);
  }

  void* m_handle;
};

/// Cancels the import after some seconds, from another thread.
class Deadline {
 public:
  Deadline(VXExecutionState& state, int seconds)
      : m_thread([this, &state, seconds](const std::stop_token& stop) {
          std::unique_lock lock(m_mutex);
          m_end.wait_for(lock, stop, std::chrono::seconds(seconds), [] { return false; });
          if (!stop.stop_requested())
            state.RequestCancellation(VXExecutionState::kCancelReasonHost);
        }) {}

 private:
  std::mutex m_mutex;
  std::condition_variable_any m_end;
  std::jthread m_thread;  // its destructor stops and joins the thread
};

void Print(const char* format, const String& text) { std::printf(format, ToUTF8(text).c_str()); }

/// Reports retries, on the thread that waits for them.
class Progress : public HTTPExchangeObserver {
 public:
  void OnRetry(const HTTPRetry& retry) override {
    std::fprintf(stderr, "retry %u of %u: %s\n", retry.number, retry.maxRetries,
                 ToUTF8(retry.error).c_str());
  }
  void OnExchange(const HTTPExchangeInfo&) override {}
};

/// The value of an environment variable; empty if it is not set.
String Variable(const char* name) {
  const char* const value = std::getenv(name);
  return FromUTF8(value ? value : "");
}

/// How to reach the server. Both file names may be empty.
HTTPClientOptions Connection(const std::string& tokenFile, const std::string& certificateFile) {
  HTTPClientOptions http;
  http.connectTimeoutSeconds = 10;
  http.timeoutSeconds = 60;
  http.maxRetries = 2;
  http.certificateFile = FromUTF8(certificateFile);
  if (tokenFile.empty()) return http;
  std::string token;
  if (!std::getline(std::ifstream(tokenFile), token))
    throw std::runtime_error("cannot read a token from " + tokenFile);
  http.bearerToken = FromUTF8(token);
  http.allowBasicOverPlainHttp = false;  // not the token either
  return http;
}

/// Prints the hierarchies and measures of the chosen cube.
void List(OTXMLAImportAPI& import, String& errors, String& warnings) {
  std::vector<OTXMLAHierarchy> hierarchies;
  import.GetHierarchies(hierarchies, errors, warnings);
  for (const OTXMLAHierarchy& hierarchy : hierarchies) {
    Print("  hierarchy %s:", hierarchy.m_hierarchyName);
    const std::size_t levels = hierarchy.m_levels.size();
    std::printf(" %zu %s\n", levels, levels == 1 ? "level" : "levels");
  }
  std::vector<OTXMLAUnit> measures;
  import.GetMeasuresAndCalcMembers(measures, errors, warnings);
  for (const OTXMLAUnit& measure : measures) {
    Print("  measure %s:", measure.m_name);
    // EnumName is empty for a code without a name.
    std::printf(" %s, %s\n", std::string(EnumName(measure.m_aggrType)).c_str(),
                std::string(EnumName(measure.m_type)).c_str());
  }
}

/// Operations append to `errors` and `warnings`. After an error they return normally.
void Import(const Library& library, const String& url, String& errors, String& warnings) {
  const String user = Variable("HOST_USER");
  const String password = Variable("HOST_PASSWORD");
  OTXMLAProviderIdentity identity;
  if (!library.identify(url, user, password, ServerInfo::kCLIXMLA, identity, errors)) return;
  Print("server %s", identity.name);
  Print(" %s\n", identity.version);

  const std::unique_ptr<OTXMLAImportAPI> import(library.create());
  // Throws ErrorMessage for an unusable URL.
  import->SetupConnInfo(url, user, password, identity.target, ServerInfo::kCLIXMLA);
  std::vector<OTDataSource> tree;
  import->GetDataSourceInfo(tree, errors, warnings);
  for (const OTDataSource& source : tree)
    for (const OTCatalog& catalog : source.m_catalogs)
      for (const OTCube& cube : catalog.m_cubes) {
        Print("cube %s\n", cube.first);
        // Pass only names from the tree: a wrong name gives an empty result, but no error.
        import->SetImportChoiceInfo(source.m_dataSourceName, catalog.m_catalogName, cube.first);
        return List(*import, errors, warnings);
      }
}

int Run(const String& url, int seconds, const HTTPClientOptions& http) {
  const Library library;
  const RefCnt<VXExecutionState> state(new VXExecutionState);
  String errors;
  String warnings;
  {
    Progress progress;
    ImportSettings settings;
    settings.http = http;
    settings.exchangeObserver = &progress;
    // Both apply to the imports on this thread.
    const ImportSettings::Scope settingsScope(settings);
    const VXExecutionState::Scope stateScope(*state);
    const Deadline deadline(*state, seconds);
    try {
      Import(library, url, errors, warnings);
    } catch (const ErrorMessage& error) {
      error.RetrieveErrorMessages(errors);
    }
  }
  std::fputs(ToUTF8(warnings).c_str(), stderr);
  if (errors.empty()) return 0;
  // A cancelled import fails like any other.
  const bool isCancelled = state->IsCancellationRequested();
  std::fprintf(stderr, "%s: %s\n", isCancelled ? "cancelled" : "failed", ToUTF8(errors).c_str());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3 || argc > 5 || std::atoi(argv[2]) <= 0) {
    std::fprintf(stderr,
                 "usage: [HOST_USER=NAME HOST_PASSWORD=PASSWORD] host-example URL SECONDS "
                 "[TOKEN-FILE [CERTIFICATE-FILE]]\n");
    return 2;
  }
  try {
    return Run(FromUTF8(argv[1]), std::atoi(argv[2]),
               Connection(argc > 3 ? argv[3] : "", argc > 4 ? argv[4] : ""));
  } catch (const std::exception& error) {  // such as std::bad_alloc
    std::fprintf(stderr, "failed: %s\n", error.what());
  } catch (...) {
    std::fprintf(stderr, "failed: unknown exception\n");
  }
  return 1;
}
