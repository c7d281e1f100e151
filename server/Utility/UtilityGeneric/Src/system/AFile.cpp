#include "Utility/Generic/AFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/ImportSettings.h"
#include "system/PrivateFile.h"
#include "system/SignalBlock.h"
#include "system/SystemErrorText.h"

namespace {

[[noreturn]] void ThrowFileError(const wchar_t* what, const String& name, int error) {
  SUGThrow(ErrorMessage(String(what) + name + L"\": " + SystemErrorText(error)), L"AFile.cpp",
           __LINE__);
}

class SystemFile final : public AFile {
 public:
  ~SystemFile() override { Close(); }

  void Open(const String& name, unsigned int mode) override {
    Close();
    const NarrowString bytes = BaseStringUtil::ToUTF8(name);
    if (bytes.find(std::string_view("\0", 1)) != NarrowString::npos)
      ThrowFileError(L"Cannot open the file \"", name, EINVAL);
    m_path.assign(bytes.data(), bytes.size());
    if ((mode & kModeCreate) != 0) {
      m_descriptor = OpenPrivateFile(m_path);
    } else {
      const int flags = O_CLOEXEC | ((mode & kModeWrite) != 0 ? O_WRONLY : O_RDONLY);
      do {
        m_descriptor = ::open(m_path.c_str(), flags);
      } while (m_descriptor < 0 && errno == EINTR);
    }
    if (m_descriptor < 0) ThrowFileError(L"Cannot open the file \"", name, errno);
    if ((mode & kModeTruncate) == 0) return;
    // With O_APPEND, later writes leave no hole if another process truncates the file.
    if (::ftruncate(m_descriptor, 0) != 0 || ::fcntl(m_descriptor, F_SETFL, O_APPEND) != 0)
      ThrowFileError(L"Cannot empty the file \"", name, errno);
  }

  bool WriteBytes(const char* bytes, std::size_t count) override {
    if (m_descriptor < 0) return false;
    // A file size limit or a closed pipe raises a signal that would end the host.
    const SignalBlock noLimitSignal(SIGXFSZ);
    const SignalBlock noPipeSignal(SIGPIPE);
    while (count > 0) {
      const ssize_t written = ::write(m_descriptor, bytes, count);
      if (written < 0 && errno == EINTR) continue;
      if (written <= 0) {
        ReportFailure(written < 0 ? errno : ENOSPC);
        return false;
      }
      bytes += written;
      count -= static_cast<std::size_t>(written);
    }
    return true;
  }

  // Nothing to do: each write goes to the operating system at once.
  bool Flush() override { return m_descriptor >= 0 && !m_failed; }

  bool Delete() override {
    if (m_descriptor < 0) return false;
    Close();
    return ::unlink(m_path.c_str()) == 0;
  }

 private:
  void Close() noexcept {
    if (m_descriptor >= 0) ::close(m_descriptor);
    m_descriptor = -1;
    m_failed = false;
  }

  /// Reports only the first failure of a file.
  void ReportFailure(int error) {
    const auto& handler = ImportSettings::Current().onLogFailure;
    if (std::exchange(m_failed, true) || !handler) return;
    handler(BaseStringUtil::FromUTF8(m_path), SystemErrorText(error));
  }

  int m_descriptor = -1;
  bool m_failed = false;
  std::string m_path;
};

}  // namespace

AFile::~AFile() = default;

Heap<AFile> AFile::MakeFile() { return std::make_unique<SystemFile>(); }
