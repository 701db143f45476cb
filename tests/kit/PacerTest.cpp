// The token bucket that spreads a burst.

#include <talrtp/kit/Pacer.h>

#include "SeededRandom.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <utility>
#include <vector>

namespace talrtp::kit {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;
using test::SeededRandom;

constexpr TimePoint kNow{seconds(1000)};

// 8 Mbit/s are 1000 bytes a millisecond.
constexpr double kRate = 8e6;

TEST(Pacer, LetsABurstOfItsDepthPassAtOnce) {
    Pacer pacer(kRate, 3000);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(pacer.next(kNow, 1000), kNow);
    }
    EXPECT_EQ(pacer.next(kNow, 1000), kNow + milliseconds(1));
    EXPECT_EQ(pacer.next(kNow, 500), kNow + microseconds(1500));
    EXPECT_EQ(pacer.next(kNow, 1000), kNow + microseconds(2500));
}

TEST(Pacer, FillsUpInAPause) {
    Pacer pacer(kRate, 3000);
    pacer.next(kNow, 3000);
    const TimePoint later = kNow + milliseconds(2);  // 2000 of 3000 bytes are there
    EXPECT_EQ(pacer.next(later, 1000), later);
    EXPECT_EQ(pacer.next(later, 1000), later);
    EXPECT_EQ(pacer.next(later, 1000), later + milliseconds(1));
}

TEST(Pacer, FillsUpToItsDepthOnly) {
    Pacer pacer(kRate, 2000);
    pacer.next(kNow, 2000);
    const TimePoint later = kNow + seconds(3600);
    EXPECT_EQ(pacer.next(later, 1000), later);
    EXPECT_EQ(pacer.next(later, 1000), later);
    EXPECT_EQ(pacer.next(later, 1000), later + milliseconds(1));
}

TEST(Pacer, WithoutDepthEachWaitsForTheOneBefore) {
    Pacer pacer(kRate, 0);
    EXPECT_EQ(pacer.next(kNow, 1000), kNow);
    EXPECT_EQ(pacer.next(kNow, 1000), kNow + milliseconds(1));
    EXPECT_EQ(pacer.next(kNow, 1), kNow + milliseconds(2));
}

TEST(Pacer, ADatagramBeyondTheDepthWaitsForAFullBucket) {
    Pacer pacer(kRate, 1000);
    EXPECT_EQ(pacer.next(kNow, 400), kNow);
    EXPECT_EQ(pacer.next(kNow, 5000), kNow + microseconds(400));
    EXPECT_EQ(pacer.next(kNow, 1000), kNow + microseconds(5400));
}

TEST(Pacer, ALateCallLosesNothing) {
    Pacer pacer(kRate, 1000);
    pacer.next(kNow, 1000);
    const TimePoint late = kNow + microseconds(300);
    EXPECT_EQ(pacer.next(late, 1000), kNow + milliseconds(1));
}

// One byte at 3 bit/s takes 2666666666.67 ns: 3000000 of them take 8000000 s, and rounding must not add up.
TEST(Pacer, DoesNotDrift) {
    Pacer pacer(3, 0);
    TimePoint at;
    for (int i = 0; i <= 3000000; ++i) {
        at = pacer.next(kNow, 1);
    }
    EXPECT_GE(at, kNow + seconds(8000000));
    EXPECT_LE(at, kNow + seconds(8000000) + microseconds(1));
}

TEST(Pacer, RefusesRatesThatAreNone) {
    for (const double rate : {0.0, -1.0, 0.5, std::numeric_limits<double>::infinity(),
                              std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_THROW(Pacer(rate, 1000), std::invalid_argument) << rate;
    }
}

TEST(Pacer, TakesTheLargestNumbers) {
    constexpr std::size_t kMost = std::numeric_limits<std::size_t>::max();
    Pacer pacer(1, kMost);
    EXPECT_EQ(pacer.next(kNow, 65507), kNow);
    EXPECT_GE(pacer.next(kNow, kMost), kNow);
    EXPECT_EQ(Pacer(1e300, 0).next(kNow, 65507), kNow);
}

// Whatever is sent and when: times never step back, and in no span of time more leaves than the depth and
// what the rate brings in it.
TEST(Pacer, NoSpanHoldsMoreThanTheDepthAndTheRate) {
    for (std::uint32_t seed = 1; seed <= 50; ++seed) {
        SeededRandom random(seed);
        SCOPED_TRACE(random.describe());
        constexpr std::size_t kDepth = 4000;
        Pacer pacer(kRate, kDepth);
        TimePoint now = kNow;
        std::vector<std::pair<TimePoint, std::size_t>> sent;
        for (int i = 0; i < 200; ++i) {
            now += microseconds(random.between(0, random.oneIn(10) ? 20000 : 800));
            const std::size_t size = random.between(1, 1500);
            sent.emplace_back(pacer.next(now, size), size);
            ASSERT_GE(sent.back().first, now);
            ASSERT_TRUE(i == 0 || sent[sent.size() - 2].first <= sent.back().first);
        }
        for (std::size_t first = 0; first < sent.size(); ++first) {
            std::size_t bytes = 0;
            for (std::size_t last = first; last < sent.size(); ++last) {
                bytes += sent[last].second;
                const auto span = sent[last].first - sent[first].first;
                const auto allowed =
                    kDepth + static_cast<std::size_t>(std::chrono::ceil<microseconds>(span).count());
                ASSERT_LE(bytes, allowed);
            }
        }
    }
}

}  // namespace
}  // namespace talrtp::kit
