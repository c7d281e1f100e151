#include "system/PrivateFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ErrorMessage.h"
#include "system/Descriptor.h"
#include "system/SystemErrorText.h"

namespace {

constexpr mode_t kWritableByOthers = S_IWGRP | S_IWOTH;

[[noreturn]] void Reject(const wchar_t* what, const std::string& path, const String& reason) {
  SUGThrow(ErrorMessage(what + BaseStringUtil::FromUTF8(path) + L"\": " + reason),
           L"PrivateFile.cpp", __LINE__);
}

[[noreturn]] void RejectDirectory(const std::string& path, const wchar_t* reason) {
  Reject(L"Cannot use the directory \"", path,
         String(reason) + L" (choose one that belongs to you and that only you can write to)");
}

[[noreturn]] void RejectFile(const std::string& path, const wchar_t* reason) {
  Reject(L"Cannot use the file \"", path,
         String(reason) + L" (remove it, or choose another directory)");
}

bool IsTrusted(uid_t owner) { return owner == ::geteuid() || owner == 0; }

int Open(int directory, const char* name, int flags) {
  int descriptor;
  do {
    descriptor = ::openat(directory, name, flags | O_CLOEXEC, 0600);
  } while (descriptor < 0 && errno == EINTR);
  return descriptor;
}

/// Opens the directory `name` in `parent`, and creates it if it is missing. `path` is for messages.
/// Does not follow symbolic links of other users.
int OpenOrCreateDirectory(int parent, const std::string& name, const std::string& path) {
  const int makeError = ::mkdirat(parent, name.c_str(), 0700) == 0 ? 0 : errno;
  struct stat status {};
  int step = Open(parent, name.c_str(), O_PATH | O_NOFOLLOW);
  // mkdirat may fail for an existing directory, for example on a read-only file system.
  if (step < 0) {
    const bool isThere = makeError == 0 || makeError == EEXIST;
    Reject(L"Cannot create the directory \"", path, SystemErrorText(isThere ? errno : makeError));
  }
  if (::fstat(step, &status) == 0 && S_ISLNK(status.st_mode)) {
    ::close(step);
    if (!IsTrusted(status.st_uid)) RejectDirectory(path, L"it is another user's symbolic link");
    step = Open(parent, name.c_str(), O_PATH | O_DIRECTORY);
  }
  return step;
}

/// Opens the directory, and creates it and its parents if they are missing. Negative on failure;
/// then errno is set.
int OpenDirectory(const std::string& path) {
  int directory = Open(AT_FDCWD, path.starts_with('/') ? "/" : ".", O_PATH | O_DIRECTORY);
  for (std::size_t begin = 0; directory >= 0;) {
    begin = path.find_first_not_of('/', begin);
    if (begin == std::string::npos) break;
    const std::size_t end = std::min(path.find('/', begin), path.size());
    const Descriptor parent(directory);
    directory = OpenOrCreateDirectory(parent.Number(), path.substr(begin, end - begin),
                                      path.substr(0, end));
    begin = end;
  }
  return directory;
}

void CheckDirectory(int directory, const std::string& path) {
  struct stat status {};
  if (::fstat(directory, &status) != 0)
    Reject(L"Cannot use the directory \"", path, SystemErrorText(errno));
  if (!S_ISDIR(status.st_mode))
    Reject(L"Cannot use the directory \"", path, SystemErrorText(ENOTDIR));
  if (!IsTrusted(status.st_uid)) RejectDirectory(path, L"it belongs to another user");
  if ((status.st_mode & kWritableByOthers) != 0 && (status.st_mode & S_ISVTX) == 0)
    RejectDirectory(path, L"other users can write to it");
}

void CheckFile(int file, const std::string& path) {
  struct stat status {};
  if (::fstat(file, &status) != 0) Reject(L"Cannot open the file \"", path, SystemErrorText(errno));
  if (!S_ISREG(status.st_mode)) RejectFile(path, L"it is not a regular file");
  if (status.st_uid != ::geteuid()) RejectFile(path, L"it belongs to another user");
  if (status.st_nlink != 1) RejectFile(path, L"it has other names (hard links)");
  if ((status.st_mode & kWritableByOthers) != 0) RejectFile(path, L"other users can write to it");
}

}  // namespace

int OpenPrivateFile(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  std::string place = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  // With a trailing slash, the system would follow a symbolic link.
  while (place.size() > 1 && place.back() == '/') place.pop_back();
  const std::string name = path.substr(slash + 1);  // without a slash: the whole path
  const Descriptor directory(OpenDirectory(place));
  if (directory.Number() < 0) Reject(L"Cannot open the file \"", path, SystemErrorText(errno));
  CheckDirectory(directory.Number(), place);
  // O_NONBLOCK: do not wait for the reader of a pipe. O_NOCTTY: a terminal must not become the
  // controlling terminal of the process.
  constexpr int kFlags = O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  const int created = Open(directory.Number(), name.c_str(), kFlags | O_CREAT | O_EXCL);
  if (created >= 0) return created;
  if (errno != EEXIST) Reject(L"Cannot open the file \"", path, SystemErrorText(errno));
  const int existing = Open(directory.Number(), name.c_str(), kFlags);
  if (existing < 0 && errno == ELOOP) RejectFile(path, L"it is a symbolic link");
  if (existing < 0 && errno == ENXIO) RejectFile(path, L"it is not a regular file");
  if (existing < 0) Reject(L"Cannot open the file \"", path, SystemErrorText(errno));
  Descriptor checked(existing);
  CheckFile(existing, path);
  return checked.Release();
}
