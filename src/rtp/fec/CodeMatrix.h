// The matrix of the Reed-Solomon code, which takes k source blocks to n blocks.

#ifndef TALRTP_SRC_FEC_CODEMATRIX_H
#define TALRTP_SRC_FEC_CODEMATRIX_H

#include <talrtp/RsFec.h>

namespace talrtp {

// Writes the n rows of k coefficients, 1 <= k <= n <= 256: those of the source blocks are the identity.
void fillCodeMatrix(unsigned char* matrix, int k, int n);

// Makes the parity blocks of a model, `length` bytes each. src[j] has sizes[j] bytes and counts as zero after
// them. Null sizes stand for blocks that all have `length` bytes.
void encodeBlocks(const rs_param_& model, unsigned char* const* src, const int* sizes, int length,
                  unsigned char* const* dst);

}  // namespace talrtp

#endif  // TALRTP_SRC_FEC_CODEMATRIX_H
