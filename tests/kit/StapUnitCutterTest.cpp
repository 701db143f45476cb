#include <talrtp/kit/StapUnitCutter.h>

#include <gtest/gtest.h>

namespace talrtp::kit {
namespace {

void expectCut(const StapUnitCutter::Cut& cut, std::size_t size, std::size_t index) {
    EXPECT_EQ(cut.size, size);
    EXPECT_EQ(cut.index, index);
}

TEST(StapUnitCutterTest, TheGrowthIsTheLengthOfTheUnit) {
    StapUnitCutter cutter;
    cutter.beginCall();
    expectCut(cutter.cut(90000, 7, 8), 8, 0);
    expectCut(cutter.cut(90000, 7, 14), 6, 1);
    expectCut(cutter.cut(90000, 7, 21), 7, 2);
}

TEST(StapUnitCutterTest, AnotherPacketIsWhole) {
    StapUnitCutter cutter;
    cutter.beginCall();
    expectCut(cutter.cut(90000, 7, 8), 8, 0);
    expectCut(cutter.cut(90000, 8, 20), 20, 0);
    expectCut(cutter.cut(90000, 7, 30), 30, 0);
}

TEST(StapUnitCutterTest, AnotherTimestampIsAnotherPacket) {
    StapUnitCutter cutter;
    cutter.beginCall();
    expectCut(cutter.cut(90000, 7, 8), 8, 0);
    expectCut(cutter.cut(93000, 7, 20), 20, 0);
}

// A late copy, after the session forgot the packet, hands all units over again.
TEST(StapUnitCutterTest, ARepeatedPacketBeginsAnew) {
    StapUnitCutter cutter;
    cutter.beginCall();
    expectCut(cutter.cut(90000, 7, 8), 8, 0);
    cutter.beginCall();
    expectCut(cutter.cut(90000, 7, 8), 8, 0);
    expectCut(cutter.cut(90000, 7, 14), 6, 1);
}

TEST(StapUnitCutterTest, ALongerUnitInAnotherCallIsNoGrowth) {
    StapUnitCutter cutter;
    cutter.beginCall();
    expectCut(cutter.cut(90000, 7, 8), 8, 0);
    cutter.beginCall();
    expectCut(cutter.cut(90000, 7, 100), 100, 0);
}

TEST(StapUnitCutterTest, TheFirstHandOverIsWholeWithoutABeginning) {
    StapUnitCutter cutter;
    expectCut(cutter.cut(0, 0, 9), 9, 0);
}

}  // namespace
}  // namespace talrtp::kit
