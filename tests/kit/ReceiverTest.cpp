#include "RtpPackets.h"

#include <talrtp/kit/Receiver.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace talrtp::kit {
namespace {

using test::annexB;
using test::atMs;
using test::Bytes;
using test::fragments;
using test::KeepingReceiver;
using test::rtp;
using test::RtpFields;
using test::stapA;
using Timestamps = std::vector<std::uint32_t>;

const Bytes kSps = {0x67, 0x42, 0xc0, 0x1e};
const Bytes kPps = {0x68, 0xce};
const Bytes kIdr = {0x65, 0x88, 0xa1, 0xa2, 0xa3, 0xa4, 0xa5, 0xa6, 0xa7};
const Bytes kSlice = {0x41, 0x9a, 0xb1, 0xb2};

// A stream that has begun: picture 1000 of number 10 was played at 0 ms.
class RunningReceiverTest : public testing::Test {
protected:
    RunningReceiverTest() {
        receiver.push({10, 1000, true}, stapA({kSps, kPps, kIdr}), 0);
        EXPECT_EQ(Timestamps{1000}, receiver.played());
    }
    KeepingReceiver receiver;
};

TEST(ReceiverTest, PlaysACompletePictureWithinThePushThatCompletedIt) {
    KeepingReceiver receiver;
    const std::vector<Bytes> pieces = fragments(kIdr, 3);
    EXPECT_EQ(PushResult::media, receiver.push({10, 1000}, stapA({kSps, kPps}), 0));
    receiver.push({11, 1000}, pieces[0], 1);
    receiver.push({12, 1000}, pieces[1], 2);
    EXPECT_EQ(Timestamps(), receiver.played());
    receiver.push({13, 1000, true}, pieces[2], 3);

    ASSERT_EQ(1u, receiver.pictures.size());
    const test::PlayedPicture& picture = receiver.pictures[0];
    EXPECT_EQ(annexB({kSps, kPps, kIdr}), picture.bytes);
    EXPECT_EQ((std::vector<Bytes>{kSps, kPps, kIdr}), picture.units);
    EXPECT_EQ(std::vector<bool>({true, true, true}), picture.areWhole);
    EXPECT_TRUE(picture.isComplete);
    EXPECT_EQ(1000u, picture.timestamp);
    EXPECT_EQ(test::kSource, picture.ssrc);
    EXPECT_EQ(10, picture.first);
    EXPECT_EQ(13, picture.last);
}

TEST_F(RunningReceiverTest, PlaysInTheOrderOfNumbersWhenTimestampsGoBackAndForth) {
    for (const auto& [sequence, timestamp] :
         {std::pair<std::uint16_t, std::uint32_t>{11, 4000}, {12, 2000}, {13, 1500}, {14, 3000}}) {
        receiver.push({sequence, timestamp, true}, kSlice, sequence);
        EXPECT_EQ(Timestamps{timestamp}, receiver.played());
    }
}

TEST_F(RunningReceiverTest, EndsTheWaitWhenALatePacketFillsTheGap) {
    receiver.push({12, 3000, true}, kSlice, 5);
    receiver.push({13, 4000, true}, kSlice, 6);
    EXPECT_EQ(Timestamps(), receiver.played());
    receiver.push({11, 2000, true}, kSlice, 7);
    EXPECT_EQ((Timestamps{2000, 3000, 4000}), receiver.played());
    for (const test::PlayedPicture& picture : receiver.pictures) {
        EXPECT_TRUE(picture.isComplete);
    }
}

TEST_F(RunningReceiverTest, GivesAGapUpAfterTheWait) {
    const std::vector<Bytes> pieces = fragments(kIdr, 4);
    receiver.push({11, 2000}, pieces[0], 10);
    receiver.push({12, 2000}, pieces[1], 11);
    receiver.push({14, 2000, true}, pieces[3], 20);
    receiver.push({15, 3000, true}, kSlice, 30);
    EXPECT_EQ(atMs(220), receiver.receiver.poll(atMs(219)));
    EXPECT_EQ(Timestamps(), receiver.played());
    EXPECT_EQ(std::nullopt, receiver.receiver.poll(atMs(220)));
    EXPECT_EQ((Timestamps{2000, 3000}), receiver.played());

    const test::PlayedPicture& cut = receiver.pictures[1];
    EXPECT_EQ(annexB({{0x65, 0x88, 0xa1, 0xa2, 0xa3}}), cut.bytes);  // two fragments of two bytes each
    EXPECT_EQ(std::vector<bool>{false}, cut.areWhole);
    EXPECT_FALSE(cut.isComplete);
    EXPECT_EQ(1u, cut.missing);
    EXPECT_TRUE(receiver.pictures[2].isComplete);
    const Statistics statistics = receiver.receiver.statistics();
    EXPECT_EQ(1u, statistics.lostPackets);
    EXPECT_EQ(1u, statistics.cutPictures);
    EXPECT_EQ(2u, statistics.completePictures);
}

TEST_F(RunningReceiverTest, PlaysWhatIsLeftAtTheEnd) {
    receiver.push({12, 2000, true}, kSlice, 5);
    receiver.receiver.finish();
    EXPECT_EQ(Timestamps{2000}, receiver.played());
    EXPECT_FALSE(receiver.pictures[1].isComplete);
    EXPECT_EQ(1u, receiver.pictures[1].missing);
}

}  // namespace
}  // namespace talrtp::kit
