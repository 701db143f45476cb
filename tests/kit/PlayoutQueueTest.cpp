// The play-out queue without a session: the test plays the part of one.

#include "RtpPackets.h"

#include <talrtp/kit/PlayoutQueue.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

namespace talrtp::kit {
namespace {

using test::annexB;
using test::atMs;
using test::Bytes;
using Verdict = PlayoutQueue::Verdict;

constexpr std::chrono::milliseconds kWait{100};

PacketHead single(std::uint16_t sequence, std::uint32_t timestamp, bool hasMarker) {
    PacketHead head;
    head.sequence = sequence;
    head.timestamp = timestamp;
    head.hasMarker = hasMarker;
    head.kind = PayloadKind::kSingle;
    head.unitCount = 1;
    head.firstUnitType = 7;  // a stream can begin with it
    return head;
}

class PlayoutQueueTest : public testing::Test {
protected:
    // Lets a single unit packet arrive whose unit is its number.
    Verdict arrive(std::uint16_t sequence, std::uint32_t timestamp, bool hasMarker, int ms) {
        const Verdict verdict = queue.note(single(sequence, timestamp, hasMarker), atMs(ms));
        if (verdict == Verdict::kFresh) {
            EXPECT_TRUE(queue.addUnit(sequence, 0, unit(sequence), true, atMs(ms)));
        }
        return verdict;
    }

    static Bytes unit(std::uint16_t sequence) {
        return {0, 0, 0, 1, static_cast<std::uint8_t>(sequence >> 8), static_cast<std::uint8_t>(sequence)};
    }

    // Takes the first picture if it is due.
    bool take(int ms) {
        PlayoutQueue::Due due;
        if (!queue.findDue(atMs(ms), due)) {
            return false;
        }
        isForced = due.needsForce;
        return queue.take(picture);
    }

    Bytes taken() const { return test::copyOf(picture.annexB()); }

