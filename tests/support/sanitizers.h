#pragma once

/// Which sanitizer the tests are built with, whatever compiler has built them.
namespace test_support {

#if defined(__SANITIZE_ADDRESS__)
#define TAVO_ADDRESS_SANITIZER 1
#elif defined(__SANITIZE_THREAD__)
#define TAVO_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TAVO_ADDRESS_SANITIZER 1
#elif __has_feature(thread_sanitizer)
#define TAVO_THREAD_SANITIZER 1
#endif
#endif

/// The program looks for leaks at its end, and keeps freed memory for a while.
#ifdef TAVO_ADDRESS_SANITIZER
inline constexpr bool IsAddressSanitized = true;
#else
inline constexpr bool IsAddressSanitized = false;
#endif

#if defined(TAVO_ADDRESS_SANITIZER) || defined(TAVO_THREAD_SANITIZER)
#define TAVO_SANITIZED 1
#endif

/// One of them slows the program down so much that it cannot keep up with music, and says nothing about its memory.
#ifdef TAVO_SANITIZED
inline constexpr bool IsSanitized = true;
#else
inline constexpr bool IsSanitized = false;
#endif

}  // namespace test_support
