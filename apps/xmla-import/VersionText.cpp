#include "VersionText.h"

#include "BuildVersion.h"
#include "Utility/Generic/LinkedLibraries.h"
#include "base/Text.h"
#include "results/Formats.h"

std::string VersionText() {
  const LinkedLibraries linked = GetLinkedLibraries();
  std::string text = "xmla-import " XMLA_BUILD_VERSION "\nLibraries:";
  for (const String& version : linked.versions) text += ' ' + Utf8(version);
  text += "\nFeatures:";
  for (const String& feature : linked.features) text += ' ' + Utf8(feature);
  text += "\nFormats:";
  for (const std::string& format : FormatNames()) text += ' ' + format;
  return text + '\n';
}
