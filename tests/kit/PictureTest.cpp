#include "RtpPackets.h"

#include <talrtp/kit/Picture.h>
#include <talrtp/kit/SessionClock.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <vector>

namespace talrtp::kit {
namespace {

using test::annexB;
using test::atMs;
using test::Bytes;

Picture makePicture(const std::vector<Bytes>& units) {
    Picture picture;
    for (const Bytes& unit : units) {
        PictureMaker::run(picture).append(annexB({unit}), true);
    }
    PictureMaker::close(picture);
    return picture;
}

TEST(PictureTest, ShowsTheUnitsWithoutTheirStartCodes) {
    const Picture picture = makePicture({{0x67, 1}, {0x65, 2, 3}});
    ASSERT_EQ(2u, picture.units().size());
    EXPECT_EQ((Bytes{0x67, 1}), test::copyOf(picture.units()[0]));
    EXPECT_EQ((Bytes{0x65, 2, 3}), test::copyOf(picture.units()[1]));
    EXPECT_EQ((Bytes{0, 0, 0, 1, 0x67, 1, 0, 0, 0, 1, 0x65, 2, 3}), test::copyOf(picture.annexB()));
}

TEST(PictureTest, LeavesAUnitWithoutBytesOut) {
    Picture picture = makePicture({{0x65}});
    PictureMaker::run(picture).append(annexB({{}}), true);
    PictureMaker::close(picture);
    EXPECT_EQ(1u, picture.units().size());
}

TEST(PictureTest, KeepsWhichUnitIsCutWhenParameterSetsGoFirst) {
    Picture picture = makePicture({{0x41, 1}});
    PictureMaker::run(picture).append(annexB({{0x41, 2}}), false);
    PictureMaker::prepend(picture, {{0x67}, {0x68}});
    PictureMaker::close(picture);
    ASSERT_EQ(annexB({{0x67}, {0x68}, {0x41, 1}, {0x41, 2}}), test::copyOf(picture.annexB()));
    EXPECT_TRUE(picture.isUnitWhole(0));
    EXPECT_TRUE(picture.isUnitWhole(2));
    EXPECT_FALSE(picture.isUnitWhole(3));
}

TEST(PictureTest, TakesNoParameterSetsBesideItsOwn) {
    Picture picture = makePicture({{0x06, 1}, {0x27, 9}});  // the type counts, not the reference bits
    PictureMaker::prepend(picture, {{0x67}});
    PictureMaker::close(picture);
    EXPECT_EQ(annexB({{0x06, 1}, {0x27, 9}}), test::copyOf(picture.annexB()));
}

TEST(SteadyTimeTest, NeverStepsBackAndNeverLeapsFarther) {
    SteadyTime time;
    const TimePoint start = time.advance(atMs(5000));
    EXPECT_EQ(start + std::chrono::milliseconds(10), time.advance(atMs(5010)));
    EXPECT_EQ(start + std::chrono::milliseconds(10), time.advance(atMs(100)));
    EXPECT_EQ(start + std::chrono::milliseconds(12), time.advance(atMs(102)));
    time.advance(TimePoint::min());
    EXPECT_EQ(start + std::chrono::milliseconds(12) + std::chrono::hours(1), time.advance(TimePoint::max()));
    EXPECT_EQ(TimePoint::max(), time.toHost(time.now() + std::chrono::milliseconds(1)));
}

TEST(SessionClockTest, AdvancesAQuarterOfAMillisecondForEach1500Bytes) {
    SessionClock clock;
    EXPECT_EQ(7000u, clock.advance(atMs(7000), 1200));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(7000u, clock.advance(atMs(7000), 1200));
    }
    EXPECT_EQ(7001u, clock.advance(atMs(7000), 1200));
    EXPECT_EQ(7011u, clock.advance(atMs(7000), 60000));  // 41 shares of 0.25 ms on top of 7001
    EXPECT_EQ(8000u, clock.advance(atMs(8000), 1200));
}

}  // namespace
}  // namespace talrtp::kit
