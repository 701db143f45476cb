// The arithmetic of the Reed-Solomon code without a session: its matrix, the ways to rebuild blocks, and
// interpolation. All are held to the definition of the code, evaluated plainly: byte i of the block at
// position p is the value that a polynomial of degree below k takes at the point of p.

#include "fec/CodeMatrix.h"
#include "fec/DecodingMatrix.h"
#include "fec/Erasures.h"
#include "fec/GaloisField.h"
#include "fec/RsInterpolation.h"

#include "Bytes.h"
#include "PlainField.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <random>
#include <utility>
#include <vector>

namespace talrtp {
namespace test {
namespace {

// A whole group of blocks, which are values of random polynomials.
class Group {
public:
    Group(int k, int n, int size, unsigned int seed) : k(k), n(n), size(size) {
        std::mt19937 random(seed);
        Bytes coefficients(static_cast<std::size_t>(k));
        blocks.assign(static_cast<std::size_t>(n), Bytes(static_cast<std::size_t>(size)));
        for (std::size_t i = 0; i < static_cast<std::size_t>(size); ++i) {
            std::generate(coefficients.begin(), coefficients.end(),
                          [&] { return static_cast<unsigned char>(random()); });
            for (int p = 0; p < n; ++p) {
                blocks[static_cast<std::size_t>(p)][i] =
                    valueAt(coefficients, plainPoint(static_cast<std::size_t>(p)));
            }
        }
        matrix.resize(static_cast<std::size_t>(n * k));
        fillCodeMatrix(matrix.data(), k, n);
        model = {k, n, matrix.data()};
    }
    Group(const Group&) = delete;
    Group& operator=(const Group&) = delete;

    Bytes& block(int position) { return blocks[static_cast<std::size_t>(position)]; }

    const int k;
    const int n;
    const int size;
    std::vector<Bytes> blocks;
    Bytes matrix;
    rs_param_ model;

private:
    static unsigned char valueAt(const Bytes& coefficients, unsigned char point) {
        unsigned char value = 0;  // Horner's rule
        for (auto c = coefficients.rbegin(); c != coefficients.rend(); ++c) {
            value = static_cast<unsigned char>(times(value, point) ^ *c);
        }
        return value;
    }
};

// --- The matrix ----------------------------------------------------------------------------------------

TEST(CodeMatrixTest, TwoOfFourWorkedOutByHand) {
    // A line through (0, a) and (1, b) takes a + (a + b) * x at x: 3a + 2b at 2, and 5a + 4b at 4.
    Bytes matrix(8, 0xee);
    fillCodeMatrix(matrix.data(), 2, 4);
    EXPECT_EQ(matrix, (Bytes{1, 0, 0, 1, 3, 2, 5, 4}));
}

TEST(CodeMatrixTest, PointsAreZeroAndThePowersOfAlpha) {
    for (int position = 0; position < 256; ++position) {
        ASSERT_EQ(pointOf(position), plainPoint(static_cast<std::size_t>(position))) << position;
    }
}

TEST(CodeMatrixTest, ParityBlocksAreTheValuesAtTheirPoints) {
    for (const int k : {1, 2, 7, 31, 100}) {
        Group group(k, k + 9, 77, 1);
        std::vector<unsigned char*> sources;
        std::vector<Bytes> made(9, Bytes(77, 0xee));
        std::vector<unsigned char*> parity;
        for (int j = 0; j < k; ++j) {
            sources.push_back(group.block(j).data());
        }
        for (Bytes& block : made) {
            parity.push_back(block.data());
        }
        encodeBlocks(group.model, sources.data(), nullptr, 77, parity.data());
        for (int i = 0; i < 9; ++i) {
            ASSERT_EQ(made[static_cast<std::size_t>(i)], group.block(k + i)) << k << " " << i;
        }
    }
}

// --- Rebuilding ----------------------------------------------------------------------------------------

typedef bool (*Way)(const rs_param_&, const stReceivedBlocks&, const stLostBlocks&);

// The outcome of a way for the blocks at `index`.
struct Attempt {
    Attempt(Group& group, Way way, std::vector<int> index, const std::vector<int>& lost)
        : out(lost.size(), Bytes(static_cast<std::size_t>(group.size), 0xee)), index(std::move(index)) {
        std::vector<unsigned char*> received;
        for (const int position : this->index) {
            received.push_back(position >= 0 && position < group.n ? group.block(position).data() : nullptr);
        }
        std::vector<unsigned char*> rebuilt;
        for (Bytes& block : out) {
            rebuilt.push_back(block.data());
        }
        isDone = way(group.model, {received.data(), nullptr, group.size, this->index.data()},
                     {rebuilt.data(), lost.data(), static_cast<int>(lost.size())});
    }

