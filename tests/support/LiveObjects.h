// Counts the objects that are alive on the heap, so that a test can tell a packet that was destroyed from one
// that was forgotten. Replaces the global allocation operators, which the library uses too; one source file
// per program includes it. Buffers of packets are taken with malloc and are not counted.

#ifndef TALRTP_TESTS_LIVEOBJECTS_H
#define TALRTP_TESTS_LIVEOBJECTS_H

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace talrtp {
namespace test {

inline std::atomic<long>& liveObjects() {
    static std::atomic<long> count{0};
    return count;
}

}  // namespace test
}  // namespace talrtp

#if defined(__SANITIZE_THREAD__)
#define TALRTP_HAS_OTHER_OPERATORS
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TALRTP_HAS_OTHER_OPERATORS
#endif
#endif

// ThreadSanitizer brings operators of its own, which can't be replaced: nothing is counted there.
#ifndef TALRTP_HAS_OTHER_OPERATORS

// Kept out of line: where g++ 12 sees one of a pair inlined and the other not, it warns of a mismatch.
__attribute__((noinline)) void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    void* const memory = std::malloc(size == 0 ? 1 : size);
    talrtp::test::liveObjects() += memory != nullptr ? 1 : 0;
    return memory;
}

void* operator new(std::size_t size) {
    void* const memory = operator new(size, std::nothrow);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void* operator new[](std::size_t size) {
    return operator new(size);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return operator new(size, std::nothrow);
}

__attribute__((noinline)) void operator delete(void* memory) noexcept {
    if (memory != nullptr) {
        --talrtp::test::liveObjects();
        std::free(memory);
    }
}

void operator delete(void* memory, std::size_t) noexcept {
    operator delete(memory);
}

void operator delete[](void* memory) noexcept {
    operator delete(memory);
}

void operator delete[](void* memory, std::size_t) noexcept {
    operator delete(memory);
}

#endif  // TALRTP_HAS_OTHER_OPERATORS

#endif  // TALRTP_TESTS_LIVEOBJECTS_H
