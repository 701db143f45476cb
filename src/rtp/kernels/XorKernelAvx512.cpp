#include "kernels/XorTile.h"

#include <immintrin.h>

namespace talrtp {

namespace {

// 64 bytes per step.
struct stAvx512Xor {
    using Vector = __m512i;
    static constexpr int kBytes = 64;
    static constexpr int kPieces = 4;

    static Vector load(const unsigned char* bytes) { return _mm512_loadu_si512(bytes); }
    static void store(unsigned char* bytes, Vector vector) { _mm512_storeu_si512(bytes, vector); }
    static Vector add(Vector a, Vector b) { return _mm512_xor_si512(a, b); }
};

}  // namespace

const stXorKernel kXorKernelAvx512 = {combineWithTiles<stAvx512Xor>};

}  // namespace talrtp
