#include "kernels/XorTile.h"

#include <arm_neon.h>

namespace talrtp {

namespace {

// 16 bytes per step.
struct stNeonXor {
    using Vector = uint8x16_t;
    static constexpr int kBytes = 16;
    static constexpr int kPieces = 4;

    static Vector load(const unsigned char* bytes) { return vld1q_u8(bytes); }
    static void store(unsigned char* bytes, Vector vector) { vst1q_u8(bytes, vector); }
    static Vector add(Vector a, Vector b) { return veorq_u8(a, b); }
};

}  // namespace

const stXorKernel kXorKernelNeon = {combineWithTiles<stNeonXor>};

}  // namespace talrtp
