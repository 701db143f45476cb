#include "kernels/GfKernel.h"

#include "kernels/Kernels.h"

#include <talrtp/RsFec.h>

#include <algorithm>
#include <cstring>

namespace talrtp {

namespace {

constexpr int kMaxBlocks = 256;

// The next kMultiplyBytes bytes of blocks of which some end before: those are copied and padded with zeros.
class CPaddedStrip {
public:
    CPaddedStrip(const stGfProduct& product, const int* sizes, int length)
        : m_product(product), m_sizes(sizes), m_length(length) {}

    // Computes `size` bytes, at most kMultiplyBytes, from `offset` on.
    void multiply(const stGfKernel& kernel, int offset, std::size_t size) {
        for (int j = 0; j < m_product.count; ++j) {
            m_sources[j] = pad(j, offset);
        }
        const bool isWhole = size == kMultiplyBytes;
        for (int r = 0; r < m_product.rows; ++r) {
            m_dst[r] = isWhole ? m_product.dst[r] + offset : m_results[r];
        }
        const stGfProduct strip = {m_dst,     m_product.rows, m_product.coefficients, m_product.stride,
                                   m_sources, m_product.count};
        kernel.multiply(strip, kMultiplyBytes);
        for (int r = 0; r < m_product.rows && !isWhole; ++r) {
            std::memcpy(m_product.dst[r] + offset, m_results[r], size);
        }
    }

private:
    const unsigned char* pad(int j, int offset) {
        static const unsigned char kZeros[kMultiplyBytes] = {};
        const int left = (m_sizes != nullptr ? m_sizes[j] : m_length) - offset;
        if (left >= static_cast<int>(kMultiplyBytes)) {
            return m_product.sources[j] + offset;
        }
        if (left <= 0) {
            return kZeros;
        }
        std::memcpy(m_copies[j], m_product.sources[j] + offset, static_cast<std::size_t>(left));
        std::memset(m_copies[j] + left, 0, kMultiplyBytes - static_cast<std::size_t>(left));
        return m_copies[j];
    }

    const stGfProduct& m_product;
    const int* m_sizes;
    int m_length;
    const unsigned char* m_sources[kMaxBlocks];
    unsigned char* m_dst[kMaxBlocks];
    unsigned char m_copies[kMaxBlocks][kMultiplyBytes];
    unsigned char m_results[kMaxBlocks][kMultiplyBytes];
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
