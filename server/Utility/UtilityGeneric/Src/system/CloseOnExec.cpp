#include "system/CloseOnExec.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <charconv>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

namespace CloseOnExec {
namespace {

bool IsLocalSocket(int descriptor) {
  int domain = 0;
  socklen_t size = sizeof domain;
  return getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_UNIX;
}

struct CloseDirectory {
  void operator()(DIR* directory) const noexcept { closedir(directory); }
};

/// Number of unread bytes of each local socket that is not close-on-exec. Empty if the descriptors
/// cannot be listed.
std::map<int, int> PendingBytes() {
  std::map<int, int> pending;
  const std::unique_ptr<DIR, CloseDirectory> directory(opendir("/proc/self/fd"));
  if (!directory) return pending;
  while (const dirent* const entry = readdir(directory.get())) {
    int descriptor = 0;
    const char* const end = entry->d_name + std::strlen(entry->d_name);
    if (std::from_chars(entry->d_name, end, descriptor).ptr != end) continue;
    const int flags = fcntl(descriptor, F_GETFD);
    int bytes = 0;
    if (flags >= 0 && (flags & FD_CLOEXEC) == 0 && IsLocalSocket(descriptor) &&
        ioctl(descriptor, FIONREAD, &bytes) == 0)
      pending[descriptor] = bytes;
  }
  return pending;
}

/// Finds the socket that receives one byte for each call of `signal`; -1 if there is none. Calls it
/// twice, because other sockets may receive data at the same time.
int FindReceivingSocket(const std::function<void()>& signal) {
  static std::mutex mutex;  // parallel searches would see each other's bytes
  const std::lock_guard lock(mutex);
  std::map<int, int> candidates = PendingBytes();
  for (int sent = 1; sent <= 2; ++sent) {
    signal();
    const std::map<int, int> now = PendingBytes();
    std::erase_if(candidates, [&now, sent](const auto& candidate) {
      const auto found = now.find(candidate.first);
      return found == now.end() || found->second != candidate.second + sent;
    });
  }
  return candidates.size() == 1 ? candidates.begin()->first : -1;
}

}  // namespace

void Mark(int descriptor) noexcept {
  const int flags = fcntl(descriptor, F_GETFD);
  if (flags >= 0) fcntl(descriptor, F_SETFD, flags | FD_CLOEXEC);
}

void MarkPair(int knownEnd) {
  Mark(knownEnd);
  const int other = FindReceivingSocket([knownEnd] {
    constexpr char kByte = 0;
    static_cast<void>(send(knownEnd, &kByte, 1, MSG_NOSIGNAL | MSG_DONTWAIT));
  });
  if (other >= 0) Mark(other);
}

void MarkPairBySignal(const std::function<void()>& signal) {
  const int end = FindReceivingSocket(signal);
  if (end >= 0) MarkPair(end);
}

}  // namespace CloseOnExec
