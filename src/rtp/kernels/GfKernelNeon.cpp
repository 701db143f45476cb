#include "kernels/GfTables.h"
#include "kernels/GfTile.h"

#include <arm_neon.h>

namespace talrtp {

namespace {

// 16 bytes per step. A product is the sum of two table look-ups, of the products of the low and the high
// nibbles in 16-byte tables; a source is split into nibbles once for all rows. There are 32 registers.
struct stNeon {
    using Vector = uint8x16_t;
    struct Source {
        uint8x16_t low;
        uint8x16_t high;
    };
    struct Factor {
        uint8x16_t low;
        uint8x16_t high;
    };
    static constexpr int kBytes = 16;
    static constexpr int kStep = 1;
    static constexpr stTileShape kShapes[] = {{4, 4}, {10, 2}};

    static Vector zero() { return vdupq_n_u8(0); }
    static Vector load(const unsigned char* bytes) { return vld1q_u8(bytes); }
    static void store(unsigned char* bytes, Vector vector) { vst1q_u8(bytes, vector); }
    static Source loadSource(const unsigned char* bytes) {
        const uint8x16_t both = load(bytes);
        return {vandq_u8(both, vdupq_n_u8(0x0F)), vshrq_n_u8(both, 4)};
    }
    static Factor makeFactor(unsigned char c) {
        const stNibbleProducts& products = kNibbleTable.of[c];
        return {load(products.low), load(products.high)};
    }
    static Vector multiply(Source source, Factor factor) {
        return veorq_u8(vqtbl1q_u8(factor.low, source.low), vqtbl1q_u8(factor.high, source.high));
    }
    static Vector add(Vector a, Vector b) { return veorq_u8(a, b); }
    static Vector add(Vector a, Vector b, Vector c) { return add(add(a, b), c); }
};

void addWholeProduct(unsigned char* dst, const unsigned char* src, unsigned char c, std::size_t size) {
    addProductWithVectors<stNeon>(dst, src, c, size);
}

}  // namespace

const stGfKernel kGfKernelNeon = {multiplyWithTiles<stNeon>, addWholeProduct};

}  // namespace talrtp
