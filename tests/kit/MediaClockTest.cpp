// RTP and NTP timestamps of the host's clock.

#include <talrtp/kit/MediaClock.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <stdexcept>

namespace talrtp::kit {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;
using Wall = std::chrono::system_clock::time_point;

constexpr TimePoint kStart{seconds(5000)};

MediaClock clockFrom(std::uint32_t firstTimestamp, std::uint32_t rate = 90000) {
    return MediaClock(kStart, Wall(), firstTimestamp, rate);
}

TEST(MediaClock, CountsUnitsOfTheClockRate) {
    const MediaClock clock = clockFrom(1000);
    EXPECT_EQ(clock.timestampAt(kStart), 1000u);
    EXPECT_EQ(clock.timestampAt(kStart + seconds(1)), 91000u);
    EXPECT_EQ(clock.timestampAt(kStart + milliseconds(40)), 4600u);
    EXPECT_EQ(clockFrom(0, 48000).timestampAt(kStart + milliseconds(250)), 12000u);
}

// One unit is 11111.1 ns.
TEST(MediaClock, RoundsDown) {
    const MediaClock clock = clockFrom(0);
    EXPECT_EQ(clock.timestampAt(kStart + nanoseconds(11111)), 0u);
    EXPECT_EQ(clock.timestampAt(kStart + nanoseconds(11112)), 1u);
    EXPECT_EQ(clock.timestampAt(kStart - nanoseconds(1)), 0xffffffffu);
    EXPECT_EQ(clock.timestampAt(kStart - nanoseconds(11112)), 0xfffffffeu);
}

TEST(MediaClock, WrapsAround) {
    EXPECT_EQ(clockFrom(0xffffffff).timestampAt(kStart + nanoseconds(11112)), 0u);
    // 48000 s are 4320000000 units, 25032704 more than 2^32.
    EXPECT_EQ(clockFrom(0).timestampAt(kStart + seconds(48000)), 25032704u);
}

TEST(MediaClock, DoesNotDriftOverDays) {
    // 1000 days are 86400000 s and 7776000000000 units; modulo 2^32 that is 2109194240.
    const MediaClock clock = clockFrom(0);
    EXPECT_EQ(clock.timestampAt(kStart + hours(24000)), 2109194240u);
    EXPECT_EQ(clock.timestampAt(kStart + hours(24000) - nanoseconds(1)), 2109194239u);
    EXPECT_EQ(clock.timestampAt(kStart + hours(24000) + milliseconds(1)), 2109194330u);
}

TEST(MediaClock, TakesEveryRate) {
    EXPECT_EQ(clockFrom(0, 0xffffffff).timestampAt(kStart + milliseconds(500)), 0x7fffffffu);
    EXPECT_EQ(clockFrom(0, 0xffffffff).timestampAt(kStart + seconds(1)), 0xffffffffu);
    EXPECT_EQ(clockFrom(0, 1).timestampAt(kStart + milliseconds(1999)), 1u);
    EXPECT_THROW(clockFrom(0, 0), std::invalid_argument);
}

// 1970 lies 2208988800 s after 1900; half a second is 0x80000000.
TEST(MediaClock, NtpCountsFrom1900) {
    const MediaClock clock(kStart, Wall(milliseconds(250)), 0);
    EXPECT_EQ(clock.ntpAt(kStart + milliseconds(250)), (std::uint64_t{2208988800} << 32) | 0x80000000u);
    EXPECT_EQ(clock.ntpAt(kStart + milliseconds(750)), std::uint64_t{2208988801} << 32);
    EXPECT_EQ(clock.ntpAt(kStart - milliseconds(1250)), std::uint64_t{2208988799} << 32);
}

TEST(MediaClock, NtpRoundsDown) {
    const MediaClock clock(kStart, Wall(), 0);
    // 1 ns is 4.29 units of 2^-32 s, 999999999 ns are 4294967291.7.
    EXPECT_EQ(clock.ntpAt(kStart + nanoseconds(1)) & 0xffffffffu, 4u);
    EXPECT_EQ(clock.ntpAt(kStart + nanoseconds(999999999)) & 0xffffffffu, 4294967291u);
}

// 7 February 2036, 06:28:16 UTC is 2085978496 s after 1970, and 2^32 s after 1900.
TEST(MediaClock, NtpWrapsAroundIn2036) {
    const MediaClock clock(kStart, Wall(seconds(2085978495)), 0);
    EXPECT_EQ(clock.ntpAt(kStart), 0xffffffff00000000u);
    EXPECT_EQ(clock.ntpAt(kStart + seconds(1)), 0u);
}

TEST(TicksOfPicture, FollowTheFrameRate) {
    EXPECT_EQ(ticksOfPicture(0, {25, 1}), 0u);
    EXPECT_EQ(ticksOfPicture(1, {25, 1}), 3600u);
    EXPECT_EQ(ticksOfPicture(1, {30000, 1001}), 3003u);
    EXPECT_EQ(ticksOfPicture(1, {24000, 1001}), 3753u);  // 3753.75
    EXPECT_EQ(ticksOfPicture(4, {24000, 1001}), 15015u);
    EXPECT_EQ(ticksOfPicture(7, {7, 2}), 180000u);
}

// 30000/1001 pictures a second: picture 30000 * n comes after 1001 * n seconds, that is 90090000 * n units.
TEST(TicksOfPicture, StayExactForEver) {
    constexpr std::uint64_t kRounds = 1000000007;
    const std::uint64_t expected = 90090000 * kRounds;
    EXPECT_EQ(ticksOfPicture(30000 * kRounds, {30000, 1001}), static_cast<std::uint32_t>(expected));
    EXPECT_EQ(ticksOfPicture(30000 * kRounds + 1, {30000, 1001}),
              static_cast<std::uint32_t>(expected + 3003));
}

// The largest numbers that a stream can state: no step of the computation may overflow.
TEST(TicksOfPicture, TakesTheLargestNumbers) {
    constexpr std::uint32_t kMost = 0xffffffff;
    EXPECT_EQ(ticksOfPicture(12345, {kMost, kMost}, 1), 12345u);
    // (2^32 - 2) pictures at 2^32 - 1 a second, clock 90000: 90000 - 90000 / (2^32 - 1), rounded down.
    EXPECT_EQ(ticksOfPicture(kMost - 1u, {kMost, 1}), 89999u);
    EXPECT_EQ(ticksOfPicture(kMost, {kMost, 1}), 90000u);
}

}  // namespace
}  // namespace talrtp::kit
