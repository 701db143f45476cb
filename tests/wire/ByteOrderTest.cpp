#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <talrtp/TalRtpDefs.h>

#include <array>
#include <climits>
#include <cstring>
#include <random>
#include <vector>

#include "Bytes.h"
#include "FakeClock.h"

namespace {

// The C library's generator, as the test wants it.
std::vector<unsigned int> seeds;
std::vector<int> nextRandoms;

}  // namespace

extern "C" void srand(unsigned int seed) noexcept {
    seeds.push_back(seed);
}

extern "C" int rand() noexcept {
    const int value = nextRandoms.front();
    nextRandoms.erase(nextRandoms.begin());
    return value;
}

namespace talrtp {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

static_assert(sizeof(_int8_t) == 1 && sizeof(_uint8_t) == 1, "named after their width");
static_assert(sizeof(_int16_t) == 2 && sizeof(_uint16_t) == 2, "named after their width");
static_assert(sizeof(_int32_t) == 4 && sizeof(_uint32_t) == 4, "named after their width");
static_assert(sizeof(_int64_t) == 8 && sizeof(_uint64_t) == 8, "named after their width");

using test::Bytes;

Bytes swapped(Bytes bytes) {
    tal_swap(bytes.data(), static_cast<int>(bytes.size()));
    return bytes;
}

TEST(TalSwap, ReversesAnyNumberOfBytes) {
    EXPECT_EQ(swapped({0x01}), Bytes({0x01}));
    EXPECT_EQ(swapped({0x01, 0x02}), Bytes({0x02, 0x01}));
    EXPECT_EQ(swapped({0x01, 0x02, 0x03}), Bytes({0x03, 0x02, 0x01}));
    EXPECT_EQ(swapped({0x01, 0x02, 0x03, 0x04}), Bytes({0x04, 0x03, 0x02, 0x01}));
    EXPECT_EQ(swapped({0x01, 0x02, 0x03, 0x04, 0x05}), Bytes({0x05, 0x04, 0x03, 0x02, 0x01}));
}

TEST(TalSwap, TouchesNothingBesideItsBytes) {
    Bytes bytes = {0xaa, 0x01, 0x02, 0x03, 0xbb};
    tal_swap(bytes.data() + 1, 3);
    EXPECT_EQ(bytes, Bytes({0xaa, 0x03, 0x02, 0x01, 0xbb}));
}

TEST(TalSwapDeathTest, AssertsASizeAboveZero) {
    unsigned char byte = 0;
    EXPECT_DEATH(tal_swap(&byte, 0), "src/rtp/TalRtpMain\\.cpp:.*tal_swap.*Assertion `size > 0' failed");
    EXPECT_DEATH(tal_swap(&byte, -1), "Assertion `size > 0' failed");
    EXPECT_DEATH(tal_swap(&byte, INT_MIN), "Assertion `size > 0' failed");
}

// The bytes of a value in memory, and the value of such bytes.
template <typename T>
Bytes memoryOf(T value) {
    Bytes bytes(sizeof(value));
    std::memcpy(bytes.data(), &value, sizeof(value));
    return bytes;
}
template <typename T>
T fromMemory(const Bytes& bytes) {
    T value;
    std::memcpy(&value, bytes.data(), sizeof(value));
    return value;
}

TEST(Conversions, PutTheMostSignificantByteFirst) {
    EXPECT_EQ(memoryOf(tal_host_to_net_long(0x11223344)), Bytes({0x11, 0x22, 0x33, 0x44}));
    EXPECT_EQ(memoryOf(tal_host_to_net_short(0x1234)), Bytes({0x12, 0x34}));
    EXPECT_EQ(tal_net_to_host_long(fromMemory<unsigned int>({0x11, 0x22, 0x33, 0x44})), 0x11223344u);
    EXPECT_EQ(tal_net_to_host_short(fromMemory<unsigned short>({0x12, 0x34})), 0x1234u);
}

#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
TEST(Conversions, ReverseTheBytesOnALittleEndianHost) {
    EXPECT_EQ(tal_host_to_net_long(0x11223344), 0x44332211u);
    EXPECT_EQ(tal_net_to_host_long(0x11223344), 0x44332211u);
    EXPECT_EQ(tal_host_to_net_short(0x1234), 0x3412u);
    EXPECT_EQ(tal_net_to_host_short(0x1234), 0x3412u);
}
#endif

TEST(Conversions, AppliedTwiceGiveTheArgumentBack) {
    for (unsigned int value = 0; value <= 0xffff; ++value) {
        const unsigned short number = static_cast<unsigned short>(value);
        ASSERT_EQ(tal_net_to_host_short(tal_host_to_net_short(number)), number);
        ASSERT_EQ(tal_host_to_net_short(tal_host_to_net_short(number)), number);
    }
    std::mt19937 random(20261120);
    for (int i = 0; i < 10000; ++i) {
        const unsigned int value = random();
        ASSERT_EQ(tal_net_to_host_long(tal_host_to_net_long(value)), value) << "seed 20261120, round " << i;
        ASSERT_EQ(tal_net_to_host_long(tal_net_to_host_long(value)), value) << "seed 20261120, round " << i;
    }
}

TEST(Random32, SeedsOnceWithSecondsOrFractionAndSkipsZero) {
    // 500000 us are 0x80000000 units of 2^-32 s; the seconds share that bit, so an exclusive or would differ.
    test::FakeClock::at(0x1'8000'0001, 500000);
    nextRandoms = {0, 0, 77, 0, INT_MAX};

    EXPECT_EQ(random32(), 77u);
    EXPECT_THAT(seeds, ElementsAre(0x80000001u));
    EXPECT_EQ(test::FakeClock::reads(), 1);

    EXPECT_EQ(random32(), static_cast<unsigned int>(INT_MAX));
    EXPECT_THAT(seeds, ElementsAre(0x80000001u)) << "seeded again";
    EXPECT_EQ(test::FakeClock::reads(), 1);
    EXPECT_THAT(nextRandoms, IsEmpty());
}

}  // namespace
}  // namespace talrtp
