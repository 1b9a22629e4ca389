#pragma once

/// Which sanitizer the program is built with, whatever compiler has built it.
namespace kit {

/// The program looks for leaks at its end, and keeps freed memory for a while.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool IsAddressSanitized = true;
#elif defined(__has_feature)
inline constexpr bool IsAddressSanitized = __has_feature(address_sanitizer);
#else
inline constexpr bool IsAddressSanitized = false;
#endif

#if defined(__SANITIZE_THREAD__)
inline constexpr bool IsThreadSanitized = true;
#elif defined(__has_feature)
inline constexpr bool IsThreadSanitized = __has_feature(thread_sanitizer);
#else
inline constexpr bool IsThreadSanitized = false;
#endif

/// One of them slows the program down so much that it cannot keep up with music, and says nothing about its memory.
inline constexpr bool IsSanitized = IsAddressSanitized || IsThreadSanitized;

}  // namespace kit
