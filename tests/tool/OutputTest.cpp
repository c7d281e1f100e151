// Tests the place of the result, and errors of writing.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "SampleProvider.h"
#include "results/Formats.h"
#include "support/TempDir.h"
#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using testing::HasSubstr;

class Output : public testing::Test {
 protected:
  std::string File(const char* name = "result") const { return m_folder.Path() / name; }
  Outcome RunInto(const std::string& file, const Arguments& more = {}) const {
    Arguments arguments{"--url", m_provider.Url(), "sources", "-o", file};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return RunTool(arguments);
  }
  /// The folder contains exactly these files: no temporary file is left.
  void ExpectOnly(const std::vector<std::string>& files) const {
    std::vector<std::string> found;
    for (const auto& file : m_folder.Files()) found.push_back(file);
    EXPECT_EQ(found, files);
  }

  const ScriptedProvider m_provider{TwoSources()};
  const support::TempDir m_folder;
};

TEST_F(Output, FileHasTheStandardOutput) {
  const ScriptedProvider provider(OneCube());
  for (const std::string& format : FormatNames()) {
    const Arguments call{"--url", provider.Url(), "import", "--format", format};
    Arguments intoFile = call;
    intoFile.insert(intoFile.end(), {"-o", File()});
    const Outcome outcome = RunTool(intoFile);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(support::ReadFile(File()), RunTool(call).out);
    ExpectOnly({File()});
  }
}

