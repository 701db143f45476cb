#include "kernels/XorKernel.h"

#include "kernels/Kernels.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace talrtp {

namespace {

// XORs `size` bytes, fewer than kXorBytes: whole words, then single bytes.
void xorRest(unsigned char* dst, const unsigned char* a, const unsigned char* b, std::size_t size) {
    std::size_t i = 0;
    for (; i + sizeof(std::uint64_t) <= size; i += sizeof(std::uint64_t)) {
        std::uint64_t wordA;
        std::uint64_t wordB;
        std::memcpy(&wordA, a + i, sizeof wordA);
        std::memcpy(&wordB, b + i, sizeof wordB);
        wordA ^= wordB;
        std::memcpy(dst + i, &wordA, sizeof wordA);
    }
    for (; i < size; ++i) {
        dst[i] = static_cast<unsigned char>(a[i] ^ b[i]);
    }
}

// Writes the XOR of what the sources have from `begin` on, one after the other.
void addRest(unsigned char* dst, const unsigned char* const* sources, const int* sizes, int count,
             std::size_t begin, std::size_t end) {
    std::memset(dst + begin, 0, end - begin);
    for (int j = 0; j < count; ++j) {
        const std::size_t size = std::min(static_cast<std::size_t>(std::max(sizes[j], 0)), end);
        if (size > begin) {
            xorBlocks(dst + begin, dst + begin, sources[j] + begin, size - begin);
        }
    }
}

}  // namespace

void xorBlocks(unsigned char* dst, const unsigned char* a, const unsigned char* b, std::size_t size) {
    const std::size_t whole = size / kXorBytes * kXorBytes;
    if (whole > 0) {
        const unsigned char* const sources[] = {a, b};
        getKernels().exclusiveOr->combine(dst, sources, 2, 0, whole);
    }
    xorRest(dst + whole, a + whole, b + whole, size - whole);
}

void xorMany(unsigned char* dst, const unsigned char* const* sources, const int* sizes, int count,
             int length) {
    if (length <= 0) {
        return;
    }
    const stXorKernel& kernel = *getKernels().exclusiveOr;
    const std::size_t size = static_cast<std::size_t>(length);
    const int shortest = count > 0 ? *std::min_element(sizes, sizes + count) : 0;
    const std::size_t common = static_cast<std::size_t>(std::max(std::min(shortest, length), 0));
    const std::size_t whole = common / kXorBytes * kXorBytes;
    if (whole > 0) {
        kernel.combine(dst, sources, static_cast<std::size_t>(count), 0, whole);
    }
    if (whole > 0 && common == size) {
        // The last piece ends with the strings and does some bytes for the second time.
        kernel.combine(dst, sources, static_cast<std::size_t>(count), size - kXorBytes, kXorBytes);
        return;
    }
    addRest(dst, sources, sizes, count, whole, size);
}

}  // namespace talrtp
