// The choice of FEC groups.

#include "kit/FecPlan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>

namespace talrtp::kit {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

CFecPlanner xorPlanner(int group) {
    return CFecPlanner({FecScheme::kXor, group, 1});
}

CFecPlanner rsPlanner(int group, int parity) {
    return CFecPlanner({FecScheme::kReedSolomon, group, parity});
}

TEST(FecPlanner, WithoutFecThereAreNoGroups) {
    EXPECT_THAT(CFecPlanner({}).cut(10), IsEmpty());
    EXPECT_FALSE(CFecPlanner({}).isTooFew(1));
}

TEST(FecPlanner, CutsReedSolomonGroupsEvenly) {
    EXPECT_THAT(rsPlanner(10, 2).cut(10), ElementsAre(10));
    EXPECT_THAT(rsPlanner(10, 2).cut(11), ElementsAre(6, 5));
    EXPECT_THAT(rsPlanner(10, 2).cut(25), ElementsAre(9, 8, 8));
    EXPECT_THAT(rsPlanner(10, 2).cut(0), IsEmpty());
}

TEST(FecPlanner, CutsXorGroupsOfOddSizes) {
    EXPECT_THAT(xorPlanner(9).cut(9), ElementsAre(9));
    EXPECT_THAT(xorPlanner(9).cut(10), ElementsAre(5, 5));
    EXPECT_THAT(xorPlanner(9).cut(12), ElementsAre(7, 5));
    EXPECT_THAT(xorPlanner(9).cut(2), ElementsAre(1, 1));
    EXPECT_THAT(xorPlanner(3).cut(7), ElementsAre(3, 3, 1));
}

TEST(FecPlanner, AnEvenXorLimitCountsAsTheOddOneBelow) {
    EXPECT_EQ(xorPlanner(10).limit(), 9);
    EXPECT_EQ(xorPlanner(24).limit(), 23);
    EXPECT_EQ(xorPlanner(23).limit(), 23);
    EXPECT_EQ(rsPlanner(10, 2).limit(), 10);
}

TEST(FecPlanner, PicturesOfOneOrTwoPacketsWaitForTheNext) {
    EXPECT_TRUE(xorPlanner(9).isTooFew(2));
    EXPECT_FALSE(xorPlanner(9).isTooFew(3));
    EXPECT_TRUE(rsPlanner(10, 2).isTooFew(1));
    EXPECT_FALSE(rsPlanner(10, 2).isTooFew(3));
}

TEST(FecPlanner, SmallGroupsWaitOnlyForWhatTheyHold) {
    EXPECT_FALSE(xorPlanner(1).isTooFew(1));
    EXPECT_FALSE(xorPlanner(2).isTooFew(1));
    EXPECT_TRUE(rsPlanner(2, 1).isTooFew(1));
    EXPECT_FALSE(rsPlanner(2, 1).isTooFew(2));
}

TEST(FecPlanner, KnowsTheLimitsOfBothSchemes) {
    EXPECT_TRUE(CFecPlanner::isValid({FecScheme::kXor, 24, 1}));
    EXPECT_FALSE(CFecPlanner::isValid({FecScheme::kXor, 25, 1}));
    EXPECT_FALSE(CFecPlanner::isValid({FecScheme::kXor, 0, 1}));
    EXPECT_FALSE(CFecPlanner::isValid({FecScheme::kXor, 5, 2}));
    EXPECT_TRUE(CFecPlanner::isValid({FecScheme::kReedSolomon, 250, 5}));
    EXPECT_FALSE(CFecPlanner::isValid({FecScheme::kReedSolomon, 251, 5}));
    EXPECT_FALSE(CFecPlanner::isValid({FecScheme::kReedSolomon, 10, 0}));
    EXPECT_FALSE(CFecPlanner::isValid({FecScheme::kReedSolomon, 0, 1}));
    EXPECT_TRUE(CFecPlanner::isValid({}));
}

// Every run, every limit: the sizes add up, keep the limit, are odd for XOR and differ by at most one step.
TEST(FecPlanner, EveryCutKeepsItsLimits) {
    for (int group = 1; group <= 40; ++group) {
        for (std::size_t count = 1; count <= 300; ++count) {
            for (const FecScheme scheme : {FecScheme::kXor, FecScheme::kReedSolomon}) {
                if (scheme == FecScheme::kXor && group > kMaxXorGroup) {
                    continue;
                }
                const std::vector<int> sizes = CFecPlanner({scheme, group, 1}).cut(count);
                ASSERT_FALSE(sizes.empty());
                ASSERT_EQ(std::accumulate(sizes.begin(), sizes.end(), std::size_t{0}), count);
                const auto range = std::minmax_element(sizes.begin(), sizes.end());
                ASSERT_GE(*range.first, 1);
                ASSERT_LE(*range.second, group);
                ASSERT_LE(*range.second - *range.first, scheme == FecScheme::kXor ? 2 : 1);
                for (const int size : sizes) {
                    ASSERT_TRUE(scheme != FecScheme::kXor || size % 2 == 1);
                }
            }
        }
    }
}

}  // namespace
}  // namespace talrtp::kit
