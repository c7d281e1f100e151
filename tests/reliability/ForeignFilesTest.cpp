// Files that other users have planted at the place of an import log. The log is refused at once and
// the files stay unchanged, for root and for an ordinary user.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>

#include "Utility/Generic/AFile.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/XMLASAX/OTXMLAAnaTamImportAPI.h"
#include "support/Effort.h"
#include "support/Settings.h"
#include "support/TempDir.h"

namespace {

using support::Narrow;
using support::Wide;
using testing::AllOf;
using testing::AnyOf;
using testing::HasSubstr;

constexpr uid_t kOrdinaryNumber = 23456;
constexpr uid_t kStrangerNumber = 34567;
constexpr char kOpened[] = "opened";
constexpr char kText[] = "what stood there";

/// Owner of a file: the acting user, root or another user.
enum class Owner { kSelf, kRoot, kStranger };

enum class What {
  kNothing,
  kFile,
  kLinkedFile,  // a file with a second hard link
  kDirectory,
  kLink,  // a symbolic link to a directory or file of the acting user
  kDanglingLink,
  kPipe,
  kPipeWithReader,
  kSocket,
  kDevice,
};

struct Thing {
  What what;
  Owner owner = Owner::kSelf;
  mode_t mode = 0700;
};

struct Case {
  const char* name;
  Thing directory;
  Thing file;
  const char* outcome;  // part of the message, or kOpened
};

constexpr Thing kNone{What::kNothing};
constexpr Thing kOwnDirectory{What::kDirectory};
constexpr Thing kSharedDirectory{What::kDirectory, Owner::kRoot, 01777};

constexpr char kOthersWriteThere[] =
    "log.d\": other users can write to it (choose one that belongs to you and that only you can "
    "write to)";
constexpr char kForeignDirectory[] = "log.d\": it belongs to another user (choose one";
constexpr char kForeignLink[] = "log.d\": it is another user's symbolic link (choose one";
constexpr char kOthersWriteIt[] =
    "x.log\": other users can write to it (remove it, or choose another directory)";
constexpr char kForeignFile[] = "x.log\": it belongs to another user (remove it";
constexpr char kSecondName[] = "x.log\": it has other names (hard links) (remove it";
constexpr char kFileIsLink[] = "x.log\": it is a symbolic link (remove it";
constexpr char kSpecial[] = "x.log\": it is not a regular file (remove it";

const Case kCases[] = {
    {"a new directory", kNone, kNone, kOpened},
    {"my directory", kOwnDirectory, kNone, kOpened},
    {"my directory, readable", {What::kDirectory, Owner::kSelf, 0755}, kNone, kOpened},
    {"my directory, for my group",
     {What::kDirectory, Owner::kSelf, 0775},
     kNone,
     kOthersWriteThere},
    {"my directory, for the world",
     {What::kDirectory, Owner::kSelf, 0757},
     kNone,
     kOthersWriteThere},
    {"my directory, for all", {What::kDirectory, Owner::kSelf, 0777}, kNone, kOthersWriteThere},
    {"my sticky directory", {What::kDirectory, Owner::kSelf, 01777}, kNone, kOpened},
    {"root's sticky directory", kSharedDirectory, kNone, kOpened},
    {"root's directory for all", {What::kDirectory, Owner::kRoot, 0777}, kNone, kOthersWriteThere},
    {"a stranger's directory",
     {What::kDirectory, Owner::kStranger, 0755},
     kNone,
     kForeignDirectory},
    {"a stranger's directory for all",
     {What::kDirectory, Owner::kStranger, 0777},
     kNone,
     kForeignDirectory},
    {"a stranger's sticky directory",
     {What::kDirectory, Owner::kStranger, 01777},
     kNone,
     kForeignDirectory},
    {"my link to a directory", {What::kLink, Owner::kSelf}, kNone, kOpened},
    {"root's link to a directory", {What::kLink, Owner::kRoot}, kNone, kOpened},
    {"a stranger's link to a directory", {What::kLink, Owner::kStranger}, kNone, kForeignLink},
    {"my link to nothing",
     {What::kDanglingLink, Owner::kSelf},
     kNone,
     "x.log\": No such file or directory"},
    {"a stranger's link to nothing", {What::kDanglingLink, Owner::kStranger}, kNone, kForeignLink},
    {"a file in the directory's place",
     {What::kFile, Owner::kSelf, 0600},
     kNone,
     "log.d\": Not a directory"},
    {"a pipe in the directory's place",
     {What::kPipe, Owner::kStranger, 0666},
     kNone,
     "log.d\": Not a directory"},

    {"my file", kOwnDirectory, {What::kFile, Owner::kSelf, 0600}, kOpened},
    {"my readable file", kOwnDirectory, {What::kFile, Owner::kSelf, 0644}, kOpened},
    {"my file for my group", kOwnDirectory, {What::kFile, Owner::kSelf, 0620}, kOthersWriteIt},
    {"my file for the world", kOwnDirectory, {What::kFile, Owner::kSelf, 0602}, kOthersWriteIt},
    {"my file in a sticky directory", kSharedDirectory, {What::kFile, Owner::kSelf, 0600}, kOpened},
    {"a stranger's file for all",
     kSharedDirectory,
     {What::kFile, Owner::kStranger, 0666},
     kForeignFile},
    {"a stranger's set-user-ID file",
     kSharedDirectory,
     {What::kFile, Owner::kStranger, 06777},
     kForeignFile},
    {"a stranger's file in my directory",
     kOwnDirectory,
     {What::kFile, Owner::kStranger, 0666},
     kForeignFile},
    {"my file with a second name",
     kOwnDirectory,
     {What::kLinkedFile, Owner::kSelf, 0600},
     kSecondName},
    {"my link to a file", kOwnDirectory, {What::kLink, Owner::kSelf}, kFileIsLink},
    {"a stranger's link to a file", kSharedDirectory, {What::kLink, Owner::kStranger}, kFileIsLink},
    {"a stranger's link to nothing",
     kSharedDirectory,
     {What::kDanglingLink, Owner::kStranger},
     kFileIsLink},
    {"my pipe", kOwnDirectory, {What::kPipe, Owner::kSelf, 0600}, kSpecial},
    {"a stranger's pipe", kSharedDirectory, {What::kPipe, Owner::kStranger, 0666}, kSpecial},
    {"a stranger's pipe that is read",
     kSharedDirectory,
     {What::kPipeWithReader, Owner::kStranger, 0666},
     kSpecial},
    {"a stranger's socket", kSharedDirectory, {What::kSocket, Owner::kStranger, 0777}, kSpecial},
    {"a device", kOwnDirectory, {What::kDevice, Owner::kRoot, 0666}, kSpecial},
    {"a directory in the file's place",
     kOwnDirectory,
     {What::kDirectory, Owner::kSelf, 0700},
     "x.log\": Is a directory"},
};

/// A directory in which a case is prepared with the right owners, and inspected afterwards.
class Place {
 public:
  explicit Place(uid_t self) : m_self(self) {
    m_isPossible = chown(m_base.Path().c_str(), self, self) == 0;
    Make({What::kDirectory, Owner::kSelf, 0700}, m_base.Path() / "own.d");
    Make({What::kFile, Owner::kSelf, 0600}, m_base.Path() / "own.file");
  }
  ~Place() {
    if (m_reader >= 0) close(m_reader);
  }
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;

