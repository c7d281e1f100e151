#pragma once

namespace reliability {

/// Interposes the system's name resolver. The look-up of "slow.test" blocks until Release, and then
/// returns 127.0.0.1. Other names are passed to the system.
class SlowResolver {
 public:
  SlowResolver();
  /// Releases all callers, and waits until they have left the resolver.
  ~SlowResolver();
  SlowResolver(const SlowResolver&) = delete;
  SlowResolver& operator=(const SlowResolver&) = delete;
  /// Waits until a look-up of the host is blocked.
  static void AwaitQuestion();
  static void Release();
};

}  // namespace reliability
