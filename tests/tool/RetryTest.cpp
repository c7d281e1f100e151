// What users see of repeated requests.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <memory>

#include "connection/Operation.h"
#include "output/Output.h"
#include "output/Progress.h"
#include "output/Report.h"
#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace {

using testing::HasSubstr;
using testing::Not;

/// Replaces standard error of the test by a pipe or a terminal.
class StandardError {
 public:
  explicit StandardError(bool isTerminal) : m_former(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
    int ends[2] = {-1, -1};
    if (isTerminal) {
      ends[0] = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
      grantpt(ends[0]);
      unlockpt(ends[0]);
      ends[1] = open(ptsname(ends[0]), O_RDWR | O_NOCTTY | O_CLOEXEC);
    } else if (pipe2(ends, O_CLOEXEC) != 0) {
      throw std::runtime_error("no pipe");
    }
    m_read = ends[0];
    fcntl(m_read, F_SETFL, O_NONBLOCK);
    dup2(ends[1], STDERR_FILENO);
    close(ends[1]);
  }
  ~StandardError() {
    dup2(m_former, STDERR_FILENO);
    close(m_former);
    close(m_read);
  }
  StandardError(const StandardError&) = delete;
  StandardError& operator=(const StandardError&) = delete;

  std::string Text() const {
    std::string text;
    char block[1000];
    // A terminal returns one line at a time.
    for (ssize_t count = 0; (count = read(m_read, block, sizeof block)) > 0;)
      text.append(block, static_cast<std::size_t>(count));
    return text;
  }

 private:
  int m_former;
  int m_read;
};

HTTPRetry FirstRetry() {
  return {.url = L"http://h/",
          .subject = L"DISCOVER_DATASOURCES",
          .error = L"http://h/: HTTP 503\x1B[2J: busy",
          .number = 1,
          .maxRetries = 3,
          .waitSeconds = 60};
}

TEST(Retry, IsALineOfVerbose) {
  const StandardError output(false);
  Progress progress(false, true);
  OperationObserver observer(progress);
  observer.OnRetry(FirstRetry());
  EXPECT_THAT(output.Text(),
              testing::MatchesRegex("[0-9:.]+ retry 1 of 3 in 60.0 s of DISCOVER_DATASOURCES: "
                                    "http://h/: HTTP 503 \\[2J: busy\n"));
}

TEST(Retry, IsNotShownWithoutVerboseAndTerminal) {
  const StandardError output(false);
  Progress progress(false, false);
  progress.OnRetry(FirstRetry());
  EXPECT_EQ(output.Text(), "");
}

TEST(Retry, WaitIsShownOnATerminalUntilTheExchangeEnds) {
  const StandardError output(true);
  Progress progress(false, false);
  progress.OnBegin({.url = L"http://h/", .subject = L"DISCOVER_DATASOURCES", .timeoutSeconds = 9});
  progress.OnRetry(FirstRetry());
  EXPECT_THAT(output.Text(), HasSubstr("retry 1 of 3 in 60.0 s for DISCOVER_DATASOURCES"));
  progress.OnExchange({});
  progress.BeginCubes(2);
  EXPECT_THAT(output.Text(), Not(HasSubstr("retry")));
}

TEST(Retry, IsCountedInTheClosingLine) {
  const StandardError terminal(true);
  Progress progress(false, false);
  Output output("", true);
  Report report(output, "text", "", ShownWarnings::kSummary, progress);
  progress.OnRetry(FirstRetry());
  progress.OnRetry(FirstRetry());
  progress.OnExchange({});
  report.Finish(ExitStatus::kDone, SourcesResult());
  EXPECT_THAT(terminal.Text(), HasSubstr("; 1 request and 2 retries, 0 bytes, "));
}

/// The first two replies say that the server is busy.
tool::Outcome ImportFromABusyServer(const char* retries) {
  tool::ScriptedProvider::Script script = tool::OneCube();
  const auto count = std::make_shared<std::atomic<int>>(0);
  script.status = [count] { return ++*count <= 2 ? 503 : 200; };
  const tool::ScriptedProvider provider(std::move(script));
  return tool::RunTool({"--url", provider.Url(), "--format", "json", "--retry", retries, "import"});
}

TEST(Retry, CompletesTheImportFromABusyServer) {
  const tool::Outcome complete = ImportFromABusyServer("2");
  EXPECT_EQ(complete.status, 0) << complete.err;
  EXPECT_EQ(complete.Document()["cubes"].size(), 1u);
  for (const char* const tooFew : {"0", "1"}) {
    const tool::Outcome outcome = ImportFromABusyServer(tooFew);
    EXPECT_EQ(outcome.status, 1) << tooFew;
    EXPECT_THAT(outcome.err, HasSubstr("HTTP 503 Service Unavailable; try again later")) << tooFew;
  }
}

}  // namespace
