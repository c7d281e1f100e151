// Files of other users at the place of the output or the password file gain them nothing.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <ctime>
#include <filesystem>
#include <fstream>

#include "support/Effort.h"
#include "support/TempDir.h"
#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr uid_t kRoot = 0;
constexpr uid_t kOrdinary = 61234;
constexpr uid_t kStranger = 61235;

/// Switches to another user permanently.
void Become(uid_t user) {
  umask(022);
  if (user != kRoot && (setgid(user) != 0 || setuid(user) != 0)) _exit(125);
}

/// Files of several users, and the tool run as one of them.
class OtherUsers : public testing::TestWithParam<uid_t> {
 protected:
  void SetUp() override {
    if (geteuid() != kRoot) GTEST_SKIP() << "skipped: only root can become several users";
    chmod(m_folder.Path().c_str(), 0755);
  }

  fs::path Path(const fs::path& name) const { return m_folder.Path() / name; }
  void MakeFolder(const fs::path& name, uid_t owner, mode_t mode) const {
    fs::create_directories(Path(name));
    Own(name, owner);
    chmod(Path(name).c_str(), mode);
  }
  void MakeFile(const fs::path& name, uid_t owner, mode_t mode, const char* text = "former") const {
    std::ofstream(Path(name)) << text;
    Own(name, owner);
    chmod(Path(name).c_str(), mode);
  }
  void MakeLink(const fs::path& target, const fs::path& name, uid_t owner) const {
    fs::create_symlink(target, Path(name));
    Own(name, owner);
  }
  struct stat StatusOf(const fs::path& name) const {
    struct stat status {};
    EXPECT_EQ(lstat(Path(name).c_str(), &status), 0) << name;
    return status;
  }
  std::string Text(const fs::path& name) const { return support::ReadFile(Path(name)); }

  static void TearDownTestSuite() {
    if (m_calls > 0 && !testing::UnitTest::GetInstance()->Failed())
      support::PrintFigure(
          "files, links, pipes and directories of other users",
          std::to_string(m_calls) + " calls: no permission kept, no link followed, no wait");
  }

  Outcome Run(const Arguments& arguments, uid_t user) const {
    ++m_calls;
    Options options;
    options.prepare = [user] { Become(user); };
    Arguments words{"--url", m_provider.Url()};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return RunTool(words, options);
  }
  Outcome RunInto(const fs::path& name, uid_t user) const {
    return Run({"sources", "-o", Path(name)}, user);
  }
  Outcome RunWithPassword(const fs::path& name, uid_t user) const {
    return Run({"sources", "--user", "ann", "--password-file", Path(name)}, user);
  }

  static constexpr const char* kResult = "Alpha\nBeta\n";
  const ScriptedProvider m_provider{TwoSources()};
  const support::TempDir m_folder;

 private:
  inline static int m_calls = 0;

  void Own(const fs::path& name, uid_t owner) const {
    ASSERT_EQ(lchown(Path(name).c_str(), owner, owner), 0) << name;
  }
};

struct Former {
  bool isOwn;
  mode_t mode;
  mode_t expected;
};
constexpr mode_t kUsual = 0644;
constexpr Former kFormers[] = {
    {true, 0640, 0640},    {true, 0600, 0600},    {true, 0777, 0777},     {true, 04755, 0755},
    {true, 06777, 0777},   {true, 01666, 0666},   {false, 06777, kUsual}, {false, 04755, kUsual},
    {false, 0600, kUsual}, {false, 0666, kUsual},
};

TEST_P(OtherUsers, ResultGetsNoPermissionsFromAForeignFile) {
  MakeFolder("own", GetParam(), 0755);
  for (const Former& former : kFormers) {
    SCOPED_TRACE(testing::Message() << former.isOwn << std::oct << " " << former.mode);
    MakeFile("own/result", former.isOwn ? GetParam() : kStranger, former.mode);
    const Outcome outcome = RunInto("own/result", GetParam());
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(Text("own/result"), kResult);
    EXPECT_EQ(StatusOf("own/result").st_mode & 07777, former.expected);
    EXPECT_EQ(StatusOf("own/result").st_uid, GetParam());
    fs::remove(Path("own/result"));
  }
}

