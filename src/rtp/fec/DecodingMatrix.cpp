#include "fec/DecodingMatrix.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

#include "fec/GaloisField.h"

namespace talrtp {

namespace {

// A square matrix over the field, row by row, in borrowed memory.
class CSquareMatrix {
public:
    CSquareMatrix(unsigned char* data, int width) : m_data(data), m_width(width) {}

    int width() const { return m_width; }
    unsigned char* row(int r) { return m_data + r * m_width; }
    unsigned char& at(int r, int c) { return m_data[r * m_width + c]; }

    void swapRows(int a, int b) { std::swap_ranges(row(a), row(a) + m_width, row(b)); }
    void swapColumns(int a, int b) {
        for (int r = 0; r < m_width; ++r) {
            std::swap(at(r, a), at(r, b));
        }
    }

private:
    unsigned char* m_data;
    int m_width;
};

// Moves each source position in `index` to its own place and records the exchanges in `perm`. False when a
// position is negative or a source position occurs twice.
bool shufflePositions(int* index, int* perm, int k) {
    for (int i = 0; i < k; ++i) {
        perm[i] = i;
    }
    int i = 0;
    while (i < k) {
        const int c = index[i];
        if (c < 0) {
            return false;
        }
        if (c >= k || c == i) {
            ++i;
            continue;
        }
        if (index[c] == c) {
            return false;
        }
        std::swap(index[i], index[c]);
        std::swap(perm[i], perm[c]);
    }
    return true;
}

// Undoes `shufflePositions` and orders the columns as the positions are.
void unshufflePositions(CSquareMatrix& matrix, int* index, int* perm) {
    int i = 0;
    while (i < matrix.width()) {
        const int j = perm[i];
        if (j == i) {
            ++i;
            continue;
        }
        matrix.swapColumns(i, j);
        std::swap(index[i], index[j]);
        std::swap(perm[i], perm[j]);
    }
}

bool fillRows(CSquareMatrix& matrix, const rs_param_& model, const int* index) {
    for (int i = 0; i < model.k; ++i) {
        if (index[i] >= model.n) {
            return false;
        }
        std::memcpy(matrix.row(i), model.enc_matrix + index[i] * model.k, static_cast<std::size_t>(model.k));
    }
    return true;
}

bool isUnitRow(const unsigned char* row, int col, int width) {
    for (int c = 0; c < width; ++c) {
        if (row[c] != (c == col ? 1 : 0)) {
            return false;
        }
    }
    return true;
}

// Returns the first row from `col` on that has an entry in column `col`, or the width when there is none.
int findPivotRow(CSquareMatrix& matrix, int col) {
    int r = col;
    while (r < matrix.width() && matrix.at(r, col) == 0) {
        ++r;
    }
    return r;
}

// Scales the pivot row so that the pivot becomes 1 and clears the column in all other rows, in place: the
// column takes the entries of the inverse.
void eliminateColumn(CSquareMatrix& matrix, int col) {
    unsigned char* const pivotRow = matrix.row(col);
    const unsigned char inverse = gf_div_table[1][pivotRow[col]];
    pivotRow[col] = 1;
    for (int c = 0; c < matrix.width(); ++c) {
        pivotRow[c] = gf_mul_table[inverse][pivotRow[c]];
    }
    for (int r = 0; r < matrix.width(); ++r) {
        const unsigned char factor = matrix.at(r, col);
        if (r != col && factor != 0) {
            matrix.at(r, col) = 0;
            gf_addmul(matrix.row(r), pivotRow, factor, matrix.width());
        }
    }
}

// Inverts the matrix in place by Gauss-Jordan elimination. False when it is singular.
bool invert(CSquareMatrix& matrix) {
    const int width = matrix.width();
    int swappedWith[kFieldSize];
    for (int col = 0; col < width; ++col) {
        const int pivotRow = findPivotRow(matrix, col);
        if (pivotRow == width) {
            return false;
        }
        swappedWith[col] = pivotRow;
        if (pivotRow != col) {
            matrix.swapRows(pivotRow, col);
        }
        if (!isUnitRow(matrix.row(col), col, width)) {
            eliminateColumn(matrix, col);
        }
    }
    for (int col = width; col-- > 0;) {
        if (swappedWith[col] != col) {
            matrix.swapColumns(swappedWith[col], col);
        }
    }
    return true;
}

}  // namespace

bool fillDecodingMatrix(const rs_param_& model, unsigned char* matrix, int* index) {
    int perm[kFieldSize];
    if (!shufflePositions(index, perm, model.k)) {
        return false;
    }
    CSquareMatrix decoding(matrix, model.k);
    if (!fillRows(decoding, model, index) || !invert(decoding)) {
        return false;
    }
    unshufflePositions(decoding, index, perm);
    return true;
}

}  // namespace talrtp