  std::filesystem::path Directory() const { return m_base.Path() / "log.d"; }
  std::filesystem::path File() const { return Directory() / "x.log"; }

  /// Returns false if this system cannot create it.
  bool Prepare(const Case& test) {
    return m_isPossible && Make(test.directory, Directory()) && Make(test.file, File());
  }

  /// Describes what changed; empty if nothing did.
  std::string Violation(const Case& test, bool isOpened) const {
    struct stat now {};
    if (isOpened) {
      if (lstat(File().c_str(), &now) != 0 || !S_ISREG(now.st_mode)) return "no file was made";
      if (test.file.what == What::kNothing && (now.st_mode & 07777) != 0600) return "mode";
      return support::ReadFile(File()) == "log" ? "" : "not written";
    }
    if (test.file.what != What::kNothing) {
      if (lstat(File().c_str(), &now) != 0) return "it is gone";
      if (now.st_mode != m_before.st_mode || now.st_ino != m_before.st_ino ||
          now.st_uid != m_before.st_uid)
        return "it was changed";
      if (S_ISREG(now.st_mode) && support::ReadFile(File()) != kText) return "it was written";
    } else if (lstat(File().c_str(), &now) == 0) {
      return "a file was created";
    }
    if (support::ReadFile(m_base.Path() / "own.file") != kText) return "the target was written";
    if (!std::filesystem::is_empty(m_base.Path() / "own.d")) return "the target got a file";
    if (char byte; m_reader >= 0 && read(m_reader, &byte, 1) > 0) return "the pipe got text";
    return {};
  }

