#pragma once

namespace reliability {

/// This test program answers for the system's name resolver: the host "slow.test" is not known
/// before Release, and then is 127.0.0.1; other names are resolved as ever.
class SlowResolver {
 public:
  SlowResolver();
  /// Releases, and waits until nobody is in the resolver any more.
  ~SlowResolver();
  SlowResolver(const SlowResolver&) = delete;
  SlowResolver& operator=(const SlowResolver&) = delete;
  /// Waits until somebody asks for the host.
  static void AwaitQuestion();
  static void Release();
};

}  // namespace reliability
