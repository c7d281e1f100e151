#pragma once

#include <cstdint>

#include "Utility/Generic/Heap.h"
#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// The host's file object. One thread at a time.
class XMLAHOST_API AFile {
 public:
  /// Bits of an open mode.
  enum OpenMode : unsigned int {
    kModeWrite = 0x0001,
    kModeBinary = 0x0020,
    kModeCreate = 0x1000,
    kModeTruncate = 0x2000,        ///< empties the file
    kModeWriteFromEmpty = 0x3021,  ///< all four
  };

  /// A file object that holds no open file yet.
  static Heap<AFile> MakeFile();

  AFile(const AFile&) = delete;
  AFile& operator=(const AFile&) = delete;
  virtual ~AFile();  ///< closes the file

  /// Opens `name` (UTF-8 on the file system). Throws ErrorMessage, a bare text that names the file
  /// and the reason.
  ///
  /// With kModeCreate missing directories are made with the mode 0700 and a missing file with 0600,
  /// and what others could have prepared is refused, at once and unchanged: a file that exists must
  /// be a regular one that belongs to the user, has no other name (hard link) and cannot be written
  /// by others; the directory that holds it must belong to the user or to root and must not be
  /// writable for others, except with the sticky bit; neither may be another user's symbolic link,
  /// nor the file any link. The directories further up are the choice of whoever names the file.
  virtual void Open(const String& name, unsigned int mode) = 0;
  /// Writes the bytes; false when not all could be written. Raises no signal. The first failure of
  /// a file is reported to the calling thread's ImportSettings.
  virtual bool WriteBytes(const char* bytes, std::size_t count) = 0;
  /// Hands everything written so far to the operating system; false when that fails.
  virtual bool Flush() = 0;
  /// Closes the file and removes it from the file system.
  virtual bool Delete() = 0;

 protected:
  AFile() = default;
};
