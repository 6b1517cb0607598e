#pragma once

#include <cstddef>

/// Tells AddressSanitizer which bytes of the block pool nobody may touch, so that recycling blocks does not
/// hide a use after free or an overrun. Both functions do nothing in other builds.

#if defined(__SANITIZE_ADDRESS__)
#define FXS_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define FXS_ADDRESS_SANITIZER 1
#endif
#endif

#ifdef FXS_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>

inline void poison(void const* p, std::size_t bytes) {
    __asan_poison_memory_region(p, bytes);
}
inline void unpoison(void const* p, std::size_t bytes) {
    __asan_unpoison_memory_region(p, bytes);
}
#else
inline void poison(void const*, std::size_t) {}
inline void unpoison(void const*, std::size_t) {}
#endif
