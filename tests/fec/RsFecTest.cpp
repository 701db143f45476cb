// The field, the codec and the model cache, through the shared library as a host sees them.

#include <talrtp/RsFec.h>

#include "Bytes.h"
#include "PlainField.h"
#include "TraceCatcher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

namespace talrtp {
namespace {

using test::inverseOf;
using test::times;
using test::TraceCatcher;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

using test::Bytes;
using Blocks = std::vector<Bytes>;

constexpr unsigned int kSeed = 20240604;

struct ModelDeleter {
    void operator()(rs_param_* model) const { CRsFec::DeleteRsModel(model); }
};
using Model = std::unique_ptr<rs_param_, ModelDeleter>;

Model makeModel(int k, int n) {
    return Model(CRsFec::CreateRsModel(k, n));
}

std::vector<unsigned char*> pointersTo(Blocks& blocks) {
    std::vector<unsigned char*> pointers;
    for (Bytes& block : blocks) {
        pointers.push_back(block.data());
    }
    return pointers;
}

Bytes randomBytes(std::mt19937& random, std::size_t size) {
    Bytes bytes(size);
    std::generate(bytes.begin(), bytes.end(), [&random] { return static_cast<unsigned char>(random()); });
    return bytes;
}

// ---------------------------------------------------------------------------------------------------------
// The field

TEST(GaloisFieldTest, KnownElements) {
    EXPECT_EQ(gf_exp[8], 0x1D);    // x^8 = x^4 + x^3 + x^2 + 1
    EXPECT_EQ(gf_exp[254], 0x8E);  // the inverse of alpha: 2 * 0x8E = 0x11C = 0x11D ^ 1
    EXPECT_EQ(gf_mul_table[2][0x80], 0x1D);
    EXPECT_EQ(gf_log[0x1D], 8);
    EXPECT_EQ(gf_log[0], 255);
}

TEST(GaloisFieldTest, PowersRepeatAfter255) {
    int power = 1;
    for (int i = 0; i < 255; ++i) {
        ASSERT_EQ(gf_exp[i], power) << i;
        ASSERT_EQ(gf_exp[i + 255], power) << i;
        ASSERT_EQ(gf_log[power], i) << i;
        power = times(power, 2);
    }
    EXPECT_EQ(power, 1);
}

TEST(GaloisFieldTest, TablesHoldEveryProductAndQuotient) {
    for (int a = 0; a < 256; ++a) {
        for (int b = 0; b < 256; ++b) {
            ASSERT_EQ(gf_mul_table[a][b], times(a, b)) << a << " * " << b;
        }
    }
    for (int b = 0; b < 256; ++b) {
        const unsigned char inverse = b == 0 ? 0 : inverseOf(b);
        for (int a = 0; a < 256; ++a) {
            ASSERT_EQ(gf_div_table[a][b], times(a, inverse)) << a << " / " << b;
        }
    }
}

TEST(GaloisFieldTest, InitReturnsZeroAndMarksTheTables) {
    EXPECT_EQ(CRsFec::InitRsCoding(), 0);
    EXPECT_TRUE(m_bInited);
    EXPECT_EQ(CRsFec::InitRsCoding(), 0);
}

TEST(GaloisFieldTest, DivideByZeroGivesZero) {
    EXPECT_EQ(gf_divide(0x53, 0), 0);
    EXPECT_EQ(gf_divide(0, 0), 0);
}

TEST(GaloisFieldTest, DivideOfNonZeroIsTheQuotient) {
    for (int a = 1; a < 256; ++a) {
        for (int b = 1; b < 256; ++b) {
            ASSERT_EQ(times(gf_divide(static_cast<unsigned char>(a), static_cast<unsigned char>(b)), b), a);
        }
    }
}

TEST(GaloisFieldTest, DivideOfZeroGivesTheInverseWhichIsKept) {
    EXPECT_EQ(gf_divide(0, 2), 0x8E);
    EXPECT_EQ(gf_divide(0, 1), 1);
}

TEST(GaloisFieldTest, AddLeavesTheBytesAfterTheLastSixteenWhichIsKept) {
    for (const int size : {-16, -1, 0, 1, 15, 16, 17, 31, 32, 63, 64, 79, 80, 100, 1600}) {
        const int whole = std::max(size, 0) / 16 * 16;
        Bytes dst(1620, 0x0F);
        Bytes src(1620, 0xF1);
        gf_add(dst.data(), src.data(), size);
        for (int i = 0; i < 1620; ++i) {
            ASSERT_EQ(dst[static_cast<std::size_t>(i)], i < whole ? 0xFE : 0x0F)
                << size << " bytes, byte " << i;
        }
    }
}

TEST(GaloisFieldTest, AddMulWorksOnAnySize) {
    std::mt19937 random(kSeed);
    for (const int size : {-5, 0, 1, 7, 15, 16, 17, 33, 64, 127, 1599, 1600, 1601, 5000}) {
        const std::size_t room = static_cast<std::size_t>(std::max(size, 0)) + 20;
        const Bytes before = randomBytes(random, room);
        Bytes src = randomBytes(random, room);
        Bytes dst = before;
        gf_addmul(dst.data(), src.data(), 0x1B, size);
        for (std::size_t i = 0; i < room; ++i) {
            const bool isInside = static_cast<int>(i) < size;
            ASSERT_EQ(dst[i], before[i] ^ (isInside ? times(0x1B, src[i]) : 0))
                << size << " bytes, byte " << i;
        }
    }
}

TEST(GaloisFieldTest, AddMulByZeroReadsAndWritesNothing) {
    Bytes dst(40, 0x55);
    gf_addmul(dst.data(), nullptr, 0, 40);
    EXPECT_THAT(dst, Each(0x55));
}

TEST(GaloisFieldTest, AddMulByOneAdds) {
    Bytes dst(40, 0x55);
    Bytes src(40, 0x0F);
    gf_addmul(dst.data(), src.data(), 1, 40);
    EXPECT_THAT(dst, Each(0x5A));
}

// ---------------------------------------------------------------------------------------------------------
// Models

// The matrix as its definition has it: a Vandermonde matrix, times the inverse of its top part, which is
// found column by column from the product of all x - x_i.
class StepwiseModel {
public:
    StepwiseModel(int k, int n)
        : m_k(k), m_vandermonde(static_cast<std::size_t>(n * k)), m_inverse(static_cast<std::size_t>(k * k)) {
        for (int r = 1; r < n; ++r) {
            for (int c = 0; c < k; ++c) {
                m_vandermonde[static_cast<std::size_t>(r * k + c)] = gf_exp[((r - 1) * c) % 255];
            }
        }
        if (k == 1) {
            m_inverse[0] = 1;
        } else {
            invertTop();
        }
    }

