#pragma once

// What the program is watched by; clang answers by a feature what g++ defines a macro for.
#ifdef __has_feature
inline constexpr bool kHasAddressSanitizer = __has_feature(address_sanitizer);
inline constexpr bool kHasThreadSanitizer = __has_feature(thread_sanitizer);
#else
#    ifdef __SANITIZE_ADDRESS__
inline constexpr bool kHasAddressSanitizer = true;
#    else
inline constexpr bool kHasAddressSanitizer = false;
#    endif
#    ifdef __SANITIZE_THREAD__
inline constexpr bool kHasThreadSanitizer = true;
#    else
inline constexpr bool kHasThreadSanitizer = false;
#    endif
#endif
