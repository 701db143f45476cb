// The codec with any model, sizes and positions. Every buffer ends where its block ends. Decoded blocks are
// compared with plain table arithmetic over the whole decoding matrix and, when the positions are distinct,
// with the sources that the parity was made of.

#include "FuzzSupport.h"

#include <talrtp/RsFec.h>

#include <algorithm>
#include <bitset>
#include <cstddef>
#include <cstdint>

namespace talrtp {
namespace fuzz {
namespace {

// So that a run stays short: the bytes of a group, and how often one of them is multiplied for its parity.
constexpr int kMaxWork = 1 << 14;
constexpr int kMaxProducts = 1 << 16;

// No sanitizer has to watch the plain sums: they would take most of the time, and their bounds are plain too.
#ifdef __clang__
#define TALRTP_FUZZ_PLAIN __attribute__((no_sanitize("address", "undefined", "coverage")))
#else
#define TALRTP_FUZZ_PLAIN
#endif

TALRTP_FUZZ_PLAIN void addPlainly(unsigned char* sum, const unsigned char* block, int size,
                                  unsigned char coefficient) {
    const unsigned char* const products = gf_mul_table[coefficient];
    for (int i = 0; i < size; ++i) {
        sum[i] ^= products[block[i]];
    }
}

class Group {
public:
    explicit Group(InputReader& input)
        : m_input(input),
          m_isLarge(input.within(0, 63) == 63),
          m_k(input.within(1, m_isLarge ? 255 : kUsualSources)),
          m_n(input.within(m_k, m_isLarge ? 256 : m_k + kUsualParity)),
          m_isUniform(input.flag()),
          m_model(CRsFec::CreateRsModel(m_k, m_n)) {
        require(m_model != nullptr, "a model for k from 1 and n from k to 256");
        makeSources();
        encode();
    }
    ~Group() { CRsFec::DeleteRsModel(m_model); }
    Group(const Group&) = delete;
    Group& operator=(const Group&) = delete;

    void decodeAtAnyPositions() {
        std::vector<int> index;
        index.reserve(static_cast<std::size_t>(m_k));
        for (int j = 0; j < m_k; ++j) {
            const bool isWild = m_input.within(0, 63) == 63;
            index.push_back(isWild ? m_input.any<int>() : m_input.within(0, m_n - 1));
        }
        if (m_input.flag()) {
            makeDistinct(index);
        }
        std::vector<int> lost(m_input.within<std::size_t>(0, 8));
        for (int& position : lost) {
            position = m_input.within(0, m_k - 1);
        }
        decode(index, lost);
    }

private:
    void makeSources() {
        const int products = m_k * std::max(m_n - m_k, 1);
        const int maxSize = std::min({kMaxWork / m_n, kMaxProducts / products, MAX_PACKET_SIZE});
        m_longest = m_input.within(0, maxSize);
        m_blocks.reserve(static_cast<std::size_t>(m_n));
        for (int j = 0; j < m_k; ++j) {
            const int size = m_isUniform ? m_longest : m_input.within(0, m_longest);
            Bytes bytes = m_input.bytes(static_cast<std::size_t>(size));
            const unsigned char rest = static_cast<unsigned char>(j * 37 + 11);
            bytes.resize(static_cast<std::size_t>(size), rest);
            m_blocks.emplace_back(bytes);
        }
        int longest = 0;
        for (const ExactBuffer& block : m_blocks) {
            longest = std::max(longest, block.size());
        }
        m_longest = longest;
    }

    void encode() {
        std::vector<unsigned char*> sources = pointersTo(m_blocks);
        std::vector<int> sizes = sizesOf(m_blocks);
        std::vector<ExactBuffer> parity = emptyBlocks(m_n - m_k, m_longest);
        std::vector<unsigned char*> dst = pointersTo(parity);
        const int result = m_isUniform ? CRsFec::Encode(m_model, sources.data(), m_longest, dst.data())
                                       : CRsFec::Encode(m_model, sources.data(), sizes.data(), dst.data());
        require(result == 0, "blocks within the limit are encoded");
        for (int i = 0; i < m_n - m_k; ++i) {
            const unsigned char* const row = m_model->enc_matrix + (m_k + i) * m_k;
            require(isSum(parity[static_cast<std::size_t>(i)], m_blocks, row),
                    "a parity block is the sum of its row");
        }
        for (ExactBuffer& block : parity) {
            m_blocks.push_back(std::move(block));
        }
    }

    // Replaces positions that are out of range or were there before by the lowest free ones.
    void makeDistinct(std::vector<int>& index) const {
        std::bitset<kMostBlocks> used;
        std::size_t next = 0;
        for (int& position : index) {
            if (!isBlock(position) || used[static_cast<std::size_t>(position)]) {
                while (used[next]) {
                    ++next;
                }
                position = static_cast<int>(next);
            }
            used.set(static_cast<std::size_t>(position));
        }
    }

    // Tells whether no position is there twice.
    static bool isDistinct(std::vector<int> index) {
        std::sort(index.begin(), index.end());
        return std::adjacent_find(index.begin(), index.end()) == index.end();
    }

    bool isBlock(int position) const { return position >= 0 && position < m_n; }