    bool isDone;
    std::vector<Bytes> out;
    std::vector<int> index;
};

// The positions below `n` less the lost ones, `k` of them.
std::vector<int> without(const std::vector<int>& lost, int k) {
    std::vector<int> index;
    for (int p = 0; static_cast<int>(index.size()) < k; ++p) {
        if (std::find(lost.begin(), lost.end(), p) == lost.end()) {
            index.push_back(p);
        }
    }
    return index;
}

void expectLostBlocks(Group& group, Way way, const std::vector<int>& index, const std::vector<int>& lost) {
    const Attempt attempt(group, way, index, lost);
    ASSERT_TRUE(attempt.isDone);
    EXPECT_EQ(attempt.index, index);
    for (std::size_t r = 0; r < lost.size(); ++r) {
        EXPECT_EQ(attempt.out[r], group.block(lost[r])) << lost[r];
    }
}

void expectRefused(Group& group, Way way, const std::vector<int>& index, const std::vector<int>& lost) {
    const Attempt attempt(group, way, index, lost);
    EXPECT_FALSE(attempt.isDone);
    for (const Bytes& block : attempt.out) {
        EXPECT_EQ(block, Bytes(block.size(), 0xee));
    }
}

TEST(ErasuresTest, EveryWayRebuildsTheOnlyLostBlock) {
    Group group(10, 14, 100, 2);
    for (const Way way : {rebuildSingle, rebuildMissing, rebuildAny, rebuildBlocks}) {
        for (int lost = 0; lost < 10; ++lost) {
            expectLostBlocks(group, way, without({lost}, 10), {lost});
            expectLostBlocks(group, way, without({lost, 10, 12}, 10), {lost});
        }
    }
}

TEST(ErasuresTest, SeveralLostBlocksComeBackInAnyOrderOfPositions) {
    Group group(20, 45, 70, 3);
    std::mt19937 random(3);
    for (int count = 2; count <= 20; ++count) {
        std::vector<int> lost(20);
        std::iota(lost.begin(), lost.end(), 0);
        std::shuffle(lost.begin(), lost.end(), random);
        lost.resize(static_cast<std::size_t>(count));
        std::vector<int> index = without(lost, 20);
        std::shuffle(index.begin(), index.end(), random);
        for (const Way way : {rebuildMissing, rebuildAny, rebuildBlocks}) {
            expectLostBlocks(group, way, index, lost);
        }
        expectRefused(group, rebuildSingle, index, lost);
    }
}

TEST(ErasuresTest, PartOfTheLostBlocksComesBack) {
    Group group(6, 10, 70, 4);
    expectLostBlocks(group, rebuildMissing, {7, 1, 8, 3, 6, 5}, {4});
    expectLostBlocks(group, rebuildAny, {7, 1, 8, 3, 6, 5}, {4});
    expectRefused(group, rebuildSingle, {7, 1, 8, 3, 6, 5}, {4});  // two more are missing
}

TEST(ErasuresTest, PresentBlockIsCopiedByTheWholeMatrixOnly) {
    Group group(4, 6, 70, 5);
    for (const std::vector<int>& lost : {std::vector<int>{2}, std::vector<int>{1, 2}}) {
        expectRefused(group, rebuildSingle, {0, 5, 2, 3}, lost);
        expectRefused(group, rebuildMissing, {0, 5, 2, 3}, lost);
        expectLostBlocks(group, rebuildAny, {0, 5, 2, 3}, lost);
        expectLostBlocks(group, rebuildBlocks, {0, 5, 2, 3}, lost);
    }
}

TEST(ErasuresTest, EveryWayRefusesPositionsWithoutASolution) {
    Group group(4, 6, 70, 6);
    for (const Way way : {rebuildSingle, rebuildMissing, rebuildAny, rebuildBlocks}) {
        expectRefused(group, way, {0, 0, 2, 4}, {1});   // a source block twice
        expectRefused(group, way, {4, 4, 2, 3}, {1});   // a parity block twice
        expectRefused(group, way, {0, 6, 2, 3}, {1});   // past the group
        expectRefused(group, way, {0, -1, 2, 3}, {1});  // before it
        expectRefused(group, way, {0, 4, 2, 3}, {4});   // a parity block is asked for
        expectRefused(group, way, {0, 4, 2, 3}, {-1});
    }
}

TEST(ErasuresTest, ShorterBlocksCountAsZeroPadded) {
    Group group(3, 5, 64, 7);
    std::fill(group.block(1).begin() + 10, group.block(1).end(), 0);
    Bytes parity(64);
    unsigned char* const out = parity.data();
    unsigned char* const sources[] = {group.block(0).data(), group.block(1).data(), group.block(2).data()};
    rs_param_ one = {3, 4, group.model.enc_matrix};
    encodeBlocks(one, sources, nullptr, 64, &out);
    unsigned char* const blocks[] = {group.block(1).data(), parity.data(), group.block(2).data()};
    const int sizes[] = {10, 64, 64};
    const int lost = 0;
    for (const Way way : {rebuildSingle, rebuildMissing, rebuildAny, rebuildBlocks}) {
        int index[] = {1, 3, 2};
        Bytes rebuilt(64, 0xee);
        unsigned char* const into = rebuilt.data();
        ASSERT_TRUE(way(one, {blocks, sizes, 64, index}, {&into, &lost, 1}));
        EXPECT_EQ(rebuilt, group.block(0));
    }
}

TEST(DecodingMatrixTest, TakesTheReceivedBlocksToTheSources) {
    Group group(9, 14, 40, 8);
    std::vector<int> index = {13, 0, 4, 10, 9, 8, 2, 11, 6};
    const std::vector<int> before = index;
    Bytes matrix(81, 0xee);
    ASSERT_TRUE(fillDecodingMatrix(group.model, matrix.data(), index.data()));
    EXPECT_EQ(index, before);
    for (int s = 0; s < 9; ++s) {
        Bytes sum(40, 0);
        for (int j = 0; j < 9; ++j) {
            const Bytes& block = group.block(index[static_cast<std::size_t>(j)]);
            for (std::size_t i = 0; i < sum.size(); ++i) {
                sum[i] ^= times(matrix[static_cast<std::size_t>(s * 9 + j)], block[i]);
            }
        }
        ASSERT_EQ(sum, group.block(s)) << s;
    }
}

// --- Interpolation -------------------------------------------------------------------------------------

TEST(RsInterpolationRowTest, CoefficientsOfALineWorkedOutByHand) {
    // Through (0, a) and (1, b), as above; and back from (2, a) and (4, b): a + (a + b) / 6 * 2 at 0.
    unsigned char row[2];
    const unsigned char first[] = {0, 1};
    CRsInterpolation(first, 2).fillRow(2, row);
    EXPECT_EQ(row[0], 3);
    EXPECT_EQ(row[1], 2);
    const unsigned char second[] = {2, 3};
    CRsInterpolation(second, 2).fillRow(0, row);
    EXPECT_EQ(times(row[0], 6), 6 ^ 2);
    EXPECT_EQ(times(row[1], 6), 2);
}

// How many blocks are present: on both sides of the border between the two ways to sum up, and the most.
class RsInterpolationTest : public testing::TestWithParam<int> {
protected:
    RsInterpolationTest() {
        std::mt19937 random(9);
        std::vector<unsigned char> positions(256);
        std::iota(positions.begin(), positions.end(), static_cast<unsigned char>(0));
        std::shuffle(positions.begin(), positions.end(), random);
        present.assign(positions.begin(), positions.begin() + count);
        missing.assign(positions.begin() + count, positions.end());
    }

