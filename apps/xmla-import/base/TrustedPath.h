#pragma once

#include <sys/stat.h>

#include <stdexcept>
#include <string>

#include "base/Descriptor.h"

/// The path cannot be resolved, or contains a link, pipe or device that another user may have
/// placed there. The text gives the reason, without the path.
class PathError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A resolved path. Its directory and file are open, so a later rename or replacement has no
/// effect.
///
/// Links are followed, with one exception. A link that belongs neither to the caller nor to root is
/// refused in a sticky or world-writable directory. In a group-writable directory it is refused
/// unless it belongs to the owner of the directory. The same rule applies to a pipe, socket or
/// device at the end of the path.
struct TrustedPath {
  /// Throws PathError. The last component may be missing.
  static TrustedPath Find(const std::string& path);

  /// Opens the file, even if its name no longer exists. On failure the result is not open and errno
  /// is set. Never waits for the other end of a pipe.
  Descriptor Open(int flags) const;

  bool Exists() const { return file.IsOpen(); }
  bool IsDirectory() const { return Exists() && S_ISDIR(status.st_mode); }
  bool IsRegular() const { return Exists() && S_ISREG(status.st_mode); }
  /// A device, pipe or socket. It is written to and never replaced.
  bool IsSpecial() const { return Exists() && !IsDirectory() && !IsRegular(); }

  Descriptor directory;   ///< opened with O_PATH
  std::string name;       ///< last component; never a link
  Descriptor file;        ///< the file, opened with O_PATH; not open if it does not exist
  struct stat status {};  ///< of `file`
  std::string openFile;   ///< for a link in /proc: its target; else empty
};
