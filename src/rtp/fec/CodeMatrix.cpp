#include "fec/CodeMatrix.h"

#include <cstddef>
#include <cstring>

#include "fec/GaloisField.h"
#include "kernels/GfKernel.h"

namespace talrtp {

namespace {

// Returns the logarithm of the product of x - x_m over the points m < k, except the point x itself.
int getLogOfDistances(unsigned char x, int k) {
    int sum = 0;
    for (int m = 0; m < k; ++m) {
        const unsigned char distance = x ^ pointOf(m);
        sum += distance == 0 ? 0 : gf_log[distance];
    }
    return sum % kGroupOrder;
}

// Row x of the Vandermonde matrix times the inverse of its top part takes the values of a polynomial at the
// first k points to its value at x, so its coefficients are those of Lagrange's interpolation:
//   c_j = product over m < k, m != j, of (x - x_m) / (x_j - x_m)
void fillParityRow(unsigned char* row, unsigned char x, const int* logOfDistances, int k) {
    const int logOfAll = getLogOfDistances(x, k);
    for (int j = 0; j < k; ++j) {
        const int logOfDivisor = gf_log[x ^ pointOf(j)] + logOfDistances[j];
        row[j] = gf_exp[(logOfAll - logOfDivisor + 2 * kGroupOrder) % kGroupOrder];
    }
}

}  // namespace

void fillCodeMatrix(unsigned char* matrix, int k, int n) {
    const std::size_t width = static_cast<std::size_t>(k);
    std::memset(matrix, 0, width * width);
    int logOfDistances[kFieldSize];
    for (int j = 0; j < k; ++j) {
        matrix[static_cast<std::size_t>(j) * (width + 1)] = 1;
        logOfDistances[j] = getLogOfDistances(pointOf(j), k);
    }
    for (int row = k; row < n; ++row) {
        fillParityRow(&matrix[static_cast<std::size_t>(row) * width], pointOf(row), logOfDistances, k);
    }
}

void encodeBlocks(const rs_param_& model, unsigned char* const* src, const int* sizes, int length,
                  unsigned char* const* dst) {
    const unsigned char* const parityRows = model.enc_matrix + model.k * model.k;
    multiplyBlocks({dst, model.n - model.k, parityRows, model.k, src, model.k}, sizes, length);
}

}  // namespace talrtp
