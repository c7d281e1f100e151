// Imports from a real server. The folder expected/ has the expected output, which was checked
// against the server's schemas by hand. README.md lists the Debian packages of the server.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "support/TempDir.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using testing::HasSubstr;

constexpr int kPackageMissing = 77;

/// Runs the server of this folder during the object's life.
class RealServer {
 public:
  RealServer() {
    int in[2];
    int out[2];
    int err[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0)
      throw std::runtime_error("no pipe");
    m_process = fork();
    if (m_process < 0) throw std::runtime_error("no process");
    if (m_process == 0) {
      dup2(in[0], STDIN_FILENO);
      dup2(out[1], STDOUT_FILENO);
      dup2(err[1], STDERR_FILENO);
      execl(REAL_FOLDER "/start", "start", nullptr);
      _exit(127);
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);
    m_input = in[1];
    m_url = ReadLine(out[0]);
    // Without an address, the process has ended and printed the reason.
    if (m_url.empty()) m_message = ReadLine(err[0]);
    close(out[0]);
    m_errors = err[0];
  }
  ~RealServer() { End(); }
  RealServer(const RealServer&) = delete;
  RealServer& operator=(const RealServer&) = delete;

  const std::string& Url() const { return m_url; }
  const std::string& Message() const { return m_message; }
  /// Closes the server's standard input and waits. Returns the exit status, or -1.
  int End() {
    if (m_process <= 0) return m_status;
    close(m_input);
    int status = 0;
    waitpid(m_process, &status, 0);
    close(m_errors);
    m_process = 0;
    return m_status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  static std::string ReadLine(int file) {
    std::string line;
    for (char c; read(file, &c, 1) == 1 && c != '\n';) line += c;
    return line;
  }

  pid_t m_process = 0;
  int m_input = -1;
  int m_errors = -1;
  int m_status = -1;
  std::string m_url;
  std::string m_message;
};

class Real : public testing::Test {
 protected:
  static void SetUpTestSuite() { m_server = new RealServer; }
  static void TearDownTestSuite() {
    delete m_server;
    m_server = nullptr;
  }
  void SetUp() override {
    if (!m_server->Url().empty()) return;
    const int status = m_server->End();
    ASSERT_EQ(status, kPackageMissing) << "the server did not start: " << m_server->Message();
    GTEST_SKIP() << "SKIPPED: no real server, " << m_server->Message();
  }

