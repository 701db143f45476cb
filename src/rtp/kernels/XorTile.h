// The loop that the XOR kernels share, over a description `V` of one instruction set: V::Vector, V::kBytes,
// V::load, V::store and V::add. Everything has internal linkage, so each kernel gets its own copy.

#ifndef TALRTP_SRC_KERNELS_XORTILE_H
#define TALRTP_SRC_KERNELS_XORTILE_H

#include "kernels/XorKernel.h"

namespace talrtp {
namespace {

// XORs kVectors vectors of all sources; the sums stay in registers while the sources pass by.
template <class V, int kVectors>
inline void combineTile(unsigned char* dst, const unsigned char* const* sources, std::size_t count,
                        std::size_t offset) {
    typename V::Vector sums[kVectors];
    for (int v = 0; v < kVectors; ++v) {
        sums[v] = V::load(sources[0] + offset + v * V::kBytes);
    }
    for (std::size_t j = 1; j < count; ++j) {
        for (int v = 0; v < kVectors; ++v) {
            sums[v] = V::add(sums[v], V::load(sources[j] + offset + v * V::kBytes));
        }
    }
    for (int v = 0; v < kVectors; ++v) {
        V::store(dst + offset + v * V::kBytes, sums[v]);
    }
}

template <class V>
void combineWithTiles(unsigned char* dst, const unsigned char* const* sources, std::size_t count,
                      std::size_t offset, std::size_t size) {
    constexpr std::size_t kWideBytes = 4 * kXorBytes;
    constexpr int kNarrowVectors = kXorBytes / V::kBytes;
    const std::size_t end = offset + size;
    for (; offset + kWideBytes <= end; offset += kWideBytes) {
        combineTile<V, 4 * kNarrowVectors>(dst, sources, count, offset);
    }
    for (; offset < end; offset += kXorBytes) {
        combineTile<V, kNarrowVectors>(dst, sources, count, offset);
    }
}

}  // namespace
}  // namespace talrtp

#endif  // TALRTP_SRC_KERNELS_XORTILE_H
