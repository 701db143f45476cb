// The cut of aggregation hand-overs to their own unit.

#include "kit/AggregationCutter.h"

#include <gtest/gtest.h>

namespace talrtp::kit {
namespace {

void expectCut(const CAggregationCutter::Cut& cut, std::size_t size, int index) {
    EXPECT_EQ(cut.size, size);
    EXPECT_EQ(cut.index, index);
}

TEST(AggregationCutter, TheGrowthIsTheLengthOfTheUnit) {
    CAggregationCutter cutter;
    cutter.beginCall();
    expectCut(cutter.cut(90000, 7, 8), 8, 0);
    expectCut(cutter.cut(90000, 7, 14), 6, 1);
    expectCut(cutter.cut(90000, 7, 21), 7, 2);
}

TEST(AggregationCutter, AnotherPacketIsWhole) {
    CAggregationCutter cutter;
    cutter.beginCall();
    expectCut(cutter.cut(90000, 7, 8), 8, 0);
    expectCut(cutter.cut(90000, 8, 20), 20, 0);
    expectCut(cutter.cut(90000, 7, 30), 30, 0);
}

TEST(AggregationCutter, AnotherTimestampIsAnotherPacket) {
    CAggregationCutter cutter;
    cutter.beginCall();
    expectCut(cutter.cut(90000, 7, 8), 8, 0);
    expectCut(cutter.cut(93000, 7, 20), 20, 0);
}

// A late copy, after the session forgot the packet, hands all units over again.
TEST(AggregationCutter, ARepeatedPacketBeginsAnew) {
    CAggregationCutter cutter;
    cutter.beginCall();
    expectCut(cutter.cut(90000, 7, 8), 8, 0);
    cutter.beginCall();
    expectCut(cutter.cut(90000, 7, 8), 8, 0);
    expectCut(cutter.cut(90000, 7, 14), 6, 1);
}

TEST(AggregationCutter, ALongerUnitInAnotherCallIsNoGrowth) {
    CAggregationCutter cutter;
    cutter.beginCall();
    expectCut(cutter.cut(90000, 7, 8), 8, 0);
    cutter.beginCall();
    expectCut(cutter.cut(90000, 7, 100), 100, 0);
}

TEST(AggregationCutter, TheVeryFirstHandOverIsWhole) {
    CAggregationCutter cutter;
    expectCut(cutter.cut(0, 0, 9), 9, 0);
}

}  // namespace
}  // namespace talrtp::kit
