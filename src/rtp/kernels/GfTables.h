// The field's multiplication in the two forms that vector instructions take, one entry per constant.

#ifndef TALRTP_SRC_KERNELS_GFTABLES_H
#define TALRTP_SRC_KERNELS_GFTABLES_H

#include <cstdint>

namespace talrtp {

// [a][b] = a * b. The field's own table, which the library exports; declared here since kernels include no
// header but their own.
extern const unsigned char gf_mul_table[256][256];

// The product of c and a byte is the XOR of the products of c and the byte's two nibbles:
// low[x] = c * x and high[x] = c * (x << 4), each a 16-byte table for a byte shuffle.
struct alignas(32) stNibbleProducts {
    unsigned char low[16];
    unsigned char high[16];
};

struct stNibbleTable {
    stNibbleProducts of[256];
};

// Multiplication by c is linear over the bits, so it is an 8 x 8 bit matrix. Byte 7 - i of the matrix,
// counted from the least significant one, yields bit i of the product: the parity of the byte AND the
// argument.
struct alignas(64) stAffineTable {
    std::uint64_t of[256];
};

extern const stNibbleTable kNibbleTable;
extern const stAffineTable kAffineTable;

}  // namespace talrtp

#endif  // TALRTP_SRC_KERNELS_GFTABLES_H
