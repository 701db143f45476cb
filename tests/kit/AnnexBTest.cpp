// The walk over the units of a byte string.

#include "Bytes.h"
#include "SeededRandom.h"

#include <talrtp/kit/AnnexB.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace talrtp::kit {
namespace {

using test::Bytes;
using test::SeededRandom;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<Bytes> unitsIn(const Bytes& bytes, bool hasStartCode = true) {
    std::vector<Bytes> units;
    EXPECT_EQ(hasStartCode,
              forEachUnit(bytes, [&](BytesView unit) { units.emplace_back(unit.begin(), unit.end()); }));
    return units;
}

TEST(AnnexB, ReadsStartCodesOfThreeAndFourBytes) {
    EXPECT_THAT(unitsIn({0, 0, 1, 0x67, 0x42, 0, 0, 0, 1, 0x68, 0xce, 0, 0, 1, 0x65}),
                ElementsAre(Bytes{0x67, 0x42}, Bytes{0x68, 0xce}, Bytes{0x65}));
}

TEST(AnnexB, DropsZerosAroundUnits) {
    EXPECT_THAT(unitsIn({0, 0, 0, 0, 0, 1, 0x67, 0x42, 0, 0, 0, 0, 0, 0, 1, 0x68, 0, 0}),
                ElementsAre(Bytes{0x67, 0x42}, Bytes{0x68}));
}

TEST(AnnexB, KeepsZerosInsideUnits) {
    EXPECT_THAT(unitsIn({0, 0, 1, 0x65, 0, 0x80, 0, 0, 3, 0, 0, 3, 1}),
                ElementsAre(Bytes{0x65, 0, 0x80, 0, 0, 3, 0, 0, 3, 1}));
}

TEST(AnnexB, AByteOfOneWithoutTwoZerosIsNoStartCode) {
    EXPECT_THAT(unitsIn({0, 0, 1, 0x65, 0, 1, 1, 1}), ElementsAre(Bytes{0x65, 0, 1, 1, 1}));
    EXPECT_THAT(unitsIn({1, 0, 1, 0x65}, false), IsEmpty());
    EXPECT_THAT(unitsIn({0, 1, 0x65}, false), IsEmpty());
}

TEST(AnnexB, SkipsEmptyUnitsAndBytesBeforeTheFirstStartCode) {
    EXPECT_THAT(unitsIn({9, 9, 0, 0, 1, 0, 0, 1, 0x65, 0x80, 0, 0, 1}), ElementsAre(Bytes{0x65, 0x80}));
}

TEST(AnnexB, ReportsAMissingStartCode) {
    EXPECT_THAT(unitsIn({}, false), IsEmpty());
    EXPECT_THAT(unitsIn({0x65, 0x80, 0, 0, 2}, false), IsEmpty());
    EXPECT_THAT(unitsIn({0, 0, 1}), IsEmpty());
}

TEST(AnnexB, FindsAStartCodeWhoseZerosStandBeforeThePosition) {
    const Bytes bytes{0, 0, 1, 7, 0, 0, 1, 8};
    EXPECT_EQ(findStartCode(bytes, 0), 2u);
    EXPECT_EQ(findStartCode(bytes, 2), 2u);
    EXPECT_EQ(findStartCode(bytes, 3), 6u);
    EXPECT_EQ(findStartCode(bytes, 7), 8u);
    EXPECT_EQ(findStartCode(bytes, 100), 8u);
}

TEST(AnnexB, ReadsBackRandomStreams) {
    for (std::uint32_t seed = 1; seed <= 50; ++seed) {
        SeededRandom random(seed);
        SCOPED_TRACE(random.describe());
        Bytes stream;
        std::vector<Bytes> units;
        for (int i = 0; i < 40; ++i) {
            units.push_back(
                random.nalUnit(0x41, random.oneIn(4) ? random.between(1, 3000) : random.between(1, 9)));
            stream.insert(stream.end(), random.between(2, 6), 0);
            stream.push_back(1);
            stream.insert(stream.end(), units.back().begin(), units.back().end());
        }
        EXPECT_TRUE(unitsIn(stream) == units);
    }
}

// Bytes of 0 to 3 are full of start codes.
TEST(AnnexB, AnyBytesMakeUnitsWithoutStartCodes) {
    for (std::uint32_t seed = 1; seed <= 50; ++seed) {
        SeededRandom random(seed);
        SCOPED_TRACE(random.describe());
        Bytes stream = random.bytes(2000);
        for (std::uint8_t& byte : stream) {
            byte &= 3;
        }
        const Bytes startCode{0, 0, 1};
        const std::vector<Bytes> units = unitsIn(stream);
        EXPECT_GT(units.size(), 10u);
        for (const Bytes& unit : units) {
            ASSERT_FALSE(unit.empty());
            EXPECT_NE(unit.back(), 0);
            EXPECT_EQ(std::search(unit.begin(), unit.end(), startCode.begin(), startCode.end()), unit.end());
        }
    }
}

}  // namespace
}  // namespace talrtp::kit