    PlayoutQueue queue{kWait, false};
    Picture picture;
    bool isForced = false;
};

TEST_F(PlayoutQueueTest, HasNothingDueAtFirst) {
    EXPECT_FALSE(take(1000000));
    EXPECT_TRUE(queue.isEmpty());
    EXPECT_EQ(std::nullopt, queue.dueTime());
}

TEST_F(PlayoutQueueTest, CountsOnAcrossTheWrapAround) {
    arrive(65535, 1, false, 0);
    arrive(0, 1, true, 1);
    ASSERT_TRUE(take(1));
    EXPECT_EQ(picture.firstSequence() + 1, picture.lastSequence());
    EXPECT_EQ(65535u, picture.firstSequence() & 0xffff);
    EXPECT_EQ(0u, picture.lastSequence() & 0xffff);
    EXPECT_EQ(annexB({{0xff, 0xff}, {0, 0}}), taken());
    EXPECT_TRUE(picture.isComplete());
    EXPECT_FALSE(isForced);
}

TEST_F(PlayoutQueueTest, TakesEarlierNumbersBeforeTheFirstPicture) {
    arrive(1, 5, true, 0);  // after the wrap-around
    EXPECT_EQ(Verdict::kFresh, arrive(65534, 4, true, 0));
    EXPECT_EQ(Verdict::kFarOff, arrive(65400, 3, true, 0));
    ASSERT_TRUE(take(0));
    EXPECT_EQ(4u, picture.timestamp());
    EXPECT_FALSE(take(99));
    ASSERT_TRUE(take(100));
    EXPECT_EQ(5u, picture.timestamp());
    EXPECT_EQ(2u, picture.missingPackets());  // 65535 and 0
}

// Earlier numbers are few: those that count back step by step end 100 before the first arrival, too.
TEST_F(PlayoutQueueTest, EarlierNumbersEndAHundredBeforeTheFirstArrival) {
    arrive(1000, 9, true, 0);
    EXPECT_EQ(Verdict::kFresh, arrive(950, 8, true, 0));
    EXPECT_EQ(Verdict::kLate, arrive(899, 6, true, 0));
    EXPECT_EQ(Verdict::kFresh, arrive(900, 7, true, 0));
    EXPECT_EQ(Verdict::kLate, arrive(899, 6, true, 0));
    EXPECT_EQ(Verdict::kLate, arrive(800, 5, true, 0));
    EXPECT_EQ(Verdict::kFarOff, arrive(799, 4, true, 0));
    ASSERT_TRUE(take(0));
    EXPECT_EQ(7u, picture.timestamp());
}

TEST_F(PlayoutQueueTest, KeepsTheOrderOfTheNumbersWhateverTheOrderOfArrival) {
    arrive(10, 1, true, 0);
    ASSERT_TRUE(take(0));
    arrive(13, 2, true, 1);
    arrive(12, 2, false, 2);
    arrive(11, 2, false, 3);
    ASSERT_TRUE(take(3));
    EXPECT_EQ(annexB({{0, 11}, {0, 12}, {0, 13}}), taken());
}

TEST_F(PlayoutQueueTest, ARebuiltPacketFillsItsGap) {
    arrive(10, 1, true, 0);
    ASSERT_TRUE(take(0));
    arrive(12, 2, true, 1);
    std::vector<std::uint16_t> missing;
    queue.visitMissing([&](std::uint16_t sequence) {
        missing.push_back(sequence);
        return true;
    });
    EXPECT_EQ(std::vector<std::uint16_t>{11}, missing);
    EXPECT_TRUE(queue.addUnit(11, 0, unit(11), true, atMs(2)));  // a session hands over first
    EXPECT_TRUE(queue.noteRebuilt(single(11, 2, false), atMs(2)));
    EXPECT_FALSE(queue.noteRebuilt(single(11, 2, false), atMs(2)));
    ASSERT_TRUE(take(2));
    EXPECT_EQ(annexB({{0, 11}, {0, 12}}), taken());
    EXPECT_TRUE(picture.isComplete());
    EXPECT_EQ(1u, picture.rebuiltPackets());
}

TEST_F(PlayoutQueueTest, ARebuiltPacketMayBeTheHighest) {
    arrive(10, 1, false, 0);
    EXPECT_EQ(11, queue.sequenceAfterHighest());
    EXPECT_TRUE(queue.addUnit(11, 0, unit(11), true, atMs(1)));
    EXPECT_TRUE(queue.noteRebuilt(single(11, 1, true), atMs(1)));
    ASSERT_TRUE(take(1));
    EXPECT_EQ(annexB({{0, 10}, {0, 11}}), taken());
}

TEST_F(PlayoutQueueTest, RefusesUnitsThatCameAgainOrTooLate) {
    arrive(10, 1, true, 0);
    EXPECT_FALSE(queue.addUnit(10, 0, unit(10), true, atMs(0)));
    ASSERT_TRUE(take(0));
    EXPECT_EQ(annexB({{0, 10}}), taken());
    EXPECT_FALSE(queue.addUnit(10, 0, unit(10), true, atMs(0)));
    EXPECT_FALSE(queue.addUnit(9, 0, unit(9), true, atMs(0)));
}

TEST_F(PlayoutQueueTest, AWholeUnitTakesThePlaceOfACutOne) {
    arrive(10, 1, true, 0);
    ASSERT_TRUE(take(0));
    EXPECT_EQ(Verdict::kFresh, queue.note(single(11, 2, true), atMs(1)));
    EXPECT_TRUE(queue.addUnit(11, 0, Bytes{0, 0, 0, 1, 7}, false, atMs(1)));
    EXPECT_FALSE(queue.addUnit(11, 0, Bytes{0, 0, 0, 1, 8}, false, atMs(1)));
    EXPECT_TRUE(queue.addUnit(11, 0, Bytes{0, 0, 0, 1, 9}, true, atMs(1)));
    ASSERT_TRUE(take(1));
    EXPECT_EQ(annexB({{9}}), taken());
    EXPECT_TRUE(picture.isComplete());
}

TEST_F(PlayoutQueueTest, TellsHowFarOffANumberIs) {
    arrive(10000, 1, true, 0);
    ASSERT_TRUE(take(0));
    EXPECT_EQ(Verdict::kFarOff, arrive(13001, 2, true, 1));  // 3001 ahead
    EXPECT_EQ(Verdict::kFresh, arrive(13000, 2, true, 1));
    EXPECT_EQ(Verdict::kFresh, arrive(10500, 3, true, 1));  // far behind, but known to be missing
    EXPECT_EQ(Verdict::kLate, arrive(9901, 2, true, 1));    // 100 before the next picture
    EXPECT_EQ(Verdict::kFarOff, arrive(9900, 2, true, 1));
    EXPECT_EQ(Verdict::kDoubled, arrive(10000, 1, true, 1));
    EXPECT_EQ(Verdict::kFarOff, arrive(10000, 7, true, 1));  // of another stream
}

TEST_F(PlayoutQueueTest, IsFullAtTheEndOfItsWindow) {
    arrive(0, 1, true, 0);
    ASSERT_TRUE(take(0));
    for (std::uint32_t number = 2; number <= PlayoutQueue::kMaxWindow; ++number) {
        ASSERT_EQ(Verdict::kFresh, arrive(static_cast<std::uint16_t>(number), number, true, 1));
    }
    const std::uint16_t next = PlayoutQueue::kMaxWindow + 1;
    EXPECT_EQ(Verdict::kFull, arrive(next, 9, true, 1));
    PlayoutQueue::Due due;
    ASSERT_TRUE(queue.findFirst(due));
    ASSERT_TRUE(queue.take(picture));
    EXPECT_EQ(1u, picture.missingPackets());
    EXPECT_EQ(Verdict::kFresh, arrive(next, 9, true, 1));
}

// The window grows over a gap as long as allowed while a thousand packets wait in it.
TEST_F(PlayoutQueueTest, KeepsWhatWaitsWhenItsWindowGrows) {
    arrive(10, 10, true, 0);
    ASSERT_TRUE(take(0));
    for (std::uint16_t number = 12; number <= 1020; ++number) {
        arrive(number, number, true, 1);
    }
    EXPECT_EQ(Verdict::kFresh, arrive(4020, 4020, true, 1));
    EXPECT_EQ(Verdict::kFresh, arrive(11, 11, true, 2));
    for (std::uint32_t number = 11; number <= 1020; ++number) {
        ASSERT_TRUE(take(2)) << number;
        ASSERT_EQ(number, picture.timestamp());
        ASSERT_TRUE(picture.isComplete()) << number;
    }
    EXPECT_FALSE(take(2));
}

TEST_F(PlayoutQueueTest, IsFullWhenTooManyBytesWait) {
    arrive(0, 1, true, 0);
    ASSERT_TRUE(take(0));
    const Bytes large(std::size_t{1} << 20, 1);
    std::uint16_t number = 2;
    while (queue.note(single(number, number, true), atMs(1)) == Verdict::kFresh) {
        ASSERT_TRUE(queue.addUnit(number, 0, large, true, atMs(1)));
        ++number;
    }
    EXPECT_EQ(2 + 33, number);  // 32 do not exceed the limit, one more does
    EXPECT_GT(queue.waitingBytes(), PlayoutQueue::kMaxWaitingBytes);
    PlayoutQueue::Due due;
    ASSERT_TRUE(queue.findFirst(due));
    queue.take(picture);
    EXPECT_EQ(Verdict::kFresh, queue.note(single(number, number, true), atMs(1)));
}

TEST_F(PlayoutQueueTest, NeedsForceOnlyWhenSomethingIsNotThere) {
    arrive(10, 1, true, 0);
    ASSERT_TRUE(take(0));
    EXPECT_FALSE(isForced);
    queue.note(single(11, 2, true), atMs(1));  // its unit is not handed over
    EXPECT_FALSE(take(1));
    EXPECT_TRUE(isForced);
    EXPECT_EQ(0u, picture.units().size());
}

}  // namespace
}  // namespace talrtp::kit
