#include "fec/RsInterpolation.h"

#include <algorithm>

#include "fec/GaloisField.h"
#include "kernels/GfKernel.h"
#include "kernels/Kernels.h"

namespace talrtp {

namespace {

constexpr int kPoints = CRsInterpolation::kMaxPositions;

// The Walsh-Hadamard transform in place. Sums over all x of a(x) * b(x ^ y) become products under it, and
// 256, by which the way back divides, is 1 modulo the order of the field's group.
constexpr void transform(int (&values)[kPoints]) {
    for (int step = 1; step < kPoints; step *= 2) {
        for (int block = 0; block < kPoints; block += 2 * step) {
            for (int i = block; i < block + step; ++i) {
                const int sum = values[i] + values[i + step];
                values[i + step] = values[i] - values[i + step];
                values[i] = sum;
            }
        }
    }
}

struct stLogTransform {
    int values[kPoints];
};

// The transform of the logarithms, that of 0 taken for 0, so that a point adds nothing to its own product.
constexpr stLogTransform makeLogTransform() {
    stLogTransform logs{};
    for (int x = 1; x < kPoints; ++x) {
        logs.values[x] = kPowers.log[x];
    }
    transform(logs.values);
    for (int& value : logs.values) {
        value %= kGroupOrder;
    }
    return logs;
}

// Made by the compiler: a table made at the first use would let a second thread wait for it.
constexpr stLogTransform kLogs = makeLogTransform();

// The power of alpha; `log` is below three times the group's order.
unsigned char power(int log) {
    return gf_exp[log < 2 * kGroupOrder ? log : log - kGroupOrder];
}

}  // namespace

CRsInterpolation::CRsInterpolation(const unsigned char* present, int count)
    : m_present(present), m_count(count) {
    if (count <= kFew) {
        for (int j = 0; j < count; ++j) {
            m_logOfProduct[pointOf(present[j])] = sumOfLogs(pointOf(present[j]));
        }
        return;
    }
    std::fill_n(m_logOfProduct, kPoints, 0);
    for (int j = 0; j < count; ++j) {
        m_logOfProduct[pointOf(present[j])] = 1;
    }
    transform(m_logOfProduct);
    for (int x = 0; x < kPoints; ++x) {
        m_logOfProduct[x] = m_logOfProduct[x] * kLogs.values[x] % kGroupOrder;
    }
    transform(m_logOfProduct);
    for (int& log : m_logOfProduct) {
        log %= kGroupOrder;
        log += log < 0 ? kGroupOrder : 0;
    }
}

int CRsInterpolation::sumOfLogs(unsigned char point) const {
    int sum = 0;
    for (int j = 0; j < m_count; ++j) {
        const unsigned char difference = point ^ pointOf(m_present[j]);
        sum += difference != 0 ? gf_log[difference] : 0;
    }
    return sum % kGroupOrder;
}

int CRsInterpolation::logOfMissing(unsigned char point) const {
    return m_count <= kFew ? sumOfLogs(point) : m_logOfProduct[point];
}

void CRsInterpolation::fillRow(unsigned char missing, unsigned char* row) const {
    const unsigned char s = pointOf(missing);
    const int logOfAll = logOfMissing(s);
    for (int j = 0; j < m_count; ++j) {
        const unsigned char p = pointOf(m_present[j]);
        row[j] = power(logOfAll + (kGroupOrder - m_logOfProduct[p]) + (kGroupOrder - gf_log[s ^ p]));
    }
}

namespace {

// As many bytes as a kernel takes.
std::size_t widthOf(int missingCount) {
    const std::size_t count = static_cast<std::size_t>(missingCount);
    return (count + kMultiplyBytes - 1) / kMultiplyBytes * kMultiplyBytes;
}

}  // namespace

std::size_t CRsInterpolation::scratchSize(int missingCount) const {
    return static_cast<std::size_t>(m_count) * widthOf(missingCount);
}

// The matrix of 1 / (s - p) is taken by columns: one column holds a factor for each missing block, so the
// kernel works along the missing blocks. L'(p) divides the values before, L(s) multiplies the results after.
void CRsInterpolation::probe(const unsigned char* missing, int missingCount, unsigned char* values,
                             int columns, unsigned char* scratch, unsigned char* result) const {
    const std::size_t width = widthOf(missingCount);
    unsigned char points[kPoints] = {};
    std::transform(missing, missing + missingCount, points, pointOf);
    const unsigned char* sources[kPoints];
    const unsigned char* const inverses = gf_div_table[1];
    for (int j = 0; j < m_count; ++j) {
        unsigned char* const column = scratch + static_cast<std::size_t>(j) * width;
        const unsigned char p = pointOf(m_present[j]);
        for (std::size_t i = 0; i < width; ++i) {
            column[i] = inverses[points[i] ^ p];
        }
        sources[j] = column;
        const unsigned char* const weight = gf_mul_table[gf_exp[kGroupOrder - m_logOfProduct[p]]];
        for (int c = 0; c < columns; ++c) {
            values[c * kPoints + j] = weight[values[c * kPoints + j]];
        }
    }
    unsigned char* rows[kMaxColumns];
    for (int c = 0; c < columns; ++c) {
        rows[c] = result + c * kPoints;
    }
    getKernels().gf->multiply({rows, columns, values, kPoints, sources, m_count}, width);
    for (int i = 0; i < missingCount; ++i) {
        const unsigned char* const factor = gf_mul_table[gf_exp[logOfMissing(points[i])]];
        for (int c = 0; c < columns; ++c) {
            rows[c][i] = factor[rows[c][i]];
        }
    }
}

}  // namespace talrtp
