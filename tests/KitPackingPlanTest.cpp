// The packing plan for an MTU.

#include "KitRandom.h"
#include "kit/PackingPlan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace talrtp::kit {
namespace {

using test::SeededRandom;

Picture pictureOf(const std::vector<std::size_t>& sizes) {
    Picture picture;
    for (const std::size_t size : sizes) {
        picture.emplace_back(size, static_cast<std::uint8_t>(0x41));
    }
    return picture;
}

void expectStep(const PackStep& step, PackStep::Kind kind, std::size_t first, std::size_t units,
                int packets) {
    EXPECT_EQ(step.kind, kind);
    EXPECT_EQ(step.firstUnit, first);
    EXPECT_EQ(step.unitCount, units);
    EXPECT_EQ(step.packetCount, packets);
}

// 12 bytes of RTP header leave 88; a STAP-A of 40 and 43 bytes takes 1 + 2 + 40 + 2 + 43 = 88.
TEST(PackingPlanner, AggregatesWhatJustFits) {
    const auto steps = CPackingPlanner(100, true).plan(pictureOf({40, 43, 88}));
    ASSERT_EQ(steps.size(), 2u);
    expectStep(steps[0], PackStep::kAggregate, 0, 2, 1);
    expectStep(steps[1], PackStep::kSingle, 2, 1, 1);
}

TEST(PackingPlanner, SplitsWhatIsOneByteTooLong) {
    const auto steps = CPackingPlanner(100, true).plan(pictureOf({40, 44}));
    ASSERT_EQ(steps.size(), 2u);
    expectStep(steps[0], PackStep::kSingle, 0, 1, 1);
    expectStep(steps[1], PackStep::kSingle, 1, 1, 1);
}

TEST(PackingPlanner, ALoneUnitNeedsNoAggregation) {
    const auto steps = CPackingPlanner(100, true).plan(pictureOf({5}));
    ASSERT_EQ(steps.size(), 1u);
    expectStep(steps[0], PackStep::kSingle, 0, 1, 1);
}

TEST(PackingPlanner, WithoutAggregationEveryUnitGoesAlone) {
    const auto steps = CPackingPlanner(100, false).plan(pictureOf({5, 5}));
    ASSERT_EQ(steps.size(), 2u);
    expectStep(steps[1], PackStep::kSingle, 1, 1, 1);
}

// 88 bytes fit; 89 do not, and a fragment has room for 100 - 14 = 86 of them.
TEST(PackingPlanner, FragmentsWhatIsOneByteTooLong) {
    const auto steps = CPackingPlanner(100, true).plan(pictureOf({88, 89, 172, 173}));
    ASSERT_EQ(steps.size(), 4u);
    expectStep(steps[0], PackStep::kSingle, 0, 1, 1);
    expectStep(steps[1], PackStep::kFragments, 1, 1, 2);
    expectStep(steps[2], PackStep::kFragments, 2, 1, 2);
    expectStep(steps[3], PackStep::kFragments, 3, 1, 3);
    EXPECT_EQ(countPackets(steps), 8u);
}

TEST(PackingPlanner, NothingIsPlannedForAnEmptyPicture) {
    EXPECT_TRUE(CPackingPlanner(100, true).plan({}).empty());
}

// A STAP-A says a unit's length in 16 bits; a jumbo MTU may be larger.
TEST(PackingPlanner, DoesNotAggregateWhatALengthFieldCannotSay) {
    const auto steps = CPackingPlanner(200000, true).plan(pictureOf({10, 65536, 10, 65535}));
    ASSERT_EQ(steps.size(), 3u);
    expectStep(steps[0], PackStep::kSingle, 0, 1, 1);
    expectStep(steps[1], PackStep::kSingle, 1, 1, 1);
    expectStep(steps[2], PackStep::kAggregate, 2, 2, 1);
}

TEST(MaxMediaPacket, LeavesRoomForTheFecHeaders) {
    EXPECT_EQ(maxMediaPacket(1200, FecScheme::kNone), 1200);
    EXPECT_EQ(maxMediaPacket(1200, FecScheme::kXor), 1188);
    EXPECT_EQ(maxMediaPacket(1200, FecScheme::kReedSolomon), 1180);
}

TEST(MaxMediaPacket, StaysWithinTheBlocksOfTheCodec) {
    EXPECT_EQ(maxMediaPacket(1620, FecScheme::kReedSolomon), 1600);
    EXPECT_EQ(maxMediaPacket(1621, FecScheme::kReedSolomon), 1600);
    EXPECT_EQ(maxMediaPacket(9000, FecScheme::kXor), 8988);
}

// The size of the largest packet that a session makes of a step, by the layouts of RFC 6184, 5.6 to 5.8.
std::size_t largestPacket(const PackStep& step, const Picture& picture) {
    const std::size_t size = picture[step.firstUnit].size();
    switch (step.kind) {
        case PackStep::kSingle:
            return 12 + size;
        case PackStep::kFragments: {
            const std::size_t count = static_cast<std::size_t>(step.packetCount);
            return 12 + 2 + (size + count - 1) / count;
        }
        case PackStep::kAggregate:
            break;
    }
    std::size_t sum = 12 + 1;
    for (std::size_t i = 0; i < step.unitCount; ++i) {
        sum += 2 + picture[step.firstUnit + i].size();
    }
    return sum;
}

TEST(PackingPlanner, KeepsRandomPicturesWithinTheMtuAndLeavesNoFragmentEmpty) {
    for (std::uint32_t seed = 1; seed <= 400; ++seed) {
        SeededRandom random(seed);
        SCOPED_TRACE(random.describe());
        Picture picture;
        for (std::uint32_t i = random.between(1, 30); i > 0; --i) {
            picture.emplace_back(random.between(1, random.oneIn(5) ? 20000 : 200), std::uint8_t{0x41});
        }
        const int maxPacket = static_cast<int>(random.between(kMinMediaPacket, random.oneIn(2) ? 60 : 1500));
        std::size_t next = 0;
        for (const PackStep& step : CPackingPlanner(maxPacket, random.oneIn(2)).plan(picture)) {
            EXPECT_EQ(step.firstUnit, next);
            next += step.unitCount;
            EXPECT_LE(largestPacket(step, picture), static_cast<std::size_t>(maxPacket));
            if (step.kind == PackStep::kFragments) {
                const std::size_t size = picture[step.firstUnit].size();
                const std::size_t count = static_cast<std::size_t>(step.packetCount);
                const std::size_t piece = (size + count - 1) / count;
                EXPECT_GE(count, 2u);
                EXPECT_GE(piece, 2u);
                EXPECT_GT(size, (count - 1) * piece);
            }
        }
        EXPECT_EQ(next, picture.size());
    }
}

TEST(NalUnit, TellsWhatRtpCanCarry) {
    EXPECT_FALSE(isCarriedByRtp({}));
    EXPECT_FALSE(isCarriedByRtp({0x60}));
    EXPECT_TRUE(isCarriedByRtp({0x61}));
    EXPECT_TRUE(isCarriedByRtp({0x77}));
    EXPECT_FALSE(isCarriedByRtp({0x78}));
    EXPECT_FALSE(isCarriedByRtp({0x7f}));
}

}  // namespace
}  // namespace talrtp::kit