  static Outcome Import(const Arguments& more) {
    Arguments arguments{"--url", m_server->Url()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return RunTool(arguments);
  }

  static RealServer* m_server;
};

RealServer* Real::m_server = nullptr;

/// One call and the file with its expected standard output.
struct Case {
  Arguments arguments;
  const char* expected;
  int status;
};

const Case kCases[] = {
    {{"sources", "--target", "tessera"}, "sources.txt", 0},
    {{"sources", "--target", "auto"}, "sources.txt", 0},
    {{"sources"}, "sources.txt", 0},
    {{"sources", "--target", "analysis-services-2000"}, "sources.txt", 0},
    {{"sources", "--target", "analysis-services-2005"}, "sources.analysis-services-2005.txt", 0},
    {{"sources", "--format", "json", "--target", "tessera"}, "sources.json", 0},
    {{"sources", "--format", "json", "--target", "auto"}, "sources.json", 0},
    {{"sources", "--format", "json", "--target", "analysis-services-2000"},
     "sources.analysis-services-2000.json",
     0},
    {{"sources", "--format", "json", "--target", "analysis-services-2005"},
     "sources.analysis-services-2005.json",
     0},
    {{"tree", "--target", "tessera"}, "tree.txt", 0},
    {{"tree", "--target", "auto"}, "tree.txt", 0},
    {{"tree", "--target", "analysis-services-2000"}, "tree.txt", 0},
    {{"tree", "--target", "analysis-services-2005"}, "tree.analysis-services-2005.txt", 0},
    {{"tree", "--format", "json", "--target", "tessera"}, "tree.json", 0},
    {{"tree", "--format", "json", "--target", "auto"}, "tree.json", 0},
    {{"tree", "--format", "json", "--target", "analysis-services-2000"},
     "tree.analysis-services-2000.json",
     0},
    {{"tree", "--format", "json", "--target", "analysis-services-2005"},
     "tree.analysis-services-2005.json",
     0},
    {{"tree", "--format", "json", "--source", "Provider=mondrian"}, "tree.json", 0},
    {{"import"}, "import.txt", 3},
    {{"import", "--format", "json"}, "import.json", 3},
    {{"import", "--format", "json", "--jobs", "4"}, "import.json", 3},
    {{"import", "--format", "json", "--jobs", "32"}, "import.json", 3},
};

/// The first line that differs.
std::string Difference(const std::string& got, const std::string& expected) {
  std::istringstream lines(got);
  std::istringstream expectedLines(expected);
  std::string line;
  std::string expectedLine;
  for (int number = 1;; ++number) {
    const bool hasLine = static_cast<bool>(std::getline(lines, line));
    const bool hasExpected = static_cast<bool>(std::getline(expectedLines, expectedLine));
    if (!hasLine && !hasExpected) return "the texts are equal, except for line feeds at the end";
    if (hasLine == hasExpected && line == expectedLine) continue;
    return "line " + std::to_string(number) + " is " + (hasLine ? line : "missing") +
           "\nexpected: " + (hasExpected ? expectedLine : "the end") +
           "\nFor a change that is meant: XMLA_UPDATE_EXPECTED=1 build/bin/real-tests";
  }
}

TEST_F(Real, ImportsGiveTheExpectedDocuments) {
  for (const Case& each : kCases) {
    SCOPED_TRACE(testing::PrintToString(each.arguments));
    const Outcome outcome = Import(each.arguments);
    EXPECT_EQ(outcome.status, each.status) << outcome.err;
    const std::filesystem::path file =
        std::filesystem::path(REAL_FOLDER "/expected") / each.expected;
    if (std::getenv("XMLA_UPDATE_EXPECTED")) {
      std::ofstream(file) << outcome.out;
      continue;
    }
    const std::string expected = support::ReadFile(file);
    EXPECT_TRUE(outcome.out == expected) << Difference(outcome.out, expected);
  }
}

TEST_F(Real, UnknownCatalogOrCubeListsExistingOnes) {
  const Outcome catalog =
      Import({"cube", "--source", "Provider=mondrian", "--catalog", "Nope", "--cube", "Sales"});
  EXPECT_EQ(catalog.status, 2);
  EXPECT_THAT(catalog.err, HasSubstr("there are: \"Skylark\", \"Архив <old>\""));
  const Outcome cube =
      Import({"cube", "--source", "Provider=mondrian", "--catalog", "Архив <old>", "--cube", "x"});
  EXPECT_EQ(cube.status, 2);
  EXPECT_THAT(cube.err, HasSubstr("there are: \"Старые продажи\""));
}

TEST_F(Real, CheckPasses) {
  const Json document = Import({"--format", "json", "check"}).Document();
  EXPECT_THAT(document["errors"], testing::IsEmpty());
  EXPECT_GE(document["steps"].size(), 15u);
  for (const Json& step : document["steps"]) EXPECT_EQ(step["status"], "ok") << step;
  EXPECT_THAT(document.dump(), HasSubstr("Mondrian XML for Analysis Provider"));
}

TEST_F(Real, EveryPageOfTheReportOpensInABrowser) {
  const support::TempDir folder;
  const std::string file = folder.Path() / "report.html";
  EXPECT_EQ(Import({"-o", file, "import"}).status, 3);
  const std::string command = REPORT_FOLDER "/run every-page.mjs " + file;
  const int status = std::system(command.c_str());
  if (WEXITSTATUS(status) == kPackageMissing) GTEST_SKIP() << "SKIPPED: no browser";
  EXPECT_EQ(status, 0);
}

TEST_F(Real, AnotherPathIsAnErrorWithTheStatus) {
  // The web server answers there with an HTML page.
  std::string url = m_server->Url();
  url.resize(url.rfind('/'));
  const Outcome outcome = RunTool({"--url", url + "/elsewhere", "sources"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, HasSubstr("HTTP 405 Method Not Allowed"));
}

TEST_F(Real, ServerEndsWithItsStandardInput) {
  RealServer other;
  ASSERT_FALSE(other.Url().empty()) << other.Message();
  EXPECT_EQ(other.End(), 0);
  EXPECT_EQ(RunTool({"--url", other.Url(), "sources"}).status, 1);
}

TEST(RealServerStart, NamesMissingPackagesAndExitsWith77) {
  setenv("XMLA_REAL_JARS", "/no/such/folder", 1);
  RealServer bare;
  unsetenv("XMLA_REAL_JARS");
  EXPECT_EQ(bare.Url(), "");
  EXPECT_THAT(bare.Message(), testing::StartsWith("these Debian packages are missing: "));
  EXPECT_THAT(bare.Message(), HasSubstr("libmondrian-java"));
  EXPECT_EQ(bare.End(), kPackageMissing);
}

}  // namespace
}  // namespace tool
