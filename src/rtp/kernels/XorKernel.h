// XOR of byte strings, the arithmetic of XOR parity packets.

#ifndef TALRTP_SRC_KERNELS_XORKERNEL_H
#define TALRTP_SRC_KERNELS_XORKERNEL_H

#include <cstddef>

namespace talrtp {

// dst[i] = a[i] ^ b[i] for i < size. No alignment is needed; `dst` may equal `a` or `b`, other overlaps are
// not supported.
void xorBlocks(unsigned char* dst, const unsigned char* a, const unsigned char* b, std::size_t size);

// Writes the XOR of `count` byte strings to `dst`, over `length` bytes, reading each string once and writing
// `dst` once. sources[j] has sizes[j] bytes: it counts as zero after them, and bytes beyond `length`
// are not read. No alignment is needed; `dst` must not overlap a source. Without a source the result is zero.
// A negative size, count or length counts as 0.
void xorMany(unsigned char* dst, const unsigned char* const* sources, const int* sizes, int count,
             int length);

// The smallest size that the kernels take.
constexpr std::size_t kXorBytes = 64;

// One variant of the loop; each is in a source file of its own.
struct stXorKernel {
    // Writes the XOR of bytes offset .. offset + size - 1 of `count` sources, at least one, to the same bytes
    // of `dst`. `size` is at least kXorBytes. No alignment is needed; `dst` may equal a source, but no other
    // overlap.
    void (*combine)(unsigned char* dst, const unsigned char* const* sources, std::size_t count,
                    std::size_t offset, std::size_t size);
};

extern const stXorKernel kXorKernelPortable;
extern const stXorKernel kXorKernelSsse3;
extern const stXorKernel kXorKernelAvx2;
extern const stXorKernel kXorKernelAvx512;
extern const stXorKernel kXorKernelNeon;

}  // namespace talrtp

#endif  // TALRTP_SRC_KERNELS_XORKERNEL_H
