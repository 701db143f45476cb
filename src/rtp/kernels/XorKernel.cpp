#include "kernels/XorKernel.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace talrtp {

void xorBlocks(unsigned char* dst, const unsigned char* a, const unsigned char* b, std::size_t size) {
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

void xorMany(unsigned char* dst, const unsigned char* const* sources, const int* sizes, int count,
             int length) {
    if (length <= 0) {
        return;
    }
    std::memset(dst, 0, static_cast<std::size_t>(length));
    for (int j = 0; j < count; ++j) {
        const int size = std::min(sizes[j], length);
        xorBlocks(dst, dst, sources[j], static_cast<std::size_t>(std::max(size, 0)));
    }
}

}  // namespace talrtp
