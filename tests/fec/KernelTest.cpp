// Every kernel against plain arithmetic: one suite, run at each level that the processor has.

#include "kernels/GfTables.h"
#include "kernels/Kernels.h"

#include "Bytes.h"
#include "PlainField.h"

#include <talrtp/RsFec.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace talrtp {
namespace {

using test::Bytes;
using test::times;

constexpr int kMaxLength = 257;
constexpr int kMaxMisalignment = 64;
constexpr unsigned char kGuard = 0xA5;
constexpr std::size_t kGuardBytes = 64;

// A block of bytes at a chosen distance from a 64-byte boundary, with guard bytes on both sides.
class GuardedBlock {
public:
    GuardedBlock(std::size_t size, std::size_t misalignment)
        : m_size(size), m_storage(size + 3 * kGuardBytes + kMaxMisalignment, kGuard) {
        const std::size_t address = reinterpret_cast<std::size_t>(m_storage.data()) + kGuardBytes;
        const std::size_t boundary = (address + kMaxMisalignment - 1) / kMaxMisalignment * kMaxMisalignment;
        m_begin = kGuardBytes + (boundary - address) + misalignment;
    }

    unsigned char* data() { return m_storage.data() + m_begin; }
    Bytes bytes() { return Bytes(data(), data() + m_size); }
    void fill(std::mt19937& random) {
        for (std::size_t i = 0; i < m_size; ++i) {
            data()[i] = static_cast<unsigned char>(random());
        }
    }
    bool isGuardIntact() {
        bool intact = true;
        for (std::size_t i = 0; i < m_storage.size(); ++i) {
            intact = intact && ((i >= m_begin && i < m_begin + m_size) || m_storage[i] == kGuard);
        }
        return intact;
    }

private:
    std::size_t m_size;
    Bytes m_storage;
    std::size_t m_begin;
};

// Every misalignment occurs with every kernel, though not with every length.
int misalignmentFor(int length, int salt) {
    return (length * 29 + salt * 17) % kMaxMisalignment;
}

class KernelTest : public testing::TestWithParam<int> {
protected:
    void SetUp() override { forceKernelLevel(static_cast<EKernelLevel>(GetParam())); }
    void TearDown() override { forceKernelLevel(getHighestKernelLevel()); }

    std::mt19937 m_random{20240607};
};

std::string getLevelName(const testing::TestParamInfo<int>& info) {
#ifdef TALRTP_SIMD_ARM64
    static const char* const kNames[] = {"Portable", "Neon"};
#else
    static const char* const kNames[] = {"Portable", "Ssse3", "Avx2", "Avx2Gfni", "Avx512Gfni"};
#endif
    return kNames[info.param];
}

INSTANTIATE_TEST_SUITE_P(Levels, KernelTest,
                         testing::Range(static_cast<int>(KERNEL_PORTABLE), getHighestKernelLevel() + 1),
                         getLevelName);

TEST_P(KernelTest, IsInUse) {
    EXPECT_EQ(getKernels().level, GetParam());
}

#ifdef TALRTP_SIMD_ARM64
// Whichever processor it is.
TEST(KernelLevelTest, NeonIsTheHighest) {
    EXPECT_EQ(getHighestKernelLevel(), KERNEL_NEON);
    forceKernelLevel(getHighestKernelLevel());
    EXPECT_EQ(getKernels().gf, &kGfKernelNeon);
    EXPECT_EQ(getKernels().exclusiveOr, &kXorKernelNeon);
}
#endif

TEST_P(KernelTest, AddProductAtEveryLengthAndMisalignment) {
    for (int length = 0; length <= kMaxLength; ++length) {
        for (int misalignment = 0; misalignment < kMaxMisalignment; ++misalignment) {
            const std::size_t size = static_cast<std::size_t>(length);
            GuardedBlock dst(size, static_cast<std::size_t>(misalignment));
            GuardedBlock src(size, static_cast<std::size_t>(misalignmentFor(length, misalignment)));
            dst.fill(m_random);
            src.fill(m_random);
            const unsigned char c = static_cast<unsigned char>(m_random());
            Bytes expected = dst.bytes();
            for (std::size_t i = 0; i < size; ++i) {
                expected[i] = static_cast<unsigned char>(expected[i] ^ times(c, src.data()[i]));
            }

            addProduct(dst.data(), src.data(), c, size);

            ASSERT_EQ(dst.bytes(), expected) << length << " bytes at " << misalignment;
            ASSERT_TRUE(dst.isGuardIntact() && src.isGuardIntact()) << length << " bytes at " << misalignment;
        }
    }
}

TEST_P(KernelTest, AddProductByEveryConstantOfEveryByte) {
    Bytes src(256);
    for (int b = 0; b < 256; ++b) {
        src[static_cast<std::size_t>(b)] = static_cast<unsigned char>(b);
    }
    for (int c = 0; c < 256; ++c) {
        Bytes dst(256, 0);
        addProduct(dst.data(), src.data(), static_cast<unsigned char>(c), dst.size());
        for (int b = 0; b < 256; ++b) {
            ASSERT_EQ(dst[static_cast<std::size_t>(b)], times(c, b)) << c << " * " << b;
        }
    }
}

TEST_P(KernelTest, AddProductInPlace) {
    for (int length = 0; length <= kMaxLength; ++length) {
        GuardedBlock block(static_cast<std::size_t>(length),
                           static_cast<std::size_t>(misalignmentFor(length, 0)));
        block.fill(m_random);
        const Bytes before = block.bytes();
        addProduct(block.data(), block.data(), 0x53, before.size());
        for (std::size_t i = 0; i < before.size(); ++i) {
            ASSERT_EQ(block.data()[i], times(before[i], 0x53 ^ 1)) << length << " bytes, byte " << i;
        }
        ASSERT_TRUE(block.isGuardIntact());
    }
}

// A product of random blocks, each with a guard, and its expected bytes. The sources lie at random unless
// their misalignment is given.
struct RandomProduct {
    RandomProduct(std::mt19937& random, int rows, int count, int length, const std::vector<int>& sizes,
                  int misalignment = -1)
        : coefficients(static_cast<std::size_t>(rows * count)) {
        for (unsigned char& c : coefficients) {
            c = static_cast<unsigned char>(random());
        }
        for (int j = 0; j < count; ++j) {
            const std::size_t size =
                static_cast<std::size_t>(std::max(sizes[static_cast<std::size_t>(j)], 0));
            sources.emplace_back(size, misalignment < 0 ? random() % kMaxMisalignment
                                                        : static_cast<std::size_t>(misalignment));
            sources.back().fill(random);
        }
        for (int r = 0; r < rows; ++r) {
            results.emplace_back(static_cast<std::size_t>(length), random() % kMaxMisalignment);
        }
        for (GuardedBlock& block : sources) {
            sourcePointers.push_back(block.data());
        }
        for (GuardedBlock& block : results) {
            resultPointers.push_back(block.data());
        }
        product = {resultPointers.data(), rows, coefficients.data(), count, sourcePointers.data(), count};
    }

