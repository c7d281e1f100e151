#pragma once

#include <string>
#include <string_view>

#include "base/TrustedPath.h"

/// A file that gets its name, and replaces the existing file, only when it is complete. Until then
/// it has no name. On file systems that do not support this, it has a hidden name in the same
/// directory. The destructor removes an incomplete file.
///
/// Permissions: those of the existing file if it belongs to the caller and has no other hard link,
/// without set-user-ID, set-group-ID and sticky bit. Otherwise the umask decides. The operations
/// return 0 or an error number.
class NewFile {
 public:
  /// `place` must outlive this object.
  explicit NewFile(const TrustedPath& place) : m_place(place) {}
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  /// The first call creates the file.
  int Append(std::string_view text);
  /// Flushes the file to the disk and gives it the name of `place`. Requires an earlier Append.
  int Finish();
  /// The same with the suffix ".partial", and sets `name`. Replaces only a regular file of the
  /// caller, and keeps its permissions if they are stricter. If that is not possible, or the name
  /// is too long, uses a free name xmla-import-N.partial in the same directory.
  int FinishPartial(std::string& name);

 private:
  int Make();
  int Complete();
  int Rename(const std::string& name, unsigned int flags);
  int KeepPermissions() const;
  /// Gives the file a hidden name in the target directory.
  int GiveName();

  const TrustedPath& m_place;
  Descriptor m_file;
  std::string m_name;  ///< hidden name of the incomplete file, or empty
};
