#pragma once

/// \file
/// The configuration of the host: where import logs are written.

#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// The host's configuration. One object per process; thread-safe.
class XMLAHOST_API SUSystemConfig {
 public:
  /// The object of the process.
  static SUSystemConfig& GetSystemConfig();

  /// The directory of the import logs, without a trailing slash. The first of these that exists:
  /// - ImportSettings::logDirectory of the calling thread,
  /// - the environment variable XMLA_IMPORT_LOG_DIR,
  /// - "xmla-import" in the user's state directory (XDG_STATE_HOME, or ~/.local/state),
  /// - "xmla-import-" and the user's number in the temporary directory. It is created for this user
  ///   only. Throws ErrorMessage if another user has prepared it.
  ///
  /// AFile::Open checks that other users cannot write to the directory.
  String GetLogDirectory() const;

 private:
  SUSystemConfig() = default;
  ~SUSystemConfig() = default;
};
