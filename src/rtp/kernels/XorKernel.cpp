#include "kernels/XorKernel.h"

#include "kernels/Kernels.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace talrtp {

namespace {

// XORs `size` bytes, fewer than kXorBytes: whole words, then single bytes.
void xorRest(unsigned char* dst, const unsigned char* a, const unsigned char* b, std::size_t size) {
    std::size_t i = 0;
    for (; i + sizeof(std::uint64_t) <= size; i += sizeof(std::uint64_t)) {
        std::uint64_t wordA;
        std::uint64_t wordB;
        std::memcpy(&wordA, a + i, sizeof wordA);
        std::memcpy(&wordB, b + i, sizeof wordB);
        wordA ^= wordB;
        std::memcpy(dst + i, &wordA, sizeof wordA);
    }
    for (; i < size; ++i) {
        dst[i] = static_cast<unsigned char>(a[i] ^ b[i]);
    }
}

// The sources that reach beyond a position, as many as one pass takes.
class CLongerSources {
public:
    // Collects those that are longer than `begin`, in their order.
    CLongerSources(const unsigned char* const* sources, const int* sizes, int count, std::size_t begin,
                   std::size_t length)
        : m_next(0), m_count(0), m_end(length) {
        for (; m_next < count && m_count < kMaxSources; ++m_next) {
            const std::size_t size = static_cast<std::size_t>(std::max(sizes[m_next], 0));
            if (size > begin) {
                m_sources[m_count++] = sources[m_next];
                m_end = std::min(m_end, size);
            }
        }
    }

    int next() const { return m_next; }  // the first source that was not looked at
    bool isEmpty() const { return m_count == 0; }
    std::size_t end() const { return m_end; }  // what all of them have, from the position on

    // Writes the XOR of the bytes from `begin` to `end`. The last piece ends there and may do some bytes for
    // the second time.
    void combine(unsigned char* dst, std::size_t begin, std::size_t end) const {
        const stXorKernel& kernel = *getKernels().exclusiveOr;
        const std::size_t whole = (end - begin) / kXorBytes * kXorBytes;
        if (whole > 0) {
            kernel.combine(dst, m_sources, m_count, begin, whole);
        }
        if (whole > 0 && begin + whole < end) {
            kernel.combine(dst, m_sources, m_count, end - kXorBytes, kXorBytes);
        }
        if (whole == 0) {
            combineFew(dst, begin, end);
        }
    }

private:
    // The same for fewer bytes than a kernel takes: some bytes one by one over all sources, more of them one
    // source after the other.
    void combineFew(unsigned char* dst, std::size_t begin, std::size_t end) const {
        constexpr std::size_t kSome = 8;
        if (end - begin > kSome) {
            std::memcpy(dst + begin, m_sources[0] + begin, end - begin);
            for (std::size_t j = 1; j < m_count; ++j) {
                xorRest(dst + begin, dst + begin, m_sources[j] + begin, end - begin);
            }
            return;
        }
        for (std::size_t i = begin; i < end; ++i) {
            unsigned char sum = 0;
            for (std::size_t j = 0; j < m_count; ++j) {
                sum = static_cast<unsigned char>(sum ^ m_sources[j][i]);
            }
            dst[i] = sum;
        }
    }

    static constexpr std::size_t kMaxSources = 256;

    int m_next;
    std::size_t m_count;
    std::size_t m_end;
    const unsigned char* m_sources[kMaxSources];
};

}  // namespace

void xorBlocks(unsigned char* dst, const unsigned char* a, const unsigned char* b, std::size_t size) {
    const std::size_t whole = size / kXorBytes * kXorBytes;
    if (whole > 0) {
        const unsigned char* const sources[] = {a, b};
        getKernels().exclusiveOr->combine(dst, sources, 2, 0, whole);
    }
    xorRest(dst + whole, a + whole, b + whole, size - whole);
}

void xorMany(unsigned char* dst, const unsigned char* const* sources, const int* sizes, int count,
             int length) {
    const std::size_t size = static_cast<std::size_t>(std::max(length, 0));
    // One pass per distinct size: over the bytes that all sources have, then over those of all but the
    // shortest, and so on. Sources are of a few sizes, mostly of one.
    std::size_t begin = 0;
    while (begin < size) {
        const CLongerSources longer(sources, sizes, count, begin, size);
        if (longer.isEmpty()) {
            std::memset(dst + begin, 0, size - begin);
            return;
        }
        longer.combine(dst, begin, longer.end());
        for (int rest = longer.next(); rest < count; ++rest) {
            const std::size_t end =
                std::min(static_cast<std::size_t>(std::max(sizes[rest], 0)), longer.end());
            if (end > begin) {
                xorBlocks(dst + begin, dst + begin, sources[rest] + begin, end - begin);
            }
        }
        begin = longer.end();
    }
}

}  // namespace talrtp
