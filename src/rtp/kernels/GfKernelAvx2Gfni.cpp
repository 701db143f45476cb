#include "kernels/GfTables.h"
#include "kernels/GfTile.h"

#include <immintrin.h>

namespace talrtp {

namespace {

// 32 bytes per step; a product is one bit-matrix multiplication.
struct stAvx2Gfni {
    using Vector = __m256i;
    using Source = __m256i;
    using Factor = __m256i;
    static constexpr int kBytes = 32;
    static constexpr int kStep = 1;
    static constexpr stTileShape kShapes[] = {{3, 4}, {6, 2}};

    static Vector zero() { return _mm256_setzero_si256(); }
    static Vector load(const unsigned char* bytes) {
        return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes));
    }
    static void store(unsigned char* bytes, Vector vector) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(bytes), vector);
    }
    static Source loadSource(const unsigned char* bytes) { return load(bytes); }
    static Factor makeFactor(unsigned char c) {
        return _mm256_set1_epi64x(static_cast<long long>(kAffineTable.of[c]));
    }
    static Vector multiply(Source source, Factor factor) {
        return _mm256_gf2p8affine_epi64_epi8(source, factor, 0);
    }
    static Vector add(Vector a, Vector b) { return _mm256_xor_si256(a, b); }
    static Vector add(Vector a, Vector b, Vector c) { return add(add(a, b), c); }
};

void addWholeProduct(unsigned char* dst, const unsigned char* src, unsigned char c, std::size_t size) {
    const std::size_t done = addProductWithVectors<stAvx2Gfni>(dst, src, c, size);
    if (done < size) {
        const __m128i factor = _mm256_castsi256_si128(stAvx2Gfni::makeFactor(c));
        const __m128i source = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + done));
        __m128i* const rest = reinterpret_cast<__m128i*>(dst + done);
        const __m128i product = _mm_gf2p8affine_epi64_epi8(source, factor, 0);
        _mm_storeu_si128(rest, _mm_xor_si128(_mm_loadu_si128(rest), product));
    }
}

}  // namespace

const stGfKernel kGfKernelAvx2Gfni = {multiplyWithTiles<stAvx2Gfni>, addWholeProduct};

}  // namespace talrtp
