#pragma once

#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// The host's configuration. One object per process; safe to use from several threads.
class XMLAHOST_API SUSystemConfig {
 public:
  static SUSystemConfig& GetSystemConfig();

  /// The directory of the import logs, without a trailing slash: that of the calling thread's
  /// ImportSettings, else the environment's XMLA_IMPORT_LOG_DIR, else "xmla-import" in the user's
  /// state directory (XDG_STATE_HOME, else ~/.local/state). AFile::Open checks that others cannot
  /// write there. A user without any gets "xmla-import-" and the user's
  /// number in the temporary directory, which is made for that user alone; throws ErrorMessage when
  /// somebody else has prepared it.
  String GetLogDirectory() const;

 private:
  SUSystemConfig() = default;
  ~SUSystemConfig() = default;
};
