#include "model/PlainCodec.h"

#include <map>
#include <utility>

namespace talrtp {
namespace model {

namespace {

unsigned char multiplyBitByBit(unsigned int a, unsigned int b) {
    unsigned int product = 0;
    for (; b != 0; b >>= 1) {
        if ((b & 1) != 0) {
            product ^= a;
        }
        a <<= 1;
        if ((a & 0x100) != 0) {
            a ^= 0x11d;
        }
    }
    return static_cast<unsigned char>(product);
}

struct Products {
    unsigned char of[256][256];

    Products() {
        for (unsigned int a = 0; a < 256; ++a) {
            for (unsigned int b = 0; b < 256; ++b) {
                of[a][b] = multiplyBitByBit(a, b);
            }
        }
    }
};

const Products& products() {
    static const Products table;
    return table;
}

// Row r holds the powers 0 to k - 1 of its point: 0 for the first row, then 1, alpha, alpha^2 ... (alpha is
// 2).
Matrix vandermonde(int k, int n) {
    Matrix rows(n, Bytes(k, 0));
    unsigned char point = 0;
    for (int r = 0; r < n; ++r) {
        rows[r][0] = 1;
        for (int c = 1; c < k; ++c) {
            rows[r][c] = gfMultiply(rows[r][c - 1], point);
        }
        point = r == 0 ? 1 : gfMultiply(point, 2);
    }
    return rows;
}

void addMultiple(Bytes& row, unsigned char factor, const Bytes& other) {
    const unsigned char* const multiple = products().of[factor];
    unsigned char* const out = row.data();
    const unsigned char* const in = other.data();
    for (std::size_t i = 0, end = other.size(); i < end; ++i) {
        out[i] ^= multiple[in[i]];
    }
}

Matrix makeCodeMatrix(int k, int n) {
    const Matrix powers = vandermonde(k, n);
    const Matrix inverse = inverseOf(Matrix(powers.begin(), powers.begin() + k));
    Matrix code(n, Bytes(k, 0));
    for (int r = 0; r < n; ++r) {
        for (int m = 0; m < k; ++m) {
            addMultiple(code[r], powers[r][m], inverse[m]);
        }
    }
    return code;
}

}  // namespace

unsigned char gfMultiply(unsigned char a, unsigned char b) {
    return products().of[a][b];
}

unsigned char gfInverse(unsigned char a) {
    int candidate = 1;
    while (gfMultiply(a, static_cast<unsigned char>(candidate)) != 1) {
        ++candidate;
    }
    return static_cast<unsigned char>(candidate);
}

const Matrix& codeMatrix(int k, int n) {
    static std::map<std::pair<int, int>, Matrix> made;
    Matrix& matrix = made[std::make_pair(k, n)];
    if (matrix.empty()) {
        matrix = makeCodeMatrix(k, n);
    }
    return matrix;
}

Matrix inverseOf(Matrix matrix) {
    const std::size_t size = matrix.size();
    for (std::size_t r = 0; r < size; ++r) {
        matrix[r].resize(2 * size, 0);
        matrix[r][size + r] = 1;
    }
    for (std::size_t col = 0; col < size; ++col) {
        std::size_t pivot = col;
        while (matrix[pivot][col] == 0) {
            ++pivot;
        }
        std::swap(matrix[col], matrix[pivot]);
        const unsigned char scale = gfInverse(matrix[col][col]);
        for (unsigned char& value : matrix[col]) {
            value = gfMultiply(value, scale);
        }
        for (std::size_t r = 0; r < size; ++r) {
            if (r != col && matrix[r][col] != 0) {
                addMultiple(matrix[r], matrix[r][col], matrix[col]);
            }
        }
    }
    for (Bytes& row : matrix) {
        row.erase(row.begin(), row.begin() + size);
    }
    return matrix;
}

std::vector<Bytes> rebuildBlocks(int k, int n, const std::vector<int>& positions,
                                 const std::vector<Bytes>& blocks, const std::vector<int>& lost, int size) {
    Matrix present;
    present.reserve(positions.size());
    for (int position : positions) {
        present.push_back(codeMatrix(k, n)[position]);
    }
    const Matrix inverse = inverseOf(std::move(present));
    std::vector<Bytes> rebuilt;
    rebuilt.reserve(lost.size());
    for (int source : lost) {
        Bytes block(size, 0);
        for (int j = 0; j < k; ++j) {
            addMultiple(block, inverse[source][j], blocks[j]);
        }
        rebuilt.push_back(std::move(block));
    }
    return rebuilt;
}

}  // namespace model
}  // namespace talrtp
