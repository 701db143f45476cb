#include "kernels/GfTables.h"
#include "kernels/GfTile.h"

#include <immintrin.h>

namespace talrtp {

namespace {

// 64 bytes per step. A product is one bit-matrix multiplication, which the processor starts once a cycle; the
// sum of two products and a running sum is one ternary operation on another port, hence two sources per step.
struct stAvx512Gfni {
    using Vector = __m512i;
    using Source = __m512i;
    using Factor = __m512i;
    static constexpr int kBytes = 64;
    static constexpr int kStep = 2;
    static constexpr stTileShape kShapes[] = {{1, 8}, {5, 4}};
    static constexpr int kExclusiveOrOfThree = 0x96;

    static Vector zero() { return _mm512_setzero_si512(); }
    static Vector load(const unsigned char* bytes) { return _mm512_loadu_si512(bytes); }
    static void store(unsigned char* bytes, Vector vector) { _mm512_storeu_si512(bytes, vector); }
    static Source loadSource(const unsigned char* bytes) { return load(bytes); }
    static Factor makeFactor(unsigned char c) {
        return _mm512_set1_epi64(static_cast<long long>(kAffineTable.of[c]));
    }
    static Vector multiply(Source source, Factor factor) {
        return _mm512_gf2p8affine_epi64_epi8(source, factor, 0);
    }
    static Vector add(Vector a, Vector b) { return _mm512_xor_si512(a, b); }
    static Vector add(Vector a, Vector b, Vector c) {
        return _mm512_ternarylogic_epi64(a, b, c, kExclusiveOrOfThree);
    }
};

// The bytes after the last whole vector are masked.
void addWholeProduct(unsigned char* dst, const unsigned char* src, unsigned char c, std::size_t size) {
    const std::size_t done = addProductWithVectors<stAvx512Gfni>(dst, src, c, size);
    if (done < size) {
        const __mmask64 rest = (__mmask64{1} << (size - done)) - 1;
        const __m512i product =
            stAvx512Gfni::multiply(_mm512_maskz_loadu_epi8(rest, src + done), stAvx512Gfni::makeFactor(c));
        const __m512i sum = _mm512_xor_si512(_mm512_maskz_loadu_epi8(rest, dst + done), product);
        _mm512_mask_storeu_epi8(dst + done, rest, sum);
    }
}

}  // namespace

const stGfKernel kGfKernelAvx512Gfni = {multiplyWithTiles<stAvx512Gfni>, addWholeProduct};

}  // namespace talrtp
