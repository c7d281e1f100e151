// Every piece of C++ in the documents compiles. A piece that includes headers is a file of its own.
// Any other is the inside of a function that has connected to a server, in which the names below
// have their obvious meaning.

#include <gtest/gtest.h>

#include <fstream>

#include "support/ChildProcess.h"
#include "support/TempDir.h"
#include "tool/ProjectDocuments.h"

namespace tool {
namespace {

constexpr const char* kBefore = R"x(
#include "Import/OTXMLAImportAPI.h"
#include "Import/OTXMLAImportEntry.h"
#include "Utility/Generic/HTTPReadAhead.h"
#include "Utility/Generic/ImportSettings.h"

#include <memory>
#include <vector>

void Piece(decltype(&OTXMLAIdentifyProvider) identify, decltype(&OTXMLACreateImport) create,
           const String& url, const String& user, const String& password, ImportSettings& settings,
           const String& dataSource, const String& catalog, const String& cube,
           std::vector<OTDataSource>& tree, std::vector<OTXMLAHierarchy>& hierarchies,
           OTXMLAProviderIdentity& identity, String& errors, String& warnings, unsigned int N) {
)x";

TEST(DocumentSnippets, Compile) {
  const support::TempDir folder;
  const std::string file = folder.Path() / "piece.cpp";
  int count = 0;
  for (const std::filesystem::path& document : Documents())
    for (const std::string& block : CodeBlocks(document, "cpp")) {
      ++count;
      const bool isFile = block.find("#include") != block.npos;
      std::ofstream(file) << (isFile ? block : kBefore + block + "}\n");
      const support::ChildResult built = support::RunChild(
          "/bin/sh", {"-c",
                      COMPILER " -fsyntax-only -Wall -Wextra -Werror -Wno-unused-parameter "
                               "-I '" INCLUDE_FOLDER "' \"$0\"",
                      file});
      EXPECT_EQ(built.exitStatus, 0) << document << ":\n" << block << built.err;
    }
  EXPECT_GE(count, 2);
}

}  // namespace
}  // namespace tool