    Bytes row(int r) const {
        Bytes result(static_cast<std::size_t>(m_k), 0);
        for (int j = 0; j < m_k; ++j) {
            if (r < m_k) {
                result[static_cast<std::size_t>(j)] = r == j ? 1 : 0;
                continue;
            }
            for (int m = 0; m < m_k; ++m) {
                result[static_cast<std::size_t>(j)] ^=
                    gf_mul_table[m_vandermonde[static_cast<std::size_t>(r * m_k + m)]]
                                [m_inverse[static_cast<std::size_t>(m * m_k + j)]];
            }
        }
        return result;
    }

private:
    unsigned char point(int i) const { return m_vandermonde[static_cast<std::size_t>(i * m_k + 1)]; }

    void invertTop() {
        std::vector<int> c(static_cast<std::size_t>(m_k), 0);
        std::vector<int> b(static_cast<std::size_t>(m_k), 0);
        const std::size_t last = static_cast<std::size_t>(m_k - 1);
        c[last] = point(0);
        for (int i = 1; i < m_k; ++i) {
            for (std::size_t j = last - static_cast<std::size_t>(i - 1); j < last; ++j) {
                c[j] ^= gf_mul_table[point(i)][c[j + 1]];
            }
            c[last] ^= point(i);
        }
        for (int r = 0; r < m_k; ++r) {
            int t = 1;
            b[last] = 1;
            for (std::size_t i = last; i-- > 0;) {
                b[i] = c[i + 1] ^ gf_mul_table[point(r)][b[i + 1]];
                t = gf_mul_table[point(r)][t] ^ b[i];
            }
            for (int col = 0; col < m_k; ++col) {
                m_inverse[static_cast<std::size_t>(col * m_k + r)] =
                    gf_mul_table[gf_div_table[1][t]][b[static_cast<std::size_t>(col)]];
            }
        }
    }

