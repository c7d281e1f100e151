// Write errors of the host's file object and of the import log.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "ExemptServerSupport.h"
#include "OperationsSupport.h"
#include "Utility/Generic/AFile.h"
#include "Utility/Generic/ErrorMessage.h"
#include "support/Effort.h"
#include "support/Settings.h"
#include "support/TempDir.h"
#include "support/Text.h"

namespace reliability {
namespace {

using testing::HasSubstr;

/// Calls of the failure handler, as "NAME: REASON" lines.
std::string& Told() {
  static std::string told;
  return told;
}

class Writing : public testing::Test {
 protected:
  void SetUp() override {
    Told().clear();
    m_settings.onLogFailure = [](const String& name, const String& reason) {
      Told() += support::Narrow(name) + ": " + support::Narrow(reason) + "\n";
    };
    // SIGXFSZ or SIGPIPE, if it reached the process, would kill it here.
    std::signal(SIGPIPE, SIG_DFL);
    std::signal(SIGXFSZ, SIG_DFL);
  }
  std::string File(const char* name) const { return m_folder.Path() / name; }

  const support::TempDir m_folder;
  support::Settings m_settings;
};

/// Limits the size of files during the object's life.
class SizeLimit {
 public:
  explicit SizeLimit(rlim_t bytes) {
    getrlimit(RLIMIT_FSIZE, &m_former);
    const rlimit limit{bytes, m_former.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~SizeLimit() { setrlimit(RLIMIT_FSIZE, &m_former); }
  SizeLimit(const SizeLimit&) = delete;
  SizeLimit& operator=(const SizeLimit&) = delete;

 private:
  rlimit m_former{};
};

TEST_F(Writing, FullDeviceFailsAndIsReportedOnce) {
  const Heap<AFile> file = AFile::MakeFile();
  file->Open(L"/dev/full", AFile::kModeWrite);
  EXPECT_FALSE(file->WriteBytes("text", 4));
  EXPECT_FALSE(file->Flush());
  EXPECT_FALSE(file->WriteBytes("text", 4));
  EXPECT_EQ(Told(), "/dev/full: No space left on device\n");
}

TEST_F(Writing, SizeLimitFailsWithoutASignal) {
  const Heap<AFile> file = AFile::MakeFile();
  file->Open(support::Wide(File("limited")), AFile::kModeWriteFromEmpty);
  {
    const SizeLimit limit(100);
    EXPECT_TRUE(file->WriteBytes(std::string(60, 'a').data(), 60));
    EXPECT_FALSE(file->WriteBytes(std::string(60, 'b').data(), 60));
    EXPECT_FALSE(file->Flush());
  }
  EXPECT_EQ(support::ReadFile(File("limited")), std::string(60, 'a') + std::string(40, 'b'));
  EXPECT_EQ(Told(), File("limited") + ": File too large\n");
}

TEST_F(Writing, ClosedPipeFailsWithoutASignal) {
  ASSERT_EQ(mkfifo(File("pipe").c_str(), 0600), 0);
  const int reader = open(File("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  const Heap<AFile> file = AFile::MakeFile();
  file->Open(support::Wide(File("pipe")), AFile::kModeWrite);
  EXPECT_TRUE(file->WriteBytes("read", 4));
  close(reader);
  EXPECT_FALSE(file->WriteBytes("lost", 4));
  EXPECT_EQ(Told(), File("pipe") + ": Broken pipe\n");
}

struct PlaceCase {
  const char* name;
  std::string place;
  const char* reason;
};

TEST_F(Writing, UnwritablePlaceIsAnErrorWithItsName) {
  std::ofstream(File("file")) << "kept";
  std::filesystem::create_directory(File("closed"));
  chmod(File("closed").c_str(), 0500);
  std::vector<PlaceCase> cases = {
      {"below a file", File("file") + "/x.log", "Not a directory"},
      {"a directory", m_folder.Path(), "Is a directory"},
      {"the process table", "/proc/nowhere/x.log", "No such file or directory"},
      {"a name too long", File(std::string(300, 'x').c_str()), "File name too long"},
  };
  if (geteuid() != 0) cases.push_back({"not writable", File("closed") + "/x.log", "Permission"});
  for (const PlaceCase& place : cases) {
    const Heap<AFile> file = AFile::MakeFile();
    try {
      file->Open(support::Wide(place.place), AFile::kModeWriteFromEmpty);
      FAIL() << place.name;
    } catch (const ErrorMessage& error) {
      String text;
      error.RetrieveErrorMessages(text);
      EXPECT_THAT(support::Narrow(text), HasSubstr(place.reason)) << place.name;
      EXPECT_EQ(support::Narrow(text).find('\n'), std::string::npos);
    }
    EXPECT_FALSE(file->WriteBytes("x", 1)) << place.name;
  }
  EXPECT_EQ(support::ReadFile(File("file")), "kept");
}

/// Switches the import log on, into a directory.
class LogOn {
 public:
  explicit LogOn(const std::string& directory) {
    setenv("OT_XMLA_IMPORT_LOGGING", "1", 1);
    setenv("XMLA_IMPORT_LOG_DIR", directory.c_str(), 1);
  }
  ~LogOn() {
    unsetenv("OT_XMLA_IMPORT_LOGGING");
    unsetenv("XMLA_IMPORT_LOG_DIR");
  }
  LogOn(const LogOn&) = delete;
  LogOn& operator=(const LogOn&) = delete;
};

/// Every import operation, with its undisturbed outcome.
void ExpectWholeOperations(OTXMLAImportAPI& import, Subject& quiet) {
  Outputs outputs;
  Outputs expected;
  import.SetImportChoiceInfo(quiet.place.source, quiet.place.catalog, quiet.place.cube);
  import.GetHierarchies(outputs.hierarchies, outputs.errors, outputs.warnings);
  quiet.import.GetHierarchies(expected.hierarchies, expected.errors, expected.warnings);
  import.GetMeasuresAndCalcMembers(outputs.units, outputs.errors, outputs.warnings);
  quiet.import.GetMeasuresAndCalcMembers(expected.units, expected.errors, expected.warnings);
  EXPECT_EQ(outputs.Records(), expected.Records());
  EXPECT_EQ(outputs.errors, expected.errors);
}

TEST_F(Writing, LogWriteErrorAnywhereKeepsTheImportComplete) {
  ExemptServer server;
  Subject quiet(kKinds[0], server.Url(kKinds[0].path));
  rlim_t whole = 0;
  long tried = 0;  // limits on the file size
  const auto run = [&](rlim_t limit) {
    Told().clear();
    const support::TempDir folder;
    const LogOn log(folder.Path());
    {
      const SizeLimit limited(limit);
      OTXMLAAnaTamImportAPI import;
      import.SetupConnInfo(quiet.url, L"", L"", quiet.kind.target, ServerInfo::kCLIXMLA);
      ExpectWholeOperations(import, quiet);
    }
    ASSERT_EQ(folder.Files().size(), 1u);
    const std::string text = support::ReadFile(folder.Files()[0]);
    if (limit == RLIM_INFINITY) whole = text.size();
    EXPECT_LE(text.size(), limit);
    if (limit == RLIM_INFINITY) {
      EXPECT_EQ(Told(), "");
      return;
    }
    EXPECT_EQ(Told(), folder.Files()[0].string() + ": File too large\n") << limit;
    ++tried;
  };
  run(RLIM_INFINITY);
  const rlim_t step = support::Effort<rlim_t>(whole / 9, 97);
  for (rlim_t limit = 2; limit < whole && !HasFailure(); limit += step) run(limit);
  support::PrintFigure(
      "disk full at a place of the import log",
      std::to_string(tried) + " places tried, every import complete, each error reported once");
}

TEST_F(Writing, UnopenableLogIsAnErrorAndKeepsTheFormerConnection) {
  ExemptServer server;
  Subject subject(kKinds[0], server.Url(kKinds[0].path));
  std::ofstream(File("file")) << "kept";
  const LogOn log(File("file") + "/logs");
  try {
    subject.import.SetupConnInfo(subject.url, L"", L"", subject.kind.target, ServerInfo::kCLIXMLA);
    FAIL();
  } catch (const ErrorMessage& error) {
    String text;
    error.RetrieveErrorMessages(text);
    EXPECT_THAT(support::Narrow(text), HasSubstr(File("file")));
  }
  Outputs outputs;
  subject.import.GetDataSourceNames(outputs.names, outputs.errors, outputs.warnings);
  EXPECT_EQ(outputs.names.size(), 1u);
  EXPECT_EQ(support::ReadFile(File("file")), "kept");
}

/// Calls `work` while the file system at a directory is read-only, invisible to other processes.
/// Returns false if mounting is not permitted.
template <class Run>
bool WithReadOnlyDisk(const std::string& directory, Run run) {
  bool isMounted = false;
  std::thread([&] {
    // A mount namespace of this thread without propagation.
    if (unshare(CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("none", directory.c_str(), "tmpfs", MS_RDONLY, nullptr) != 0)
      return;
    isMounted = true;
    run();
  }).join();
  return isMounted;
}

TEST_F(Writing, ReadOnlyDiskIsAnErrorWithThePath) {
  ExemptServer server;
  Subject subject(kKinds[0], server.Url(kKinds[0].path));
  std::filesystem::create_directory(File("disk"));
  const auto violation = [](auto open) -> std::string {
    try {
      open();
    } catch (const ErrorMessage& error) {
      String text;
      error.RetrieveErrorMessages(text);
      return support::Narrow(text);
    }
    return {};
  };
  const bool isMounted = WithReadOnlyDisk(File("disk"), [&] {
    const std::string file = violation([&] {
      AFile::MakeFile()->Open(support::Wide(File("disk") + "/file"), AFile::kModeWriteFromEmpty);
    });
    const LogOn log(File("disk") + "/logs");
    const std::string logged = violation([&] {
      subject.import.SetupConnInfo(subject.url, L"", L"", subject.kind.target,
                                   ServerInfo::kCLIXMLA);
    });
    for (const std::string& text : {file, logged}) {
      EXPECT_THAT(text, HasSubstr(File("disk")));
      EXPECT_THAT(text, HasSubstr("Read-only file system"));
      EXPECT_EQ(text.find('\n'), std::string::npos);
    }
  });
  if (!isMounted) GTEST_SKIP() << "skipped: no file system may be mounted here";
  EXPECT_TRUE(std::filesystem::is_empty(File("disk")));
  Outputs outputs;
  subject.import.GetDataSourceNames(outputs.names, outputs.errors, outputs.warnings);
  EXPECT_EQ(outputs.names.size(), 1u);
}

TEST_F(Writing, RemovedLogDirectoryKeepsTheImportComplete) {
  ExemptServer server;
  Subject quiet(kKinds[2], server.Url(kKinds[2].path));
  std::filesystem::create_directory(File("logs"));
  const LogOn log(File("logs"));
  OTXMLAAnaTamImportAPI import;
  import.SetupConnInfo(quiet.url, L"", L"", quiet.kind.target, ServerInfo::kCLIXMLA);
  std::filesystem::remove_all(File("logs"));
  ExpectWholeOperations(import, quiet);
}

}  // namespace
}  // namespace reliability
