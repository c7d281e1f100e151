#include "base/TrustedPath.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>

#include <cerrno>
#include <climits>
#include <cstring>

namespace {

constexpr int kMaxLinks = 40;  // same as the kernel

[[noreturn]] void Fail(int error) { throw PathError(std::strerror(error)); }

Descriptor OpenPath(int directory, const std::string& name, int flags) {
  return Descriptor(openat(directory, name.c_str(), O_PATH | O_CLOEXEC | flags));
}

struct stat StatusOf(const Descriptor& file) {
  struct stat status {};
  if (fstat(file.Number(), &status) != 0) Fail(errno);
  return status;
}

/// True if another user may have placed the file there to redirect the caller.
bool IsUntrusted(const struct stat& file, const struct stat& directory) {
  if (file.st_uid == geteuid() || file.st_uid == 0) return false;
  if (directory.st_mode & (S_ISVTX | S_IWOTH)) return true;
  return (directory.st_mode & S_IWGRP) && file.st_uid != directory.st_uid;
}

void RequireTrust(const Descriptor& directory, const std::string& name, const struct stat& file,
                  const char* kind) {
  if (IsUntrusted(file, StatusOf(directory)))
    throw PathError("\"" + name + "\" is a " + kind +
                    " of another user in a directory that others can write to; use another path");
}

/// A link in /proc refers to an open file, which may have no path.
bool IsInProc(const Descriptor& directory) {
  struct statfs system {};
  return fstatfs(directory.Number(), &system) == 0 && system.f_type == PROC_SUPER_MAGIC;
}

/// With an empty name, reads the link that `directory` refers to.
std::string LinkText(int directory, const std::string& name) {
  char text[PATH_MAX];
  const ssize_t length = readlinkat(directory, name.c_str(), text, sizeof text);
  if (length < 0) Fail(errno);
  if (length == 0) Fail(ENOENT);
  return {text, static_cast<std::size_t>(length)};
}

/// Resolves a path component by component.
class Walk {
 public:
  explicit Walk(const std::string& path) { ContinueWith(path); }

  TrustedPath Resolve() {
    while (!Step()) {
    }
    return std::move(m_found);
  }

 private:
  void ContinueWith(const std::string& path) {
    if (path.empty()) Fail(ENOENT);
    if (path.front() == '/' || !m_found.directory.IsOpen())
      m_found.directory = OpenPath(AT_FDCWD, path.front() == '/' ? "/" : ".", O_DIRECTORY);
    if (!m_found.directory.IsOpen()) Fail(errno);
    m_rest = path;
  }

  /// Removes the next component from m_rest; true if it is the last one. A trailing slash counts as
  /// a component ".", so the component before it must be a directory.
  bool TakeName(std::string& name) {
    m_rest.erase(0, m_rest.find_first_not_of('/'));
    const std::size_t end = m_rest.find('/');
    name = m_rest.empty() ? "." : m_rest.substr(0, end);
    m_rest.erase(0, end);
    return m_rest.empty();
  }

  void CountLink() {
    if (++m_links > kMaxLinks) Fail(ELOOP);
  }

  /// Resolves one component. True if it was the last one.
  bool Step() {
    std::string name;
    const bool isLast = TakeName(name);
    Descriptor file = OpenPath(m_found.directory.Number(), name, O_NOFOLLOW);
    if (!file.IsOpen() && !(isLast && errno == ENOENT)) Fail(errno);
    struct stat status {};
    if (file.IsOpen()) status = StatusOf(file);
    if (S_ISLNK(status.st_mode)) {
      CountLink();
      if (!IsInProc(m_found.directory)) {
        RequireTrust(m_found.directory, name, status, "link");
        ContinueWith(LinkText(file.Number(), "") + m_rest);
        return false;
      }
      m_found.openFile = LinkText(file.Number(), "");
      file = OpenPath(m_found.directory.Number(), name, 0);
      if (!file.IsOpen()) Fail(errno);
      status = StatusOf(file);
    } else if (isLast && file.IsOpen() && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
      RequireTrust(m_found.directory, name, status, S_ISFIFO(status.st_mode) ? "pipe" : "device");
    }
    if (!isLast) {
      m_found.openFile.clear();
      if (!S_ISDIR(status.st_mode)) Fail(ENOTDIR);
      m_found.directory = std::move(file);
      return false;
    }
    m_found.name = name;
    m_found.file = std::move(file);
    m_found.status = status;
    return true;
  }

  TrustedPath m_found;
  std::string m_rest;
  int m_links = 0;
};

}  // namespace

TrustedPath TrustedPath::Find(const std::string& path) { return Walk(path).Resolve(); }

Descriptor TrustedPath::Open(int flags) const {
  // Opens the file found before, even if its name refers to another file now.
  const std::string self = "/proc/self/fd/" + std::to_string(file.Number());
  return Descriptor(open(self.c_str(), flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}
