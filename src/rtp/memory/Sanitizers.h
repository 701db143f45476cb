// AddressSanitizer is told of memory that is used again without the allocator: a block that waits for its
// next use must not be touched.

#ifndef TALRTP_SRC_MEMORY_SANITIZERS_H
#define TALRTP_SRC_MEMORY_SANITIZERS_H

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__)
#define TALRTP_POISONS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TALRTP_POISONS 1
#endif
#endif

#ifdef TALRTP_POISONS
#include <sanitizer/asan_interface.h>
#endif

namespace talrtp {

inline void poison(const void* memory, std::size_t size) {
#ifdef TALRTP_POISONS
    __asan_poison_memory_region(memory, size);
#else
    static_cast<void>(memory);
    static_cast<void>(size);
#endif
}

inline void unpoison(const void* memory, std::size_t size) {
#ifdef TALRTP_POISONS
    __asan_unpoison_memory_region(memory, size);
#else
    static_cast<void>(memory);
    static_cast<void>(size);
#endif
}

}  // namespace talrtp

#endif  // TALRTP_SRC_MEMORY_SANITIZERS_H