    const int count = GetParam();
    Group group{count, 256, 8, 10};
    Bytes present;
    Bytes missing;
};

INSTANTIATE_TEST_SUITE_P(Present, RsInterpolationTest,
                         testing::Values(1, 2, 5, 31, 32, 33, 34, 128, 254, 255));

TEST_P(RsInterpolationTest, RowsAddUpToTheMissingBlocks) {
    const CRsInterpolation code(present.data(), count);
    for (const unsigned char lost : missing) {
        Bytes row(present.size(), 0xee);
        code.fillRow(lost, row.data());
        Bytes sum(8, 0);
        for (std::size_t j = 0; j < present.size(); ++j) {
            for (std::size_t i = 0; i < sum.size(); ++i) {
                sum[i] ^= times(row[j], group.block(present[j])[i]);
            }
        }
        ASSERT_EQ(sum, group.block(lost)) << static_cast<int>(lost);
    }
}

TEST_P(RsInterpolationTest, ProbeReadsBytesOfAllMissingBlocks) {
    const CRsInterpolation code(present.data(), count);
    for (const int columns : {1, 5, 8}) {
        Bytes values(8 * 256);
        for (std::size_t c = 0; c < static_cast<std::size_t>(columns); ++c) {
            for (std::size_t j = 0; j < present.size(); ++j) {
                values[c * 256 + j] = group.block(present[j])[c];
            }
        }
        const int missingCount = static_cast<int>(missing.size());
        Bytes scratch(code.scratchSize(missingCount));
        Bytes result(8 * 256, 0xee);
        code.probe(missing.data(), missingCount, values.data(), columns, scratch.data(), result.data());
        for (std::size_t c = 0; c < static_cast<std::size_t>(columns); ++c) {
            for (std::size_t i = 0; i < missing.size(); ++i) {
                ASSERT_EQ(result[c * 256 + i], group.block(missing[i])[c]) << c << " " << i;
            }
        }
    }
}

}  // namespace
}  // namespace test
}  // namespace talrtp
