// Tests the built library as a host loads it: at run time, with its five exported symbols.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

#include "Import/OTXMLAImportEntry.h"
#include "Utility/Generic/SAX2XmlReadDriver.h"
#include "Utility/XMLASAX/XmlADiscoverAgent.h"
#include "support/ChildProcess.h"
#include "support/TempDir.h"
#include "support/Text.h"

namespace {

TEST(Library, ExportsOnlyTheListedSymbols) {
  const support::ChildResult nm =
      support::RunChild("/usr/bin/nm", {"-D", "--defined-only", "-f", "posix", XMLASAX_LIBRARY});
  ASSERT_EQ(nm.exitStatus, 0) << nm.err;
  std::set<std::string> symbols;
  std::istringstream lines(nm.out);
  for (std::string line; std::getline(lines, line);)
    symbols.insert(line.substr(0, line.find_first_of(" @")));
  std::set<std::string> listed;
  std::istringstream list(support::ReadFile(XMLASAX_SYMBOLS));
  for (std::string line; std::getline(list, line);) listed.insert(line);
  EXPECT_EQ(symbols, listed);
}

class LoadedLibrary : public testing::Test {
 protected:
  void SetUp() override {
    m_library = dlopen(XMLASAX_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_TRUE(m_library) << dlerror();
  }
  void TearDown() override { dlclose(m_library); }
  template <class T>
  T* Symbol(const char* name) {
    return reinterpret_cast<T*>(dlsym(m_library, name));
  }
  void* m_library = nullptr;
};

TEST_F(LoadedLibrary, ExportsTheNamesOfItsEnvironmentVariables) {
  EXPECT_EQ(String(*Symbol<const wchar_t*>("OT_XMLA_IMPORT_FROM_TAMARIND")),
            String(L"OT_XMLA_IMPORT_TAMARIND"));
  EXPECT_EQ(String(*Symbol<const wchar_t*>("OT_XMLA_IMPORT_LOGGING_NAME")),
            String(L"OT_XMLA_IMPORT_LOGGING"));
  EXPECT_EQ(String(*Symbol<const wchar_t*>("DELIMIT_LINE")),
            String(L"\n##############################################\n"));
}

TEST_F(LoadedLibrary, CreatesImportObjectsThatTheHostDeletes) {
  OTXMLAImportAPI* const import = Symbol<OTXMLACreateImportFunction>("OTXMLACreateImport")();
  ASSERT_TRUE(import);
  EXPECT_EQ(import->GetRequiredVersion(), String());
  delete import;
}

TEST_F(LoadedLibrary, ReportsWhyIdentificationFailed) {
  OTXMLAProviderIdentity identity;
  String errors;
  EXPECT_FALSE(Symbol<OTXMLAIdentifyProviderFunction>("OTXMLAIdentifyProvider")(
      L"http://127.0.0.1:1/xmla", L"", L"", ServerInfo::kCLIXMLA, identity, errors));
  EXPECT_NE(errors.find(L"127.0.0.1:1"), String::npos) << support::Narrow(errors);
  EXPECT_FALSE(Symbol<OTXMLAIdentifyProviderFunction>("OTXMLAIdentifyProvider")(
      L"no url", L"", L"", ServerInfo::kCLIXMLA, identity, errors));
}

/// The index of a virtual function in its class's table. The C++ ABI represents a pointer to member
/// as one plus the offset in bytes.
template <class Member>
std::size_t Slot(Member member) {
  std::size_t word = 0;
  std::memcpy(&word, &member, sizeof word);
  EXPECT_EQ(word % sizeof(void*), 1u) << "not virtual";
  return word / sizeof(void*);
}

TEST(VirtualTables, ImportInterfaceHasTheHostsOrder) {
  using A = OTXMLAImportAPI;
  EXPECT_EQ(Slot(&A::OpenConnection), 0u);
  EXPECT_EQ(Slot(&A::CloseConnection), 1u);
  EXPECT_EQ(Slot(&A::SetupConnInfo), 2u);
  EXPECT_EQ(Slot(&A::SetConnectParameters), 3u);
  EXPECT_EQ(Slot(&A::GetConnectParameters), 4u);
  EXPECT_EQ(Slot(&A::GetRequiredVersion), 5u);
  EXPECT_EQ(Slot(&A::GetDataSourceInfo), 6u);
  EXPECT_EQ(Slot(&A::GetDataSourceNames), 7u);
  EXPECT_EQ(Slot(&A::SetImportChoiceInfo), 8u);
  EXPECT_EQ(Slot(&A::GetHierarchies), 9u);
  EXPECT_EQ(Slot(&A::GetMeasuresAndCalcMembers), 10u);
  EXPECT_EQ(Slot(&A::GetSAPVariables), 11u);
  // the two destructors are at these indexes
  EXPECT_EQ(Slot(&A::GetTargetType), 14u);
  EXPECT_EQ(Slot(&A::FlatDimensionToMeasures), 15u);
  EXPECT_EQ(Slot(&A::PrepareForApplicationAndCube), 16u);
  EXPECT_EQ(Slot(&A::GetAppCubeNames), 17u);
  EXPECT_EQ(Slot(&A::GetCubeInfo), 18u);
  EXPECT_EQ(Slot(&A::GetVariables), 19u);
  EXPECT_EQ(Slot(&A::SetImportOption), 20u);
  EXPECT_EQ(Slot(&A::GetObject), 21u);
  EXPECT_EQ(Slot(&A::GetVersionInfo), 22u);
}

TEST(VirtualTables, DiscoverAgentHasTheHostsOrder) {
  using A = XmlADiscoverAgent;
  EXPECT_EQ(Slot(&A::GetDataSourceInfoCatalogs), 0u);
  EXPECT_EQ(Slot(&A::GetProviderInfomation), 1u);
  EXPECT_EQ(Slot(&A::GetDataSourceInfo), 2u);
  EXPECT_EQ(Slot(&A::GetCatalogs), 3u);
  EXPECT_EQ(Slot(&A::GetCubesOnCatalog), 4u);
  EXPECT_EQ(Slot(&A::GetVariablesOnCatalogCube), 5u);
  EXPECT_EQ(Slot(&A::GetDimensionsOnCatalogCube), 6u);
  EXPECT_EQ(Slot(&A::FindDefaultHierarchiesOnCatalogCube), 7u);
  EXPECT_EQ(Slot(&A::GetMeasuresOnCatalogCube), 8u);
  EXPECT_EQ(Slot(&A::GetHierarchiesOnCatalogCube), 9u);
  EXPECT_EQ(Slot(&A::GetLevelsOnCatalogCubeHierarchy), 10u);
  EXPECT_EQ(Slot(&A::GetMemberOnCatalogCubeHierarchy), 11u);
  EXPECT_EQ(Slot(&A::IsAnalysisServices), 12u);
  EXPECT_EQ(Slot(&A::IsSAPBW), 13u);
  EXPECT_EQ(Slot(&A::IsTamarind), 14u);
}

TEST(VirtualTables, ReaderHasTheHostsOrderAfterTheDestructor) {
  using D = SAX2XmlReadDriver;
  EXPECT_EQ(Slot(&D::ParseFile), 2u);
  EXPECT_EQ(Slot(&D::ParseInMem), 3u);
  EXPECT_EQ(Slot(&D::Read), 4u);
  EXPECT_EQ(Slot(&D::Cancel), 5u);
}

}  // namespace
