// The one-pass XOR that parity is measured against: every source is read once and the target written once,
// with the widest vectors of the processor. Written apart from the library's kernels.

#ifndef TALRTP_BENCH_REFERENCEXOR_H
#define TALRTP_BENCH_REFERENCEXOR_H

#include <cstddef>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace talrtp {
namespace bench {

inline void xorOnePassPortable(unsigned char* target, const unsigned char* const* sources, int count,
                               std::size_t from, std::size_t size) {
    for (std::size_t i = from; i < size; ++i) {
        unsigned char sum = 0;
        for (int j = 0; j < count; ++j) {
            sum ^= sources[j][i];
        }
        target[i] = sum;
    }
}

#if defined(__x86_64__)
// 256 bytes a step; the last vector ends with the blocks.
__attribute__((target("avx512f"))) inline std::size_t xorOnePassAvx512(unsigned char* target,
                                                                       const unsigned char* const* sources,
                                                                       int count, std::size_t size) {
    constexpr std::size_t kStep = 256;
    std::size_t i = 0;
    for (; i + kStep <= size; i += kStep) {
        __m512i a = _mm512_loadu_si512(sources[0] + i);
        __m512i b = _mm512_loadu_si512(sources[0] + i + 64);
        __m512i c = _mm512_loadu_si512(sources[0] + i + 128);
        __m512i d = _mm512_loadu_si512(sources[0] + i + 192);
        for (int j = 1; j < count; ++j) {
            a = _mm512_xor_si512(a, _mm512_loadu_si512(sources[j] + i));
            b = _mm512_xor_si512(b, _mm512_loadu_si512(sources[j] + i + 64));
            c = _mm512_xor_si512(c, _mm512_loadu_si512(sources[j] + i + 128));
            d = _mm512_xor_si512(d, _mm512_loadu_si512(sources[j] + i + 192));
        }
        _mm512_storeu_si512(target + i, a);
        _mm512_storeu_si512(target + i + 64, b);
        _mm512_storeu_si512(target + i + 128, c);
        _mm512_storeu_si512(target + i + 192, d);
    }
    for (; i < size && size >= 64; i += 64) {
        if (i + 64 > size) {
            i = size - 64;
        }
        __m512i a = _mm512_loadu_si512(sources[0] + i);
        for (int j = 1; j < count; ++j) {
            a = _mm512_xor_si512(a, _mm512_loadu_si512(sources[j] + i));
        }
        _mm512_storeu_si512(target + i, a);
    }
    return i;
}
#endif

// target[i] = sources[0][i] ^ ... ^ sources[count - 1][i], for i < size; `count` is at least 1.
inline void xorOnePass(unsigned char* target, const unsigned char* const* sources, int count,
                       std::size_t size) {
    std::size_t done = 0;
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx512f")) {
        done = xorOnePassAvx512(target, sources, count, size);
    }
#endif
    xorOnePassPortable(target, sources, count, done, size);
}

}  // namespace bench
}  // namespace talrtp

#endif  // TALRTP_BENCH_REFERENCEXOR_H
