#pragma once

#include <string>
#include <string_view>

#include "base/TrustedPath.h"

/// A file in the making: it appears under its name, in place of the former file, only when it is
/// finished. Until then it has no name at all, or, where the file system has no files without a
/// name, a hidden one of its own beside its place. A destroyed one leaves nothing behind.
///
/// It gets the permissions of a former file that belongs to the caller and has no other name,
/// without set-user-ID, set-group-ID and sticky bit, else those that the umask leaves. Errors are
/// error numbers, 0 for success.
class NewFile {
 public:
  /// `place` outlives it.
  explicit NewFile(const TrustedPath& place) : m_place(place) {}
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  /// The first call makes the file.
  int Append(std::string_view text);
  /// Brings the file to the disk and to its name. REQUIRES: something was appended.
  int Finish();

 private:
  int Make();
  int KeepPermissions() const;
  /// Gives the file a free hidden name beside its place.
  int GiveName();

  const TrustedPath& m_place;
  Descriptor m_file;
  std::string m_name;  ///< of the unfinished file; empty: it has none
};
