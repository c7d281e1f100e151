// A small host: loads the import library and lists the hierarchies of the provider's first cube.
// Built and run in the project's top folder once ./demo has built the libraries:
//
// clang-format off
//   g++ -std=c++20 -I server/include docs/host-example.cpp -L build/lib -lxmlahost -ldl -o host-example
//   LD_LIBRARY_PATH=build/lib ./host-example http://server/xmla
// clang-format on

#include <dlfcn.h>

#include <cstdio>
#include <memory>

#include "Import/OTXMLAImportEntry.h"
#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/VXExecutionState.h"

namespace {

// The host's class String has one wide character for each Unicode character. These functions
// convert it to UTF-8 and back.
NarrowString Utf8(const String& text) {
  return BaseStringUtil::StringToStdString(text, BaseStringUtil::kCodePageUTF8);
}
String Wide(const char* bytes) {
  return BaseStringUtil::StdStringToString(bytes, BaseStringUtil::kCodePageUTF8);
}

const OTCube* FirstCube(const std::vector<OTDataSource>& tree, const OTDataSource*& source,
                        const OTCatalog*& catalog) {
  for (const OTDataSource& each : tree)
    for (const OTCatalog& of : each.m_catalogs)
      if (!of.m_cubes.empty()) {
        source = &each;
        catalog = &of;
        return &of.m_cubes.front();
      }
  return nullptr;
}

bool ListHierarchies(OTXMLAImportAPI& import, const String& url) {
  String errors;
  String warnings;
  // Throws ErrorMessage for an unusable URL, or a log that cannot be written.
  import.SetupConnInfo(url, L"", L"", ServerInfo::kAnalysisServices2005, ServerInfo::kCLIXMLA);
  std::vector<OTDataSource> tree;
  import.GetDataSourceInfo(tree, errors, warnings);
  const OTDataSource* source = nullptr;
  const OTCatalog* catalog = nullptr;
  if (const OTCube* const cube = FirstCube(tree, source, catalog)) {
    import.SetImportChoiceInfo(source->m_dataSourceName, catalog->m_catalogName, cube->first);
    std::vector<OTXMLAHierarchy> hierarchies;
    import.GetHierarchies(hierarchies, errors, warnings);
    for (const OTXMLAHierarchy& hierarchy : hierarchies)
      std::printf("%s: hierarchy %s, %zu levels\n", Utf8(cube->first).c_str(),
                  Utf8(hierarchy.m_hierarchyName).c_str(), hierarchy.m_levels.size());
  }
  std::fputs(Utf8(warnings).c_str(), stderr);
  if (!errors.empty()) std::fprintf(stderr, "%s\n", Utf8(errors).c_str());
  return errors.empty();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: host-example URL\n");
    return 2;
  }
  void* const library = dlopen("libUtilityXMLASAX.so", RTLD_NOW | RTLD_LOCAL);
  if (!library) {
    std::fprintf(stderr, "%s\n", dlerror());
    return 1;
  }
  auto* const create =
      reinterpret_cast<OTXMLACreateImportFunction*>(dlsym(library, "OTXMLACreateImport"));

  // Another thread, or a signal handler, ends the import with
  // state->RequestCancellation(VXExecutionState::kCancelReasonHost).
  const RefCnt<VXExecutionState> state(new VXExecutionState);
  bool done = false;
  try {
    const VXExecutionState::Scope scope(*state);
    const std::unique_ptr<OTXMLAImportAPI> import(
        create());  // destroyed before the library is unloaded
    done = ListHierarchies(*import, Wide(argv[1]));
  } catch (const ErrorMessage& error) {
    String text;
    error.RetrieveErrorMessages(text);
    std::fprintf(stderr, "%s\n", Utf8(text).c_str());
  }
  dlclose(library);
  return done ? 0 : 1;
}