    Bytes expectedRow(int row, int length) {
        Bytes expected(static_cast<std::size_t>(length), 0);
        for (std::size_t j = 0; j < sources.size(); ++j) {
            const Bytes source = sources[j].bytes();
            const unsigned char c = coefficients[static_cast<std::size_t>(row) * sources.size() + j];
            for (std::size_t i = 0; i < std::min(source.size(), expected.size()); ++i) {
                expected[i] = static_cast<unsigned char>(expected[i] ^ gf_mul_table[c][source[i]]);
            }
        }
        return expected;
    }

    void expectCorrect(int length) {
        for (int r = 0; r < product.rows; ++r) {
            ASSERT_EQ(results[static_cast<std::size_t>(r)].bytes(), expectedRow(r, length)) << "row " << r;
            ASSERT_TRUE(results[static_cast<std::size_t>(r)].isGuardIntact()) << "row " << r;
        }
        for (GuardedBlock& block : sources) {
            ASSERT_TRUE(block.isGuardIntact());
        }
    }

    Bytes coefficients;
    std::vector<GuardedBlock> sources;
    std::vector<GuardedBlock> results;
    std::vector<const unsigned char*> sourcePointers;
    std::vector<unsigned char*> resultPointers;
    stGfProduct product;
};

TEST_P(KernelTest, MultiplyAtEveryLength) {
    for (int length = 0; length <= kMaxLength; ++length) {
        for (const int count : {1, 2, 5}) {
            SCOPED_TRACE(testing::Message() << length << " bytes, " << count << " sources");
            RandomProduct random(m_random, 3, count, length, std::vector<int>(5, length));
            multiplyBlocks(random.product, nullptr, length);
            random.expectCorrect(length);
            ASSERT_FALSE(HasFatalFailure());
        }
    }
}

TEST_P(KernelTest, MultiplyMoreRowsThanFitIntoRegistersAtEveryLength) {
    for (int length = 0; length <= 2 * kMaxLength; ++length) {
        SCOPED_TRACE(testing::Message() << length << " bytes");
        RandomProduct random(m_random, 23, 3, length, std::vector<int>(3, length));
        multiplyBlocks(random.product, nullptr, length);
        random.expectCorrect(length);
        ASSERT_FALSE(HasFatalFailure());
    }
}

TEST_P(KernelTest, MultiplyWithEveryNumberOfRows) {
    for (int rows = 0; rows <= 25; ++rows) {
        for (const int length : {64, 320, 500}) {
            SCOPED_TRACE(testing::Message() << rows << " rows of " << length);
            RandomProduct random(m_random, rows, 3, length, std::vector<int>(3, length));
            multiplyBlocks(random.product, nullptr, length);
            random.expectCorrect(length);
            ASSERT_FALSE(HasFatalFailure());
        }
    }
}

TEST_P(KernelTest, MultiplyOneRowOfSourcesAtEveryCommonMisalignment) {
    for (int misalignment = 0; misalignment < kMaxMisalignment; ++misalignment) {
        for (const int length : {511, 512, 513, 575, 576, 1025, 1200}) {
            SCOPED_TRACE(testing::Message() << length << " bytes at " << misalignment);
            RandomProduct random(m_random, 1, 5, length, std::vector<int>(5, length), misalignment);
            multiplyBlocks(random.product, nullptr, length);
            random.expectCorrect(length);
            ASSERT_FALSE(HasFatalFailure());
        }
    }
}

TEST_P(KernelTest, MultiplyCountsShortBlocksAsZeroPaddedAndReadsNothingBeyondThem) {
    for (int trial = 0; trial < 300; ++trial) {
        const int length = static_cast<int>(m_random() % 400);
        const int count = 1 + static_cast<int>(m_random() % 9);
        std::vector<int> sizes;
        for (int j = 0; j < count; ++j) {
            // -1 counts as nothing; beyond the length nothing is taken.
            sizes.push_back(static_cast<int>(m_random() % static_cast<unsigned>(length + 20)) - 1);
        }
        SCOPED_TRACE(testing::Message() << "trial " << trial << ", " << length << " bytes");
        RandomProduct random(m_random, 1 + trial % 7, count, length, sizes);
        multiplyBlocks(random.product, sizes.data(), length);
        random.expectCorrect(length);
        ASSERT_FALSE(HasFatalFailure());
    }
}

TEST_P(KernelTest, XorOfTwoAtEveryLengthAndMisalignment) {
    for (int length = 0; length <= kMaxLength; ++length) {
        for (int misalignment = 0; misalignment < kMaxMisalignment; ++misalignment) {
            const std::size_t size = static_cast<std::size_t>(length);
            GuardedBlock dst(size, static_cast<std::size_t>(misalignment));
            GuardedBlock a(size, static_cast<std::size_t>(misalignmentFor(length, misalignment)));
            GuardedBlock b(size, static_cast<std::size_t>(misalignmentFor(length, misalignment + 1)));
            a.fill(m_random);
            b.fill(m_random);
            Bytes expected = a.bytes();
            for (std::size_t i = 0; i < size; ++i) {
                expected[i] = static_cast<unsigned char>(expected[i] ^ b.data()[i]);
            }

            xorBlocks(dst.data(), a.data(), b.data(), size);
            ASSERT_EQ(dst.bytes(), expected) << length << " bytes at " << misalignment;
            ASSERT_TRUE(dst.isGuardIntact()) << length << " bytes at " << misalignment;

            xorBlocks(a.data(), a.data(), b.data(), size);
            ASSERT_EQ(a.bytes(), expected) << "in place, " << length << " bytes at " << misalignment;
            ASSERT_TRUE(a.isGuardIntact() && b.isGuardIntact()) << length << " bytes at " << misalignment;
        }
    }
}

// From the first length with a whole tile on: where the tiles begin depends on the first source, and a result
// that is written over a source must not be read again where tiles overlap.
TEST_P(KernelTest, XorOfTwoOverManyTiles) {
    for (int length = kMaxLength; length < 1200; length += 7) {
        const std::size_t size = static_cast<std::size_t>(length);
        const std::size_t misalignment = size % kMaxMisalignment;
        GuardedBlock dst(size, m_random() % kMaxMisalignment);
        GuardedBlock a(size, misalignment);
        GuardedBlock b(size, m_random() % kMaxMisalignment);
        GuardedBlock c(size, m_random() % kMaxMisalignment);
        a.fill(m_random);
        b.fill(m_random);
        const Bytes other = b.bytes();
        Bytes expected = a.bytes();
        std::copy(expected.begin(), expected.end(), c.data());
        for (std::size_t i = 0; i < size; ++i) {
            expected[i] = static_cast<unsigned char>(expected[i] ^ other[i]);
        }

        xorBlocks(dst.data(), a.data(), b.data(), size);
        ASSERT_EQ(dst.bytes(), expected) << length << " bytes at " << misalignment;
        xorBlocks(b.data(), a.data(), b.data(), size);
        ASSERT_EQ(b.bytes(), expected) << "over the second, " << length << " bytes at " << misalignment;
        std::copy(other.begin(), other.end(), b.data());
        xorBlocks(a.data(), a.data(), b.data(), size);
        ASSERT_EQ(a.bytes(), expected) << "over the first, " << length << " bytes at " << misalignment;
        xorBlocks(c.data(), c.data(), c.data(), size);
        ASSERT_EQ(c.bytes(), Bytes(size, 0)) << length << " bytes";
        ASSERT_TRUE(dst.isGuardIntact() && a.isGuardIntact() && b.isGuardIntact() && c.isGuardIntact());
    }
}

TEST_P(KernelTest, XorOfManyWithSizesOfTheirOwn) {
    for (int trial = 0; trial < 900; ++trial) {
        const int length = static_cast<int>(m_random() % (trial % 2 == 0 ? 400 : 1300));
        const int count = static_cast<int>(m_random() % (trial % 20 == 0 ? 400 : 25));
        const int spread = trial % 3 == 0 ? 1 : trial % 3 == 1 ? 20 : length + 20;
        std::vector<int> sizes;
        std::vector<GuardedBlock> sources;
        Bytes expected(static_cast<std::size_t>(length), 0);
        for (int j = 0; j < count; ++j) {
            // All of one size, or of nearly one as fragments are, or of any; some are longer or negative.
            const int less = static_cast<int>(m_random() % static_cast<unsigned>(spread));
            sizes.push_back(length - less + (spread > 1 ? 9 : 0));
            sources.emplace_back(static_cast<std::size_t>(std::max(sizes.back(), 0)),
                                 m_random() % kMaxMisalignment);
            sources.back().fill(m_random);
            const Bytes bytes = sources.back().bytes();
            for (std::size_t i = 0; i < std::min(bytes.size(), expected.size()); ++i) {
                expected[i] = static_cast<unsigned char>(expected[i] ^ bytes[i]);
            }
        }
        std::vector<const unsigned char*> pointers;
        for (GuardedBlock& block : sources) {
            pointers.push_back(block.data());
        }
        GuardedBlock dst(static_cast<std::size_t>(length), m_random() % kMaxMisalignment);

        xorMany(dst.data(), pointers.data(), sizes.data(), count, length);

        ASSERT_EQ(dst.bytes(), expected) << "trial " << trial << ", " << count << " of " << length;
        ASSERT_TRUE(dst.isGuardIntact()) << "trial " << trial;
    }
}

// More than one pass takes, of which one is too short for them to go the way of sources of one size.
TEST_P(KernelTest, XorOfHundredsOfSourcesAfterAShortOne) {
    constexpr int kCount = 600;
    constexpr std::size_t kSize = 700;
    std::vector<GuardedBlock> sources;
    std::vector<const unsigned char*> pointers;
    std::vector<int> sizes;
    Bytes expected(kSize, 0);
    for (int j = 0; j < kCount; ++j) {
        const std::size_t size = j == 7 ? 3 : kSize;
        sources.emplace_back(size, m_random() % kMaxMisalignment);
        sources.back().fill(m_random);
        for (std::size_t i = 0; i < size; ++i) {
            expected[i] = static_cast<unsigned char>(expected[i] ^ sources.back().data()[i]);
        }
        sizes.push_back(static_cast<int>(size));
    }
    for (GuardedBlock& block : sources) {
        pointers.push_back(block.data());
    }
    GuardedBlock dst(kSize, 5);
    xorMany(dst.data(), pointers.data(), sizes.data(), kCount, static_cast<int>(kSize));
    EXPECT_EQ(dst.bytes(), expected);
    EXPECT_TRUE(dst.isGuardIntact());
}

TEST(GfTablesTest, NibbleTablesHoldTheProducts) {
    for (int c = 0; c < 256; ++c) {
        for (int x = 0; x < 16; ++x) {
            ASSERT_EQ(kNibbleTable.of[c].low[x], times(c, x)) << c;
            ASSERT_EQ(kNibbleTable.of[c].high[x], times(c, x << 4)) << c;
        }
    }
}

TEST(GfTablesTest, AffineMatricesMultiply) {
    for (int c = 0; c < 256; ++c) {
        for (int x = 0; x < 256; ++x) {
            int product = 0;
            for (int bit = 0; bit < 8; ++bit) {
                const int row = static_cast<int>(kAffineTable.of[c] >> (8 * (7 - bit)) & 0xFF);
                product |= (__builtin_popcount(static_cast<unsigned>(row & x)) & 1) << bit;
            }
            ASSERT_EQ(product, times(c, x)) << c << " * " << x;
        }
    }
}

}  // namespace
}  // namespace talrtp
