#include "MallocCounter.h"

#include <malloc.h>

namespace talrtp {
namespace test {

Requests& requests() {
    static Requests all;
    return all;
}

}  // namespace test
}  // namespace talrtp

#if !TALRTP_TESTS_ANY_SANITIZER

namespace {

constexpr std::size_t kBeside = 8;
constexpr int kNoMemory = 12;  // ENOMEM

void note(std::size_t size) {
    talrtp::test::Requests& all = talrtp::test::requests();
    if (all.isWatching && all.count < talrtp::test::Requests::kNoted) {
        all.sizes[all.count++] = size;
    }
}

void* lent(void* memory) {
    if (memory != nullptr) {
        talrtp::test::requests().bytesInUse += malloc_usable_size(memory) + kBeside;
    }
    return memory;
}

void returned(void* memory) {
    if (memory != nullptr) {
        talrtp::test::requests().bytesInUse -= malloc_usable_size(memory) + kBeside;
    }
}

}  // namespace

extern "C" {

// The allocator of the C library under its other names.
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* memory);

void* malloc(std::size_t size) {
    note(size);
    return lent(__libc_malloc(size));
}

void* calloc(std::size_t count, std::size_t size) {
    note(count * size);
    return lent(__libc_calloc(count, size));
}

void* realloc(void* memory, std::size_t size) {
    note(size);
    const std::size_t before = memory == nullptr ? 0 : malloc_usable_size(memory) + kBeside;
    void* const grown = lent(__libc_realloc(memory, size));
    if (grown != nullptr || size == 0) {
        talrtp::test::requests().bytesInUse -= before;
    }
    return grown;
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
    note(size);
    *memory = lent(__libc_memalign(alignment, size));
    return *memory != nullptr ? 0 : kNoMemory;
}

void free(void* memory) {
    returned(memory);
    __libc_free(memory);
}

}  // extern "C"

#endif
