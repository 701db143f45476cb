#include "fec/Erasures.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>

#include "fec/DecodingMatrix.h"
#include "fec/GaloisField.h"
#include "kernels/GfKernel.h"
#include "kernels/Kernels.h"

namespace talrtp {

namespace {

// Clears a flag for each of k positions, and maybe more: a small constant size is cleared in a few stores.
void clearFlags(bool (&flags)[kFieldSize], int k) {
    constexpr int kSmallGroup = 32;
    std::memset(flags, 0, k <= kSmallGroup ? kSmallGroup : kFieldSize);
}

// One lost block leaves one equation in one unknown. Dividing it by the lost block's coefficient yields the
// block as a linear combination of the received ones, in any order.
class CSingleErasure {
public:
    CSingleErasure(const rs_param_& model, int lost) : m_model(model), m_lost(lost) {}

    // Computes the coefficients of the blocks at the positions `index`. False unless these are all source
    // positions but the lost one, and a parity block that says something about it.
    bool solve(const int* index);
    void rebuild(const stReceivedBlocks& received, unsigned char* const* out) const {
        multiplyBlocks({out, 1, m_row, m_model.k, received.data, m_model.k}, received.sizes, received.length);
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
    // Borrows everything.
    CErasures(const rs_param_& model, const stReceivedBlocks& received)
        : m_model(model), m_received(received), m_missingCount(0), m_rows(m_ownRows) {
        clearFlags(m_isFilled, model.k);
    }

    // Deals the blocks to their slots. False unless all positions are valid, no source position occurs twice
    // and `lost` names missing source blocks alone, each once.
    bool deal(const stLostBlocks& lost);
    // Computes the decoding rows of the missing blocks, in the order of `lost`. False when a pivot is zero,
    // as it is when a parity block was given twice, or memory is short.
    bool solve();
    // Writes the blocks that `lost` names.
    void rebuild(const stLostBlocks& lost) const {
        multiplyBlocks({lost.data, lost.count, m_rows, kRowBytes, m_slots, m_model.k},
                       m_received.sizes != nullptr ? m_slotSizes : nullptr, m_received.length);
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
        m_slots[source] = m_received.data[block];
        if (m_received.sizes != nullptr) {
            m_slotSizes[source] = m_received.sizes[block];
        }
    }
    int findEmpty() const {
        return static_cast<int>(std::find(m_isFilled, m_isFilled + m_model.k, false) - m_isFilled);
    }
    bool dealParity(const int* parityBlocks, int parityCount, const stLostBlocks& lost);
    void eliminate(int pivotRow, std::size_t size);

    const rs_param_& m_model;
    const stReceivedBlocks& m_received;
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

bool CErasures::deal(const stLostBlocks& lost) {
    const int k = m_model.k;
    int parityBlocks[kMaxMissing];
    int parityCount = 0;
    for (int j = 0; j < k; ++j) {
        const int position = m_received.index[j];
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
    return dealParity(parityBlocks, parityCount, lost);
}

// Gives the parity blocks to the empty slots, those of `lost` first.
bool CErasures::dealParity(const int* parityBlocks, int parityCount, const stLostBlocks& lost) {
    for (int r = 0; r < parityCount; ++r) {
        const int s = r < lost.count ? lost.index[r] : findEmpty();
        if (s < 0 || s >= m_model.k || m_isFilled[s]) {
            return false;
        }
        const int block = parityBlocks[m_missingCount];
        setSlot(s, block);
        m_missing[m_missingCount] = s;
        m_parityPositions[m_missingCount] = m_received.index[block];
        ++m_missingCount;
    }
    return m_missingCount >= lost.count;
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
    // which is f * inverse. Writing a zero to each entry instead would stall the kernel, which reads the
    // whole row immediately afterwards.
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

// False when one of `lost` is no source position.
bool areSources(const stLostBlocks& lost, int k) {
    return std::all_of(lost.index, lost.index + std::max(lost.count, 0),
                       [k](int position) { return position >= 0 && position < k; });
}

}  // namespace

bool rebuildSingle(const rs_param_& model, const stReceivedBlocks& received, const stLostBlocks& lost) {
    if (lost.count != 1) {
        return false;
    }
    CSingleErasure erasure(model, lost.index[0]);
    if (!erasure.solve(received.index)) {
        return false;
    }
    erasure.rebuild(received, lost.data);
    return true;
}

bool rebuildMissing(const rs_param_& model, const stReceivedBlocks& received, const stLostBlocks& lost) {
    CErasures erasures(model, received);
    if (!erasures.deal(lost) || !erasures.solve()) {
        return false;
    }
    erasures.rebuild(lost);
    return true;
}

bool rebuildAny(const rs_param_& model, const stReceivedBlocks& received, const stLostBlocks& lost) {
    const std::size_t width = static_cast<std::size_t>(model.k);
    const std::unique_ptr<unsigned char[]> matrix(new (std::nothrow) unsigned char[width * width]);
    if (matrix == nullptr || !areSources(lost, model.k) ||
        !fillDecodingMatrix(model, matrix.get(), received.index)) {
        return false;
    }
    for (int r = 0; r < lost.count; ++r) {
        const unsigned char* const row = matrix.get() + lost.index[r] * model.k;
        multiplyBlocks({lost.data + r, 1, row, model.k, received.data, model.k}, received.sizes,
                       received.length);
    }
    return true;
}

bool rebuildBlocks(const rs_param_& model, const stReceivedBlocks& received, const stLostBlocks& lost) {
    return rebuildSingle(model, received, lost) || rebuildMissing(model, received, lost) ||
           rebuildAny(model, received, lost);
}

}  // namespace talrtp
