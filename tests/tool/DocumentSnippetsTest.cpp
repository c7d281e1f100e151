// Every piece of C++ in the documents and in the comments of public headers compiles. An example in
// a header is a file of its own. A piece of a document that includes headers is a file of its own.
// Any other is the inside of a function that has connected to a server, in which the names below
// have their obvious meaning.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/ChildProcess.h"
#include "support/TempDir.h"
#include "tool/ProjectDocuments.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

/// Compiles files, or options and files, without output.
support::ChildResult Compile(std::vector<std::string> files) {
  files.insert(
      files.begin(),
      {"-c", COMPILER " -fsyntax-only -Wall -Wextra -Werror -Wno-unused-parameter "
                      "-DXMLA_IMPORT_LIBRARY='\"library\"' -I '" INCLUDE_FOLDER "' \"$0\" \"$@\""});
  return support::RunChild("/bin/sh", files);
}

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
      const support::ChildResult built = Compile({file});
      EXPECT_EQ(built.exitStatus, 0) << document << ":\n" << block << built.err;
    }
  EXPECT_GE(count, 2);
}

/// The blocks from \code to \endcode in the comments of a header.
std::vector<std::string> Examples(const fs::path& header) {
  std::vector<std::string> examples;
  std::istringstream lines(support::ReadFile(header));
  bool isInside = false;
  for (std::string line; std::getline(lines, line);) {
    const std::size_t slashes = line.find("///");
    if (slashes == line.npos) continue;
    line.erase(0, slashes + 3);
    if (line.starts_with(' ')) line.erase(0, 1);
    if (line.starts_with("\\code")) {
      examples.emplace_back();
      isInside = true;
    } else if (line.starts_with("\\endcode")) {
      isInside = false;
    } else if (isInside) {
      examples.back() += line + '\n';
    }
  }
  return examples;
}

TEST(DocumentSnippets, ExamplesInHeadersCompile) {
  const support::TempDir folder;
  std::vector<std::string> files;
  for (const char* const part : {"Import", "Utility/Generic"})
    for (const auto& header : fs::directory_iterator(fs::path(INCLUDE_FOLDER) / part))
      for (const std::string& example : Examples(header)) {
        files.push_back(folder.Path() /
                        (header.path().stem().string() + std::to_string(files.size()) + ".cpp"));
        std::ofstream(files.back()) << example;
      }
  EXPECT_GE(files.size(), 4U);
  const support::ChildResult built = Compile(files);
  EXPECT_EQ(built.exitStatus, 0) << built.err;
}

TEST(PublicHeaders, AskForTheirVersionOfTheLanguage) {
  const support::TempDir folder;
  const std::string file = folder.Path() / "host.cpp";
  for (const char* const header :
       {"Import/OTXMLAImportEntry.h", "Utility/Generic/ImportSettings.h",
        "Utility/Generic/ErrorMessage.h", "Utility/Generic/VXExecutionState.h"}) {
    std::ofstream(file) << "#include \"" << header << "\"\n";
    EXPECT_EQ(Compile({file}).exitStatus, 0) << header;
    const std::string errors = Compile({"-std=c++17", file}).err;
    const std::string first = errors.substr(std::min(errors.find("error: "), errors.size()));
    EXPECT_NE(first.substr(0, first.find('\n')).find("need C++20: use -std=c++20"), first.npos)
        << header << ":\n"
        << errors;
  }
}

}  // namespace
}  // namespace tool
