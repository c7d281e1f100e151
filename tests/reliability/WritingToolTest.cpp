// The tool, when its result or its log cannot be written: what it says, its exit status, and that
// nothing is lost that had been there.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "support/ChildProcess.h"
#include "support/Effort.h"
#include "support/FailingAllocation.h"
#include "support/TempDir.h"
#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace reliability {
namespace {

using support::ChildResult;
using testing::HasSubstr;

/// Runs a shell script in which $TOOL is the tool and $DIR a folder of its own.
class ToolWriting : public testing::Test {
 protected:
  ChildResult Shell(const std::string& script) const {
    ChildResult result =
        support::RunChild("/bin/sh", {"-c", script},
                          {{"TOOL", tool::ToolPath()}, {"DIR", m_folder.Path()}, {"LC_ALL", "C"}});
    ++m_tried;
    return result;
  }
  std::string File(const char* name) const { return m_folder.Path() / name; }
  void ExpectOnly(const std::vector<std::string>& names) const {
    std::vector<std::string> found;
    for (const auto& file : m_folder.Files()) found.push_back(file.filename());
    EXPECT_EQ(found, names);
  }
  void TearDown() override {
    if (HasFailure() || IsSkipped()) return;
    support::PrintFigure(
        "the tool cannot write (" +
            std::string(testing::UnitTest::GetInstance()->current_test_info()->name()) + ")",
        std::to_string(m_tried) + " tried: right text, right exit status, nothing lost");
  }

  const support::TempDir m_folder;
  mutable long m_tried = 0;
};

constexpr const char* kNoLimit = "this sanitizer writes files of its own, which no limit may stop";
constexpr const char* kImport = "$TOOL --sample tamarind --format json ";

TEST_F(ToolWriting, BeyondALimitOnSizesKeepsTheFormerFile) {
  if (!FailingAllocation::kIsPossible) GTEST_SKIP() << "skipped: " << kNoLimit;
  for (const char* limit : {"0", "1", "8", "40"}) {  // blocks of 512 bytes
    std::ofstream(File("result")) << "old";
    const ChildResult result =
        Shell("ulimit -f " + std::string(limit) + "; exec " + kImport + "import -o $DIR/result");
    EXPECT_EQ(result.exitStatus, 1) << result.signal;
    EXPECT_THAT(result.err, HasSubstr("/result\": File too large")) << limit;
    EXPECT_EQ(support::ReadFile(File("result")), "old");
    ExpectOnly({"result"});
  }
}

TEST_F(ToolWriting, OfStandardOutputBeyondALimitIsAnError) {
  if (!FailingAllocation::kIsPossible) GTEST_SKIP() << "skipped: " << kNoLimit;
  const ChildResult result = Shell("ulimit -f 1; exec " + std::string(kImport) + "tree > $DIR/out");
  EXPECT_EQ(result.exitStatus, 1) << result.signal;
  EXPECT_THAT(result.err, HasSubstr("standard output: File too large"));
}

TEST_F(ToolWriting, OfTheLogBeyondALimitIsAWarningAndTheResultWhole) {
  if (!FailingAllocation::kIsPossible) GTEST_SKIP() << "skipped: " << kNoLimit;
  const ChildResult whole = Shell(std::string(kImport) + "tree");
  for (const char* limit : {"0", "1", "9"}) {
    const ChildResult result =
        Shell("ulimit -f " + std::string(limit) + "; exec " + kImport + "--log $DIR/log tree");
    EXPECT_EQ(result.exitStatus, 0) << result.signal << result.err;
    EXPECT_THAT(result.err, HasSubstr("warning: the import log \"" + File("log") + "/OT_xmla_"));
    EXPECT_THAT(result.err, HasSubstr("is incomplete: File too large"));
    EXPECT_EQ(result.out.substr(0, result.out.find("\"errors\"")),
              whole.out.substr(0, whole.out.find("\"errors\"")));
    std::filesystem::remove_all(File("log"));
  }
}

TEST_F(ToolWriting, OnAFullDiskKeepsTheFormerFileAndWarnsOfTheLog) {
  // A file system of two pages, in a name space of its own.
  const std::string mount =
      "exec 2>&1; mkdir -p $DIR/disk; mount -t tmpfs -o size=8k none $DIR/disk || exit 77; ";
  const std::string unshare = "exec unshare -m /bin/sh -c '";
  const ChildResult output =
      Shell(unshare + mount + "echo old > $DIR/disk/result; " + kImport +
            "import -o $DIR/disk/result; echo status $?; ls -A $DIR/disk; cat $DIR/disk/result'");
  if (output.exitStatus == 77 || output.out.find("status") == std::string::npos)
    GTEST_SKIP() << "skipped: no file system may be mounted here";
  EXPECT_THAT(output.out, HasSubstr("/disk/result\": No space left on device"));
  EXPECT_THAT(output.out, HasSubstr("status 1\nresult\nold\n"));
  const ChildResult log =
      Shell(unshare + mount + kImport + "--log $DIR/disk import -o $DIR/result; echo status $?'");
  EXPECT_THAT(log.out, HasSubstr("is incomplete: No space left on device"));
  EXPECT_THAT(log.out, HasSubstr("status 0\n"));
}

TEST_F(ToolWriting, IntoADirectoryThatVanishesMeanwhileIsAnErrorThatNamesIt) {
  tool::ScriptedProvider::Script script = tool::TwoSources();
  script.answer = [this](const std::string&, const std::string&) {
    std::filesystem::remove_all(File("gone"));
    return std::string();
  };
  const tool::ScriptedProvider provider(script);
  for (const char* format : {"text", "json"}) {
    std::filesystem::create_directory(File("gone"));
    const ChildResult result = Shell("exec $TOOL --url " + provider.Url() + " --format " + format +
                                     " sources -o $DIR/gone/result");
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(result.err, HasSubstr("/gone/result\": No such file or directory"));
    ExpectOnly({});
  }
}

TEST_F(ToolWriting, OfTheLogIntoAPlaceThatTakesNoneIsAnErrorThatNamesIt) {
  std::ofstream(File("file")) << "kept";
  std::vector<std::string> places = {File("file"), File("file") + "/log", "/proc/nowhere"};
  if (geteuid() != 0) {
    std::filesystem::create_directory(File("closed"));
    std::filesystem::permissions(File("closed"), std::filesystem::perms::owner_read);
    places.push_back(File("closed"));
  }
  for (const std::string& place : places)
    for (const char* command : {"sources", "tree", "import"}) {
      const ChildResult result =
          Shell("exec $TOOL --sample sap-bw --log '" + place + "' " + command);
      EXPECT_EQ(result.exitStatus, 1) << place << result.err;
      EXPECT_THAT(result.err, HasSubstr("xmla-import: error: ")) << place;
      EXPECT_THAT(result.err, HasSubstr(place));
      EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << result.err;
    }
  EXPECT_EQ(support::ReadFile(File("file")), "kept");
}

TEST_F(ToolWriting, WhoseReaderGoesMeanwhileIsAQuietSuccess) {
  for (const char* reader : {"head -c 1", "true"}) {
    const ChildResult result = Shell("exec 3>&1; { " + std::string(kImport) +
                                     "import; echo status $? >&3; } | " + reader + " >/dev/null");
    EXPECT_EQ(result.out, "status 0\n");
    EXPECT_THAT(result.err, testing::Not(HasSubstr("error: "))) << reader;
  }
}

}  // namespace
}  // namespace reliability
