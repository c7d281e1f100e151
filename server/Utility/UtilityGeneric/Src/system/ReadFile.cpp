#include "system/ReadFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "Utility/Generic/BaseStringUtil.h"
#include "system/Descriptor.h"
#include "system/SystemErrorText.h"

namespace {

constexpr std::size_t kBlockBytes = std::size_t{1} << 16;

/// Reads into the free capacity of `bytes` until the end of the file; -1 on failure.
ssize_t ReadBlock(const Descriptor& file, NarrowString& bytes, std::size_t room) {
  ssize_t count = 0;
  bytes.AppendFilled(room, [&](char* place) noexcept {
    do {
      count = ::read(file.Number(), place, room);
    } while (count < 0 && errno == EINTR);
    return count > 0 ? static_cast<std::size_t>(count) : 0;
  });
  return count;
}

String ErrorText(const String& name, const String& reason) {
  return L"Cannot read the file \"" + name + L"\": " + reason;
}

}  // namespace

bool ReadFile(const String& name, NarrowString& bytes, String& error) {
  const NarrowString path = BaseStringUtil::ToUTF8(name);
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  ssize_t count = file.Number() < 0 ? -1 : 1;
  while (count > 0) count = ReadBlock(file, bytes, kBlockBytes);
  if (count == 0) return true;
  error = ErrorText(name, SystemErrorText(errno));
  bytes.clear();
  return false;
}

bool ReadSecretFile(const String& name, NarrowString& bytes, String& error) {
  const NarrowString path = BaseStringUtil::ToUTF8(name);
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (file.Number() < 0 || ::fstat(file.Number(), &status) != 0) {
    error = ErrorText(name, SystemErrorText(errno));
    return false;
  }
  if (!S_ISREG(status.st_mode)) {
    error = ErrorText(name, L"it is not a regular file");
    return false;
  }
  // All at once: a text that grows leaves its former characters behind.
  const auto size = static_cast<std::size_t>(status.st_size);
  if (size <= kMaxSecretFileBytes) {
    bytes.reserve(size + 1);
    ssize_t count = 1;
    while (count > 0 && bytes.size() <= size)
      count = ReadBlock(file, bytes, size + 1 - bytes.size());
    if (count == 0) return true;
    error = ErrorText(name, count < 0 ? SystemErrorText(errno) : L"it changed meanwhile");
  } else {
    error = ErrorText(name, L"it is longer than " +
                                BaseStringUtil::StringFrom(std::uint64_t{kMaxSecretFileBytes}) +
                                L" bytes");
  }
  bytes.Erase();
  return false;
}
