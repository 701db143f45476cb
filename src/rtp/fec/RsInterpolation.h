// The missing source blocks of the Reed-Solomon code by interpolation, without a system of equations.
//
// A block at position p holds, byte for byte, the values of polynomials of degree below k at the point of p.
// So any k blocks determine the others by Lagrange's formula:
//
//   value(s) = sum over the present p of  c(s, p) * value(p),   c(s, p) = L(s) / ((s - p) * L'(p))
//
// where L is the product of x - p over the present p. Receiving takes this way instead of a code model: it
// costs k coefficients for each missing block, so a few bytes of every missing block are cheap to look at,
// and bytes from the network fill no cache.

#ifndef TALRTP_SRC_FEC_RSINTERPOLATION_H
#define TALRTP_SRC_FEC_RSINTERPOLATION_H

#include <cstddef>

namespace talrtp {

class CRsInterpolation {
public:
    static constexpr int kMaxPositions = 256;

    // `present`: the positions of the `count` available blocks, each once. Borrowed, as long as this lives.
    CRsInterpolation(const unsigned char* present, int count);

    // Writes the coefficients of the present blocks, in their order, for the block at `missing`.
    void fillRow(unsigned char missing, unsigned char* row) const;

    // The bytes that `probe` needs as `scratch` for that many missing blocks.
    std::size_t scratchSize(int missingCount) const;
    // Computes `columns` bytes, at most kMaxColumns, of every missing block at once. values[c * kMaxPositions
    // + j] is byte c of present block j, and result[c * kMaxPositions + i] becomes byte c of missing block i.
    // `values` is overwritten.
    static constexpr int kMaxColumns = 8;
    void probe(const unsigned char* missing, int missingCount, unsigned char* values, int columns,
               unsigned char* scratch, unsigned char* result) const;

private:
    // Up to as many present blocks, the products are cheaper one by one than those of all points at once.
    static constexpr int kFew = 32;

    int sumOfLogs(unsigned char point) const;
    int logOfMissing(unsigned char point) const;

    const unsigned char* m_present;
    int m_count;
    // By point x: the logarithm of the product of x - p over the present points p other than x. When these
    // are few, for them only.
    int m_logOfProduct[kMaxPositions];
};

}  // namespace talrtp

#endif  // TALRTP_SRC_FEC_RSINTERPOLATION_H
