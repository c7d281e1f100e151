#include "system/OwnDirectory.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ErrorMessage.h"
#include "system/Descriptor.h"
#include "system/SystemReason.h"

namespace {

[[noreturn]] void Refuse(const String& directory, const String& reason) {
  SUGThrow(ErrorMessage(L"The log directory \"" + directory + L"\" is not safe to use: " + reason +
                        L". Remove it, or name another one in XMLA_IMPORT_LOG_DIR."),
           L"OwnDirectory.cpp", __LINE__);
}

}  // namespace

void ClaimOwnDirectory(const String& directory) {
  const NarrowString path =
      BaseStringUtil::StringToStdString(directory, BaseStringUtil::kCodePageUTF8);
  if (::mkdir(path.c_str(), 0700) == 0 || errno != EEXIST) return;
  const Descriptor opened(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  // Of a link the system says that it is no directory.
  if (opened.Number() < 0) Refuse(directory, SystemReason(errno));
  struct stat status {};
  if (::fstat(opened.Number(), &status) != 0) Refuse(directory, SystemReason(errno));
  if (status.st_uid != ::geteuid()) Refuse(directory, L"it belongs to another user");
  if ((status.st_mode & 077) != 0 && ::fchmod(opened.Number(), 0700) != 0)
    Refuse(directory, SystemReason(errno));
}