    int m_k;
    Bytes m_vandermonde;
    Bytes m_inverse;
};

Bytes rowOf(const rs_param_& model, int row) {
    return Bytes(model.enc_matrix + row * model.k, model.enc_matrix + (row + 1) * model.k);
}

void expectStepwiseMatrix(int k, int n) {
    const Model model = makeModel(k, n);
    ASSERT_NE(model, nullptr);
    ASSERT_EQ(model->k, k);
    ASSERT_EQ(model->n, n);
    const StepwiseModel expected(k, n);
    for (int r = 0; r < n; ++r) {
        ASSERT_EQ(rowOf(*model, r), expected.row(r)) << "k = " << k << ", n = " << n << ", row " << r;
    }
}

TEST(RsModelTest, RefusesBadNumbers) {
    EXPECT_EQ(makeModel(5, 4), nullptr);
    EXPECT_EQ(makeModel(1, 257), nullptr);
    EXPECT_EQ(makeModel(257, 257), nullptr);
    EXPECT_EQ(makeModel(257, 300), nullptr);
    EXPECT_EQ(makeModel(0, 4), nullptr);
    EXPECT_EQ(makeModel(0, 0), nullptr);
    EXPECT_EQ(makeModel(-1, 4), nullptr);
    EXPECT_EQ(makeModel(-3, -2), nullptr);
}

TEST(RsModelTest, RefusalGivesNoTrace) {
    TraceCatcher trace(2);
    makeModel(5, 4);
    EXPECT_THAT(trace.lines(), IsEmpty());
}

TEST(RsModelTest, CreateMarksTheTables) {
    m_bInited = false;
    makeModel(5, 4);
    EXPECT_TRUE(m_bInited);
}

TEST(RsModelTest, DeleteIgnoresNull) {
    CRsFec::DeleteRsModel(nullptr);
}

TEST(RsModelTest, TwoOfFourWorkedOutByHand) {
    // The points are 0, 1, 2, 4. A line through (0, a) and (1, b) is a + (a + b) x, so parity x holds
    // (1 + x) a + x b: 3 and 2 at x = 2, 5 and 4 at x = 4.
    const Model model = makeModel(2, 4);
    EXPECT_THAT(rowOf(*model, 0), ElementsAre(1, 0));
    EXPECT_THAT(rowOf(*model, 1), ElementsAre(0, 1));
    EXPECT_THAT(rowOf(*model, 2), ElementsAre(3, 2));
    EXPECT_THAT(rowOf(*model, 3), ElementsAre(5, 4));
}

TEST(RsModelTest, FirstRowsAreTheIdentity) {
    const Model model = makeModel(4, 6);
    EXPECT_THAT(rowOf(*model, 0), ElementsAre(1, 0, 0, 0));
    EXPECT_THAT(rowOf(*model, 1), ElementsAre(0, 1, 0, 0));
    EXPECT_THAT(rowOf(*model, 2), ElementsAre(0, 0, 1, 0));
    EXPECT_THAT(rowOf(*model, 3), ElementsAre(0, 0, 0, 1));
}

TEST(RsModelTest, OfOneBlockRepeatsIt) {
    const Model model = makeModel(1, 256);
    for (int r = 0; r < 256; ++r) {
        ASSERT_THAT(rowOf(*model, r), ElementsAre(1)) << "row " << r;
    }
}

TEST(RsModelTest, Of256BlocksIsTheIdentity) {
    const Model model = makeModel(256, 256);
    ASSERT_NE(model, nullptr);
    for (int r = 0; r < 256; ++r) {
        Bytes unit(256, 0);
        unit[static_cast<std::size_t>(r)] = 1;
        ASSERT_EQ(rowOf(*model, r), unit) << "row " << r;
    }
}

TEST(RsModelTest, MatrixIsTheOneOfItsDefinition) {
    for (int n = 1; n <= 24; ++n) {
        for (int k = 1; k <= n; ++k) {
            expectStepwiseMatrix(k, n);
            ASSERT_FALSE(HasFatalFailure());
        }
    }
    for (const int n : {100, 255, 256}) {
        for (const int k : {1, 2, 3, 31, 64, n / 2, n * 4 / 5, n - 2, n - 1, n}) {
            expectStepwiseMatrix(k, n);
            ASSERT_FALSE(HasFatalFailure());
        }
    }
}

// ---------------------------------------------------------------------------------------------------------
// Encoding

TEST(RsEncodeTest, OfFixedSizeWorkedOutByHand) {
    // Parity rows (3 2) and (5 4). 3 * 0x80 = 0x180 -> 0x9D, 2 * 0x01 = 0x02, 5 * 0x80 = 0x280 -> 0xBA.
    const Model model = makeModel(2, 4);
    Blocks sources = {{0x80, 0x01}, {0x01, 0x00}};
    Blocks parity(2, Bytes(3, 0xEE));
    ASSERT_EQ(CRsFec::Encode(model.get(), pointersTo(sources).data(), 2, pointersTo(parity).data()), 0);
    EXPECT_THAT(parity[0], ElementsAre(0x9D ^ 0x02, 0x03, 0xEE));
    EXPECT_THAT(parity[1], ElementsAre(0xBA ^ 0x04, 0x05, 0xEE));
}

TEST(RsEncodeTest, CountsShorterBlocksAsZeroPadded) {
    const Model model = makeModel(2, 4);
    Blocks sources = {{0x80, 0x01, 0x00}, {0x01}};
    int sizes[] = {3, 1};
    Blocks parity(2, Bytes(4, 0xEE));
    ASSERT_EQ(CRsFec::Encode(model.get(), pointersTo(sources).data(), sizes, pointersTo(parity).data()), 0);
    EXPECT_THAT(parity[0], ElementsAre(0x9D ^ 0x02, 0x03, 0x00, 0xEE));
    EXPECT_THAT(parity[1], ElementsAre(0xBA ^ 0x04, 0x05, 0x00, 0xEE));
}

TEST(RsEncodeTest, ReadsNothingBeyondAShorterBlock) {
    std::mt19937 random(kSeed);
    const Model model = makeModel(3, 5);
    // Each block ends with its allocation, so that a sanitizer sees any byte too many; what follows one byte
    // too few is not zero.
    std::vector<int> sizes = {200, 77, 130};
    Blocks sources;
    Blocks padded;
    for (const int size : sizes) {
        sources.push_back(randomBytes(random, static_cast<std::size_t>(size)));
        padded.push_back(sources.back());
        padded.back().resize(200, 0);
        sources.back().resize(200, 0xA7);
    }
    Blocks parity(2, Bytes(200));
    Blocks expected(2, Bytes(200));
    ASSERT_EQ(CRsFec::Encode(model.get(), pointersTo(padded).data(), 200, pointersTo(expected).data()), 0);
    ASSERT_EQ(
        CRsFec::Encode(model.get(), pointersTo(sources).data(), sizes.data(), pointersTo(parity).data()), 0);
    EXPECT_EQ(parity, expected);
}

TEST(RsEncodeTest, WithoutParityDoesNothing) {
    const Model model = makeModel(2, 2);
    Blocks sources(2, Bytes(8, 1));
    EXPECT_EQ(CRsFec::Encode(model.get(), pointersTo(sources).data(), 8, nullptr), 0);
}

TEST(RsEncodeTest, OfNoBytesWritesNothing) {
    const Model model = makeModel(2, 3);
    Blocks sources(2, Bytes(8, 1));
    Blocks parity(1, Bytes(8, 0xEE));
    int sizes[] = {0, 0};
    EXPECT_EQ(CRsFec::Encode(model.get(), pointersTo(sources).data(), 0, pointersTo(parity).data()), 0);
    EXPECT_EQ(CRsFec::Encode(model.get(), pointersTo(sources).data(), sizes, pointersTo(parity).data()), 0);
    EXPECT_THAT(parity[0], Each(0xEE));
}

TEST(RsEncodeTest, CountsANegativeSizeAsNothing) {
    const Model model = makeModel(2, 3);
    Blocks sources(2, Bytes(100, 7));
    Bytes area(1200, 0xEE);
    unsigned char* parity[] = {area.data() + 1100};
    int sizes[] = {100, -1000};
    EXPECT_EQ(CRsFec::Encode(model.get(), pointersTo(sources).data(), sizes, parity), 0);
    Bytes expected(1200, 0xEE);
    std::fill(expected.begin() + 1100, expected.end(), gf_mul_table[model->enc_matrix[2 * 2]][7]);
    EXPECT_EQ(area, expected);

    int nothing[] = {-1000, -1};
    EXPECT_EQ(CRsFec::Encode(model.get(), pointersTo(sources).data(), -1000, parity), 0);
    EXPECT_EQ(CRsFec::Encode(model.get(), pointersTo(sources).data(), nothing, parity), 0);
    EXPECT_EQ(area, expected);
}

// ---------------------------------------------------------------------------------------------------------
// The size limit

class RsSizeLimitTest : public testing::Test {
protected:
    RsSizeLimitTest() : m_model(makeModel(2, 3)) {}

