#include "kernels/XorTile.h"

#include <tmmintrin.h>

namespace talrtp {

namespace {

// 16 bytes per step.
struct stSsse3Xor {
    using Vector = __m128i;
    static constexpr int kBytes = 16;
    static constexpr int kPieces = 2;

    static Vector load(const unsigned char* bytes) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
    }
    static void store(unsigned char* bytes, Vector vector) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(bytes), vector);
    }
    static Vector add(Vector a, Vector b) { return _mm_xor_si128(a, b); }
};

}  // namespace

const stXorKernel kXorKernelSsse3 = {combineWithTiles<stSsse3Xor>};

}  // namespace talrtp
