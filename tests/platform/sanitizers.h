// Which sanitizers watch this build. Clang is asked; no other compiler builds with them (KIV_SANITIZE).
#pragma once

#ifdef __has_feature
#if __has_feature(address_sanitizer)
#define KIV_TEST_ADDRESS_SANITIZER
#endif
#if __has_feature(thread_sanitizer)
#define KIV_TEST_THREAD_SANITIZER
#endif
#endif
