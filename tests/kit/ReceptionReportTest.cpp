// The numbers of a report block, worked out by hand from RFC 3550, 6.4.1, A.1, A.3 and A.8.

#include <talrtp/kit/ReceptionReport.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <random>

namespace talrtp::kit {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::uint32_t kSsrc = 0x11223344;
constexpr TimePoint kStart{seconds(1000)};

class ReceptionReportTest : public ::testing::Test {
protected:
    // One packet each 10 ms, sent and received.
    void receive(std::uint16_t sequence) {
        m_now += milliseconds(10);
        m_timestamp += 900;
        reception.onPacket(sequence, m_timestamp, m_now);
    }
    void receiveRange(std::uint32_t first, std::uint32_t last) {
        for (std::uint32_t sequence = first; sequence <= last; ++sequence) {
            receive(static_cast<std::uint16_t>(sequence));
        }
    }
    ReportBlock report() { return reception.report(m_now); }

    ReceptionReport reception{kSsrc};

private:
    TimePoint m_now = kStart;
    std::uint32_t m_timestamp = 0xffffff00;  // wraps within the first packets
};

TEST_F(ReceptionReportTest, BeforeTheFirstPacketAllCountsAreZero) {
    EXPECT_FALSE(reception.hasPackets());
    EXPECT_EQ(0u, reception.expected());
    EXPECT_EQ((ReportBlock{kSsrc, 0, 0, 0, 0, 0, 0}), report());
}

TEST_F(ReceptionReportTest, WithoutLossNothingIsLost) {
    receiveRange(100, 109);
    EXPECT_EQ((ReportBlock{kSsrc, 0, 0, 109, 0, 0, 0}), report());
    EXPECT_EQ(10u, reception.expected());
    EXPECT_EQ(10u, reception.received());
}

TEST_F(ReceptionReportTest, FractionIsOfTheIntervalAndTheSumIsOfAll) {
    receiveRange(1, 6);
    receiveRange(9, 10);  // 7 and 8 are missing: 2 of 10, 2 * 256 / 10 = 51.2
    const ReportBlock first = report();
    EXPECT_EQ(51, first.fractionLost);
    EXPECT_EQ(2, first.cumulativeLost);
    receiveRange(11, 13);
    receive(20);  // 14 to 19 are missing: 6 of 10, 6 * 256 / 10 = 153.6
    const ReportBlock second = report();
    EXPECT_EQ(153, second.fractionLost);
    EXPECT_EQ(8, second.cumulativeLost);
    EXPECT_EQ(20u, second.extendedHighest);
    const ReportBlock third = report();  // no packet since
    EXPECT_EQ(0, third.fractionLost);
    EXPECT_EQ(8, third.cumulativeLost);
}

TEST_F(ReceptionReportTest, LatePacketsFillTheirGap) {
    receiveRange(1, 3);
    receive(6);
    receive(5);
    receive(4);
    EXPECT_EQ(0, report().cumulativeLost);
    EXPECT_EQ(6u, reception.extendedHighest());
}

TEST_F(ReceptionReportTest, DuplicatesMakeTheLossNegative) {
    receiveRange(1, 3);
    receive(3);
    receive(3);
    const ReportBlock block = report();
    EXPECT_EQ(-2, block.cumulativeLost);
    EXPECT_EQ(0, block.fractionLost);
}

TEST_F(ReceptionReportTest, WrapAroundsAreCountedInTheUpperHalf) {
    receiveRange(0xfffe, 0xffff);
    receiveRange(0, 1);
    const ReportBlock block = report();
    EXPECT_EQ(0x00010001u, block.extendedHighest);
    EXPECT_EQ(0, block.cumulativeLost);
    EXPECT_EQ(4u, reception.expected());
}

TEST_F(ReceptionReportTest, ALatePacketFromBeforeTheWrapDoesNotWrapBack) {
    receive(0xfffe);
    receive(0);
    receive(0xffff);
    receive(1);
    EXPECT_EQ(0x00010001u, report().extendedHighest);
    EXPECT_EQ(0, reception.lost());
}

TEST_F(ReceptionReportTest, AJumpUpTo2999CountsAsLoss) {
    receive(1);
    receive(3000);
    EXPECT_EQ(2998, report().cumulativeLost);
}

TEST_F(ReceptionReportTest, OneJumpIsIgnored) {
    receiveRange(1, 2);
    receive(3002);
    receive(3);
    EXPECT_EQ(3u, report().extendedHighest);
    EXPECT_EQ(3u, reception.received());
}

TEST_F(ReceptionReportTest, TwoPacketsInARowBeginAnew) {
    receiveRange(1, 5);
    report();
    receiveRange(40000, 40002);  // the first of them is not counted
    const ReportBlock block = report();
    EXPECT_EQ(40002u, block.extendedHighest);
    EXPECT_EQ(0, block.cumulativeLost);
    EXPECT_EQ(2u, reception.received());
    EXPECT_EQ(2u, reception.expected());
}

TEST_F(ReceptionReportTest, AStepBackOf99IsLateAndOf100IsAJump) {
    receive(1000);
    receive(901);
    EXPECT_EQ(2u, reception.received());
    receive(900);
    EXPECT_EQ(2u, reception.received());
}

TEST_F(ReceptionReportTest, CumulativeLossIsHeldTo24Bits) {
    // 3000 steps of 2999 numbers lose 2998 each: 8,994,000 in all.
    for (std::uint32_t i = 0; i <= 3000; ++i) {
        receive(static_cast<std::uint16_t>(2999 * i));
    }
    EXPECT_EQ(8994000, reception.lost());
    EXPECT_EQ(0x7fffff, report().cumulativeLost);
}

TEST_F(ReceptionReportTest, NegativeLossIsHeldTo24Bits) {
    receive(1);
    for (int i = 0; i < 0x800000 + 10; ++i) {
        receive(1);
    }
    EXPECT_EQ(-0x800000, report().cumulativeLost);
}

// ---- jitter

TEST(ReceptionJitterTest, FollowsTheRecurrenceOfRfc3550) {
    ReceptionReport reception(kSsrc);
    // At 90 kHz: arrivals 0, 20, 45 ms of packets stamped 0, 1800, 3600. The second is on time; the third is
    // 5 ms late, 450 units: 450 in units of 1/16. The fourth, on time again, is 450 units early:
    // 450 + 450 - ((450 + 8) >> 4 = 28) = 872.
    reception.onPacket(1, 0, kStart);
    reception.onPacket(2, 1800, kStart + milliseconds(20));
    EXPECT_EQ(0u, reception.jitter());
    reception.onPacket(3, 3600, kStart + milliseconds(45));
    EXPECT_EQ(28u, reception.jitter());  // 450 / 16
    reception.onPacket(4, 5400, kStart + milliseconds(60));
    EXPECT_EQ(54u, reception.jitter());  // 872 / 16
}

TEST(ReceptionJitterTest, ItsClockHasTheRateOfTheMedia) {
    ReceptionReport reception(kSsrc, 8000);
    reception.onPacket(1, 0, kStart);
    reception.onPacket(2, 160, kStart + milliseconds(30));  // 20 ms of media, 10 ms late: 80 units
    EXPECT_EQ(5u, reception.jitter());
}

TEST(ReceptionJitterTest, ASteadyDeviationIsReached) {
    // Each packet changes its transit by 900 units, so the jitter tends to 900.
    ReceptionReport reception(kSsrc);
    for (std::uint16_t i = 0; i < 400; ++i) {
        const microseconds wobble((i % 2) * 10000);
        reception.onPacket(i, i * 1800u, kStart + milliseconds(20 * i) + wobble);
    }
    EXPECT_NEAR(900.0, reception.jitter(), 1.0);
}

TEST(ReceptionJitterTest, TimesBeforeTheEpochAreTimesToo) {
    ReceptionReport reception(kSsrc);
    const TimePoint early{milliseconds(-15)};
    reception.onPacket(1, 0, early);
    reception.onPacket(2, 1800, early + milliseconds(20));
    EXPECT_EQ(0u, reception.jitter());
}

TEST(ReceptionJitterTest, ARestartOfTheSourceIsNoJitter) {
    ReceptionReport reception(kSsrc);
    reception.onPacket(1, 0, kStart);
    reception.onPacket(30000, 777777777, kStart + milliseconds(20));
    reception.onPacket(30001, 777777777 + 1800, kStart + milliseconds(40));
    EXPECT_EQ(0u, reception.jitter());
}

// ---- sender reports and round trips

TEST(ReceptionTimesTest, TheExampleOfRfc3550) {
    // RFC 3550, figure 2: an SR of n SR = 0xb44db705 20000000 arrives; 5.250 s later the RR is sent, and it
    // arrives at 0xb710:8000. The round trip took 6.125 s.
    ReceptionReport reception(kSsrc);
    reception.onSenderReport(0xb44db70520000000, kStart);
    const ReportBlock block = reception.report(kStart + milliseconds(5250));
    EXPECT_EQ(0xb7052000u, block.lastSenderReport);
    EXPECT_EQ(0x00054000u, block.delaySinceSenderReport);
    const auto trip = roundTripTime(block, 0xb44db71080000000);
    ASSERT_TRUE(trip.has_value());
    EXPECT_EQ(microseconds(6125000), *trip);
}

TEST(ReceptionTimesTest, WithoutASenderReportThereIsNoRoundTrip) {
    ReceptionReport reception(kSsrc);
    reception.onPacket(1, 0, kStart);
    EXPECT_FALSE(roundTripTime(reception.report(kStart), 0xb44db71080000000).has_value());
}

TEST(ReceptionTimesTest, ARoundTripBelowZeroIsZero) {
    ReportBlock block;
    block.lastSenderReport = 0x00020000;
    block.delaySinceSenderReport = 0x00010001;
    EXPECT_EQ(Duration::zero(), roundTripTime(block, 0x0000000300000000).value());
}

TEST(ReceptionTimesTest, ARoundTripGoesAcrossTheWrapOfTheSeconds) {
    ReportBlock block;
    block.lastSenderReport = 0xffff8000;  // half a second before the wrap
    block.delaySinceSenderReport = 0x00008000;
    EXPECT_EQ(milliseconds(250), roundTripTime(block, 0x0001000040000000).value());
}

TEST(ReceptionTimesTest, DelayIsHeldTo32Bits) {
    ReceptionReport reception(kSsrc);
    reception.onSenderReport(1ULL << 32, kStart);
    EXPECT_EQ(0xffff0000u, reception.report(kStart + std::chrono::hours(1000)).delaySinceSenderReport);
    EXPECT_EQ(0u, reception.report(kStart - seconds(1)).delaySinceSenderReport);
}

// ---- against a plain count, over random loss, delay and duplication

TEST(ReceptionPropertyTest, CountsMatchAPlainModel) {
    std::mt19937 engine(5);
    for (int run = 0; run < 50; ++run) {
        ReceptionReport reception(kSsrc);
        const std::uint64_t first = engine() % 65536;
        std::uint64_t received = 0;
        std::uint64_t highest = first;
        std::int64_t priorExpected = 0;
        std::int64_t priorReceived = 0;
        for (std::uint64_t number = first; number < first + 150000; ++number) {
            const bool isKept = number == first || engine() % 10 != 0;
            for (int copies = isKept ? 1 + (engine() % 20 == 0 ? 1 : 0) : 0; copies > 0; --copies) {
                reception.onPacket(static_cast<std::uint16_t>(number), 0, kStart);
                ++received;
                highest = number;
            }
            if (engine() % 1000 == 0) {
                const auto expected = static_cast<std::int64_t>(highest - first + 1);
                const auto arrived = static_cast<std::int64_t>(received);
                const double spread = static_cast<double>(expected - priorExpected);
                const double lost = spread - static_cast<double>(arrived - priorReceived);
                const ReportBlock block = reception.report(kStart);
                ASSERT_EQ(expected - arrived, block.cumulativeLost);
                ASSERT_EQ(static_cast<std::uint32_t>(highest), block.extendedHighest);
                ASSERT_EQ(lost > 0 ? std::floor(lost * 256 / spread) : 0, block.fractionLost);
                priorExpected = expected;
                priorReceived = arrived;
            }
        }
    }
}

}  // namespace
}  // namespace talrtp::kit
