#include "kernels/XorTile.h"

#include <immintrin.h>

namespace talrtp {

namespace {

// 32 bytes per step.
struct stAvx2Xor {
    using Vector = __m256i;
    static constexpr int kBytes = 32;
    static constexpr int kPieces = 4;

    static Vector load(const unsigned char* bytes) {
        return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes));
    }
    static void store(unsigned char* bytes, Vector vector) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(bytes), vector);
    }
    static Vector add(Vector a, Vector b) { return _mm256_xor_si256(a, b); }
};

}  // namespace

const stXorKernel kXorKernelAvx2 = {combineWithTiles<stAvx2Xor>};

}  // namespace talrtp