    int encode(int size) {
        return CRsFec::Encode(m_model.get(), pointersTo(m_blocks).data(), size, pointersTo(m_out).data());
    }
    int encode(int size0, int size1) {
        int sizes[] = {size0, size1};
        return CRsFec::Encode(m_model.get(), pointersTo(m_blocks).data(), sizes, pointersTo(m_out).data());
    }
    int decode(int size) {
        return CRsFec::Decode(m_model.get(), pointersTo(m_blocks).data(), size, m_index,
                              pointersTo(m_out).data(), m_lost, 1);
    }
    int decode(int size0, int size1) {
        int sizes[] = {size0, size1};
        return CRsFec::Decode(m_model.get(), pointersTo(m_blocks).data(), sizes, m_index,
                              pointersTo(m_out).data(), m_lost, 1);
    }
    void expectUntouched() { EXPECT_THAT(m_out[0], Each(0xEE)); }

    Model m_model;
    Blocks m_blocks = Blocks(2, Bytes(1700, 0x11));
    Blocks m_out = Blocks(1, Bytes(1700, 0xEE));
    int m_index[2] = {0, 2};
    int m_lost[1] = {1};
};

TEST_F(RsSizeLimitTest, SixteenHundredBytesPass) {
    TraceCatcher trace(2);
    EXPECT_EQ(encode(1600), 0);
    EXPECT_EQ(encode(5, 1600), 0);
    EXPECT_EQ(decode(1600), 0);
    EXPECT_EQ(decode(1600, 5), 0);
    EXPECT_THAT(trace.lines(), IsEmpty());
    EXPECT_EQ(m_out[0][1600], 0xEE);
}

TEST_F(RsSizeLimitTest, OneByteMoreIsRefusedAndTraced) {
    TraceCatcher trace(1);
    EXPECT_EQ(encode(1601), 1);
    EXPECT_EQ(encode(5, 1602), 1);
    EXPECT_EQ(decode(1603), 1);
    EXPECT_EQ(decode(1604, 5), 1);
    EXPECT_THAT(
        trace.messages(1),
        ElementsAre("CRsFec::Encode, packet size is 1601, bigger than MAX_PACKET_SIZE, skip it!",
                    "CRsFec::Encode, max packet size is 1602, bigger than MAX_PACKET_SIZE, skip it!",
                    "CRsFec::Decode, packet size is 1603, bigger than MAX_PACKET_SIZE, skip it!",
                    "CRsFec::Decode, max packet size is 1604, bigger than MAX_PACKET_SIZE, skip it!"));
    EXPECT_EQ(trace.lines().size(), 4u);
    expectUntouched();
    EXPECT_THAT(m_index, ElementsAre(0, 2));
}

TEST_F(RsSizeLimitTest, IsRefusedSilentlyWhenNoWarningIsWanted) {
    TraceCatcher trace(0);
    EXPECT_EQ(encode(1601), 1);
    EXPECT_EQ(decode(1601, 1), 1);
    EXPECT_THAT(trace.lines(), IsEmpty());
    expectUntouched();
}

// ---------------------------------------------------------------------------------------------------------
// Decoding

// A coded group of random blocks, each with its own size, and what arrives of it.
class RsDecodeTest : public testing::Test {
protected:
    void makeGroup(int k, int n, int minSize, int maxSize) {
        m_model = makeModel(k, n);
        m_blocks.clear();
        m_sizes.clear();
        for (int j = 0; j < k; ++j) {
            m_sizes.push_back(minSize +
                              static_cast<int>(m_random() % static_cast<unsigned>(maxSize - minSize + 1)));
            m_blocks.push_back(randomBytes(m_random, static_cast<std::size_t>(m_sizes.back())));
        }
        m_longest = *std::max_element(m_sizes.begin(), m_sizes.end());
        m_blocks.resize(static_cast<std::size_t>(n), Bytes(static_cast<std::size_t>(m_longest)));
        m_sizes.resize(static_cast<std::size_t>(n), m_longest);
        std::vector<unsigned char*> pointers = pointersTo(m_blocks);
        ASSERT_EQ(CRsFec::Encode(m_model.get(), pointers.data(), m_sizes.data(), pointers.data() + k), 0);
    }