    void decode(std::vector<int> index, std::vector<int> lost) {
        std::vector<ExactBuffer> received;
        received.reserve(index.size());
        for (const int position : index) {
            const ExactBuffer& block = m_blocks[static_cast<std::size_t>(isBlock(position) ? position : 0)];
            received.emplace_back(block.data(), block.size());
        }
        std::vector<int> sizes = sizesOf(received);
        const int longest = *std::max_element(sizes.begin(), sizes.end());
        std::vector<ExactBuffer> out = emptyBlocks(static_cast<int>(lost.size()), longest);
        std::vector<int> matrixIndex = index;
        Bytes matrix(static_cast<std::size_t>(m_k * m_k));
        const int expected = bld_dec_mat(m_model, matrix.data(), matrixIndex.data());

        std::vector<int> decodeIndex = index;
        const int result =
            CRsFec::Decode(m_model, pointersTo(received).data(), sizes.data(), decodeIndex.data(),
                           pointersTo(out).data(), lost.data(), static_cast<int>(lost.size()));

        require(result == (expected == 0 ? 0 : 1), "decoding succeeds when there is a matrix");
        for (std::size_t r = 0; r < lost.size() && result == 0; ++r) {
            require(isSum(out[r], received, matrix.data() + lost[r] * m_k),
                    "a rebuilt block is the sum of its row");
            require(isPadded(out[r], m_blocks[static_cast<std::size_t>(lost[r])]),
                    "a rebuilt block is the lost one");
        }
        require(result != 0 || (isDistinct(index) && decodeIndex == index && matrixIndex == index),
                "only distinct positions are decoded, and they are left as they were");
    }

    static std::vector<ExactBuffer> emptyBlocks(int count, int size) {
        const Bytes bytes(static_cast<std::size_t>(size), 0xEE);
        std::vector<ExactBuffer> blocks;
        blocks.reserve(static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i) {
            blocks.emplace_back(bytes);
        }
        return blocks;
    }

    // Returns whether `sum` is the sum of the blocks times the coefficients, with zeros after the end of each
    // block, and as long as the longest of them.
    static bool isSum(const ExactBuffer& sum, const std::vector<ExactBuffer>& blocks,
                      const unsigned char* coefficients) {
        static Bytes expected;
        int longest = 0;
        expected.assign(static_cast<std::size_t>(sum.size()), 0);
        for (std::size_t j = 0; j < blocks.size(); ++j) {
            longest = std::max(longest, blocks[j].size());
            if (longest > sum.size()) {
                return false;
            }
            addPlainly(expected.data(), blocks[j].data(), blocks[j].size(), coefficients[j]);
        }
        return longest == sum.size() && std::equal(expected.begin(), expected.end(), sum.data());
    }

    // Returns whether `block` is the source, as far as it goes, with zeros after it.
    static bool isPadded(const ExactBuffer& block, const ExactBuffer& source) {
        const int size = std::min(block.size(), source.size());
        return std::equal(source.data(), source.data() + size, block.data()) &&
               std::all_of(block.data() + size, block.data() + block.size(),
                           [](unsigned char byte) { return byte == 0; });
    }

    static std::vector<unsigned char*> pointersTo(std::vector<ExactBuffer>& blocks) {
        std::vector<unsigned char*> pointers;
        pointers.reserve(blocks.size());
        for (ExactBuffer& block : blocks) {
            pointers.push_back(block.data());
        }
        return pointers;
    }

    static std::vector<int> sizesOf(const std::vector<ExactBuffer>& blocks) {
        std::vector<int> sizes;
        sizes.reserve(blocks.size());
        for (const ExactBuffer& block : blocks) {
            sizes.push_back(block.size());
        }
        return sizes;
    }

    // One group in 64 is as large as the code allows. Those take up to a hundred times as long as the usual
    // ones.
    static constexpr std::size_t kMostBlocks = 256;
    static constexpr int kUsualSources = 24;
    static constexpr int kUsualParity = 12;

    InputReader& m_input;
    bool m_isLarge;
    int m_k;
    int m_n;
    bool m_isUniform;
    rs_param_* m_model;
    int m_longest = 0;
    std::vector<ExactBuffer> m_blocks;  // sources, then parity
};

void addMultiple(InputReader& input) {
    const unsigned char c = input.any<unsigned char>();
    const int size = input.within(0, 4000);
    Bytes source = input.bytes(static_cast<std::size_t>(size));
    source.resize(static_cast<std::size_t>(size), 0x5A);
    Bytes expected(static_cast<std::size_t>(size), 0xC3);
    ExactBuffer src(source);
    ExactBuffer dst(expected);
    gf_addmul(dst.data(), src.data(), c, size);
    addPlainly(expected.data(), source.data(), size, c);
    require(std::equal(expected.begin(), expected.end(), dst.data()), "dst ^= c * src");
}

}  // namespace
}  // namespace fuzz
}  // namespace talrtp

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    talrtp::fuzz::InputReader input(data, size);
    if (input.within(0, 7) == 0) {
        talrtp::fuzz::addMultiple(input);
        return 0;
    }
    talrtp::fuzz::Group group(input);
    group.decodeAtAnyPositions();
    return 0;
}