 private:
  uid_t Number(Owner owner) const {
    return owner == Owner::kSelf ? m_self : owner == Owner::kRoot ? 0 : kStrangerNumber;
  }

  bool Make(const Thing& thing, const std::filesystem::path& path) {
    switch (thing.what) {
      case What::kNothing:
        return true;
      case What::kLinkedFile:
      case What::kFile:
        std::ofstream(path) << kText;
        if (thing.what == What::kLinkedFile)
          std::filesystem::create_hard_link(path, m_base.Path() / "second");
        break;
      case What::kDirectory:
        std::filesystem::create_directory(path);
        break;
      case What::kLink:
        std::filesystem::create_symlink(
            m_base.Path() / (path.extension() == ".d" ? "own.d" : "own.file"), path);
        break;
      case What::kDanglingLink:
        std::filesystem::create_symlink(m_base.Path() / "nothing", path);
        break;
      case What::kPipe:
      case What::kPipeWithReader:
        if (mkfifo(path.c_str(), 0600) != 0) return false;
        if (thing.what == What::kPipeWithReader)
          m_reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        break;
      case What::kSocket: {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const bool isBound =
            bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
        close(socket);
        if (!isBound) return false;
        break;
      }
      case What::kDevice:
        if (mknod(path.c_str(), S_IFCHR | 0600, makedev(1, 3)) != 0) return false;
        break;
    }
    const uid_t owner = Number(thing.owner);
    if (geteuid() == 0 ? lchown(path.c_str(), owner, owner) != 0 : owner != geteuid()) return false;
    const bool isLink = thing.what == What::kLink || thing.what == What::kDanglingLink;
    if (!isLink && chmod(path.c_str(), thing.mode) != 0) return false;
    return lstat(path.c_str(), &m_before) == 0;
  }

  support::TempDir m_base;
  uid_t m_self;
  bool m_isPossible = false;
  int m_reader = -1;
  struct stat m_before {};  // of the last file created
};

/// Returns what `work` returns in a child process with this user's ID. Kills a child that hangs.
std::string RunAs(uid_t user, const std::function<std::string()>& work) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return "no pipe";
  const pid_t child = fork();
  if (child == 0) {
    alarm(20);
    std::string text = "cannot become the user";
    if (geteuid() == user || (setgid(user) == 0 && setuid(user) == 0)) text = work();
    const ssize_t written = write(ends[1], text.data(), text.size());
    _exit(written < 0 ? 1 : 0);
  }
  close(ends[1]);
  std::string text;
  char buffer[4096];
  for (ssize_t count; (count = read(ends[0], buffer, sizeof buffer)) > 0;)
    text.append(buffer, static_cast<std::size_t>(count));
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  return WIFSIGNALED(status) ? "ended by " + std::string(strsignal(WTERMSIG(status))) : text;
}

std::string TextOf(const ErrorMessage& error) {
  String text;
  error.RetrieveErrorMessages(text);
  return Narrow(text);
}

std::vector<uid_t> Users() {
  if (geteuid() != 0) return {geteuid()};
  return {0, kOrdinaryNumber};
}

