#include "kernels/GfTables.h"
#include "kernels/GfTile.h"

#include <immintrin.h>

namespace talrtp {

namespace {

// 32 bytes per step. A product is the sum of two shuffles, which look up the products of the low and the high
// nibbles in 16-byte tables; a source is split into nibbles once for all rows.
struct stAvx2 {
    using Vector = __m256i;
    struct Source {
        __m256i low;
        __m256i high;
    };
    struct Factor {
        __m256i low;
        __m256i high;
    };
    static constexpr int kBytes = 32;
    static constexpr int kStep = 1;
    static constexpr stTileShape kShapes[] = {{2, 3}, {4, 2}};

    static Vector zero() { return _mm256_setzero_si256(); }
    static Vector load(const unsigned char* bytes) {
        return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes));
    }
    static void store(unsigned char* bytes, Vector vector) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(bytes), vector);
    }
    static Source loadSource(const unsigned char* bytes) {
        const __m256i nibble = _mm256_set1_epi8(0x0F);
        const __m256i both = load(bytes);
        return {_mm256_and_si256(both, nibble), _mm256_and_si256(_mm256_srli_epi64(both, 4), nibble)};
    }
    static Factor makeFactor(unsigned char c) {
        const stNibbleProducts& products = kNibbleTable.of[c];
        return {_mm256_broadcastsi128_si256(*reinterpret_cast<const __m128i*>(products.low)),
                _mm256_broadcastsi128_si256(*reinterpret_cast<const __m128i*>(products.high))};
    }
    static Vector multiply(Source source, Factor factor) {
        return _mm256_xor_si256(_mm256_shuffle_epi8(factor.low, source.low),
                                _mm256_shuffle_epi8(factor.high, source.high));
    }
    static Vector add(Vector a, Vector b) { return _mm256_xor_si256(a, b); }
    static Vector add(Vector a, Vector b, Vector c) { return add(add(a, b), c); }
};

void addWholeProduct(unsigned char* dst, const unsigned char* src, unsigned char c, std::size_t size) {
    const std::size_t done = addProductWithVectors<stAvx2>(dst, src, c, size);
    if (done < size) {
        kGfKernelSsse3.addProduct(dst + done, src + done, c, size - done);
    }
}

}  // namespace

const stGfKernel kGfKernelAvx2 = {multiplyWithTiles<stAvx2>, addWholeProduct};

}  // namespace talrtp