TEST_F(Output, ReplacesAFileAndKeepsItsMode) {
  std::ofstream(File()) << std::string(100000, 'x');
  chmod(File().c_str(), 0640);
  EXPECT_EQ(RunInto(File()).status, 0);
  EXPECT_EQ(support::ReadFile(File()), "Alpha\nBeta\n");
  struct stat status {};
  ASSERT_EQ(stat(File().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0640u);
}

TEST_F(Output, CreatesAFileWithTheUsualMode) {
  const mode_t mask = umask(027);
  EXPECT_EQ(RunInto(File()).status, 0);
  umask(mask);
  struct stat status {};
  ASSERT_EQ(stat(File().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0640u);
}

TEST_F(Output, FollowsALinkAndKeepsIt) {
  std::ofstream(File("real")) << "old";
  std::filesystem::create_symlink("real", File("link"));
  EXPECT_EQ(RunInto(File("link")).status, 0);
  EXPECT_TRUE(std::filesystem::is_symlink(File("link")));
  EXPECT_EQ(support::ReadFile(File("real")), "Alpha\nBeta\n");
}

TEST_F(Output, StandardOutputByNameKeepsItsPosition) {
  // Opening it again would discard its contents.
  for (const char* name : {"-", "/dev/stdout", "/dev/fd/1"}) {
    const std::string log = File();
    std::ofstream(log) << "before\n";
    const std::string call = "'" + ToolPath() + "' --url " + m_provider.Url() + " sources -o " +
                             name + " >> '" + log + "'; echo after >> '" + log + "'";
    EXPECT_EQ(std::system(call.c_str()), 0);
    EXPECT_EQ(support::ReadFile(log), "before\nAlpha\nBeta\nafter\n") << name;
    ExpectOnly({log});
  }
}

TEST_F(Output, WriteErrorSendsTheDocumentToStandardOutput) {
  const Outcome outcome = RunInto(File("absent/result"), {"--format", "json"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.ErrorLines().size(), 1u) << outcome.err;
  EXPECT_THAT(outcome.Document()["errors"][0], HasSubstr("/absent/result"));
}

TEST_F(Output, MissingFolderOrReadOnlyFileIsAnErrorBeforeTheImport) {
  std::ofstream(File("locked.json")) << "old";
  chmod(File("locked.json").c_str(), 0400);
  const struct {
    std::string file;
    std::string says;
  } cases[] = {
      {File("absent/result.json"),
       "the directory \"" + File("absent") + "\" does not exist; create it, or give another name"},
      {"absent/result.json",
       "the directory \"absent\" does not exist; create it, or give another name"},
      {File("locked.json"), "the file is read-only; make it writable, or give another name"}};
  for (const auto& [file, says] : cases) {
    const Outcome outcome =
        RunTool({"--url", "http://127.0.0.1:1/", "sources", "--verbose", "-o", file});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err,
              "xmla-import: error: --output \"" + file + "\" cannot be written: " + says + "\n");
    EXPECT_EQ(outcome.out, "");
  }
  EXPECT_EQ(support::ReadFile(File("locked.json")), "old");
  ExpectOnly({File("locked.json")});
}

TEST_F(Output, DeviceIsNotReplaced) {
  EXPECT_EQ(RunInto("/dev/null").status, 0);
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
  const Outcome full = RunInto("/dev/full");
  EXPECT_EQ(full.status, 1);
  EXPECT_THAT(full.err, HasSubstr("\"/dev/full\": No space left on device"));
}

TEST_F(Output, NoResultCreatesNoFile) {
  const Outcome outcome = RunTool({"--url", "http://127.0.0.1:1/", "sources", "-o", File()});
  EXPECT_EQ(outcome.status, 1);
  ExpectOnly({});
}

TEST_F(Output, NoResultKeepsAnExistingFile) {
  std::ofstream(File()) << "old";
  RunTool({"--url", "http://127.0.0.1:1/", "sources", "-o", File()});
  EXPECT_EQ(support::ReadFile(File()), "old");
}

/// A call that writes to a file, its status, and what is in FILE.partial after it.
struct FailedCall {
  Arguments arguments;
  int status;
  const char* partial;
};
const FailedCall kFailedCalls[] = {
    {{"--url", "http://127.0.0.1:1/", "sources"}, 1, ""},
    {{"--url", "http://127.0.0.1:1/", "import", "--format", "json"}, 1, ""},
    {{"--target", "x", "sources", "--format", "json"}, 2, ""},
    {{"import", "--cube", "Sale", "--format", "json"}, 2, ""},
    {{"import", "--format", "json", "--jobs", "0"}, 2, ""},
};

TEST_F(Output, FailureKeepsTheFormerFileAndSaysSo) {
  for (const bool exists : {true, false})
    for (const FailedCall& call : kFailedCalls) {
      if (exists) std::ofstream(File()) << "former";
      Arguments arguments = call.arguments;
      if (arguments.front() != "--url")
        arguments.insert(arguments.begin(), {"--url", m_provider.Url()});
      arguments.insert(arguments.end(), {"-o", File()});
      const Outcome outcome = RunTool(arguments);
      EXPECT_EQ(outcome.status, call.status) << outcome.err;
      EXPECT_EQ(outcome.out, "");
      EXPECT_EQ(
          outcome.ErrorLines().back(),
          "xmla-import: note: \"" + File() + (exists ? "\" is unchanged" : "\" was not created"));
      if (exists) {
        EXPECT_EQ(support::ReadFile(File()), "former");
        std::filesystem::remove(File());
      }
      ExpectOnly({});
    }
}

/// The file that a link leads to is elsewhere, so its path is complete.
TEST_F(Output, NamesThePartialFileBehindALink) {
  const support::TempDir other;
  const std::string target = other.Path() / "target";
  std::ofstream(target) << "former";
  std::filesystem::create_symlink(target, File());
  const sample::Provider provider;
  const std::string url = provider.Url(sample::Kind::kSapBw) + "?mood=stall";
  const Outcome outcome = RunToolWhile({"--url", url, "check", "-o", File()}, [](pid_t process) {
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    kill(process, SIGINT);
  });
  EXPECT_EQ(outcome.ErrorLines().back(), "xmla-import: note: \"" + File() +
                                             "\" is unchanged; the partial result is in \"" +
                                             target + ".partial\"");
}

TEST_F(Output, IncompleteResultReplacesTheFile) {
  std::ofstream(File()) << "former";
  const Outcome outcome = RunTool({"--url", m_provider.Url(), "import", "--source", "Alpha",
                                   "--source", "None", "--format", "json", "-o", File()});
  EXPECT_EQ(outcome.status, 3) << outcome.err;
  EXPECT_EQ(Json::parse(support::ReadFile(File()))["errors"].size(), 1u);
  EXPECT_EQ(outcome.ErrorLines().back(),
            "xmla-import: note: the result in \"" + File() + "\" is incomplete");
  ExpectOnly({File()});
}

TEST_F(Output, ClosedOrFullStandardOutputIsAnError) {
  const ScriptedProvider provider(OneCube());
  for (const Stream stream : {Stream::kClosed, Stream::kFull})
    for (const std::string& format : FormatNames()) {
      Options options;
      options.out = stream;
      const Outcome outcome =
          RunTool({"--url", provider.Url(), "import", "--format", format}, options);
      EXPECT_EQ(outcome.status, 1);
      EXPECT_THAT(outcome.err, HasSubstr("the result cannot be written to standard output: "));
    }
}

TEST_F(Output, ClosedPipeIsASilentSuccess) {
  Options options;
  options.out = Stream::kReaderGone;
  const Outcome outcome = RunTool({"--url", m_provider.Url(), "sources"}, options);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.signal, 0);
  EXPECT_EQ(outcome.err, "");
}

TEST_F(Output, WorksWithoutStandardError) {
  for (const Stream stream : {Stream::kClosed, Stream::kFull, Stream::kReaderGone}) {
    Options options;
    options.err = stream;
    const Outcome outcome = RunTool({"--url", m_provider.Url(), "sources", "--verbose"}, options);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "Alpha\nBeta\n");
  }
}

}  // namespace
}  // namespace tool
