// The packing plan for an MTU.

#include "SeededRandom.h"

#include <talrtp/kit/PackingPlan.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace talrtp::kit {
namespace {

using test::SeededRandom;

// Units of the given sizes. The plan reads sizes only, so all of them show the same bytes.
std::vector<BytesView> unitsOf(const std::vector<std::size_t>& sizes) {
    static const std::vector<std::uint8_t> bytes(70000, 0x41);
    std::vector<BytesView> units;
    for (const std::size_t size : sizes) {
        units.push_back(BytesView(bytes).subview(0, size));
        EXPECT_EQ(units.back().size(), size);
    }
    return units;
}

void expectStep(const PackStep& step, PackKind kind, std::size_t first, std::size_t units,
                std::size_t packets) {
    EXPECT_EQ(step.kind, kind);
    EXPECT_EQ(step.firstUnit, first);
    EXPECT_EQ(step.unitCount, units);
    EXPECT_EQ(step.packetCount, packets);
}

// 12 bytes of RTP header leave 88; a STAP-A of 40 and 43 bytes takes 1 + 2 + 40 + 2 + 43 = 88.
TEST(PackingPlanner, AggregatesWhatJustFits) {
    const auto steps = PackingPlanner(100, true).plan(unitsOf({40, 43, 88}));
    ASSERT_EQ(steps.size(), 2u);
    expectStep(steps[0], PackKind::kAggregate, 0, 2, 1);
    expectStep(steps[1], PackKind::kSingle, 2, 1, 1);
}

TEST(PackingPlanner, SplitsWhatIsOneByteTooLong) {
    const auto steps = PackingPlanner(100, true).plan(unitsOf({40, 44}));
    ASSERT_EQ(steps.size(), 2u);
    expectStep(steps[0], PackKind::kSingle, 0, 1, 1);
    expectStep(steps[1], PackKind::kSingle, 1, 1, 1);
}

TEST(PackingPlanner, ALoneUnitNeedsNoAggregation) {
    const auto steps = PackingPlanner(100, true).plan(unitsOf({5}));
    ASSERT_EQ(steps.size(), 1u);
    expectStep(steps[0], PackKind::kSingle, 0, 1, 1);
}

TEST(PackingPlanner, WithoutAggregationEveryUnitGoesAlone) {
    const auto steps = PackingPlanner(100, false).plan(unitsOf({5, 5}));
    ASSERT_EQ(steps.size(), 2u);
    expectStep(steps[1], PackKind::kSingle, 1, 1, 1);
}

// 88 bytes fit; 89 do not, and a fragment has room for 100 - 14 = 86 of them.
TEST(PackingPlanner, FragmentsWhatIsOneByteTooLong) {
    const auto steps = PackingPlanner(100, true).plan(unitsOf({88, 89, 172, 173}));
    ASSERT_EQ(steps.size(), 4u);
    expectStep(steps[0], PackKind::kSingle, 0, 1, 1);
    expectStep(steps[1], PackKind::kFragments, 1, 1, 2);
    expectStep(steps[2], PackKind::kFragments, 2, 1, 2);
    expectStep(steps[3], PackKind::kFragments, 3, 1, 3);
    EXPECT_EQ(countPackets(steps), 8u);
}

TEST(PackingPlanner, NothingIsPlannedForAnEmptyPicture) {
    EXPECT_TRUE(PackingPlanner(100, true).plan({}).empty());
}

// A STAP-A holds a unit's length in 16 bits; a jumbo MTU may be larger.
TEST(PackingPlanner, LeavesUnitsAloneThatALengthFieldCannotHold) {
    const auto steps = PackingPlanner(200000, true).plan(unitsOf({10, 65536, 10, 65535}));
    ASSERT_EQ(steps.size(), 3u);
    expectStep(steps[0], PackKind::kSingle, 0, 1, 1);
    expectStep(steps[1], PackKind::kSingle, 1, 1, 1);
    expectStep(steps[2], PackKind::kAggregate, 2, 2, 1);
}

TEST(PackingPlanner, OverwritesTheStepsItIsGiven) {
    std::vector<PackStep> steps(5, {PackKind::kFragments, 9, 9, 9});
    PackingPlanner(100, true).plan(unitsOf({5}), steps);
    ASSERT_EQ(steps.size(), 1u);
    expectStep(steps[0], PackKind::kSingle, 0, 1, 1);
}

// A packet of 16 bytes has room for 4 bytes of a unit, or for 2 of a fragment.
TEST(PackingPlanner, PlansTheSmallestPackets) {
    const auto steps = PackingPlanner(kMinMediaPacket, true).plan(unitsOf({1, 1, 4, 5}));
    ASSERT_EQ(steps.size(), 4u);
    expectStep(steps[0], PackKind::kSingle, 0, 1, 1);
    expectStep(steps[1], PackKind::kSingle, 1, 1, 1);
    expectStep(steps[2], PackKind::kSingle, 2, 1, 1);
    expectStep(steps[3], PackKind::kFragments, 3, 1, 3);
}

TEST(PackingPlanner, CountsThePacketsOfUnitsLongerThanAnInt) {
    EXPECT_EQ(fragmentCount(std::size_t{5} << 30, 1014), 5368710u);  // 5368709120 / 1000, rounded up
}

// The size of the largest packet that a session makes of a step, by the layouts of RFC 6184, 5.6 to 5.8.
std::size_t largestPacket(const PackStep& step, const std::vector<BytesView>& units) {
    const std::size_t size = units[step.firstUnit].size();
    switch (step.kind) {
        case PackKind::kSingle:
            return 12 + size;
        case PackKind::kFragments: {
            const std::size_t count = step.packetCount;
            return 12 + 2 + (size + count - 1) / count;
        }
        case PackKind::kAggregate:
            break;
    }
    std::size_t sum = 12 + 1;
    for (std::size_t i = 0; i < step.unitCount; ++i) {
        sum += 2 + units[step.firstUnit + i].size();
    }
    return sum;
}

TEST(PackingPlanner, KeepsRandomPicturesWithinTheMtuAndLeavesNoFragmentEmpty) {
    for (std::uint32_t seed = 1; seed <= 400; ++seed) {
        SeededRandom random(seed);
        SCOPED_TRACE(random.describe());
        std::vector<std::size_t> sizes;
        for (std::uint32_t i = random.between(1, 30); i > 0; --i) {
            sizes.push_back(random.between(1, random.oneIn(5) ? 20000 : 200));
        }
        const std::vector<BytesView> units = unitsOf(sizes);
        const int maxPacket = static_cast<int>(random.between(kMinMediaPacket, random.oneIn(2) ? 60 : 1500));
        std::size_t next = 0;
        for (const PackStep& step : PackingPlanner(maxPacket, random.oneIn(2)).plan(units)) {
            EXPECT_EQ(step.firstUnit, next);
            next += step.unitCount;
            EXPECT_LE(largestPacket(step, units), static_cast<std::size_t>(maxPacket));
            if (step.kind == PackKind::kFragments) {
                const std::size_t size = units[step.firstUnit].size();
                const std::size_t count = step.packetCount;
                const std::size_t piece = (size + count - 1) / count;
                EXPECT_GE(count, 2u);
                EXPECT_GE(piece, 2u);
                EXPECT_GT(size, (count - 1) * piece);
            }
        }
        EXPECT_EQ(next, units.size());
    }
}

}  // namespace
}  // namespace talrtp::kit
