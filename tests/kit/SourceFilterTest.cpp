// The decision whose packets are taken, packet by packet.

#include "RtpPackets.h"

#include <talrtp/kit/SourceFilter.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <optional>

namespace talrtp::kit {
namespace {

using test::atMs;
using test::Bytes;
using Verdict = SourceFilter::Verdict;

constexpr std::chrono::milliseconds kTimeout{2000};
constexpr std::uint32_t kFirst = 0x11223344;
constexpr std::uint32_t kSecond = 0x55667788;
constexpr std::uint32_t kThird = 0x99aabbcc;

TEST(KeptDatagramTest, KnowsTheNumberThatFollows) {
    KeptDatagram kept;
    EXPECT_FALSE(kept.isContinuedBy(0));
    kept.keep(Bytes{1, 2, 3}, 0xffff);
    EXPECT_TRUE(kept.isContinuedBy(0));
    EXPECT_FALSE(kept.isContinuedBy(1));
    EXPECT_FALSE(kept.isContinuedBy(0xffff));
}

TEST(KeptDatagramTest, KeepsACopyOfTheLastOne) {
    KeptDatagram kept;
    kept.keep(Bytes{1, 2, 3}, 6);
    Bytes datagram = {4, 5};
    kept.keep(datagram, 8);
    datagram.assign({0, 0});
    EXPECT_FALSE(kept.isContinuedBy(7));
    EXPECT_TRUE(kept.isContinuedBy(9));
    EXPECT_EQ((Bytes{4, 5}), kept.release());
    EXPECT_FALSE(kept.isContinuedBy(9));
}

TEST(KeptDatagramTest, DropsIt) {
    KeptDatagram kept;
    kept.keep(Bytes{1}, 6);
    kept.drop();
    EXPECT_FALSE(kept.isContinuedBy(7));
}

class SourceFilterTest : public testing::Test {
protected:
    static Bytes packet(std::uint32_t ssrc, std::uint16_t sequence) {
        test::RtpFields fields;
        fields.ssrc = ssrc;
        fields.sequence = sequence;
        return test::rtp(fields, {0x41});
    }

    Verdict media(std::uint32_t ssrc, std::uint16_t sequence, int ms) {
        return filter.judge(packet(ssrc, sequence), false, atMs(ms));
    }
    Verdict fec(std::uint32_t ssrc, std::uint16_t sequence, int ms) {
        return filter.judge(packet(ssrc, sequence), true, atMs(ms));
    }