TEST_P(OtherUsers, ResultDropsPermissionsOfALostGroup) {
  MakeFolder("own", GetParam(), 0755);
  MakeFile("own/result", GetParam(), 0660);
  ASSERT_EQ(lchown(Path("own/result").c_str(), GetParam(), kStranger), 0);
  EXPECT_EQ(RunInto("own/result", GetParam()).status, 0);
  const struct stat status = StatusOf("own/result");
  // Root can keep the group. A user outside the group cannot, and grants nothing to another group.
  EXPECT_EQ(status.st_gid, GetParam() == kRoot ? kStranger : GetParam());
  EXPECT_EQ(status.st_mode & 0777, GetParam() == kRoot ? 0660u : 0600u);
}

TEST_P(OtherUsers, ResultGetsNoPermissionsFromAHardLink) {
  MakeFolder("own", GetParam(), 0755);
  MakeFile("own/open", GetParam(), 0666);
  fs::create_hard_link(Path("own/open"), Path("own/result"));
  EXPECT_EQ(RunInto("own/result", GetParam()).status, 0);
  EXPECT_EQ(StatusOf("own/result").st_mode & 07777, kUsual);
  EXPECT_EQ(Text("own/open"), "former");
}

struct Planted {
  mode_t folder;
  uid_t folderOwner;
  uid_t linkOwner;
  bool isTrusted;
};
constexpr Planted kPlanted[] = {
    {0755, kRoot, kStranger, true},       {01777, kRoot, kStranger, false},
    {0777, kRoot, kStranger, false},      {01755, kRoot, kStranger, false},
    {0775, kRoot, kStranger, false},      {0775, kStranger, kStranger, true},
    {01777, kStranger, kStranger, false}, {0777, kStranger, kStranger, false},
    {01777, kRoot, kRoot, true},          {0777, kStranger, kRoot, true},
};

TEST_P(OtherUsers, ResultDoesNotFollowForeignLinks) {
  MakeFolder("own", GetParam(), 0755);
  for (const Planted& planted : kPlanted)
    // A link as the last component, as an earlier one, and behind a link of the caller.
    for (const char* name : {"shared/file", "shared/folder/target", "own/chain"}) {
      SCOPED_TRACE(testing::Message() << std::oct << planted.folder << " of " << planted.folderOwner
                                      << ", link of " << planted.linkOwner << ", " << name);
      MakeFile("own/target", GetParam(), 0600);
      MakeFolder("shared", planted.folderOwner, planted.folder);
      MakeLink(Path("own/target"), "shared/file", planted.linkOwner);
      MakeLink(Path("own"), "shared/folder", planted.linkOwner);
      MakeLink(Path("shared/file"), "own/chain", GetParam());
      const Outcome outcome = RunInto(name, GetParam());
      EXPECT_EQ(outcome.status, planted.isTrusted ? 0 : 2) << outcome.err;
      EXPECT_EQ(Text("own/target"), planted.isTrusted ? kResult : "former");
      EXPECT_TRUE(fs::is_symlink(Path("shared/file")));
      if (!planted.isTrusted) {
        EXPECT_THAT(outcome.err, HasSubstr("is a link of another user in a directory that others "
                                           "can write to"));
      }
      fs::remove_all(Path("shared"));
      fs::remove(Path("own/chain"));
    }
}

TEST_P(OtherUsers, PasswordFileDoesNotFollowForeignLinks) {
  for (const Planted& planted : kPlanted) {
    SCOPED_TRACE(testing::Message() << std::oct << planted.folder << " of " << planted.folderOwner
                                    << ", link of " << planted.linkOwner);
    MakeFile("secret", GetParam(), 0600, "s3cret\n");
    MakeFolder("shared", planted.folderOwner, planted.folder);
    MakeLink(Path("secret"), "shared/file", planted.linkOwner);
    const std::size_t before = m_provider.Requests().size();
    const Outcome outcome = RunWithPassword("shared/file", GetParam());
    EXPECT_EQ(outcome.status, planted.isTrusted ? 0 : 2) << outcome.err;
    EXPECT_EQ(m_provider.Requests().size() > before, planted.isTrusted);
    fs::remove_all(Path("shared"));
  }
}