    int decode(std::vector<int> index, std::vector<int> lost) {
        std::vector<unsigned char*> received;
        std::vector<int> sizes;
        for (const int position : index) {
            // An invalid position comes with some block.
            const std::size_t block =
                static_cast<std::size_t>(std::min(std::max(position, 0), m_model->n - 1));
            received.push_back(m_blocks[block].data());
            sizes.push_back(m_sizes[block]);
        }
        m_out.assign(lost.size(), Bytes(static_cast<std::size_t>(m_longest), 0xEE));
        m_index = index;
        return CRsFec::Decode(m_model.get(), received.data(), sizes.data(), m_index.data(),
                              pointersTo(m_out).data(), lost.data(), static_cast<int>(lost.size()));
    }

    // Decodes and compares with the sources, zero-padded to the longest.
    void expectRebuilt(const std::vector<int>& index, const std::vector<int>& lost) {
        ASSERT_EQ(decode(index, lost), 0);
        EXPECT_EQ(m_index, index);
        for (std::size_t r = 0; r < lost.size(); ++r) {
            Bytes expected = m_blocks[static_cast<std::size_t>(lost[r])];
            expected.resize(static_cast<std::size_t>(m_longest), 0);
            ASSERT_EQ(m_out[r], expected) << "lost[" << r << "] = " << lost[r];
        }
    }

