#include <talrtp/RsFec.h>

#include "TalRtpTraceLine.h"
#include "kernels/GfKernel.h"
#include "kernels/Kernels.h"
#include "kernels/XorKernel.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

namespace talrtp {

// ---------------------------------------------------------------------------------------------------------
// The field

namespace {

constexpr int kFieldSize = 256;   // elements, zero included
constexpr int kGroupOrder = 255;  // alpha^255 = 1
constexpr int kReduction = 0x1D;  // x^8 = x^4 + x^3 + x^2 + 1

struct stPowers {
    unsigned char exp[2 * kGroupOrder];
    int log[kFieldSize];
};

constexpr stPowers makePowers() {
    stPowers powers{};
    int power = 1;
    for (int i = 0; i < kGroupOrder; ++i) {
        powers.exp[i] = static_cast<unsigned char>(power);
        powers.exp[i + kGroupOrder] = static_cast<unsigned char>(power);
        powers.log[power] = i;
        power <<= 1;
        if (power >= kFieldSize) {
            power ^= kFieldSize | kReduction;
        }
    }
    powers.log[0] = kGroupOrder;
    return powers;
}

constexpr stPowers kPowers = makePowers();

constexpr unsigned char product(int a, int b) {
    return (a == 0 || b == 0) ? 0 : kPowers.exp[kPowers.log[a] + kPowers.log[b]];
}

constexpr unsigned char quotient(int a, int b) {
    return (a == 0 || b == 0) ? 0 : kPowers.exp[kPowers.log[a] + kGroupOrder - kPowers.log[b]];
}

}  // namespace

// An array takes no initializer from a function, so each element is spelled out: GF_EACH(f, a) is the list
// f(a, 0x00), ..., f(a, 0xFF). A macro does not expand within itself, hence the second pair for the rows.
// clang-format off
#define GF_SIXTEEN(f, a, d)                                                                               \
    f(a, d##0), f(a, d##1), f(a, d##2), f(a, d##3), f(a, d##4), f(a, d##5), f(a, d##6), f(a, d##7),       \
    f(a, d##8), f(a, d##9), f(a, d##A), f(a, d##B), f(a, d##C), f(a, d##D), f(a, d##E), f(a, d##F)
#define GF_EACH(f, a)                                                                                     \
    GF_SIXTEEN(f, a, 0x0), GF_SIXTEEN(f, a, 0x1), GF_SIXTEEN(f, a, 0x2), GF_SIXTEEN(f, a, 0x3),           \
    GF_SIXTEEN(f, a, 0x4), GF_SIXTEEN(f, a, 0x5), GF_SIXTEEN(f, a, 0x6), GF_SIXTEEN(f, a, 0x7),           \
    GF_SIXTEEN(f, a, 0x8), GF_SIXTEEN(f, a, 0x9), GF_SIXTEEN(f, a, 0xA), GF_SIXTEEN(f, a, 0xB),           \
    GF_SIXTEEN(f, a, 0xC), GF_SIXTEEN(f, a, 0xD), GF_SIXTEEN(f, a, 0xE), GF_SIXTEEN(f, a, 0xF)
#define GF_SIXTEEN_ROWS(f, d)                                                                             \
    {GF_EACH(f, d##0)}, {GF_EACH(f, d##1)}, {GF_EACH(f, d##2)}, {GF_EACH(f, d##3)},                       \
    {GF_EACH(f, d##4)}, {GF_EACH(f, d##5)}, {GF_EACH(f, d##6)}, {GF_EACH(f, d##7)},                       \
    {GF_EACH(f, d##8)}, {GF_EACH(f, d##9)}, {GF_EACH(f, d##A)}, {GF_EACH(f, d##B)},                       \
    {GF_EACH(f, d##C)}, {GF_EACH(f, d##D)}, {GF_EACH(f, d##E)}, {GF_EACH(f, d##F)}
#define GF_EACH_ROW(f)                                                                                    \
    GF_SIXTEEN_ROWS(f, 0x0), GF_SIXTEEN_ROWS(f, 0x1), GF_SIXTEEN_ROWS(f, 0x2), GF_SIXTEEN_ROWS(f, 0x3),   \
    GF_SIXTEEN_ROWS(f, 0x4), GF_SIXTEEN_ROWS(f, 0x5), GF_SIXTEEN_ROWS(f, 0x6), GF_SIXTEEN_ROWS(f, 0x7),   \
    GF_SIXTEEN_ROWS(f, 0x8), GF_SIXTEEN_ROWS(f, 0x9), GF_SIXTEEN_ROWS(f, 0xA), GF_SIXTEEN_ROWS(f, 0xB),   \
    GF_SIXTEEN_ROWS(f, 0xC), GF_SIXTEEN_ROWS(f, 0xD), GF_SIXTEEN_ROWS(f, 0xE), GF_SIXTEEN_ROWS(f, 0xF)
#define GF_POWER(unused, i) kPowers.exp[i]
#define GF_LOGARITHM(unused, i) kPowers.log[i]

bool m_bInited = false;

const unsigned char gf_exp[510] = {
    GF_EACH(GF_POWER, ),
    GF_SIXTEEN(GF_POWER, , 0x10), GF_SIXTEEN(GF_POWER, , 0x11), GF_SIXTEEN(GF_POWER, , 0x12),
    GF_SIXTEEN(GF_POWER, , 0x13), GF_SIXTEEN(GF_POWER, , 0x14), GF_SIXTEEN(GF_POWER, , 0x15),
    GF_SIXTEEN(GF_POWER, , 0x16), GF_SIXTEEN(GF_POWER, , 0x17), GF_SIXTEEN(GF_POWER, , 0x18),
    GF_SIXTEEN(GF_POWER, , 0x19), GF_SIXTEEN(GF_POWER, , 0x1A), GF_SIXTEEN(GF_POWER, , 0x1B),
    GF_SIXTEEN(GF_POWER, , 0x1C), GF_SIXTEEN(GF_POWER, , 0x1D), GF_SIXTEEN(GF_POWER, , 0x1E),
    kPowers.exp[496], kPowers.exp[497], kPowers.exp[498], kPowers.exp[499], kPowers.exp[500],
    kPowers.exp[501], kPowers.exp[502], kPowers.exp[503], kPowers.exp[504], kPowers.exp[505],
    kPowers.exp[506], kPowers.exp[507], kPowers.exp[508], kPowers.exp[509],
};
const int gf_log[256] = {GF_EACH(GF_LOGARITHM, )};
const unsigned char gf_mul_table[256][256] = {GF_EACH_ROW(product)};
const unsigned char gf_div_table[256][256] = {GF_EACH_ROW(quotient)};
// clang-format on

#undef GF_LOGARITHM
#undef GF_POWER
#undef GF_EACH_ROW
#undef GF_SIXTEEN_ROWS
#undef GF_EACH
#undef GF_SIXTEEN

unsigned char gf_divide(unsigned char a, unsigned char b) {
    if (b == 0) {
        return 0;
    }
    // Compatibility: a = 0 is not set apart. Its logarithm counts as 255, so that 0 / b is the inverse of b.
    return gf_exp[(kGroupOrder + gf_log[a] - gf_log[b]) % kGroupOrder];
}

void gf_add(unsigned char* dst, unsigned char* src, int size) {
    if (size > 0) {
        // Compatibility: whole groups of 16 bytes only.
        xorBlocks(dst, dst, src, static_cast<std::size_t>(size) / 16 * 16);
    }
}

void gf_addmul(unsigned char* dst, unsigned char* src, unsigned char c, int size) {
    if (c != 0 && size > 0) {
        addProduct(dst, src, c, static_cast<std::size_t>(size));
    }
}

// ---------------------------------------------------------------------------------------------------------
// Models

namespace {

// The point that row `row` of the Vandermonde matrix is made of: 0, 1, alpha, alpha^2, ...
unsigned char getPoint(int row) {
    return row == 0 ? 0 : gf_exp[row - 1];
}

// Returns the logarithm of the product of x - x_m over the points m < k, except the point x itself.
int getLogOfDistances(unsigned char x, int k) {
    int sum = 0;
    for (int m = 0; m < k; ++m) {
        const unsigned char distance = x ^ getPoint(m);
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
        const int logOfDivisor = gf_log[x ^ getPoint(j)] + logOfDistances[j];
        row[j] = gf_exp[(logOfAll - logOfDivisor + 2 * kGroupOrder) % kGroupOrder];
    }
}

}  // namespace

int CRsFec::InitRsCoding() {
    // Any thread may call this, and a plain `bool` is what hosts know.
    if (!__atomic_load_n(&m_bInited, __ATOMIC_RELAXED)) {
        __atomic_store_n(&m_bInited, true, __ATOMIC_RELAXED);
    }
    return 0;
}

rs_param_* CRsFec::CreateRsModel(int k, int n) {
    InitRsCoding();
    if (k < 1 || n < k || n > kFieldSize) {
        return nullptr;
    }
    const std::size_t width = static_cast<std::size_t>(k);
    const std::size_t size = width * static_cast<std::size_t>(n);
    std::unique_ptr<rs_param_> model(new (std::nothrow) rs_param_{k, n, nullptr});
    std::unique_ptr<unsigned char[]> matrix(new (std::nothrow) unsigned char[size]);
    if (!model || !matrix) {
        return nullptr;
    }

    std::memset(matrix.get(), 0, width * width);
    int logOfDistances[kFieldSize];
    for (int j = 0; j < k; ++j) {
        matrix[static_cast<std::size_t>(j) * (width + 1)] = 1;
        logOfDistances[j] = getLogOfDistances(getPoint(j), k);
    }
    for (int row = k; row < n; ++row) {
        fillParityRow(&matrix[static_cast<std::size_t>(row) * width], getPoint(row), logOfDistances, k);
    }
    model->enc_matrix = matrix.release();
    return model.release();
}

void CRsFec::DeleteRsModel(rs_param_* model) {
    if (model != nullptr) {
        delete[] model->enc_matrix;
        delete model;
    }
}

// ---------------------------------------------------------------------------------------------------------
// Encoding

namespace {

int getLargestSize(const int* sizes, int count) {
    return *std::max_element(sizes, sizes + count);
}

// Null sizes stand for blocks that all have `length` bytes.
void encodeBlocks(const rs_param_& model, unsigned char** src, const int* sizes, int length,
                  unsigned char** dst) {
    const unsigned char* const parityRows = model.enc_matrix + model.k * model.k;
    multiplyBlocks({dst, model.n - model.k, parityRows, model.k, src, model.k}, sizes, length);
}

}  // namespace

int CRsFec::Encode(rs_param_* model, unsigned char** src, int size, unsigned char** dst) {
    if (size > MAX_PACKET_SIZE) {
        TAL_TRACE(WARNING,
                  "CRsFec::Encode, packet size is " << size << ", bigger than MAX_PACKET_SIZE, skip it!");
        return 1;
    }
    encodeBlocks(*model, src, nullptr, size, dst);
    return 0;
}

int CRsFec::Encode(rs_param_* model, unsigned char** src, int* sizes, unsigned char** dst) {
    const int maxSize = getLargestSize(sizes, model->k);
    if (maxSize > MAX_PACKET_SIZE) {
        TAL_TRACE(WARNING, "CRsFec::Encode, max packet size is "
                               << maxSize << ", bigger than MAX_PACKET_SIZE, skip it!");
        return 1;
    }
    encodeBlocks(*model, src, sizes, maxSize, dst);
    return 0;
}

// ---------------------------------------------------------------------------------------------------------
// The decoding matrix

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
    int swappedWith[kFieldSize];
    for (int col = 0; col < matrix.width(); ++col) {
        const int pivotRow = findPivotRow(matrix, col);
        if (pivotRow == matrix.width()) {
            return false;
        }
        swappedWith[col] = pivotRow;
        if (pivotRow != col) {
            matrix.swapRows(pivotRow, col);
        }
        if (!isUnitRow(matrix.row(col), col, matrix.width())) {
            eliminateColumn(matrix, col);
        }
    }
    for (int col = matrix.width() - 1; col >= 0; --col) {
        if (swappedWith[col] != col) {
            matrix.swapColumns(swappedWith[col], col);
        }
    }
    return true;
}

}  // namespace

int bld_dec_mat(rs_param_* model, unsigned char* matrix, int* index) {
    int perm[kFieldSize];
    if (!shufflePositions(index, perm, model->k)) {
        return -1;
    }
    CSquareMatrix decoding(matrix, model->k);
    if (!fillRows(decoding, *model, index) || !invert(decoding)) {
        return -1;
    }
    unshufflePositions(decoding, index, perm);
    return 0;
}

// ---------------------------------------------------------------------------------------------------------
// Decoding
//
// Of the k equations that the received blocks stand for, those of the present source blocks solve themselves.
// What is left is one equation per parity block and one unknown per missing source block. Its solution is
// unique, so the bytes are those that the whole decoding matrix would give.

namespace {

// Clears a flag for each of k positions, and maybe more: a small constant size is cleared in a few stores.
void clearFlags(bool (&flags)[kFieldSize], int k) {
    constexpr int kSmallGroup = 32;
    std::memset(flags, 0, k <= kSmallGroup ? kSmallGroup : kFieldSize);
}

// One lost block leaves one equation in one unknown. Over the coefficient of that block it gives the block as
// a sum of the received ones, which may be added in the order in which they came.
class CSingleErasure {
public:
    CSingleErasure(const rs_param_& model, int lost) : m_model(model), m_lost(lost) {}

    // Computes the coefficients of the blocks at the positions `index`. False unless these are all source
    // positions but the lost one, and a parity block that says something about it.
    bool solve(const int* index);
    void rebuild(unsigned char** out, unsigned char** blocks, const int* sizes, int length) const {
        multiplyBlocks({out, 1, m_row, m_model.k, blocks, m_model.k}, sizes, length);
    }

private:
    const rs_param_& m_model;
    int m_lost;
    unsigned char m_row[kFieldSize];
};

bool CSingleErasure::solve(const int* index) {
    const int k = m_model.k;
    const int* const parity = std::find_if(index, index + k, [k](int position) { return position >= k; });
    if (parity == index + k || *parity >= m_model.n || m_lost < 0 || m_lost >= k) {
        return false;
    }
    const unsigned char* const coefficients = m_model.enc_matrix + *parity * k;
    const unsigned char inverse = gf_div_table[1][coefficients[m_lost]];
    bool isTaken[kFieldSize];
    clearFlags(isTaken, k);
    isTaken[m_lost] = true;
    for (int j = 0; j < k; ++j) {
        if (index + j == parity) {
            m_row[j] = inverse;
            continue;
        }
        const int position = index[j];
        if (position < 0 || position >= k || isTaken[position]) {
            return false;
        }
        isTaken[position] = true;
        m_row[j] = gf_mul_table[inverse][coefficients[position]];
    }
    return inverse != 0;
}

// The received blocks in source order: slot s holds source block s or, where that is missing, a parity block.
class CErasures {
public:
    // Borrows everything. Null sizes stand for blocks that are all alike.
    CErasures(const rs_param_& model, unsigned char** blocks, const int* sizes)
        : m_model(model), m_blocks(blocks), m_sizes(sizes), m_missingCount(0), m_rows(m_ownRows) {
        clearFlags(m_isFilled, model.k);
    }

    // Deals the blocks to their slots. False unless all positions are valid, no source position occurs twice
    // and `lost` names missing source blocks alone, each once.
    bool deal(const int* index, const int* lost, int lostCount);
    // Computes the decoding rows of the missing blocks, in the order of `lost`. False when a pivot is zero,
    // as it is when a parity block was given twice, or memory is short.
    bool solve();
    // Writes the blocks that `lost` names.
    void rebuild(unsigned char** out, int lostCount, int length) const {
        multiplyBlocks({out, lostCount, m_rows, kRowBytes, m_slots, m_model.k},
                       m_sizes != nullptr ? m_slotSizes : nullptr, length);
    }

private:
    static constexpr int kRowBytes = kFieldSize;
    static constexpr std::size_t kRowStep = 64;         // whole vectors, at every kernel level
    static constexpr int kMaxMissing = kFieldSize / 2;  // there are no more missing blocks than parity blocks
    static constexpr int kOwnRows = 16;                 // more of them go to the heap, off a small stack

    unsigned char* row(int r) const { return m_rows + r * kRowBytes; }
    bool takeRows();
    void setSlot(int source, int block) {
        m_isFilled[source] = true;
        m_slots[source] = m_blocks[block];
        if (m_sizes != nullptr) {
            m_slotSizes[source] = m_sizes[block];
        }
    }
    int findEmpty() const {
        return static_cast<int>(std::find(m_isFilled, m_isFilled + m_model.k, false) - m_isFilled);
    }
    bool dealParity(const int* index, const int* parityBlocks, int parityCount, const int* lost,
                    int lostCount);
    void eliminate(int pivotRow, std::size_t size);

    const rs_param_& m_model;
    unsigned char** m_blocks;
    const int* m_sizes;
    int m_missingCount;
    int m_missing[kMaxMissing];          // source positions
    int m_parityPositions[kMaxMissing];  // of the blocks that stand in their slots
    bool m_isFilled[kFieldSize];
    unsigned char* m_slots[kFieldSize];
    int m_slotSizes[kFieldSize];
    alignas(kRowStep) unsigned char m_ownRows[kOwnRows * kRowBytes];
    std::unique_ptr<unsigned char[]> m_heapRows;
    unsigned char* m_rows;
};

bool CErasures::deal(const int* index, const int* lost, int lostCount) {
    const int k = m_model.k;
    int parityBlocks[kMaxMissing];
    int parityCount = 0;
    for (int j = 0; j < k; ++j) {
        const int position = index[j];
        if (position < 0 || position >= m_model.n) {
            return false;
        }
        if (position >= k) {
            if (parityCount == kMaxMissing) {
                return false;
            }
            parityBlocks[parityCount++] = j;
            continue;
        }
        if (m_isFilled[position]) {
            return false;
        }
        setSlot(position, j);
    }
    return dealParity(index, parityBlocks, parityCount, lost, lostCount);
}

// Gives the parity blocks to the empty slots, those of `lost` first.
bool CErasures::dealParity(const int* index, const int* parityBlocks, int parityCount, const int* lost,
                           int lostCount) {
    for (int r = 0; r < parityCount; ++r) {
        const int s = r < lostCount ? lost[r] : findEmpty();
        if (s < 0 || s >= m_model.k || m_isFilled[s]) {
            return false;
        }
        const int block = parityBlocks[m_missingCount];
        setSlot(s, block);
        m_missing[m_missingCount] = s;
        m_parityPositions[m_missingCount] = index[block];
        ++m_missingCount;
    }
    return m_missingCount >= lostCount;
}

bool CErasures::takeRows() {
    if (m_missingCount > kOwnRows) {
        m_heapRows.reset(
            new (std::nothrow) unsigned char[static_cast<std::size_t>(m_missingCount) * kRowBytes]);
        m_rows = m_heapRows.get();
    }
    return m_rows != nullptr;
}

bool CErasures::solve() {
    if (!takeRows()) {
        return false;
    }
    const std::size_t width = static_cast<std::size_t>(m_model.k);
    const std::size_t size = (width + kRowStep - 1) / kRowStep * kRowStep;
    for (int r = 0; r < m_missingCount; ++r) {
        std::memset(row(r) + size - kRowStep, 0, kRowStep);
        std::memcpy(row(r), m_model.enc_matrix + m_parityPositions[r] * m_model.k, width);
    }
    for (int r = 0; r < m_missingCount; ++r) {
        if (row(r)[m_missing[r]] == 0) {
            return false;
        }
        eliminate(r, size);
    }
    return true;
}

// One step of Gauss-Jordan elimination in place: the column of the pivot takes the entries of the inverse,
// and the columns of the present blocks become its product with their coefficients.
void CErasures::eliminate(int pivotRow, std::size_t size) {
    const stGfKernel& kernel = *getKernels().gf;
    const int col = m_missing[pivotRow];
    unsigned char* const pivots = row(pivotRow);
    const unsigned char inverse = gf_div_table[1][pivots[col]];
    // The scaled pivot is to be 1 + inverse: with it an entry f of the column becomes f + f * (1 + inverse),
    // which is f * inverse. Writing a zero to each entry instead would hold up the kernel, which reads the
    // whole row right behind.
    pivots[col] ^= 1;
    // x + (c - 1) * x = c * x
    kernel.addProduct(pivots, pivots, inverse ^ 1, size);
    for (int r = 0; r < m_missingCount; ++r) {
        const unsigned char factor = row(r)[col];
        if (r != pivotRow && factor != 0) {
            kernel.addProduct(row(r), pivots, factor, size);
        }
    }
    pivots[col] ^= 1;
}

// Rebuilds the only missing block. False, with nothing written, when that is not what is asked for.
bool rebuildSingle(const rs_param_& model, unsigned char** blocks, const int* sizes, int length,
                   const int* index, unsigned char** out, const int* lost, int lostCount) {
    if (lostCount != 1) {
        return false;
    }
    CSingleErasure erasure(model, lost[0]);
    if (!erasure.solve(index)) {
        return false;
    }
    erasure.rebuild(out, blocks, sizes, length);
    return true;
}

// Rebuilds missing blocks. False, with nothing written, when one of `lost` is none, or nothing determines it.
bool rebuildMissing(const rs_param_& model, unsigned char** blocks, const int* sizes, int length,
                    const int* index, unsigned char** out, const int* lost, int lostCount) {
    CErasures erasures(model, blocks, sizes);
    if (!erasures.deal(index, lost, lostCount) || !erasures.solve()) {
        return false;
    }
    erasures.rebuild(out, lostCount, length);
    return true;
}

// False when one of `lost` is no source position.
bool areSources(const int* lost, int lostCount, int k) {
    for (int r = 0; r < lostCount; ++r) {
        if (lost[r] < 0 || lost[r] >= k) {
            return false;
        }
    }
    return true;
}

// Rebuilds any source blocks, present ones too, from the whole decoding matrix.
int rebuildAny(rs_param_& model, unsigned char** blocks, const int* sizes, int length, int* index,
               unsigned char** out, const int* lost, int lostCount) {
    const std::size_t width = static_cast<std::size_t>(model.k);
    const std::unique_ptr<unsigned char[]> matrix(new (std::nothrow) unsigned char[width * width]);
    if (matrix == nullptr || !areSources(lost, lostCount, model.k) ||
        bld_dec_mat(&model, matrix.get(), index) != 0) {
        return 1;
    }
    for (int r = 0; r < lostCount; ++r) {
        multiplyBlocks({out + r, 1, matrix.get() + lost[r] * model.k, model.k, blocks, model.k}, sizes,
                       length);
    }
    return 0;
}

int decodeBlocks(rs_param_& model, unsigned char** blocks, const int* sizes, int length, int* index,
                 unsigned char** out, const int* lost, int lostCount) {
    if (rebuildSingle(model, blocks, sizes, length, index, out, lost, lostCount) ||
        rebuildMissing(model, blocks, sizes, length, index, out, lost, lostCount)) {
        return 0;
    }
    return rebuildAny(model, blocks, sizes, length, index, out, lost, lostCount);
}

}  // namespace

int CRsFec::Decode(rs_param_* model, unsigned char** blocks, int size, int* index, unsigned char** out,
                   int* lost, int lostCount) {
    if (size > MAX_PACKET_SIZE) {
        TAL_TRACE(WARNING,
                  "CRsFec::Decode, packet size is " << size << ", bigger than MAX_PACKET_SIZE, skip it!");
        return 1;
    }
    return decodeBlocks(*model, blocks, nullptr, size, index, out, lost, lostCount);
}

int CRsFec::Decode(rs_param_* model, unsigned char** blocks, int* sizes, int* index, unsigned char** out,
                   int* lost, int lostCount) {
    const int maxSize = getLargestSize(sizes, model->k);
    if (maxSize > MAX_PACKET_SIZE) {
        TAL_TRACE(WARNING, "CRsFec::Decode, max packet size is "
                               << maxSize << ", bigger than MAX_PACKET_SIZE, skip it!");
        return 1;
    }
    return decodeBlocks(*model, blocks, sizes, maxSize, index, out, lost, lostCount);
}

}  // namespace talrtp
