// Multiplication of byte strings by constants of GF(2^8), the arithmetic of Reed-Solomon parity.
//
// There is one kernel per instruction set, each in a source file of its own, the only one that is compiled
// for it. The portable one is the reference: the others compute the same bytes. `multiplyBlocks` and
// `addProduct` take any size and use the kernel that Kernels.h names.

#ifndef TALRTP_SRC_KERNELS_GFKERNEL_H
#define TALRTP_SRC_KERNELS_GFKERNEL_H

#include <cstddef>

namespace talrtp {

// A product of a matrix of coefficients and a column of blocks: block r of the result is the sum over
// j < count of coefficients[r * stride + j] * sources[j].
struct stGfProduct {
    unsigned char* const* dst;  // `rows` blocks, which overlap no source
    int rows;
    const unsigned char* coefficients;
    int stride;
    const unsigned char* const* sources;  // `count` blocks, 1..256
    int count;
};

// Writes `length` bytes of every block of the result. sources[j] has sizes[j] bytes and counts as zero after
// them; these bytes are not read. A null `sizes` means blocks of `length` bytes. A negative size or length
// counts as 0.
void multiplyBlocks(const stGfProduct& product, const int* sizes, int length);

// dst[i] ^= c * src[i] for i < size. `dst` may equal `src`; other overlaps are not supported.
void addProduct(unsigned char* dst, const unsigned char* src, unsigned char c, std::size_t size);

constexpr std::size_t kMultiplyBytes = 64;    // the least that a kernel multiplies
constexpr std::size_t kAddProductBytes = 16;  // what a kernel's addProduct takes, and multiples of it

// One variant of the loops. No alignment is needed anywhere.
struct stGfKernel {
    // Writes the first `size` bytes of every block of the result, at least kMultiplyBytes. Each source, of
    // which there is at least one, has these bytes.
    void (*multiply)(const stGfProduct& product, std::size_t size);
    // dst[i] ^= c * src[i] for i < size. `dst` may equal `src`, but no other overlap.
    void (*addProduct)(unsigned char* dst, const unsigned char* src, unsigned char c, std::size_t size);
};

extern const stGfKernel kGfKernelPortable;
extern const stGfKernel kGfKernelSsse3;
extern const stGfKernel kGfKernelAvx2;
extern const stGfKernel kGfKernelAvx2Gfni;
extern const stGfKernel kGfKernelAvx512Gfni;
extern const stGfKernel kGfKernelNeon;

}  // namespace talrtp

#endif  // TALRTP_SRC_KERNELS_GFKERNEL_H