    std::mt19937 m_random{kSeed};
    Model m_model;
    Blocks m_blocks;
    std::vector<int> m_sizes;
    int m_longest = 0;
    Blocks m_out;
    std::vector<int> m_index;
};

TEST_F(RsDecodeTest, AnyFourOfSixBlocksGiveTheSources) {
    makeGroup(4, 6, 100, 100);
    for (int a = 0; a < 6; ++a) {
        for (int b = a + 1; b < 6; ++b) {
            std::vector<int> index;
            std::vector<int> lost;
            for (int position = 0; position < 6; ++position) {
                if (position != a && position != b) {
                    index.push_back(position);
                } else if (position < 4) {
                    lost.push_back(position);
                }
            }
            SCOPED_TRACE(testing::Message() << "without " << a << " and " << b);
            expectRebuilt(index, lost);
        }
    }
}

TEST_F(RsDecodeTest, RebuildsFromMixedPositionsAndLeavesTheIndex) {
    makeGroup(4, 8, 300, 300);
    expectRebuilt({0, 5, 2, 7}, {1, 3});
}

TEST_F(RsDecodeTest, TakesThePositionsInAnyOrder) {
    makeGroup(4, 8, 64, 64);
    std::vector<int> index = {0, 2, 5, 7};
    do {
        expectRebuilt(index, {1, 3});
    } while (std::next_permutation(index.begin(), index.end()));
}

TEST_F(RsDecodeTest, TakesTheLostInAnyOrderAndInPart) {
    makeGroup(5, 10, 20, 90);
    expectRebuilt({9, 4, 6, 0, 7}, {3, 1, 2});
    expectRebuilt({9, 4, 6, 0, 7}, {2});
    expectRebuilt({9, 4, 6, 0, 7}, {3, 1});
    expectRebuilt({9, 4, 6, 0, 7}, {});
}

TEST_F(RsDecodeTest, CopiesAPresentBlockThatIsAskedFor) {
    makeGroup(4, 8, 20, 90);
    expectRebuilt({0, 5, 2, 7}, {2, 1});
    expectRebuilt({3, 2, 1, 0}, {0, 1, 2, 3});
    expectRebuilt({3, 2, 1, 0}, {});
}

TEST_F(RsDecodeTest, RebuildsABlockTwiceWhenAskedTwice) {
    makeGroup(4, 8, 20, 90);
    expectRebuilt({0, 5, 2, 7}, {1, 1, 3, 1});
}

TEST_F(RsDecodeTest, PadsARebuiltBlockWithZeros) {
    makeGroup(3, 5, 10, 10);
    m_blocks[1].resize(4);
    m_sizes[1] = 4;
    std::vector<unsigned char*> pointers = pointersTo(m_blocks);
    ASSERT_EQ(CRsFec::Encode(m_model.get(), pointers.data(), m_sizes.data(), pointers.data() + 3), 0);
    expectRebuilt({0, 3, 2}, {1});
    EXPECT_THAT(Bytes(m_out[0].begin() + 4, m_out[0].end()), Each(0));
}

TEST_F(RsDecodeTest, OfFixedSizeIgnoresTheSizesOfTheBlocks) {
    makeGroup(3, 5, 40, 40);
    std::vector<unsigned char*> received = {m_blocks[4].data(), m_blocks[1].data(), m_blocks[3].data()};
    std::vector<int> index = {4, 1, 3};
    std::vector<int> lost = {2, 0};
    Blocks out(2, Bytes(40, 0xEE));
    ASSERT_EQ(CRsFec::Decode(m_model.get(), received.data(), 33, index.data(), pointersTo(out).data(),
                             lost.data(), 2),
              0);
    EXPECT_THAT(index, ElementsAre(4, 1, 3));
    for (std::size_t r = 0; r < 2; ++r) {
        Bytes expected = m_blocks[static_cast<std::size_t>(lost[r])];
        std::fill(expected.begin() + 33, expected.end(), 0xEE);
        EXPECT_EQ(out[r], expected);
    }
}

TEST_F(RsDecodeTest, FailsOnAParityBlockGivenTwice) {
    makeGroup(4, 8, 50, 50);
    EXPECT_EQ(decode({0, 5, 2, 5}, {1, 3}), 1);
    EXPECT_THAT(m_out, Each(Each(0xEE)));
    EXPECT_EQ(decode({5, 5, 5, 5}, {0}), 1);
}

TEST_F(RsDecodeTest, FailsOnAParityBlockGivenMoreOftenThanThereAreParityBlocks) {
    makeGroup(200, 201, 10, 10);
    EXPECT_EQ(decode(std::vector<int>(200, 200), {0}), 1);
}

TEST_F(RsDecodeTest, FailsOnASourceBlockGivenTwice) {
    makeGroup(4, 8, 50, 50);
    EXPECT_EQ(decode({0, 1, 1, 7}, {2}), 1);
    EXPECT_EQ(decode({3, 0, 3, 7}, {2}), 1);
    EXPECT_EQ(decode({1, 1, 1, 1}, {}), 1);
    EXPECT_THAT(m_out, Each(Each(0xEE)));
}

TEST_F(RsDecodeTest, FailsOnAPositionOutOfRange) {
    makeGroup(4, 8, 50, 50);
    EXPECT_EQ(decode({0, 8, 2, 3}, {1}), 1);
    EXPECT_EQ(decode({0, 1000000, 2, 3}, {1}), 1);
    EXPECT_EQ(decode({0, -1, 2, 3}, {1}), 1);
    EXPECT_EQ(decode({-1000000, 1, 2, 3}, {0}), 1);
    EXPECT_EQ(decode({0, 5, -1, 3}, {1}), 1);  // beside a parity block
    EXPECT_THAT(m_out, Each(Each(0xEE)));
}

TEST_F(RsDecodeTest, FailsWhenTheLostBlockIsNoSource) {
    makeGroup(4, 8, 50, 50);
    const std::vector<int> sourcesAlone = {0, 1, 2, 3};
    const std::vector<int> oneParity = {0, 5, 2, 3};
    for (const std::vector<int>& index : {sourcesAlone, oneParity}) {
        for (const int lost :
             {-1, 4, 7, 8, 256, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
            EXPECT_EQ(decode(index, {lost}), 1) << lost;
            EXPECT_EQ(decode(index, {1, lost}), 1) << lost;
            EXPECT_EQ(m_index, index) << lost;
            EXPECT_THAT(m_out, Each(Each(0xEE))) << lost;
        }
    }
}

TEST_F(RsDecodeTest, FailsSilently) {
    TraceCatcher trace(2);
    makeGroup(4, 8, 50, 50);
    EXPECT_EQ(decode({0, 5, 2, 5}, {1, 3}), 1);
    EXPECT_EQ(decode({0, 8, 2, 3}, {1}), 1);
    EXPECT_EQ(decode({0, 5, 2, 3}, {4}), 1);
    EXPECT_THAT(trace.lines(), IsEmpty());
}

TEST_F(RsDecodeTest, EveryLossOfRandomGroupsComesBack) {
    for (int trial = 0; trial < 150; ++trial) {
        const int n = 1 + static_cast<int>(m_random() % (trial % 10 == 0 ? 256 : 40));
        const int k = 1 + static_cast<int>(m_random() % static_cast<unsigned>(n));
        const int maxSize = 1 + static_cast<int>(m_random() % MAX_PACKET_SIZE);
        SCOPED_TRACE(testing::Message() << "seed " << kSeed << ", trial " << trial << ": k = " << k
                                        << ", n = " << n << ", up to " << maxSize << " bytes");
        makeGroup(k, n, trial % 3 == 0 ? maxSize : 0, maxSize);
        std::vector<int> index(static_cast<std::size_t>(n));
        std::iota(index.begin(), index.end(), 0);
        std::shuffle(index.begin(), index.end(), m_random);
        std::vector<int> lost;
        std::copy_if(index.begin() + k, index.end(), std::back_inserter(lost), [k](int p) { return p < k; });
        index.resize(static_cast<std::size_t>(k));
        expectRebuilt(index, lost);
        ASSERT_FALSE(HasFatalFailure());
    }
}

// ---------------------------------------------------------------------------------------------------------
// The decoding matrix

// Multiplies the matrix with the rows of the model at `index`, which gives the identity.
void expectInverse(const rs_param_& model, const Bytes& matrix, const std::vector<int>& index) {
    for (int s = 0; s < model.k; ++s) {
        Bytes row(static_cast<std::size_t>(model.k), 0);
        for (int j = 0; j < model.k; ++j) {
            const Bytes coefficients = rowOf(model, index[static_cast<std::size_t>(j)]);
            for (std::size_t c = 0; c < row.size(); ++c) {
                row[c] ^= gf_mul_table[matrix[static_cast<std::size_t>(s * model.k + j)]][coefficients[c]];
            }
        }
        Bytes unit(row.size(), 0);
        unit[static_cast<std::size_t>(s)] = 1;
        ASSERT_EQ(row, unit) << "source " << s;
    }
}

TEST(DecodingMatrixTest, InvertsTheRowsOfTheReceivedBlocks) {
    std::mt19937 random(kSeed);
    for (int trial = 0; trial < 100; ++trial) {
        const int n = 1 + static_cast<int>(random() % 30);
        const int k = 1 + static_cast<int>(random() % static_cast<unsigned>(n));
        SCOPED_TRACE(testing::Message()
                     << "seed " << kSeed << ", trial " << trial << ": k = " << k << ", n = " << n);
        const Model model = makeModel(k, n);
        std::vector<int> index(static_cast<std::size_t>(n));
        std::iota(index.begin(), index.end(), 0);
        std::shuffle(index.begin(), index.end(), random);
        index.resize(static_cast<std::size_t>(k));
        const std::vector<int> before = index;
        Bytes matrix(static_cast<std::size_t>(k * k));
        ASSERT_EQ(bld_dec_mat(model.get(), matrix.data(), index.data()), 0);
        EXPECT_EQ(index, before);
        expectInverse(*model, matrix, index);
    }
}

TEST(DecodingMatrixTest, OfAllSourcesInOrderIsTheIdentity) {
    const Model model = makeModel(3, 5);
    int index[] = {0, 1, 2};
    Bytes matrix(9, 0xEE);
    ASSERT_EQ(bld_dec_mat(model.get(), matrix.data(), index), 0);
    EXPECT_THAT(matrix, ElementsAre(1, 0, 0, 0, 1, 0, 0, 0, 1));
}

TEST(DecodingMatrixTest, OfSourcesInAnotherOrderPermutesThem) {
    const Model model = makeModel(3, 5);
    int index[] = {2, 0, 1};
    Bytes matrix(9, 0xEE);
    ASSERT_EQ(bld_dec_mat(model.get(), matrix.data(), index), 0);
    EXPECT_THAT(index, ElementsAre(2, 0, 1));
    // Source 0 is the second block, source 1 the third, source 2 the first.
    EXPECT_THAT(matrix, ElementsAre(0, 1, 0, 0, 0, 1, 1, 0, 0));
}

// A hand-made model whose elimination meets a zero pivot, which the usual matrix never has.
TEST(DecodingMatrixTest, SwapsRowsAroundAZeroPivot) {
    unsigned char rows[] = {
        1, 0,  // source 0
        0, 1,  // source 1
        0, 1,  // parity 0 repeats source 1
        1, 0,  // parity 1 repeats source 0
    };
    rs_param_ model = {2, 4, rows};
    int index[] = {2, 3};
    Bytes matrix(4);
    ASSERT_EQ(bld_dec_mat(&model, matrix.data(), index), 0);
    EXPECT_THAT(matrix, ElementsAre(0, 1, 1, 0));

    Blocks blocks = {{0xBB}, {0xAA}};
    Blocks out(2, Bytes(1));
    int lost[] = {0, 1};
    ASSERT_EQ(CRsFec::Decode(&model, pointersTo(blocks).data(), 1, index, pointersTo(out).data(), lost, 2),
              0);
    EXPECT_THAT(out[0], ElementsAre(0xAA));
    EXPECT_THAT(out[1], ElementsAre(0xBB));
}

TEST(DecodingMatrixTest, FailsWhenTheParityBlockSaysNothingOfTheLostOne) {
    unsigned char rows[] = {
        1, 0,  // source 0
        0, 1,  // source 1
        7, 0,  // parity 0 leaves source 1 out
    };
    rs_param_ model = {2, 3, rows};
    int index[] = {0, 2};
    Bytes matrix(4);
    EXPECT_EQ(bld_dec_mat(&model, matrix.data(), index), -1);

    Blocks blocks = {{0xBB}, {0xAA}};
    Blocks out(1, Bytes(1, 0xEE));
    int lost[] = {1};
    EXPECT_EQ(CRsFec::Decode(&model, pointersTo(blocks).data(), 1, index, pointersTo(out).data(), lost, 1),
              1);
    EXPECT_THAT(out[0], ElementsAre(0xEE));
}

TEST(DecodingMatrixTest, SwapsRowsInTheMiddleOfAnElimination) {
    unsigned char rows[] = {
        1, 0, 0,  // sources
        0, 1, 0,  //
        0, 0, 1,  //
        1, 1, 1,  // parity, of which the upper left 2 x 2 part is singular
        1, 1, 2,  //
        1, 2, 4,
    };
    rs_param_ model = {3, 6, rows};
    std::vector<int> index = {3, 4, 5};
    Bytes matrix(9);
    ASSERT_EQ(bld_dec_mat(&model, matrix.data(), index.data()), 0);
    EXPECT_THAT(index, ElementsAre(3, 4, 5));
    expectInverse(model, matrix, index);
}

TEST(DecodingMatrixTest, FailsOnDependentRows) {
    const Model model = makeModel(4, 8);
    Bytes matrix(16);
    int twiceTheSameParity[] = {0, 5, 2, 5};
    EXPECT_EQ(bld_dec_mat(model.get(), matrix.data(), twiceTheSameParity), -1);
}

TEST(DecodingMatrixTest, FailsOnInvalidPositions) {
    const Model model = makeModel(4, 8);
    Bytes matrix(16);
    int beyond[] = {0, 1, 2, 8};
    int negative[] = {0, -1, 2, 3};
    int negativeAfterASwap[] = {2, 0, -7, 3};
    int sourceTwice[] = {0, 1, 1, 5};
    int sourceTwiceAwayFromItsPlace[] = {3, 3, 5, 6};
    EXPECT_EQ(bld_dec_mat(model.get(), matrix.data(), beyond), -1);
    EXPECT_EQ(bld_dec_mat(model.get(), matrix.data(), negative), -1);
    EXPECT_EQ(bld_dec_mat(model.get(), matrix.data(), negativeAfterASwap), -1);
    EXPECT_EQ(bld_dec_mat(model.get(), matrix.data(), sourceTwice), -1);
    EXPECT_EQ(bld_dec_mat(model.get(), matrix.data(), sourceTwiceAwayFromItsPlace), -1);
}

// ---------------------------------------------------------------------------------------------------------
// The model cache

// Made before any test or session of the program, which begins with no user of the cache.
const unsigned kFirstRetain = [] {
    const unsigned count = RsMapRetain();
    RsMapRelease();
    return count;
}();

class RsModelCacheTest : public testing::Test {
protected:
    // Brings the number of users to 0 and empties the cache, whatever a test left.
    void SetUp() override { drain(); }
    void TearDown() override { drain(); }

    static void drain() {
        while (RsMapRetain() > 1) {
            RsMapRelease();
            RsMapRelease();
        }
        RsMapRelease();
    }
};

TEST_F(RsModelCacheTest, ReturnsTheSameModelForTheSameNumbers) {
    rs_param_* const model = GetRsModel(10, 14);
    ASSERT_NE(model, nullptr);
    EXPECT_EQ(model->k, 10);
    EXPECT_EQ(model->n, 14);
    EXPECT_EQ(GetRsModel(10, 14), model);
}

TEST_F(RsModelCacheTest, KeepsModelsOfDifferentNumbersApart) {
    rs_param_* const wide = GetRsModel(1, 2);
    EXPECT_EQ(GetRsModel(2, 1), nullptr);  // key 0x00020001, not 0x00010002
    EXPECT_EQ(GetRsModel(1, 2), wide);
    EXPECT_NE(GetRsModel(1, 3), wide);
    EXPECT_NE(GetRsModel(2, 2), wide);
}

TEST_F(RsModelCacheTest, PairsOutOfRangeHaveNoModel) {
    EXPECT_EQ(GetRsModel(0, 4), nullptr);
    EXPECT_EQ(GetRsModel(-1, 4), nullptr);
    EXPECT_EQ(GetRsModel(5, 4), nullptr);
    EXPECT_EQ(GetRsModel(1, 257), nullptr);
    EXPECT_EQ(GetRsModel(1, 0), nullptr);
    EXPECT_NE(GetRsModel(256, 256), nullptr);
}

TEST_F(RsModelCacheTest, KeyKeepsTheLowerSixteenBitsOfN) {
    rs_param_* const model = GetRsModel(3, 5);
    EXPECT_EQ(GetRsModel(3, 0x40005), model);
    EXPECT_EQ(GetRsModel(2, 0x8005), nullptr) << "k stands above all sixteen";
}

TEST_F(RsModelCacheTest, TriesARefusedPairAgain) {
    EXPECT_EQ(GetRsModel(14, 10), nullptr);
    EXPECT_EQ(GetRsModel(14, 10), nullptr);
    // The refusal is stored under the key and gives way to the next attempt's result.
    EXPECT_EQ(GetRsModel(3, 0x40005), nullptr);
    EXPECT_NE(GetRsModel(3, 5), nullptr);
}

TEST_F(RsModelCacheTest, RetainCountsUpFromOne) {
    EXPECT_EQ(kFirstRetain, 1u);
    EXPECT_EQ(RsMapRetain(), 1u);
    EXPECT_EQ(RsMapRetain(), 2u);
    RsMapRelease();
    EXPECT_EQ(RsMapRetain(), 2u);
}

TEST_F(RsModelCacheTest, KeepsModelsUntilTheLastRelease) {
    RsMapRetain();
    RsMapRetain();
    rs_param_* const model = GetRsModel(4, 6);
    RsMapRelease();
    EXPECT_EQ(GetRsModel(4, 6), model);
    model->enc_matrix[0] = 0x77;  // marks this very model
    RsMapRelease();
    EXPECT_EQ(GetRsModel(4, 6)->enc_matrix[0], 1);
}

TEST_F(RsModelCacheTest, FirstRetainDropsModelsMadeBefore) {
    GetRsModel(4, 6)->enc_matrix[0] = 0x77;
    RsMapRetain();
    EXPECT_EQ(GetRsModel(4, 6)->enc_matrix[0], 1);
    GetRsModel(4, 6)->enc_matrix[0] = 0x77;
    RsMapRetain();
    EXPECT_EQ(GetRsModel(4, 6)->enc_matrix[0], 0x77);
}

TEST_F(RsModelCacheTest, ReleaseTooManyClearsAndLeavesTheCountAtZero) {
    GetRsModel(4, 6)->enc_matrix[0] = 0x77;
    RsMapRelease();
    EXPECT_EQ(GetRsModel(4, 6)->enc_matrix[0], 1);
    RsMapRelease();
    EXPECT_EQ(RsMapRetain(), 1u);
}

TEST_F(RsModelCacheTest, ClearFreesTheModelsAndLeavesTheCount) {
    RsMapRetain();
    GetRsModel(4, 6)->enc_matrix[0] = 0x77;
    GetRsModel(14, 10);
    RsMapClear();
    EXPECT_EQ(GetRsModel(4, 6)->enc_matrix[0], 1);
    EXPECT_EQ(RsMapRetain(), 2u);
}

}  // namespace
}  // namespace talrtp
