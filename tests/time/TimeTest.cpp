#include <gtest/gtest.h>
#include <talrtp/TalTime.h>

#include <cstdint>
#include <limits>
#include <random>
#include <type_traits>

#include "FakeClock.h"

namespace talrtp {
namespace {

using test::FakeClock;

static_assert(std::has_virtual_destructor<_time_t>::value, "a host may derive from it");
static_assert(std::has_virtual_destructor<_timer_t>::value, "a host may derive from it");
static_assert(sizeof(_time_t) == 24, "virtual table, seconds, microseconds");
static_assert(sizeof(_timer_t) == 72, "virtual table, two times, paused total, state");
static_assert(std::is_same<decltype(_time_t().getsecond()), unsigned long>::value, "64 bits");
static_assert(std::is_same<decltype(_time_t::usec2frac(0)), unsigned long>::value, "64 bits");
static_assert(std::is_same<decltype(std::declval<_time_t&>() + 1.0), _time_t&>::value, "works in place");
static_assert(std::is_same<decltype(std::declval<_time_t&>() - 1.0), _time_t&>::value, "works in place");

void expectTime(const _time_t& time, unsigned long second, unsigned long usecond) {
    EXPECT_EQ(time.getsecond(), second);
    EXPECT_EQ(time.getusecond(), usecond);
}

TEST(Time, IsMadeAndSetWithoutNormalising) {
    expectTime(_time_t(), 0, 0);
    expectTime(_time_t(7, 2500000), 7, 2500000);
    const _time_t time(8, 9);
    expectTime(_time_t(time), 8, 9);

    _time_t target;
    expectTime(target = time, 8, 9);
    expectTime(target, 8, 9);
    target.set_by_sec_usec(3, 4000000);
    expectTime(target, 3, 4000000);
}

TEST(Time, FieldsLieBehindTheVirtualTableInOrder) {
    const _time_t time(0x1122334455667788, 0x99aabbccddeeff00);
    const std::uint64_t* const words = reinterpret_cast<const std::uint64_t*>(&time);
    EXPECT_EQ(words[1], 0x1122334455667788u);
    EXPECT_EQ(words[2], 0x99aabbccddeeff00u);
}

TEST(Time, ConvertsFractionsAtTheDocumentedPoints) {
    EXPECT_EQ(_time_t::frac2usec(2147483648), 500000u);
    EXPECT_EQ(_time_t::usec2frac(500000), 2147483648u);
    EXPECT_EQ(_time_t::usec2frac(999999), 4294963001u);
    EXPECT_EQ(_time_t::frac2usec(0), 0u);
    EXPECT_EQ(_time_t::usec2frac(0), 0u);
    EXPECT_EQ(_time_t::frac2usec(4294967295), 999999u);
    EXPECT_EQ(_time_t::usec2frac(1), 4294u);
    EXPECT_EQ(_time_t(1, 500000).getfraction(), 2147483648u);

    _time_t time;
    time.set_by_sec_frac(12, 1073741824);
    expectTime(time, 12, 250000);
}

TEST(Time, UnnormalisedMicrosecondsConvertToMoreThan32BitsOfFraction) {
    EXPECT_EQ(_time_t(0, 1000000).getfraction(), 4294967296u);
    EXPECT_EQ(_time_t(0, 2500000).getfraction(), 10737418240u);
}

// The double has 53 bits and these products have 52, so only an exact quotient could round to either side.
TEST(Time, ConversionsAgreeWithIntegerArithmetic) {
    constexpr unsigned int kSeed = 61;
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    std::mt19937_64 random(kSeed);
    for (int i = 0; i < 100000; ++i) {
        const unsigned long usec = random() % 1000000;
        const std::uint64_t scaled = static_cast<std::uint64_t>(usec) << 32;
        if (scaled % 1000000 != 0) {
            ASSERT_EQ(_time_t::usec2frac(usec), static_cast<unsigned long>(scaled / 1000000)) << usec;
        }
        const unsigned long frac = random() & 0xffffffff;
        const std::uint64_t product = static_cast<std::uint64_t>(frac) * 1000000;
        if ((product & 0xffffffff) != 0) {
            ASSERT_EQ(_time_t::frac2usec(frac), static_cast<unsigned long>(product >> 32)) << frac;
        }
    }
}

TEST(Time, AddingChangesTheObjectItself) {
    _time_t time(5, 200);
    _time_t& result = time + 300.0;
    EXPECT_EQ(&result, &time);
    expectTime(time, 5, 500);
    expectTime(time + 2000000.0, 7, 500);
    expectTime(time + 3000499.9, 10, 999);
}

TEST(Time, AddingCarriesOneSecondAtAMillionMicroseconds) {
    _time_t below(5, 999000);
    expectTime(below + 999.0, 5, 999999);
    _time_t at(5, 999000);
    expectTime(at + 1000.0, 6, 0);
}

TEST(Time, AddingCarriesOnlyOneSecondOutOfUnnormalisedMicroseconds) {
    _time_t time(5, 2500000);
    expectTime(time + 1.0, 6, 1500001);
}

TEST(Time, SubtractingChangesTheObjectItselfAndBorrows) {
    _time_t time(5, 200);
    _time_t& result = time - 300.0;
    EXPECT_EQ(&result, &time);
    expectTime(time, 4, 999900);
    expectTime(time - 1000000.0, 3, 999900);
    expectTime(time - 999900.0, 3, 0);
}

TEST(Time, TheBorrowComparesTheRestBeforeItIsTruncated) {
    _time_t above(5, 200);
    expectTime(above - 200.5, 4, 1000000);
    _time_t equal(5, 200);
    expectTime(equal - 200.0, 5, 0);
}

TEST(Time, TimesTakeEachOtherAsASignedNumberOfMicroseconds) {
    EXPECT_EQ(_time_t(5, 200) - _time_t(3, 100), 2000100.0);
    EXPECT_EQ(_time_t(3, 100) - _time_t(5, 200), -2000100.0);
    EXPECT_EQ(_time_t(5, 100) - _time_t(4, 999900), 200.0);
    EXPECT_EQ(_time_t(1, 3000000) - _time_t(4, 0), 0.0);
}

TEST(Time, RandomSumsAgreeWithIntegerArithmetic) {
    constexpr unsigned int kSeed = 62;
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    std::mt19937_64 random(kSeed);
    for (int i = 0; i < 20000; ++i) {
        const std::int64_t start = static_cast<std::int64_t>(random() % 4000000000000000);
        const std::int64_t span = static_cast<std::int64_t>(random() % 4000000000);
        const _time_t before(static_cast<unsigned long>(start / 1000000),
                             static_cast<unsigned long>(start % 1000000));
        _time_t time(before);
        time + static_cast<double>(span);
        ASSERT_EQ(time.getsecond(), static_cast<unsigned long>((start + span) / 1000000));
        ASSERT_EQ(time.getusecond(), static_cast<unsigned long>((start + span) % 1000000));
        ASSERT_EQ(time - before, static_cast<double>(span));
        time - static_cast<double>(span);
        ASSERT_EQ(time.getsecond(), before.getsecond());
        ASSERT_EQ(time.getusecond(), before.getusecond());
    }
}

TEST(Time, ComparisonsNormaliseBothSides) {
    struct Case {
        _time_t left;
        _time_t right;
        int order;  // -1 less, 0 equal, 1 greater
    };
    const Case cases[] = {
        {_time_t(1, 1500000), _time_t(2, 500000), 0},
        {_time_t(2, 500000), _time_t(1, 1500000), 0},
        {_time_t(2, 500000), _time_t(2, 1500000), -1},
        {_time_t(3, 500000), _time_t(1, 1500000), 1},
        {_time_t(3, 500000), _time_t(1, 2500000), 0},
        {_time_t(0, 3000000), _time_t(3, 0), 0},
        {_time_t(1, 1500000), _time_t(2, 500001), -1},
        {_time_t(1, 2000000), _time_t(2, 999999), 1},
        {_time_t(1, 999999), _time_t(2, 0), -1},
        {_time_t(2, 1), _time_t(1, 2), 1},
        {_time_t(0, 0), _time_t(0, 0), 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.left.getsecond() << "." << c.left.getusecond() << " and "
                                        << c.right.getsecond() << "." << c.right.getusecond());
        EXPECT_EQ(c.left == c.right, c.order == 0);
        EXPECT_EQ(c.left != c.right, c.order != 0);
        EXPECT_EQ(c.left < c.right, c.order < 0);
        EXPECT_EQ(c.left > c.right, c.order > 0);
        EXPECT_EQ(c.left <= c.right, c.order <= 0);
        EXPECT_EQ(c.left >= c.right, c.order >= 0);
        EXPECT_EQ(c.right<c.left, c.order> 0);
        EXPECT_EQ(c.right >= c.left, c.order <= 0);
        EXPECT_EQ(c.right == c.left, c.order == 0);
    }
}

TEST(Time, NowReadsTheWallClock) {
    FakeClock::at(1700000000, 123456);
    expectTime(_time_t::now(), 1700000000, 123456);
}

struct ClockAtThousandSeconds {
    ClockAtThousandSeconds() { FakeClock::at(1000, 0); }
};

// The stopwatch of every test is made at 1000 s.
class Timer : private ClockAtThousandSeconds, public testing::Test {
protected:
    _timer_t m_timer;
};

TEST_F(Timer, IsStoppedWhenMade) {
    FakeClock::pass(5000);
    EXPECT_EQ(m_timer.get_elapsed_time(), 0.0);
}

TEST_F(Timer, FieldsLieInOrder) {
    FakeClock::pass(7);
    m_timer.pause();
    FakeClock::pass(5);
    m_timer.start();
    const unsigned char* const bytes = reinterpret_cast<const unsigned char*>(&m_timer);
    const _time_t& startTime = *reinterpret_cast<const _time_t*>(bytes + 8);
    const _time_t& pauseStart = *reinterpret_cast<const _time_t*>(bytes + 32);
    expectTime(startTime, 1000, 0);
    expectTime(pauseStart, 1000, 7);
    EXPECT_EQ(*reinterpret_cast<const double*>(bytes + 56), 5.0);
    EXPECT_EQ(*reinterpret_cast<const std::int32_t*>(bytes + 64), 1);
}

TEST_F(Timer, MeasuresFromItsStart) {
    FakeClock::pass(5000);
    m_timer.start();
    FakeClock::pass(1500000);
    EXPECT_EQ(m_timer.get_elapsed_time(), 1500000.0);
}

TEST_F(Timer, StartedAgainWhileRunningGoesOn) {
    m_timer.start();
    FakeClock::pass(100);
    const int reads = FakeClock::reads();
    m_timer.start();
    EXPECT_EQ(FakeClock::reads(), reads);
    FakeClock::pass(100);
    EXPECT_EQ(m_timer.get_elapsed_time(), 200.0);
}

TEST_F(Timer, LeavesPausesOut) {
    m_timer.start();
    FakeClock::pass(100);
    m_timer.pause();
    FakeClock::pass(1000);
    EXPECT_EQ(m_timer.get_elapsed_time(), 100.0);
    m_timer.pause();
    FakeClock::pass(1000);
    EXPECT_EQ(m_timer.get_elapsed_time(), 100.0) << "a second pause changes nothing";
    m_timer.start();
    FakeClock::pass(10);
    EXPECT_EQ(m_timer.get_elapsed_time(), 110.0);
    m_timer.pause();
    FakeClock::pass(10000);
    m_timer.start();
    EXPECT_EQ(m_timer.get_elapsed_time(), 110.0);
}

TEST_F(Timer, PausedRightAfterConstructionMeasuresFromConstructionLessThePause) {
    FakeClock::pass(30);
    m_timer.pause();
    EXPECT_EQ(m_timer.get_elapsed_time(), 30.0);
    FakeClock::pass(500);
    EXPECT_EQ(m_timer.get_elapsed_time(), 30.0);
    m_timer.start();
    FakeClock::pass(7);
    EXPECT_EQ(m_timer.get_elapsed_time(), 37.0);
}

TEST_F(Timer, StopForgetsThePausesAndKeepsTheStartTime) {
    m_timer.start();
    FakeClock::pass(100);
    m_timer.pause();
    FakeClock::pass(1000);
    m_timer.start();
    m_timer.stop();
    EXPECT_EQ(m_timer.get_elapsed_time(), 0.0);
    FakeClock::pass(10);
    m_timer.pause();  // from stopped: still measured from the old start time, nothing paused so far
    EXPECT_EQ(m_timer.get_elapsed_time(), 1110.0);
    m_timer.stop();
    m_timer.start();
    FakeClock::pass(3);
    EXPECT_EQ(m_timer.get_elapsed_time(), 3.0);
}

TEST_F(Timer, SeekSetsTheElapsedTimeAtOnce) {
    m_timer.start();
    FakeClock::pass(100);
    m_timer.seek(5000.0);
    EXPECT_EQ(m_timer.get_elapsed_time(), 5000.0);
    FakeClock::pass(1);
    EXPECT_EQ(m_timer.get_elapsed_time(), 5001.0);
    m_timer.pause();
    FakeClock::pass(1000);
    m_timer.seek(20.0);
    EXPECT_EQ(m_timer.get_elapsed_time(), 20.0);
    m_timer.start();
    FakeClock::pass(5);
    EXPECT_EQ(m_timer.get_elapsed_time(), 25.0);
}

TEST_F(Timer, StartFromStoppedKeepsASeekThatCameBefore) {
    m_timer.seek(400.0);
    EXPECT_EQ(m_timer.get_elapsed_time(), 0.0);
    m_timer.start();
    FakeClock::pass(10);
    EXPECT_EQ(m_timer.get_elapsed_time(), 410.0);
}

TEST_F(Timer, StopWhileStoppedKeepsASeekThatCameBefore) {
    m_timer.seek(400.0);
    m_timer.stop();
    m_timer.start();
    EXPECT_EQ(m_timer.get_elapsed_time(), 400.0);
}

}  // namespace
}  // namespace talrtp
