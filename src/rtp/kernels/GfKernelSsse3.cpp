#include "kernels/GfTables.h"
#include "kernels/GfTile.h"

#include <tmmintrin.h>

namespace talrtp {

namespace {

// 16 bytes per step. A product is the sum of two shuffles, which look up the products of the low and the high
// nibbles in 16-byte tables; a source is split into nibbles once for all rows.
struct stSsse3 {
    using Vector = __m128i;
    struct Source {
        __m128i low;
        __m128i high;
    };
    struct Factor {
        __m128i low;
        __m128i high;
    };
    static constexpr int kBytes = 16;
    static constexpr int kStep = 1;
    static constexpr stTileShape kShapes[] = {{2, 4}, {5, 2}, {10, 1}};

    static Vector zero() { return _mm_setzero_si128(); }
    static Vector load(const unsigned char* bytes) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
    }
    static void store(unsigned char* bytes, Vector vector) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(bytes), vector);
    }
    static Source loadSource(const unsigned char* bytes) {
        const __m128i nibble = _mm_set1_epi8(0x0F);
        const __m128i both = load(bytes);
        return {_mm_and_si128(both, nibble), _mm_and_si128(_mm_srli_epi64(both, 4), nibble)};
    }
    static Factor makeFactor(unsigned char c) {
        const stNibbleProducts& products = kNibbleTable.of[c];
        return {load(products.low), load(products.high)};
    }
    static Vector multiply(Source source, Factor factor) {
        return _mm_xor_si128(_mm_shuffle_epi8(factor.low, source.low),
                             _mm_shuffle_epi8(factor.high, source.high));
    }
    static Vector add(Vector a, Vector b) { return _mm_xor_si128(a, b); }
    static Vector add(Vector a, Vector b, Vector c) { return add(add(a, b), c); }
};

void addWholeProduct(unsigned char* dst, const unsigned char* src, unsigned char c, std::size_t size) {
    addProductWithVectors<stSsse3>(dst, src, c, size);
}

}  // namespace

const stGfKernel kGfKernelSsse3 = {multiplyWithTiles<stSsse3>, addWholeProduct};

}  // namespace talrtp
