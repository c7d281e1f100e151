#pragma once

/// \file
/// Writing of files, such as import logs.

#include <cstdint>

#include "Utility/Generic/Heap.h"
#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// The host's file object. Use from one thread at a time.
class XMLAHOST_API AFile {
 public:
  /// Bits of an open mode.
  enum OpenMode : unsigned int {
    kModeWrite = 0x0001,
    kModeBinary = 0x0020,
    kModeCreate = 0x1000,
    kModeTruncate = 0x2000,        ///< empty the file
    kModeWriteFromEmpty = 0x3021,  ///< all four
  };

  /// Creates an object without an open file.
  static Heap<AFile> MakeFile();

  AFile(const AFile&) = delete;
  AFile& operator=(const AFile&) = delete;
  virtual ~AFile();  ///< closes the file

  /// Opens `name`, which becomes UTF-8 for the file system. Throws ErrorMessage without a number.
  /// Its text names the file and the reason.
  ///
  /// kModeCreate creates missing directories with mode 0700 and a missing file with mode 0600. It
  /// rejects what other users could have prepared, without waiting and without changing it:
  /// - An existing file must be a regular file. It must belong to the user, have one hard link, and
  ///   not be writable by others. It must not be a symbolic link.
  /// - The directory must belong to the user or to root. It must not be writable by others, unless
  ///   it is sticky. A symbolic link in its path must not belong to another user.
  /// Parent directories are not checked further.
  virtual void Open(const String& name, unsigned int mode) = 0;
  /// Writes the bytes. Returns false if not all of them could be written. Raises no signal. The
  /// first failure of a file is reported to ImportSettings::onLogFailure of the calling thread.
  virtual bool WriteBytes(const char* bytes, std::size_t count) = 0;
  /// Passes all written bytes to the operating system. Returns false on failure.
  virtual bool Flush() = 0;
  /// Closes and deletes the file. Returns false on failure.
  virtual bool Delete() = 0;

 protected:
  AFile() = default;
};
