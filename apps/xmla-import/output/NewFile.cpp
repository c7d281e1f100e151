#include "output/NewFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <random>

namespace {

constexpr mode_t kPermissions = 0777;
constexpr mode_t kDefaultMode = 0666;  // restricted by the umask

/// True if the existing file belongs to the caller and has no other hard link. Another user may
/// have created a hard link to a file of the caller.
bool IsOwn(const TrustedPath& place) {
  return place.IsRegular() && place.status.st_uid == geteuid() && place.status.st_nlink == 1;
}

/// A short name, so that it fits even if the file's name has the maximum length.
std::string RandomName() {
  std::random_device random;
  char name[32];
  std::snprintf(name, sizeof name, ".xmla-import.%08x", random());
  return name;
}

/// Calls `make` with random hidden names until the result is not EEXIST.
template <class Make>
int WithFreeName(std::string& name, Make make) {
  constexpr int kMaxTries = 100;
  int error = EEXIST;
  for (int i = 0; i < kMaxTries && error == EEXIST; ++i) {
    name = RandomName();
    error = make(name.c_str());
  }
  if (error != 0) name.clear();
  return error;
}

}  // namespace

NewFile::~NewFile() {
  if (!m_name.empty()) unlinkat(m_place.directory.Number(), m_name.c_str(), 0);
}

int NewFile::Make() {
  const int directory = m_place.directory.Number();
  const mode_t mode = IsOwn(m_place) ? m_place.status.st_mode & kPermissions : kDefaultMode;
  m_file = Descriptor(openat(directory, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, mode));
  int error = 0;
  if (!m_file.IsOpen())
    error = WithFreeName(m_name, [&](const char* name) {
      m_file = Descriptor(
          openat(directory, name, O_CREAT | O_EXCL | O_NOFOLLOW | O_WRONLY | O_CLOEXEC, mode));
      return m_file.IsOpen() ? 0 : errno;
    });
  return error != 0 ? error : KeepPermissions();
}

int NewFile::KeepPermissions() const {
  if (!IsOwn(m_place)) return 0;
  mode_t mode = m_place.status.st_mode & kPermissions;
  struct stat made {};
  if (fstat(m_file.Number(), &made) != 0) return errno;
  // The permissions of one group must not go to another group.
  constexpr mode_t kOfGroup = 0070;
  const gid_t group = m_place.status.st_gid;
  if (made.st_gid != group && fchown(m_file.Number(), static_cast<uid_t>(-1), group) != 0)
    mode &= ~kOfGroup;
  return fchmod(m_file.Number(), mode) == 0 ? 0 : errno;
}

int NewFile::Append(std::string_view text) {
  if (!m_file.IsOpen())
    if (const int error = Make()) return error;
  while (!text.empty()) {
    const ssize_t count = write(m_file.Number(), text.data(), text.size());
    if (count >= 0)
      text.remove_prefix(static_cast<std::size_t>(count));
    else if (errno != EINTR)
      return errno;
  }
  return 0;
}

int NewFile::GiveName() {
  const std::string self = "/proc/self/fd/" + std::to_string(m_file.Number());
  return WithFreeName(m_name, [&](const char* name) {
    const int directory = m_place.directory.Number();
    return linkat(AT_FDCWD, self.c_str(), directory, name, AT_SYMLINK_FOLLOW) == 0 ? 0 : errno;
  });
}

/// Flushes the file, and gives it its hidden name if it has none.
int NewFile::Complete() {
  if (fsync(m_file.Number()) != 0) return errno;
  if (m_name.empty())
    if (const int error = GiveName()) return error;
  // Some file systems report write errors on close.
  return m_file.Close();
}

int NewFile::Rename(const std::string& name, unsigned int flags) {
  const int directory = m_place.directory.Number();
  if (renameat2(directory, m_name.c_str(), directory, name.c_str(), flags) != 0) return errno;
  m_name.clear();
  return 0;
}

int NewFile::Finish() {
  const int error = Complete();
  return error != 0 ? error : Rename(m_place.name, 0);
}

int NewFile::FinishPartial(std::string& name) {
  name = m_place.name + ".partial";
  struct stat former {};
  const bool isFree =
      fstatat(m_place.directory.Number(), name.c_str(), &former, AT_SYMLINK_NOFOLLOW) != 0 &&
      errno == ENOENT;
  // The former partial result may be one that others must not read.
  const bool isOwn = !isFree && S_ISREG(former.st_mode) && former.st_uid == geteuid();
  struct stat made {};
  if (isOwn && (fstat(m_file.Number(), &made) != 0 ||
                fchmod(m_file.Number(), made.st_mode & former.st_mode & kPermissions) != 0))
    return errno;
  if (const int error = Complete()) return error;
  if ((isFree || isOwn) && Rename(name, isOwn ? 0 : RENAME_NOREPLACE) == 0) return 0;
  constexpr int kMaxNumber = 10000;
  for (int number = 1; number < kMaxNumber; ++number) {
    name = "xmla-import-" + std::to_string(number) + ".partial";
    if (const int error = Rename(name, RENAME_NOREPLACE); error != EEXIST) return error;
  }
  return EEXIST;
}
