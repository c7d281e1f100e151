#pragma once

#include <sys/stat.h>

#include <stdexcept>
#include <string>

#include "base/Descriptor.h"

/// A path that leads nowhere, or through something that a stranger may have put in the way. The
/// text says why, without the path.
class PathError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Where a path leads, found once and then held open, so that nothing that is renamed or replaced
/// afterwards leads elsewhere.
///
/// Links are followed as the system does, but a link that belongs neither to the caller nor to root
/// is refused in a directory where others can put one: a sticky one, one that everybody can write
/// to, or one that a group can write to unless the link belongs to the directory's owner. The same
/// holds for a pipe, socket or device at the end of the path.
struct TrustedPath {
  /// Throws PathError. A last component that does not exist is no error.
  static TrustedPath Find(const std::string& path);

  /// Opens what stands there, even if its name has gone meanwhile; not open on failure, see errno.
  /// Never waits for the other end of a pipe.
  Descriptor Open(int flags) const;

  bool Exists() const { return file.IsOpen(); }
  bool IsDirectory() const { return Exists() && S_ISDIR(status.st_mode); }
  bool IsRegular() const { return Exists() && S_ISREG(status.st_mode); }
  /// A device, pipe or socket: something to write to, and not to be replaced.
  bool IsSpecial() const { return Exists() && !IsDirectory() && !IsRegular(); }

  Descriptor directory;   ///< opened with O_PATH
  std::string name;       ///< of the last component, which is no link
  Descriptor file;        ///< what has that name, opened with O_PATH; none: nothing has
  struct stat status {};  ///< of `file`
  std::string openFile;   ///< where a link of /proc says that the open file is; else empty
};
