#include "system/PrivateDirectory.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ErrorMessage.h"
#include "system/Descriptor.h"
#include "system/SystemErrorText.h"

namespace {

[[noreturn]] void Reject(const String& directory, const String& reason) {
  SUGThrow(ErrorMessage(L"The log directory \"" + directory + L"\" is not safe to use: " + reason +
                        L". Remove it, or name another one in XMLA_IMPORT_LOG_DIR."),
           L"PrivateDirectory.cpp", __LINE__);
}

}  // namespace

void CreatePrivateDirectory(const String& directory) {
  const NarrowString path = BaseStringUtil::ToUTF8(directory);
  if (::mkdir(path.c_str(), 0700) == 0 || errno != EEXIST) return;
  const Descriptor opened(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  // A symbolic link gives ENOTDIR.
  if (opened.Number() < 0) Reject(directory, SystemErrorText(errno));
  struct stat status {};
  if (::fstat(opened.Number(), &status) != 0) Reject(directory, SystemErrorText(errno));
  if (status.st_uid != ::geteuid()) Reject(directory, L"it belongs to another user");
  if ((status.st_mode & 077) != 0 && ::fchmod(opened.Number(), 0700) != 0)
    Reject(directory, SystemErrorText(errno));
}
