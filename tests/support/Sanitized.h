#pragma once

#if defined(__SANITIZE_ADDRESS__)
#  define XMLA_ADDRESS_SANITIZER 1
#elif defined(__SANITIZE_THREAD__)
#  define XMLA_THREAD_SANITIZER 1
#elif defined(__has_feature)
#  if __has_feature(address_sanitizer)
#    define XMLA_ADDRESS_SANITIZER 1
#  elif __has_feature(thread_sanitizer)
#    define XMLA_THREAD_SANITIZER 1
#  endif
#endif

namespace support {

#ifdef XMLA_THREAD_SANITIZER
inline constexpr bool kIsThreadSanitized = true;
#else
inline constexpr bool kIsThreadSanitized = false;
#endif

/// True in a build with a sanitizer, which is several times slower and uses more memory.
#ifdef XMLA_ADDRESS_SANITIZER
inline constexpr bool kIsSanitized = true;
#else
inline constexpr bool kIsSanitized = kIsThreadSanitized;
#endif

}  // namespace support