    SourceFilter filter{std::nullopt, kTimeout};
};

TEST_F(SourceFilterTest, TakesTheFirstSourceAtOnce) {
    EXPECT_EQ(std::nullopt, filter.ssrc());
    EXPECT_EQ(Verdict::kTake, media(kFirst, 10, 0));
    EXPECT_EQ(kFirst, filter.ssrc());
    EXPECT_EQ(Verdict::kTake, media(kFirst, 50, 0));  // no sequence is asked of it
}

TEST_F(SourceFilterTest, AnotherSourceWithTwoPacketsInSequenceReplacesAnUnconfirmedOne) {
    media(kFirst, 10, 0);
    EXPECT_EQ(Verdict::kOther, media(kSecond, 20, 0));
    EXPECT_EQ(kFirst, filter.ssrc());
    EXPECT_EQ(Verdict::kTakeOver, media(kSecond, 21, 0));
    EXPECT_EQ(kSecond, filter.ssrc());
    EXPECT_EQ(packet(kSecond, 20), filter.releaseFirst());
    EXPECT_EQ(Verdict::kTake, media(kSecond, 22, 0));
}

TEST_F(SourceFilterTest, ASecondPacketConfirmsTheSource) {
    media(kFirst, 10, 0);
    media(kFirst, 11, 0);
    EXPECT_EQ(Verdict::kOther, media(kSecond, 20, 0));
    EXPECT_EQ(Verdict::kOther, media(kSecond, 21, 0));
    EXPECT_EQ(kFirst, filter.ssrc());
}

TEST_F(SourceFilterTest, ASilentSourceIsReplacedWhenItsTimeIsUp) {
    media(kFirst, 10, 0);
    media(kFirst, 11, 5);
    EXPECT_EQ(Verdict::kOther, media(kSecond, 20, 2004));
    EXPECT_EQ(Verdict::kOther, media(kSecond, 21, 2004));
    EXPECT_EQ(Verdict::kOther, media(kSecond, 30, 2005));
    EXPECT_EQ(Verdict::kTakeOver, media(kSecond, 31, 2005));
}

TEST_F(SourceFilterTest, EachPacketOfTheSourceEndsItsSilence) {
    media(kFirst, 10, 0);
    media(kFirst, 11, 0);
    EXPECT_EQ(Verdict::kTake, fec(kFirst, 1, 1000));
    EXPECT_EQ(Verdict::kOther, media(kSecond, 20, 2999));
    EXPECT_EQ(Verdict::kOther, media(kSecond, 21, 2999));
    EXPECT_EQ(Verdict::kTake, media(kFirst, 12, 2999));
    EXPECT_EQ(Verdict::kOther, media(kSecond, 22, 4998));
    EXPECT_EQ(Verdict::kOther, media(kSecond, 23, 4998));
}

TEST_F(SourceFilterTest, ANewSourceIsConfirmedAndHeard) {
    media(kFirst, 10, 0);
    media(kSecond, 20, 1);
    ASSERT_EQ(Verdict::kTakeOver, media(kSecond, 21, 1));
    EXPECT_EQ(Verdict::kOther, media(kFirst, 11, 2000));
    EXPECT_EQ(Verdict::kOther, media(kFirst, 12, 2000));
    EXPECT_EQ(Verdict::kOther, media(kFirst, 13, 2001));
    EXPECT_EQ(Verdict::kTakeOver, media(kFirst, 14, 2001));
    EXPECT_EQ(packet(kFirst, 13), filter.releaseFirst());
}

TEST_F(SourceFilterTest, PacketsOutOfSequenceMakeNoNewSource) {
    media(kFirst, 10, 0);
    for (const std::uint16_t sequence : {20, 20, 22, 21, 19}) {
        EXPECT_EQ(Verdict::kOther, media(kSecond, sequence, 0)) << sequence;
    }
    EXPECT_EQ(Verdict::kTakeOver, media(kSecond, 20, 0));
    EXPECT_EQ(packet(kSecond, 19), filter.releaseFirst());
}

TEST_F(SourceFilterTest, SequenceNumbersWrapAround) {
    media(kFirst, 10, 0);
    EXPECT_EQ(Verdict::kOther, media(kSecond, 0xffff, 0));
    EXPECT_EQ(Verdict::kTakeOver, media(kSecond, 0, 0));
}

TEST_F(SourceFilterTest, TwoSourcesInTurnsMakeNoNewSource) {
    media(kFirst, 10, 0);
    for (std::uint16_t sequence = 20; sequence < 30; ++sequence) {
        EXPECT_EQ(Verdict::kOther, media(sequence % 2 == 0 ? kSecond : kThird, sequence, 0)) << sequence;
    }
    EXPECT_EQ(kFirst, filter.ssrc());
}

TEST_F(SourceFilterTest, FecPacketsMakeNoNewSource) {
    media(kFirst, 10, 0);
    EXPECT_EQ(Verdict::kOther, fec(kSecond, 20, 0));
    EXPECT_EQ(Verdict::kOther, fec(kSecond, 21, 0));
    EXPECT_EQ(Verdict::kOther, media(kSecond, 22, 0));  // the first one that counts
    EXPECT_EQ(Verdict::kOther, fec(kSecond, 23, 0));
    EXPECT_EQ(Verdict::kTakeOver, media(kSecond, 23, 0));
}

TEST_F(SourceFilterTest, AFecPacketMayBeTheFirst) {
    EXPECT_EQ(Verdict::kTake, fec(kFirst, 1, 0));
    EXPECT_EQ(kFirst, filter.ssrc());
}

TEST_F(SourceFilterTest, TheGivenSourceIsNeverReplaced) {
    filter = SourceFilter(kFirst, kTimeout);
    EXPECT_EQ(kFirst, filter.ssrc());
    EXPECT_EQ(Verdict::kOther, media(kSecond, 20, 0));
    EXPECT_EQ(Verdict::kOther, media(kSecond, 21, 0));
    EXPECT_EQ(Verdict::kTake, media(kFirst, 10, 0));
    EXPECT_EQ(Verdict::kOther, media(kSecond, 30, 100000));
    EXPECT_EQ(Verdict::kOther, media(kSecond, 31, 100000));
    EXPECT_EQ(Verdict::kTake, media(kFirst, 11, 200000));
}

}  // namespace
}  // namespace talrtp::kit
