// The whole matrix that takes k received blocks to the k source blocks.

#ifndef TALRTP_SRC_FEC_DECODINGMATRIX_H
#define TALRTP_SRC_FEC_DECODINGMATRIX_H

#include <talrtp/RsFec.h>

namespace talrtp {

// Writes k rows of k coefficients: row s yields source block s, column j belongs to the block at index[j].
// False when a position is outside 0 .. n-1, a source position occurs twice or the positions determine no
// solution; `index` may then be in another order, and is unchanged else.
bool fillDecodingMatrix(const rs_param_& model, unsigned char* matrix, int* index);

}  // namespace talrtp

#endif  // TALRTP_SRC_FEC_DECODINGMATRIX_H