TEST(ForeignFiles, AtThePlaceOfALogAreRefusedAndUnchanged) {
  int refused = 0;
  int opened = 0;
  int skipped = 0;
  for (const uid_t user : Users()) {
    for (const Case& test : kCases) {
      Place place(user);
      if (!place.Prepare(test)) {
        ++skipped;
        continue;
      }
      const std::string outcome = RunAs(user, [&]() -> std::string {
        try {
          const Heap<AFile> file = AFile::MakeFile();
          file->Open(Wide(place.File().string()), AFile::kModeWriteFromEmpty);
          return file->WriteBytes("log", 3) ? kOpened : "not written";
        } catch (const ErrorMessage& error) {
          return TextOf(error);
        }
      });
      EXPECT_THAT(outcome, AllOf(HasSubstr(test.outcome), testing::Not(HasSubstr("\n"))))
          << test.name << " as " << user;
      const bool isOpened = outcome == kOpened;
      EXPECT_EQ(place.Violation(test, isOpened), "") << test.name << " as " << user;
      ++(isOpened ? opened : refused);
    }
  }
  if (geteuid() == 0) {
    EXPECT_LE(skipped, 2);  // device files, in a container
  }
  support::PrintFigure("files of other users at the place of an import log",
                       std::to_string(refused + opened) + " cases, " + std::to_string(refused) +
                           " refused, " + std::to_string(opened) + " of the user itself used, " +
                           std::to_string(skipped) +
                           " that this machine cannot create; no foreign file was changed");
}

TEST(ForeignFiles, LinksInThePathOfALogAreNotFollowed) {
  if (geteuid() != 0) GTEST_SKIP() << "skipped: only root can make another user's link";
  const struct {
    uid_t owner;
    bool isFollowed;
  } kLinks[] = {{kOrdinaryNumber, true}, {0, true}, {kStrangerNumber, false}};
  for (const auto& link : kLinks) {
    const support::TempDir folder;
    const std::filesystem::path target = folder.Path() / "target";
    const std::filesystem::path shared = folder.Path() / "shared";
    std::filesystem::create_directory(target);
    std::filesystem::create_directory(shared);
    std::filesystem::create_directory_symlink(target, shared / "link");
    ASSERT_EQ(chmod(folder.Path().c_str(), 0755), 0);
    ASSERT_EQ(chmod(shared.c_str(), 0777), 0);
    ASSERT_EQ(chown(target.c_str(), kOrdinaryNumber, kOrdinaryNumber), 0);
    ASSERT_EQ(lchown((shared / "link").c_str(), link.owner, link.owner), 0);
    const std::string outcome = RunAs(kOrdinaryNumber, [&]() -> std::string {
      try {
        AFile::MakeFile()->Open(Wide((shared / "link/new/x.log").string()),
                                AFile::kModeWriteFromEmpty);
        return kOpened;
      } catch (const ErrorMessage& error) {
        return TextOf(error);
      }
    });
    EXPECT_THAT(outcome, HasSubstr(link.isFollowed ? kOpened
                                                   : "shared/link\": it is another user's "
                                                     "symbolic link (choose one"));
    EXPECT_EQ(std::filesystem::exists(target / "new"), link.isFollowed);
  }
}

/// The name of a log opened in `ahead` seconds.
std::string LogName(int ahead) {
  const std::time_t when = std::time(nullptr) + ahead;
  std::tm fields{};
  localtime_r(&when, &fields);
  char name[64];
  std::strftime(name, sizeof name, "OT_xmla_%Y_%m_%d_%H_%M_%S.log", &fields);
  return name;
}

TEST(ForeignFiles, PipesAtThePlaceOfALogDoNotBlockTheHost) {
  for (const uid_t user : Users()) {
    const support::TempDir folder;
    ASSERT_EQ(chown(folder.Path().c_str(), user, user), 0);
    ASSERT_EQ(chmod(folder.Path().c_str(), 01777), 0);
    for (int ahead = -1; ahead < 30; ++ahead) {
      const std::filesystem::path pipe = folder.Path() / LogName(ahead);
      ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
      ASSERT_EQ(chmod(pipe.c_str(), 0666), 0);
    }
    const std::string outcome = RunAs(user, [&]() -> std::string {
      const support::LogInto logs(folder.Path());
      OTXMLAAnaTamImportAPI import;
      try {
        import.SetupConnInfo(L"http://127.0.0.1:9/", L"", L"", ServerInfo::kAnalysisServices2005,
                             ServerInfo::kCLIXMLA);
        return kOpened;
      } catch (const ErrorMessage& error) {
        return TextOf(error);
      }
    });
    EXPECT_THAT(outcome, HasSubstr("it is not a regular file (remove it, or choose another"));
  }
}

}  // namespace
