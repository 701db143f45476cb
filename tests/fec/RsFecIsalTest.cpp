// The codec against an independent one: ISA-L works in the same field and takes any matrix, so with our
// matrix it must make the same parity, and rebuild what we made parity for, at every level of our kernels.

#include "kernels/Kernels.h"

#include <talrtp/RsFec.h>

#include <gtest/gtest.h>
#include <isa-l/erasure_code.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

#include "Bytes.h"

namespace talrtp {
namespace {

using test::Bytes;
using Blocks = std::vector<Bytes>;

constexpr unsigned int kSeed = 20240611;
constexpr int kTrials = 40;

std::vector<unsigned char*> pointersTo(Blocks& blocks) {
    std::vector<unsigned char*> pointers;
    for (Bytes& block : blocks) {
        pointers.push_back(block.data());
    }
    return pointers;
}

// Multiplies `rows` rows of k coefficients with k blocks of `size` bytes, by ISA-L.
Blocks multiplyByIsal(int k, int rows, Bytes coefficients, Blocks sources, int size) {
    Bytes tables(static_cast<std::size_t>(32 * k * rows));
    Blocks results(static_cast<std::size_t>(rows), Bytes(static_cast<std::size_t>(size)));
    std::vector<unsigned char*> from = pointersTo(sources);
    std::vector<unsigned char*> to = pointersTo(results);
    ec_init_tables(k, rows, coefficients.data(), tables.data());
    ec_encode_data(size, k, rows, tables.data(), from.data(), to.data());
    return results;
}

// A random group: k source blocks, m parity blocks, and a choice of k of them.
struct Group {
    explicit Group(std::mt19937& random)
        : k(1 + static_cast<int>(random() % 60)),
          m(1 + static_cast<int>(random() % 20)),
          size(1 + static_cast<int>(random() % MAX_PACKET_SIZE)),
          model(CRsFec::CreateRsModel(k, k + m)),
          sources(static_cast<std::size_t>(k), Bytes(static_cast<std::size_t>(size))) {
        for (Bytes& block : sources) {
            std::generate(block.begin(), block.end(),
                          [&random] { return static_cast<unsigned char>(random()); });
        }
        received.resize(static_cast<std::size_t>(k + m));
        std::iota(received.begin(), received.end(), 0);
        std::shuffle(received.begin(), received.end(), random);
        received.resize(static_cast<std::size_t>(k));
        for (int s = 0; s < k; ++s) {
            if (std::find(received.begin(), received.end(), s) == received.end()) {
                lost.push_back(s);
            }
        }
    }
    ~Group() { CRsFec::DeleteRsModel(model); }
    Group(const Group&) = delete;
    Group& operator=(const Group&) = delete;

    Bytes rowsOf(int first, int count) const {
        const unsigned char* const begin = model->enc_matrix + first * k;
        return Bytes(begin, begin + count * k);
    }
    Blocks encode() {
        Blocks parity(static_cast<std::size_t>(m), Bytes(static_cast<std::size_t>(size)));
        EXPECT_EQ(CRsFec::Encode(model, pointersTo(sources).data(), size, pointersTo(parity).data()), 0);
        return parity;
    }
    Blocks receivedOf(const Blocks& parity) const {
        Blocks blocks;
        for (const int position : received) {
            blocks.push_back(position < k ? sources[static_cast<std::size_t>(position)]
                                          : parity[static_cast<std::size_t>(position - k)]);
        }
        return blocks;
    }

    int k;
    int m;
    int size;
    rs_param_* model;
    Blocks sources;
    std::vector<int> received;
    std::vector<int> lost;
};

class RsFecIsalTest : public testing::TestWithParam<int> {
protected:
    void SetUp() override { forceKernelLevel(static_cast<EKernelLevel>(GetParam())); }
    void TearDown() override { forceKernelLevel(getHighestKernelLevel()); }

    std::mt19937 m_random{kSeed};
};

INSTANTIATE_TEST_SUITE_P(Levels, RsFecIsalTest,
                         testing::Range(static_cast<int>(KERNEL_PORTABLE), getHighestKernelLevel() + 1));

TEST_P(RsFecIsalTest, EncodesTheSameParity) {
    for (int trial = 0; trial < kTrials; ++trial) {
        Group group(m_random);
        SCOPED_TRACE(testing::Message() << "seed " << kSeed << ", trial " << trial);
        ASSERT_EQ(group.encode(), multiplyByIsal(group.k, group.m, group.rowsOf(group.k, group.m),
                                                 group.sources, group.size));
    }
}

TEST_P(RsFecIsalTest, DecodesParityOfIsal) {
    for (int trial = 0; trial < kTrials; ++trial) {
        Group group(m_random);
        SCOPED_TRACE(testing::Message() << "seed " << kSeed << ", trial " << trial);
        const Blocks parity =
            multiplyByIsal(group.k, group.m, group.rowsOf(group.k, group.m), group.sources, group.size);
        Blocks blocks = group.receivedOf(parity);
        Blocks rebuilt(group.lost.size(), Bytes(static_cast<std::size_t>(group.size)));
        ASSERT_EQ(CRsFec::Decode(group.model, pointersTo(blocks).data(), group.size, group.received.data(),
                                 pointersTo(rebuilt).data(), group.lost.data(),
                                 static_cast<int>(group.lost.size())),
                  0);
        for (std::size_t r = 0; r < rebuilt.size(); ++r) {
            ASSERT_EQ(rebuilt[r], group.sources[static_cast<std::size_t>(group.lost[r])]);
        }
    }
}

TEST_P(RsFecIsalTest, IsalDecodesOurParity) {
    for (int trial = 0; trial < kTrials; ++trial) {
        Group group(m_random);
        SCOPED_TRACE(testing::Message() << "seed " << kSeed << ", trial " << trial);
        Bytes matrix;
        for (const int position : group.received) {
            const Bytes row = group.rowsOf(position, 1);
            matrix.insert(matrix.end(), row.begin(), row.end());
        }
        Bytes inverse(matrix.size());
        ASSERT_EQ(gf_invert_matrix(matrix.data(), inverse.data(), group.k), 0);
        const Blocks all =
            multiplyByIsal(group.k, group.k, inverse, group.receivedOf(group.encode()), group.size);
        ASSERT_EQ(all, group.sources);
    }
}

TEST_P(RsFecIsalTest, InvertsTheSameDecodingMatrix) {
    for (int trial = 0; trial < kTrials; ++trial) {
        Group group(m_random);
        SCOPED_TRACE(testing::Message() << "seed " << kSeed << ", trial " << trial);
        Bytes matrix;
        for (const int position : group.received) {
            const Bytes row = group.rowsOf(position, 1);
            matrix.insert(matrix.end(), row.begin(), row.end());
        }
        Bytes expected(matrix.size());
        ASSERT_EQ(gf_invert_matrix(matrix.data(), expected.data(), group.k), 0);
        Bytes actual(matrix.size());
        ASSERT_EQ(bld_dec_mat(group.model, actual.data(), group.received.data()), 0);
        ASSERT_EQ(actual, expected);
    }
}

}  // namespace
}  // namespace talrtp
