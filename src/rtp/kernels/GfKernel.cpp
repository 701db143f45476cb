#include "kernels/GfKernel.h"
#include "kernels/GfTables.h"

#include "kernels/Kernels.h"

#include <algorithm>
#include <cstring>

namespace talrtp {

namespace {

// The next kMultiplyBytes bytes of blocks of which some end before: those are copied and padded with zeros.
class CPaddedStrip {
public:
    CPaddedStrip(const stGfProduct& product, const int* sizes, int length)
        : m_product(product), m_sizes(sizes), m_length(length) {}

    // Computes `size` bytes, at most kMultiplyBytes, from `offset` on.
    void multiply(const stGfKernel& kernel, int offset, std::size_t size) {
        for (int begin = 0; begin < m_product.count; begin += kSourcesAtOnce) {
            const int count = std::min(m_product.count - begin, kSourcesAtOnce);
            for (int j = 0; j < count; ++j) {
                m_sources[j] = pad(m_copies[j], begin + j, offset);
            }
            for (int r = 0; r < m_product.rows; r += kRowsAtOnce) {
                const int rows = std::min(m_product.rows - r, kRowsAtOnce);
                addSources(kernel, r, rows, begin, count);
                for (int i = 0; i < rows; ++i) {
                    store(m_product.dst[r + i] + offset, m_results[i], size, begin == 0);
                }
            }
        }
    }

private:
    // Little on a small stack, and enough for nearly every group to be one turn.
    static constexpr int kRowsAtOnce = 16;
    static constexpr int kSourcesAtOnce = 128;

    // Computes `rows` results, from row `r` on, of the `count` sources from `begin` on.
    void addSources(const stGfKernel& kernel, int r, int rows, int begin, int count) {
        unsigned char* dst[kRowsAtOnce];
        for (int i = 0; i < rows; ++i) {
            dst[i] = m_results[i];
        }
        const unsigned char* const coefficients = m_product.coefficients + r * m_product.stride + begin;
        kernel.multiply({dst, rows, coefficients, m_product.stride, m_sources, count}, kMultiplyBytes);
    }

    static void store(unsigned char* dst, const unsigned char* result, std::size_t size, bool isFirst) {
        if (isFirst) {
            std::memcpy(dst, result, size);
            return;
        }
        for (std::size_t i = 0; i < size; ++i) {
            dst[i] = static_cast<unsigned char>(dst[i] ^ result[i]);
        }
    }

    // **Lends** the bytes of source `j`, padded in `copy` where they end.
    const unsigned char* pad(unsigned char* copy, int j, int offset) const {
        static const unsigned char kZeros[kMultiplyBytes] = {};
        const int left = (m_sizes != nullptr ? m_sizes[j] : m_length) - offset;
        if (left >= static_cast<int>(kMultiplyBytes)) {
            return m_product.sources[j] + offset;
        }
        if (left <= 0) {
            return kZeros;
        }
        std::memset(copy, 0, kMultiplyBytes);
        std::memcpy(copy, m_product.sources[j] + offset, static_cast<std::size_t>(left));
        return copy;
    }

    const stGfProduct& m_product;
    const int* m_sizes;
    int m_length;
    const unsigned char* m_sources[kSourcesAtOnce];
    unsigned char m_copies[kSourcesAtOnce][kMultiplyBytes];
    unsigned char m_results[kRowsAtOnce][kMultiplyBytes];
};

}  // namespace

void multiplyBlocks(const stGfProduct& product, const int* sizes, int length) {
    constexpr int kStrip = static_cast<int>(kMultiplyBytes);
    const stGfKernel& kernel = *getKernels().gf;
    int whole = sizes != nullptr ? std::min(*std::min_element(sizes, sizes + product.count), length) : length;
    if (whole == length && length >= kStrip) {
        kernel.multiply(product, static_cast<std::size_t>(length));
        return;
    }

    if (product.rows <= 0) {
        return;
    }
    whole = std::max(whole, 0) / kStrip * kStrip;
    if (whole > 0) {
        kernel.multiply(product, static_cast<std::size_t>(whole));
    }
    CPaddedStrip strip(product, sizes, length);
    for (int offset = whole; offset < length; offset += kStrip) {
        const int begin = length >= kStrip ? std::min(offset, length - kStrip) : 0;
        strip.multiply(kernel, begin, static_cast<std::size_t>(std::min(length - begin, kStrip)));
    }
}

void addProduct(unsigned char* dst, const unsigned char* src, unsigned char c, std::size_t size) {
    const std::size_t whole = size / kAddProductBytes * kAddProductBytes;
    getKernels().gf->addProduct(dst, src, c, whole);
    for (std::size_t i = whole; i < size; ++i) {
        dst[i] = static_cast<unsigned char>(dst[i] ^ gf_mul_table[c][src[i]]);
    }
}

}  // namespace talrtp
