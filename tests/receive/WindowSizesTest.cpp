// The sums of packet sizes over windows, against plain sums.

#include "receive/WindowSizes.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace talrtp {
namespace {

constexpr unsigned int kSeed = 20261123;
constexpr unsigned int kNumbers = 100;

class WindowSizesTest : public testing::Test {
protected:
    WindowSizesTest() {
        for (unsigned int i = 0; i < kNumbers; ++i) {
            sizes.push_back(random() % 65536);
        }
    }

    unsigned int sum(unsigned int base, unsigned int packets) {
        return known.sum(static_cast<_uint16_t>(base), packets, [this, base](unsigned int i) {
            ++questions;
            return static_cast<int>(sizes.at(base + i));
        });
    }

    std::mt19937 random{kSeed};
    std::vector<unsigned int> sizes;
    CWindowSizes known;
    unsigned int questions = 0;
};

TEST_F(WindowSizesTest, SumsOfRandomWindowsAreThoseOfTheirPackets) {
    for (unsigned int round = 0; round < 20000; ++round) {
        const unsigned int base = random() % 8 == 0 ? random() % 70 : 70;
        const unsigned int packets = random() & 0xffffff;
        unsigned int expected = 0;
        for (unsigned int i = 0; i < kFecMaskBits; ++i) {
            expected ^= (packets >> i & 1) != 0 ? sizes[base + i] : 0;
        }
        ASSERT_EQ(sum(base, packets), expected);
    }
}

TEST_F(WindowSizesTest, SizeOfAPacketIsAskedOnceUntilAllAreForgotten) {
    sum(10, 0x7);
    EXPECT_EQ(questions, 3u);
    sum(10, 0x1);
    sum(10, 0xf);
    EXPECT_EQ(questions, 4u);
    sizes[10] ^= 5;
    known.forget();
    EXPECT_EQ(sum(10, 0x3), sizes[10] ^ sizes[11]);
    EXPECT_EQ(questions, 6u);
}

}  // namespace
}  // namespace talrtp
