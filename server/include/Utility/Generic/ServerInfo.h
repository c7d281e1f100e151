#pragma once

/// \file
/// The kinds of servers and call interfaces.

#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// The host's kinds of servers and call interfaces. The host stores the numbers, so they must not
/// change.
class XMLAHOST_API ServerInfo {
 public:
  /// Kinds of servers.
  enum TargetType {
    kTargetUnknown = 0,
    kAnalysisServices2000 = 33,
    kTamarind7 = 34,
    kSAP_BW = 40,
    kAnalysisServices2005 = 41,
    kSAP_BW35 = 43,
    kTamarind9 = 55,
    kTessera = 63,  ///< every provider that is not recognised
    kAnalysisServices2008 = 69,
    kTamarind11 = 75,
    kAnalysisServices2012 = 82,
    kTamarind11_1_2_3_500 = 85,
  };
  /// Call interfaces.
  enum CLIType {
    kCLIUnknown = 0,
    kCLIXMLA = 1,
  };

  /// The name of the kind for users, for example "Analysis Services 2005"; "Unknown" for other
  /// numbers.
  static String GetTargetNameFromEnum(TargetType target);
};