TEST_P(OtherUsers, ForeignPipesDoNotBlockTheTool) {
  for (const mode_t mode : {01777u, 0777u}) {
    MakeFolder("shared", kRoot, mode);
    ASSERT_EQ(mkfifo(Path("shared/pipe").c_str(), 0666), 0);
    ASSERT_EQ(chmod(Path("shared/pipe").c_str(), 0666), 0);
    ASSERT_EQ(lchown(Path("shared/pipe").c_str(), kStranger, kStranger), 0);
    for (const Outcome& outcome :
         {RunInto("shared/pipe", GetParam()), RunWithPassword("shared/pipe", GetParam())}) {
      EXPECT_EQ(outcome.status, 2);
      EXPECT_THAT(outcome.err, HasSubstr("is a pipe of another user"));
    }
    fs::remove_all(Path("shared"));
  }
  EXPECT_TRUE(m_provider.Requests().empty());
}

TEST_P(OtherUsers, ForeignFilesDoNotBlockTheNameOfTheLog) {
  MakeFolder("shared", kRoot, 01777);
  for (int ahead = -1; ahead < 30; ++ahead) {
    const std::time_t when = std::time(nullptr) + ahead;
    std::tm fields{};
    localtime_r(&when, &fields);
    char name[64];
    std::strftime(name, sizeof name, "shared/OT_xmla_%Y_%m_%d_%H_%M_%S.log", &fields);
    MakeFile(name, kStranger, 0666);
  }
  const Outcome outcome = Run({"sources", "--log", Path("shared")}, GetParam());
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, HasSubstr("it belongs to another user (remove it"));
}

TEST_P(OtherUsers, ForeignFileInAStickyDirectory) {
  MakeFolder("shared", kRoot, 01777);
  MakeFile("shared/result", kStranger, 0666);
  const Outcome outcome = RunInto("shared/result", GetParam());
  if (GetParam() == kRoot) {
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(Text("shared/result"), kResult);
    EXPECT_EQ(StatusOf("shared/result").st_uid, kRoot);
  } else {
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.err, HasSubstr("cannot be written: Operation not permitted"));
    EXPECT_TRUE(m_provider.Requests().empty());
    EXPECT_EQ(Text("shared/result"), "former");
  }
}

TEST_P(OtherUsers, MissingAccessIsReportedBeforeTheImport) {
  MakeFolder("closed", kStranger, 0755);
  const Outcome outcome = RunInto("closed/result", GetParam());
  EXPECT_EQ(outcome.status, GetParam() == kRoot ? 0 : 2);
  EXPECT_EQ(m_provider.Requests().empty(), GetParam() != kRoot);
}

INSTANTIATE_TEST_SUITE_P(As, OtherUsers, testing::Values(kRoot, kOrdinary), [](const auto& user) {
  return user.param == kRoot ? "Root" : "AnOrdinaryUser";
});

/// A path that changes between the tool's check and the end of the import.
class ChangedPlace : public testing::Test {
 protected:
  /// Runs the tool. Its provider answers after `change` is done.
  Outcome Run(const std::string& name, const std::function<void()>& change) const {
    ScriptedProvider::Script script = TwoSources();
    script.answer = [&](const std::string& type, const std::string&) {
      if (type == "DISCOVER_DATASOURCES") change();
      return std::string();
    };
    const ScriptedProvider provider(std::move(script));
    return RunTool({"--url", provider.Url(), "sources", "-o", Path(name)});
  }
  fs::path Path(const fs::path& name) const { return m_folder.Path() / name; }
  std::string Text(const fs::path& name) const { return support::ReadFile(Path(name)); }

  const support::TempDir m_folder;
};

