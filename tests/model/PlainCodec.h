// The Reed-Solomon erasure code of the plain model: the systematic code that a Vandermonde matrix yields
// when multiplied by the inverse of its top square, over GF(2^8) with the polynomial 0x11d. Every inverse is
// a Gauss-Jordan elimination of the whole matrix.

#ifndef TALRTP_TESTS_MODEL_PLAINCODEC_H
#define TALRTP_TESTS_MODEL_PLAINCODEC_H

#include "model/PlainPacket.h"

#include <vector>

namespace talrtp {
namespace model {

typedef std::vector<Bytes> Matrix;  // rows

unsigned char gfMultiply(unsigned char a, unsigned char b);
unsigned char gfInverse(unsigned char a);  // of a value that is not 0

// The n rows of k coefficients by which the n blocks of a group follow from its k source blocks. Kept per (k,
// n).
const Matrix& codeMatrix(int k, int n);

// The inverse of a square matrix that has one.
Matrix inverseOf(Matrix matrix);

// Rebuilds the source blocks `lost` out of k blocks and their positions in the code. A block that is shorter
// than `size` counts as if zeros followed.
std::vector<Bytes> rebuildBlocks(int k, int n, const std::vector<int>& positions,
                                 const std::vector<Bytes>& blocks, const std::vector<int>& lost, int size);

}  // namespace model
}  // namespace talrtp

#endif  // TALRTP_TESTS_MODEL_PLAINCODEC_H
