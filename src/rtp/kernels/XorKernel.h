// XOR of byte strings, the arithmetic of XOR parity packets.

#ifndef TALRTP_SRC_KERNELS_XORKERNEL_H
#define TALRTP_SRC_KERNELS_XORKERNEL_H

#include <cstddef>

namespace talrtp {

// dst[i] = a[i] ^ b[i] for i < size. No alignment is needed; `dst` may equal `a` or `b`, other overlaps are
// not supported.
void xorBlocks(unsigned char* dst, const unsigned char* a, const unsigned char* b, std::size_t size);

// Writes the XOR of `count` byte strings to `dst`, over `length` bytes, reading each string once and writing
// `dst` once. sources[j] has sizes[j] bytes: it counts as zero behind them, and what it has beyond `length`
// is not read. No alignment is needed; `dst` must not overlap a source. A negative size or length counts as
// 0.
void xorMany(unsigned char* dst, const unsigned char* const* sources, const int* sizes, int count,
             int length);

}  // namespace talrtp

#endif  // TALRTP_SRC_KERNELS_XORKERNEL_H
