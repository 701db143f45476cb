#include "HeapCounter.h"

#include <malloc.h>

#include <cstdlib>
#include <new>

#include "SanitizedBuild.h"

namespace talrtp {
namespace test {

Heap& heap() {
    static Heap counts;
    return counts;
}

}  // namespace test
}  // namespace talrtp

#if !TALRTP_TESTS_THREAD_SANITIZER

using talrtp::test::Heap;
using talrtp::test::heap;

// Kept out of line: where g++ 12 sees one of a pair inlined and the other not, it warns of a mismatch.
__attribute__((noinline)) void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    Heap& counts = heap();
    ++counts.calls;
    if (counts.refused != 0 && --counts.refused == 0) {
        return nullptr;
    }
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (memory != nullptr) {
        ++counts.blocks;
        counts.bytes += malloc_usable_size(memory);
    }
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
        --heap().blocks;
        heap().bytes -= malloc_usable_size(memory);
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

#endif