TEST_F(ChangedPlace, ALinkInPlaceOfTheFileIsNotFollowed) {
  std::ofstream(Path("victim")) << "kept";
  std::ofstream(Path("result")) << "former";
  const Outcome outcome = Run("result", [&] {
    fs::remove(Path("result"));
    fs::create_symlink("victim", Path("result"));
  });
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(Text("victim"), "kept");
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(Path("result"))));
  EXPECT_EQ(Text("result"), "Alpha\nBeta\n");
}

TEST_F(ChangedPlace, ADirectoryInPlaceOfAnotherIsNotEntered) {
  fs::create_directory(Path("a"));
  fs::create_directory(Path("victim"));
  const Outcome outcome = Run("a/result", [&] {
    fs::rename(Path("a"), Path("b"));
    fs::create_symlink("victim", Path("a"));
  });
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_TRUE(fs::is_empty(Path("victim")));
  EXPECT_EQ(Text("b/result"), "Alpha\nBeta\n");
}

/// A file system without support for unnamed files: opening one fails.
void RefuseNamelessFiles() {
  constexpr auto kAtFlags = offsetof(seccomp_data, args) + 2 * sizeof(std::uint64_t);
  constexpr unsigned int kNameless = O_TMPFILE & ~O_DIRECTORY;
  std::array filter{
      sock_filter(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))),
      sock_filter(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat, 0, 3)),
      sock_filter(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kAtFlags)),
      sock_filter(BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, kNameless, 0, 1)),
      sock_filter(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EOPNOTSUPP)),
      sock_filter(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)),
  };
  const sock_fprog program{filter.size(), filter.data()};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
    _exit(125);
}

class FileNames : public testing::TestWithParam<bool> {
 protected:
  Outcome RunInto(const std::string& name) const {
    Options options;
    if (GetParam()) options.prepare = RefuseNamelessFiles;
    return RunTool({"--url", m_provider.Url(), "sources", "-o", m_folder.Path() / name}, options);
  }

  const ScriptedProvider m_provider{TwoSources()};
  const support::TempDir m_folder;
};

TEST_P(FileNames, MaximumLengthWorks) {
  for (const std::size_t length : {std::size_t{1}, std::size_t{250}, std::size_t{255}}) {
    const std::string name(length, 'n');
    for (const char* former : {"", "former"}) {
      if (*former) std::ofstream(m_folder.Path() / name) << former;
      const Outcome outcome = RunInto(name);
      EXPECT_EQ(outcome.status, 0) << length << outcome.err;
      EXPECT_EQ(support::ReadFile(m_folder.Path() / name), "Alpha\nBeta\n");
      EXPECT_EQ(m_folder.Files().size(), 1u);
    }
    fs::remove(m_folder.Path() / name);
  }
}

TEST_P(FileNames, TooLongNamesFailBeforeTheImport) {
  const Outcome outcome = RunInto(std::string(256, 'n'));
  EXPECT_EQ(outcome.status, 2);
  EXPECT_THAT(outcome.err, HasSubstr("cannot be written: File name too long"));
  EXPECT_TRUE(m_provider.Requests().empty());
}

TEST_P(FileNames, FailedRenameLeavesNoTemporaryFile) {
  ScriptedProvider::Script script = TwoSources();
  script.answer = [this](const std::string&, const std::string&) {
    fs::create_directory(m_folder.Path() / "result");
    return std::string();
  };
  const ScriptedProvider provider(std::move(script));
  Options options;
  if (GetParam()) options.prepare = RefuseNamelessFiles;
  const Outcome outcome =
      RunTool({"--url", provider.Url(), "sources", "-o", m_folder.Path() / "result"}, options);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, HasSubstr("cannot be written to"));
  EXPECT_TRUE(m_folder.Files().empty());
}

INSTANTIATE_TEST_SUITE_P(, FileNames, testing::Bool(), [](const auto& isRefused) {
  return isRefused.param ? "WithoutNamelessFiles" : "WithNamelessFiles";
});

}  // namespace
}  // namespace tool
