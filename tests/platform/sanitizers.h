// Which sanitizers watch this build. GCC and Visual C++ define macros of their own; clang 14 is asked.
#pragma once

#ifdef __has_feature
#if __has_feature(address_sanitizer)
#define KIV_TEST_ADDRESS_SANITIZER
#endif
#if __has_feature(thread_sanitizer)
#define KIV_TEST_THREAD_SANITIZER
#endif
#endif

#ifdef __SANITIZE_ADDRESS__
#define KIV_TEST_ADDRESS_SANITIZER
#endif
#ifdef __SANITIZE_THREAD__
#define KIV_TEST_THREAD_SANITIZER
#endif
