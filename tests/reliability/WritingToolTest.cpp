// The tool when its output or its log cannot be written: error text, exit status, and that existing
// files are not lost.

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

/// Runs a shell script with $TOOL (the tool) and $DIR (an empty directory).
class ToolWriting : public testing::Test {
 protected:
  ChildResult Shell(const std::string& script) const {
    ++m_tried;
    return Run(script);
  }
  /// The same with a private file system at $DIR/disk. Calls `prepare` in it before it is remounted
  /// with `options`.
  ChildResult ShellWithDisk(const std::string& options, const std::string& prepare,
                            const std::string& script) const {
    ++m_tried;
    return Run(Mounted("mount -t tmpfs none disk && cd disk && { " + prepare +
                       "; } && cd .. && mount -o remount," + options + " disk && " + script));
  }
  /// False if mounting is not permitted.
  bool CanMount() const { return Run(Mounted("mount -t tmpfs none disk")).exitStatus == 0; }
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

 private:
  static std::string Mounted(const std::string& script) {
    return "exec unshare -m /bin/sh -c 'mkdir -p \"$DIR/disk\" && cd \"$DIR\" && " + script + "'";
  }
  ChildResult Run(const std::string& script) const {
    // Variables that would make a run depend on the user who runs the tests.
    constexpr const char* kUnset =
        "unset http_proxy https_proxy HTTPS_PROXY all_proxy ALL_PROXY no_proxy NO_PROXY "
        "SSL_CERT_FILE SSL_CERT_DIR OT_XMLA_IMPORT_LOGGING XMLA_IMPORT_LOG_DIR; ";
    return support::RunChild(
        "/bin/sh", {"-c", kUnset + script},
        {{"TOOL", tool::ToolPath()}, {"DIR", m_folder.Path()}, {"LC_ALL", "C"}});
  }
};

constexpr const char* kNoLimit = "this sanitizer writes files of its own, which no limit may stop";
constexpr const char* kNoMount = "no file system may be mounted here";
constexpr const char* kImport = "$TOOL --sample tamarind --format json ";

TEST_F(ToolWriting, SizeLimitKeepsTheFormerFile) {
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

TEST_F(ToolWriting, SizeLimitOnStandardOutputIsAnError) {
  if (!FailingAllocation::kIsPossible) GTEST_SKIP() << "skipped: " << kNoLimit;
  const ChildResult result = Shell("ulimit -f 1; exec " + std::string(kImport) + "tree > $DIR/out");
  EXPECT_EQ(result.exitStatus, 1) << result.signal;
  EXPECT_THAT(result.err, HasSubstr("standard output: File too large"));
}

TEST_F(ToolWriting, SizeLimitOnTheLogIsAWarningWithACompleteResult) {
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

TEST_F(ToolWriting, LogErrorOfAFailedCallIsAnAdditionalWarning) {
  if (!FailingAllocation::kIsPossible) GTEST_SKIP() << "skipped: " << kNoLimit;
  for (const char* limit : {"0", "1"}) {
    const ChildResult result =
        Shell("ulimit -f " + std::string(limit) +
              "; exec $TOOL --url http://127.0.0.1:1/ --target sap-bw --format json "
              "--log $DIR/log tree");
    EXPECT_EQ(result.exitStatus, 1) << result.signal << result.err;
    const tool::Json document = tool::Json::parse(result.out);
    ASSERT_EQ(document["errors"].size(), 2u);
    EXPECT_EQ(document["errors"][1],
              "the failed request was DISCOVER_PROPERTIES of property \"ProviderName\"");
    EXPECT_THAT(document["errors"][0].get<std::string>(), HasSubstr("http://127.0.0.1:1/"));
    ASSERT_EQ(document["warnings"].size(), 1u);
    const auto warning = document["warnings"][0].get<std::string>();
    EXPECT_THAT(warning, testing::HasSubstr("the import log \"" + File("log") + "/OT_xmla_"));
    EXPECT_THAT(warning, testing::EndsWith("is incomplete: File too large"));
    EXPECT_THAT(result.err, HasSubstr("xmla-import: warning: " + warning + "\n"));
    std::filesystem::remove_all(File("log"));
  }
}

TEST_F(ToolWriting, FullDiskKeepsTheFormerFileAndWarnsAboutTheLog) {
  if (!CanMount()) GTEST_SKIP() << "skipped: " << kNoMount;
  const ChildResult output = ShellWithDisk(
      "size=8k", "echo old > result",
      kImport + std::string("import -o $DIR/disk/result; echo status $?; ls -A disk; cat "
                            "disk/result"));
  EXPECT_THAT(output.err, HasSubstr("/disk/result\": No space left on device"));
  EXPECT_EQ(output.out, "status 1\nresult\nold\n");
  const ChildResult log =
      ShellWithDisk("size=8k", "true",
                    kImport + std::string("--log $DIR/disk import -o $DIR/result; echo status $?"));
  EXPECT_THAT(log.err, HasSubstr("is incomplete: No space left on device"));
  EXPECT_EQ(log.out, "status 0\n");
}

TEST_F(ToolWriting, ReadOnlyDiskFailsBeforeTheImport) {
  if (!CanMount()) GTEST_SKIP() << "skipped: " << kNoMount;
  for (const char* name : {"result", "new"}) {
    const ChildResult output = ShellWithDisk("ro", "echo old > result",
                                             kImport + std::string("tree -o $DIR/disk/") + name +
                                                 "; echo status $?; ls -A disk; cat disk/result");
    const std::string said =
        "--output \"" + File("disk") + "/" + name + "\" cannot be written: Read-only file system";
    EXPECT_EQ(output.err, "xmla-import: error: " + said + "\n");
    const std::size_t end = output.out.find("}\n") + 2;
    EXPECT_EQ(tool::Json::parse(output.out.substr(0, end))["errors"], tool::Json({said}));
    EXPECT_EQ(output.out.substr(end), "status 2\nresult\nold\n");
  }
  for (const char* place : {"disk", "disk/below/it"}) {
    const ChildResult log = ShellWithDisk(
        "ro", "true", "$TOOL --sample sap-bw --log $DIR/" + std::string(place) + " tree; echo $?");
    EXPECT_THAT(log.err, testing::StartsWith("xmla-import: error: "));
    EXPECT_THAT(log.err, HasSubstr(File("disk")));
    EXPECT_THAT(log.err, HasSubstr("Read-only file system"));
    EXPECT_EQ(log.err.find('\n'), log.err.size() - 1) << log.err;
    EXPECT_EQ(log.out, "1\n");
  }
}

TEST_F(ToolWriting, RemovedDirectoryIsAnErrorWithItsName) {
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

TEST_F(ToolWriting, UnwritableLogPlaceIsAnErrorWithItsName) {
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

TEST_F(ToolWriting, PipeClosedMeanwhileIsASilentSuccess) {
  for (const char* reader : {"head -c 1", "true"}) {
    const ChildResult result = Shell("exec 3>&1; { " + std::string(kImport) +
                                     "import; echo status $? >&3; } | " + reader + " >/dev/null");
    EXPECT_EQ(result.out, "status 0\n");
    EXPECT_THAT(result.err, testing::Not(HasSubstr("error: "))) << reader;
  }
}

}  // namespace
}  // namespace reliability
