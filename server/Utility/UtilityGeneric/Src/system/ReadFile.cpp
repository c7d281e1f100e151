#include "system/ReadFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "Utility/Generic/BaseStringUtil.h"
#include "system/Descriptor.h"
#include "system/SystemErrorText.h"

namespace {

constexpr std::size_t kBlockBytes = std::size_t{1} << 16;

}  // namespace

bool ReadFile(const String& name, NarrowString& bytes, String& error) {
  const NarrowString path = BaseStringUtil::ToUTF8(name);
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  ssize_t count = file.Number() < 0 ? -1 : 1;
  while (count > 0) {
    bytes.AppendFilled(kBlockBytes, [&](char* place) noexcept {
      do {
        count = ::read(file.Number(), place, kBlockBytes);
      } while (count < 0 && errno == EINTR);
      return count > 0 ? static_cast<std::size_t>(count) : 0;
    });
  }
  if (count == 0) return true;
  error = L"Cannot read the file \"" + name + L"\": " + SystemErrorText(errno);
  bytes.clear();
  return false;
}
