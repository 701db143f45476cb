#include "RtpPackets.h"

#include <talrtp/kit/Receiver.h>
#include <talrtp/kit/Sender.h>

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

// --- What a session must not see ---

TEST(ReceiverTest, ClassifiesAndCountsWhatIsNoMediaOfItsSource) {
    KeepingReceiver receiver;
    EXPECT_EQ(PushResult::media, receiver.push({10, 1000, true}, stapA({kSps, kPps, kIdr}), 0));
    EXPECT_EQ(PushResult::media, receiver.push({11, 2000, true}, kSlice, 1));
    EXPECT_EQ(PushResult::rtcp, receiver.push(Bytes{0x80, 200, 0, 6, 0, 0, 0, 0}, 1));
    EXPECT_EQ(PushResult::notRtp, receiver.push(Bytes(20, 0), 1));
    EXPECT_EQ(PushResult::notRtp, receiver.push(Bytes(), 1));
    Bytes padded = rtp({12, 3000, true}, kSlice);
    padded[0] |= 0x20;  // its last byte, 0xb2, counts more padding than there is
    EXPECT_EQ(PushResult::invalid, receiver.push(padded, 1));
    EXPECT_EQ(PushResult::otherSource, receiver.push({12, 3000, true, 0x99}, kSlice, 1));
    EXPECT_EQ(PushResult::unknownType, receiver.push({12, 3000, true, test::kSource, 100}, kSlice, 1));
    const Statistics statistics = receiver.receiver.statistics();
    EXPECT_EQ(2u, statistics.receivedPacketNumber);
    EXPECT_EQ(1u, statistics.rtcpDatagrams);
    EXPECT_EQ(2u, statistics.notRtpDatagrams);
    EXPECT_EQ(1u, statistics.invalidDatagrams);
    EXPECT_EQ(1u, statistics.otherSourceDatagrams);
    EXPECT_EQ(1u, statistics.unknownTypeDatagrams);
    EXPECT_EQ(2u, statistics.completePictures);
    EXPECT_EQ(4u, statistics.playedUnits);
}

TEST(ReceiverTest, TakesNoFecPacketWithoutAScheme) {
    ReceiverOptions options;
    options.fec = FecScheme::kNone;
    KeepingReceiver receiver(options);
    EXPECT_EQ(PushResult::unknownType,
              receiver.push({10, 1000, false, test::kSource, test::kFecType}, Bytes(12), 0));
}

TEST_F(RunningReceiverTest, RefusesAFragmentThatBelongsToNoUnit) {
    receiver.push({11, 2000}, kSlice, 1);
    receiver.push({12, 2000}, {0x5c, 0x01, 0xee, 0xee}, 2);  // a middle fragment after a whole unit
    receiver.push({12, 2000, true}, kSlice, 3);              // the true packet of that number
    EXPECT_EQ(annexB({kSlice, kSlice}), receiver.pictures.back().bytes);
    EXPECT_TRUE(receiver.pictures.back().isComplete);
    EXPECT_EQ(1u, receiver.receiver.statistics().strayPackets);
    EXPECT_EQ(0u, receiver.receiver.statistics().refusedUnits);
}

TEST_F(RunningReceiverTest, DoesNotTrustAFragmentThatArrivedBeforeTheUnitItDoesNotContinue) {
    receiver.push({12, 2000}, {0x5c, 0x01, 0xee, 0xee}, 1);
    receiver.push({11, 2000}, kSlice, 2);
    receiver.push({13, 2000}, {0x5c, 0x01, 0xee, 0xee}, 3);  // refused: continues the stray one
    receiver.push({13, 2000, true}, kSlice, 4);
    EXPECT_EQ(annexB({kSlice, kSlice}), receiver.pictures.back().bytes);
    EXPECT_FALSE(receiver.pictures.back().isComplete);
    EXPECT_EQ(1u, receiver.receiver.statistics().strayPackets);
}

TEST_F(RunningReceiverTest, CountsCopiesAndLatePackets) {
    receiver.push({10, 1000, true}, kSlice, 1);  // a copy of a number that was played
    receiver.push({12, 3000, true}, kSlice, 2);
    receiver.push({12, 3000, true}, kSlice, 3);  // a copy of one that waits
    receiver.receiver.poll(atMs(300));
    receiver.push({11, 2000, true}, kSlice, 301);
    receiver.push({11, 2000, true}, kSlice, 302);  // a copy of the late one
    EXPECT_EQ(Timestamps{3000}, receiver.played());
    const Statistics statistics = receiver.receiver.statistics();
    EXPECT_EQ(3u, statistics.doubledPackets);
    EXPECT_EQ(1u, statistics.latePackets);
    EXPECT_EQ(1u, statistics.lostPackets);
    EXPECT_EQ(1u, statistics.refusedUnits);
}

// --- Pictures ---

TEST_F(RunningReceiverTest, EndsPicturesByTheirTimestampWhenMarkersMeanNothing) {
    receiver.push({11, 2000, true}, kSlice, 1);  // played at once, since it seems to be all
    receiver.push({12, 2000, true}, kSlice, 2);
    receiver.push({13, 3000, true}, kSlice, 3);
    receiver.push({14, 3000, true}, kSlice, 4);
    EXPECT_EQ((Timestamps{2000, 2000}), receiver.played());
    EXPECT_FALSE(receiver.pictures.back().isComplete);
    receiver.push({15, 4000, true}, kSlice, 5);
    EXPECT_EQ(Timestamps{3000}, receiver.played());
    EXPECT_EQ(annexB({kSlice, kSlice}), receiver.pictures.back().bytes);
    EXPECT_TRUE(receiver.pictures.back().isComplete);
}

TEST_F(RunningReceiverTest, EndsPicturesByTheirTimestampWhenThereIsNoMarker) {
    receiver.push({11, 2000}, kSlice, 1);
    receiver.push({12, 2000}, kSlice, 2);
    EXPECT_EQ(Timestamps(), receiver.played());
    receiver.push({13, 3000}, kSlice, 3);
    EXPECT_EQ(Timestamps{2000}, receiver.played());
    EXPECT_TRUE(receiver.pictures.back().isComplete);
}

TEST_F(RunningReceiverTest, SplitsAHoleBetweenTwoPictures) {
    receiver.push({11, 2000}, kSlice, 1);        // 12 has its marker
    receiver.push({13, 3000, true}, kSlice, 2);  // so 13 is a whole picture
    receiver.push({14, 4000}, kSlice, 3);        // of 15 and 16, one at least belongs here
    receiver.push({17, 5000, true}, kSlice, 4);  // and the other may belong here
    receiver.receiver.poll(atMs(300));
    ASSERT_EQ((Timestamps{2000, 3000, 4000, 5000}), receiver.played());
    const std::vector<std::size_t> missing = {0, 1, 0, 1, 1};
    for (std::size_t i = 0; i < missing.size(); ++i) {
        EXPECT_EQ(missing[i], receiver.pictures[i].missing) << i;
        EXPECT_EQ(missing[i] == 0, receiver.pictures[i].isComplete) << i;
    }
}

// Nobody knows whether the number that is missing ends the one picture or begins the other.
TEST_F(RunningReceiverTest, WhereMarkersLieAHoleBetweenTwoPicturesMayBelongToEither) {
    receiver.push({11, 2000, true}, kSlice, 1);
    receiver.push({12, 2000, true}, kSlice, 2);  // the marker of 11 was none
    receiver.push({13, 3000, true}, kSlice, 3);
    receiver.push({15, 4000, true}, kSlice, 4);
    receiver.push({16, 5000, true}, kSlice, 5);
    receiver.receiver.finish();
    ASSERT_EQ((Timestamps{2000, 2000, 3000, 4000, 5000}), receiver.played());
    const std::vector<std::size_t> missing = {0, 0, 1, 0, 0};
    for (std::size_t i = 0; i < missing.size(); ++i) {
        EXPECT_EQ(missing[i], receiver.pictures[i + 1].missing) << i;
    }
    EXPECT_FALSE(receiver.pictures[3].isComplete);
    EXPECT_FALSE(receiver.pictures[4].isComplete);
    EXPECT_TRUE(receiver.pictures[5].isComplete);
}

TEST_F(RunningReceiverTest, EachGapWaitsFromItsOwnFirstSign) {
    receiver.push({12, 3000, true}, kSlice, 0);
    receiver.push({14, 5000, true}, kSlice, 150);
    EXPECT_EQ(atMs(200), receiver.receiver.poll(atMs(150)));
    EXPECT_EQ(atMs(350), receiver.receiver.poll(atMs(200)));
    EXPECT_EQ(Timestamps{3000}, receiver.played());
    EXPECT_EQ(std::nullopt, receiver.receiver.poll(atMs(350)));
    EXPECT_EQ(Timestamps{5000}, receiver.played());
}

TEST_F(RunningReceiverTest, WaitsForTheEndOfAPictureInsteadOfCuttingItWhileItArrives) {
    receiver.push({12, 2000}, kSlice, 0);  // 11 is lost
    receiver.push({13, 2000}, kSlice, 190);
    receiver.push({14, 2000}, kSlice, 230);
    EXPECT_EQ(atMs(280), receiver.receiver.poll(atMs(230)));  // 50 ms after the latest packet
    receiver.push({15, 2000, true}, kSlice, 270);
    EXPECT_EQ(Timestamps{2000}, receiver.played());
    EXPECT_EQ(4u, receiver.pictures.back().units.size());
    EXPECT_EQ(1u, receiver.pictures.back().missing);
}

// The end of a picture with a gap arrives late. The next picture, which is still arriving, does not hold it
// up.
TEST_F(RunningReceiverTest, SeesTheEndOfAPictureInAPacketThatIsLate) {
    for (const bool hasMarker : {true, false}) {
        const auto first = static_cast<std::uint16_t>(hasMarker ? 11 : 21);  // is lost
        const std::uint32_t timestamp = 100U * first;
        const auto next = static_cast<std::uint16_t>(first + 1);
        const int ms = first;
        receiver.push({static_cast<std::uint16_t>(first + 2), timestamp + 1}, kSlice, ms);
        EXPECT_EQ(atMs(ms + 200), receiver.receiver.poll(atMs(ms + 150)));
        receiver.push({next, timestamp, hasMarker}, kSlice, ms + 160);
        receiver.push({static_cast<std::uint16_t>(first + 3), timestamp + 1}, kSlice, ms + 190);
        EXPECT_EQ(atMs(ms + 200), receiver.receiver.poll(atMs(ms + 190)));
        receiver.receiver.poll(atMs(ms + 200));
        EXPECT_EQ(Timestamps{timestamp}, receiver.played());
        receiver.push({static_cast<std::uint16_t>(first + 4), timestamp + 1, true}, kSlice, ms + 201);
        EXPECT_EQ(Timestamps{timestamp + 1}, receiver.played());
        for (auto number = static_cast<std::uint16_t>(first + 5); number < 21; ++number) {
            receiver.push({number, number, true}, kSlice, ms + 201);
        }
        receiver.played();
    }
}

TEST_F(RunningReceiverTest, CutsAPictureWithAGapWhenItsWaitIsOverAndNothingArrives) {
    receiver.push({12, 2000}, kSlice, 0);  // 11 is lost, and the end never arrives
    EXPECT_EQ(atMs(200), receiver.receiver.poll(atMs(199)));
    EXPECT_EQ(Timestamps(), receiver.played());
    receiver.receiver.poll(atMs(200));
    EXPECT_EQ(Timestamps{2000}, receiver.played());
    EXPECT_FALSE(receiver.pictures.back().isComplete);
}

TEST_F(RunningReceiverTest, APictureWithoutAGapWaitsForItsEndThroughAStall) {
    receiver.push({11, 2000}, kSlice, 100);
    EXPECT_EQ(std::nullopt, receiver.receiver.poll(atMs(101)));
    EXPECT_EQ(std::nullopt, receiver.receiver.poll(atMs(9000)));
    EXPECT_EQ(Timestamps(), receiver.played());
    receiver.push({12, 2000, true}, kSlice, 9001);
    EXPECT_EQ(Timestamps{2000}, receiver.played());
    EXPECT_TRUE(receiver.pictures.back().isComplete);
}

TEST_F(RunningReceiverTest, WhereMarkersLieTheLastPictureIsOutAfterASilence) {
    receiver.push({11, 2000, true}, kSlice, 0);
    receiver.push({12, 2000, true}, kSlice, 0);  // the marker of 11 was none
    receiver.push({13, 3000, true}, kSlice, 100);
    EXPECT_EQ(atMs(600), receiver.receiver.poll(atMs(599)));
    const std::size_t before = receiver.pictures.size();
    receiver.receiver.poll(atMs(600));
    ASSERT_EQ(before + 1, receiver.pictures.size());
    EXPECT_EQ(3000u, receiver.played().back());
}

TEST_F(RunningReceiverTest, SkipsAPictureOfWhichNothingCanBePlayed) {
    const std::vector<Bytes> pieces = fragments(kIdr, 3);
    receiver.push({12, 2000}, pieces[1], 1);
    receiver.push({13, 2000, true}, pieces[2], 2);
    receiver.push({14, 3000, true}, kSlice, 3);
    receiver.receiver.poll(atMs(300));
    EXPECT_EQ(Timestamps{3000}, receiver.played());
    EXPECT_EQ(1u, receiver.receiver.statistics().skippedPictures);
    EXPECT_EQ(1u, receiver.receiver.statistics().lostPackets);
}

TEST_F(RunningReceiverTest, PlaysAPictureWithABrokenPacketAtOnceButNotAsComplete) {
    Bytes aggregate = stapA({kSlice, kSlice});
    aggregate.pop_back();  // the last unit claims a byte more than there is
    receiver.push({11, 2000, true}, aggregate, 1);
    ASSERT_EQ(Timestamps{2000}, receiver.played());
    EXPECT_EQ((std::vector<bool>{true, false}), receiver.pictures.back().areWhole);
    EXPECT_FALSE(receiver.pictures.back().isComplete);
    EXPECT_EQ(0u, receiver.pictures.back().missing);
}

TEST_F(RunningReceiverTest, TakesPaddingOffTheUnits) {
    const auto pad = [](Bytes packet) {
        packet[0] |= 0x20;
        packet.insert(packet.end(), {0x77, 0x77, 3});
        return packet;
    };
    const std::vector<Bytes> pieces = fragments(kIdr, 2);
    receiver.push(pad(rtp({11, 2000}, kSlice)), 1);
    receiver.push(pad(rtp({12, 2000}, stapA({kSps, kPps}))), 2);
    receiver.push({13, 2000}, pieces[0], 3);
    receiver.push(pad(rtp({14, 2000, true}, pieces[1])), 4);
    receiver.push(pad(rtp({15, 3000, true}, {})), 5);  // padding only
    receiver.push({16, 4000, true}, kSlice, 6);
    ASSERT_EQ((Timestamps{2000, 4000}), receiver.played());
    EXPECT_EQ((std::vector<Bytes>{kSlice, kSps, kPps, kIdr}), receiver.pictures[1].units);
    EXPECT_TRUE(receiver.pictures[1].isComplete);
    EXPECT_TRUE(receiver.pictures[2].isComplete);
}

// --- The beginning ---

TEST(ReceiverTest, WaitsForWhatMayComeBeforeAnIdrPicture) {
    KeepingReceiver receiver;
    receiver.push({12, 1000, true}, kIdr, 0);
    receiver.push({11, 1000}, kPps, 1);
    EXPECT_EQ(Timestamps(), receiver.played());
    receiver.push({10, 1000}, kSps, 2);
    ASSERT_EQ(Timestamps{1000}, receiver.played());
    EXPECT_EQ(annexB({kSps, kPps, kIdr}), receiver.pictures[0].bytes);
    EXPECT_TRUE(receiver.pictures[0].isComplete);
}

TEST(ReceiverTest, PlaysAnIdrPictureWithoutParameterSetsAfterTheWait) {
    KeepingReceiver receiver;
    receiver.push({12, 1000, true}, kIdr, 0);
    EXPECT_EQ(atMs(200), receiver.receiver.poll(atMs(199)));
    EXPECT_EQ(Timestamps(), receiver.played());
    receiver.receiver.poll(atMs(200));
    EXPECT_EQ(Timestamps{1000}, receiver.played());
    EXPECT_FALSE(receiver.pictures[0].isComplete);  // nothing shows that it is
}

TEST(ReceiverTest, PlaysTheFirstSliceOfAnotherPictureAtOnce) {
    KeepingReceiver receiver;
    receiver.push({12, 1000, true}, kSlice, 0);
    EXPECT_EQ(Timestamps{1000}, receiver.played());
    EXPECT_FALSE(receiver.pictures[0].isComplete);  // a prefix unit may have preceded it
}

// --- A first number that the signalling named ---

class NumberedReceiverTest : public testing::Test {
protected:
    static ReceiverOptions options() {
        ReceiverOptions options;
        options.fec = FecScheme::kXor;
        options.firstSequence = 10;
        return options;
    }
    KeepingReceiver receiver{options()};
};

TEST_F(NumberedReceiverTest, PlaysThePictureOfTheFirstNumberAtOnce) {
    receiver.push({10, 1000, true}, kIdr, 0);  // without the number it would wait for parameter sets
    EXPECT_EQ(Timestamps{1000}, receiver.played());
    EXPECT_TRUE(receiver.pictures[0].isComplete);
}

TEST_F(NumberedReceiverTest, WaitsForWhatIsMissingBeforeTheFirstArrival) {
    receiver.push({11, 2000, true}, stapA({kSps, kPps, kIdr}), 0);
    EXPECT_EQ(Timestamps(), receiver.played());
    receiver.push({10, 1000, true}, kSlice, 5);
    EXPECT_EQ((Timestamps{1000, 2000}), receiver.played());
    EXPECT_TRUE(receiver.pictures[0].isComplete);
    EXPECT_TRUE(receiver.pictures[1].isComplete);
}

TEST_F(NumberedReceiverTest, CountsWhatNeverArrivedBeforeTheFirstArrival) {
    receiver.push({12, 2000, true}, stapA({kSps, kPps, kIdr}), 0);
    EXPECT_EQ(atMs(200), receiver.receiver.poll(atMs(199)));
    EXPECT_EQ(Timestamps(), receiver.played());
    receiver.receiver.poll(atMs(200));
    EXPECT_EQ(Timestamps{2000}, receiver.played());
    EXPECT_EQ(2u, receiver.pictures[0].missing);
    EXPECT_FALSE(receiver.pictures[0].isComplete);
    EXPECT_EQ(10, receiver.pictures[0].first);
}

TEST_F(NumberedReceiverTest, PlaysAFirstPictureOfWhichOnlyTheFecPacketArrived) {
    SenderOptions sending;
    sending.ssrc = test::kSource;
    sending.fec = Fec::xorParity(1);
    sending.firstSequence = 10;
    Sender sender(sending, [this](const Datagram& datagram) {
        if (datagram.isFec) {
            receiver.push(test::copyOf(datagram.bytes), 0);
        }
    });
    sender.sendPicture(1000, std::vector<Bytes>{kIdr});
    sender.flush();
    EXPECT_EQ(Timestamps{1000}, receiver.played());
    EXPECT_EQ(annexB({kIdr}), receiver.pictures[0].bytes);
    EXPECT_EQ(1u, receiver.receiver.statistics().rebuiltPackets);
}

TEST_F(NumberedReceiverTest, ForgetsTheNumberWhenTheSenderBeginsAnew) {
    receiver.push({10, 1000, true}, kSlice, 0);
    receiver.push({30000, 2000, true}, stapA({kSps, kPps, kIdr}), 1);
    receiver.push({30001, 3000, true}, kSlice, 2);
    EXPECT_EQ((Timestamps{1000, 2000, 3000}), receiver.played());
    EXPECT_EQ(1u, receiver.receiver.statistics().restarts);
}

TEST(ReceiverTest, PlaysParameterSetsOfTheOptionsBeforeAPictureWithoutItsOwn) {
    ReceiverOptions options;
    options.parameterSets = {kSps, kPps};
    KeepingReceiver receiver(options);
    receiver.push({12, 1000, true}, kIdr, 0);
    receiver.push({13, 2000, true}, kIdr, 1);
    ASSERT_EQ((Timestamps{1000, 2000}), receiver.played());
    EXPECT_EQ(annexB({kSps, kPps, kIdr}), receiver.pictures[0].bytes);
    EXPECT_EQ((std::vector<Bytes>{kSps, kPps, kIdr}), receiver.pictures[0].units);
    EXPECT_TRUE(receiver.pictures[0].isComplete);
    EXPECT_EQ(annexB({kIdr}), receiver.pictures[1].bytes);
}

TEST(ReceiverTest, LeavesParameterSetsOfTheOptionsOutWhenThePictureBringsItsOwn) {
    ReceiverOptions options;
    options.parameterSets = {{0x67, 1}, {0x68, 1}};
    KeepingReceiver receiver(options);
    receiver.push({12, 1000, true}, stapA({kSps, kPps, kIdr}), 0);
    receiver.push({13, 2000, true}, kIdr, 1);
    ASSERT_EQ((Timestamps{1000, 2000}), receiver.played());
    EXPECT_EQ(annexB({kSps, kPps, kIdr}), receiver.pictures[0].bytes);
    EXPECT_EQ(annexB({kIdr}), receiver.pictures[1].bytes);
}

TEST(ReceiverTest, PlaysParameterSetsOfTheOptionsAgainWhenTheSenderBeginsAnew) {
    ReceiverOptions options;
    options.parameterSets = {kSps, kPps};
    KeepingReceiver receiver(options);
    receiver.push({12, 1000, true}, kIdr, 0);
    receiver.push({13, 2000, true}, kIdr, 1);
    receiver.push({40000, 3000, true}, kIdr, 2);
    receiver.push({40001, 4000, true}, kIdr, 3);
    ASSERT_EQ((Timestamps{1000, 2000, 3000, 4000}), receiver.played());
    EXPECT_EQ(annexB({kIdr}), receiver.pictures[1].bytes);
    EXPECT_EQ(annexB({kSps, kPps, kIdr}), receiver.pictures[2].bytes);
    EXPECT_EQ(annexB({kIdr}), receiver.pictures[3].bytes);
}

// --- Sources and senders that begin anew ---

TEST(ReceiverTest, HoldsToTheSourceThatTheOptionsName) {
    ReceiverOptions options;
    options.ssrc = 7;
    KeepingReceiver receiver(options);
    EXPECT_EQ(PushResult::otherSource, receiver.push({10, 1000, true, 8}, kSlice, 0));
    EXPECT_EQ(PushResult::otherSource, receiver.push({11, 1000, true, 8}, kSlice, 5000));
    EXPECT_EQ(PushResult::media, receiver.push({10, 2000, true, 7}, kSlice, 5001));
    EXPECT_EQ(7u, receiver.receiver.ssrc());
    EXPECT_EQ(Timestamps{2000}, receiver.played());
}

TEST(ReceiverTest, LeavesAFirstSourceThatDoesNotStay) {
    KeepingReceiver receiver;
    receiver.push({500, 1, true, 666}, kSlice, 0);
    EXPECT_EQ(666u, receiver.receiver.ssrc());
    EXPECT_EQ(PushResult::otherSource, receiver.push({10, 1000, true}, kSlice, 1));
    EXPECT_EQ(PushResult::media, receiver.push({11, 2000, true}, kSlice, 2));
    EXPECT_EQ(test::kSource, receiver.receiver.ssrc());
    EXPECT_EQ((Timestamps{1, 1000, 2000}), receiver.played());
    EXPECT_EQ(666u, receiver.pictures[0].ssrc);
    EXPECT_EQ(test::kSource, receiver.pictures[1].ssrc);
    EXPECT_EQ(0u, receiver.receiver.statistics().otherSourceDatagrams);
}

TEST(ReceiverTest, FecPacketsMakeNoNewSource) {
    KeepingReceiver receiver;
    receiver.push({500, 1, true, 666}, kSlice, 0);
    for (const std::uint16_t sequence : {std::uint16_t{10}, std::uint16_t{11}}) {
        EXPECT_EQ(PushResult::otherSource,
                  receiver.push({sequence, 1, false, test::kSource, test::kFecType}, Bytes(20), 1));
    }
    EXPECT_EQ(666u, receiver.receiver.ssrc());
}

TEST_F(RunningReceiverTest, TakesAnotherSourceAfterASilence) {
    receiver.push({11, 2000, true}, kSlice, 100);
    receiver.push({70, 1, true, 8}, kSlice, 200);
    receiver.push({71, 2, true, 8}, kSlice, 2099);
    EXPECT_EQ(Timestamps{2000}, receiver.played());
    receiver.push({72, 3, true, 8}, kSlice, 2100);
    receiver.push({73, 4, true, 8}, kSlice, 2101);
    EXPECT_EQ((Timestamps{3, 4}), receiver.played());
    EXPECT_EQ(8u, receiver.receiver.ssrc());
    EXPECT_EQ(2u, receiver.receiver.statistics().otherSourceDatagrams);
}

TEST_F(RunningReceiverTest, FollowsASenderThatBeginsAnewAndPlaysTheRestOfTheOldStreamFirst) {
    receiver.push({12, 3000, true}, kSlice, 1);  // waits for 11
    receiver.push({40000, 77}, kSlice, 2);
    EXPECT_EQ(Timestamps(), receiver.played());
    EXPECT_EQ(1u, receiver.receiver.statistics().strayPackets);
    receiver.push({40001, 77, true}, kSlice, 3);
    EXPECT_EQ((Timestamps{3000, 77}), receiver.played());
    EXPECT_EQ(annexB({kSlice, kSlice}), receiver.pictures.back().bytes);
    const Statistics statistics = receiver.receiver.statistics();
    EXPECT_EQ(1u, statistics.restarts);
    EXPECT_EQ(0u, statistics.strayPackets);
    EXPECT_EQ(4u, statistics.receivedPacketNumber);  // by both sessions
}

TEST_F(RunningReceiverTest, FollowsASenderThatBeginsAnewWithTheSameNumbers) {
    receiver.push({11, 2000, true}, kSlice, 1);
    receiver.push({10, 777000, true}, kSlice, 2);
    receiver.push({11, 780000, true}, kSlice, 3);
    EXPECT_EQ((Timestamps{2000, 777000, 780000}), receiver.played());
}

TEST_F(RunningReceiverTest, IgnoresASingleNumberFarOff) {
    receiver.push({40000, 77, true}, kSlice, 1);
    receiver.push({11, 2000, true}, kSlice, 2);
    receiver.push({40001, 77, true}, kSlice, 3);
    EXPECT_EQ(Timestamps{2000}, receiver.played());
    EXPECT_EQ(2u, receiver.receiver.statistics().strayPackets);
    EXPECT_EQ(0u, receiver.receiver.statistics().restarts);
}

// --- The host ---

TEST(ReceiverTest, ThrowsForOptionsThatCannotWork) {
    ReceiverOptions options;
    options.wait = std::chrono::milliseconds(4001);
    EXPECT_THROW(Receiver(options, [](const Picture&) {}), std::invalid_argument);
}

TEST(ReceiverTest, GoesOnAfterTheHostThrew) {
    int played = 0;
    Receiver receiver(ReceiverOptions(), [&](const Picture& picture) {
        if (++played == 1) {
            throw std::runtime_error("full");
        }
        EXPECT_EQ(annexB({kSlice}), test::copyOf(picture.annexB()));
    });
    EXPECT_THROW(receiver.push(rtp({10, 1000, true}, kSlice), atMs(0)), std::runtime_error);
    receiver.push(rtp({11, 2000, true}, kSlice), atMs(1));
    receiver.push(rtp({12, 3000, true}, kSlice), atMs(2));
    EXPECT_EQ(3, played);
}

TEST(ReceiverTest, MayBeCalledFromWithinTheHostsFunction) {
    Timestamps order;
    Receiver* self = nullptr;
    Receiver receiver(ReceiverOptions(), [&](const Picture& picture) {
        order.push_back(picture.timestamp());
        if (picture.timestamp() == 1000) {
            self->push(rtp({11, 2000, true}, kIdr), atMs(1));
            self->push(rtp({13, 4000, true}, kIdr), atMs(1));
            self->poll(atMs(1));
            self->finish();
            EXPECT_EQ(annexB({kSlice}), test::copyOf(picture.annexB()));  // lent until the end
        }
    });
    self = &receiver;
    receiver.push(rtp({10, 1000, true}, kSlice), atMs(0));
    EXPECT_EQ((Timestamps{1000, 2000, 4000}), order);
}

TEST_F(RunningReceiverTest, PlaysOnWhenTheHostsClockStepsBack) {
    receiver.push({12, 3000, true}, kSlice, 1000);
    receiver.push({11, 2000, true}, kSlice, -500000);
    EXPECT_EQ((Timestamps{2000, 3000}), receiver.played());
    receiver.push({14, 5000, true}, kSlice, -500000);
    EXPECT_EQ(atMs(-499800), receiver.receiver.poll(atMs(-500000)));
}

// A gigabit per second and more: the session sees its numbers again within 5 seconds of the host's time.
TEST_F(RunningReceiverTest, TakesNoNewPacketForACopyAtAnyRate) {
    for (std::uint32_t i = 1; i <= 200000; ++i) {
        receiver.push({static_cast<std::uint16_t>(10 + i), 1000 + i, true}, kSlice, 1);
    }
    const Statistics statistics = receiver.receiver.statistics();
    EXPECT_EQ(200001u, statistics.completePictures);
    EXPECT_EQ(200001u, statistics.receivedValidMediaPacketNumber);
}

TEST_F(RunningReceiverTest, HoldsNoMoreThanTheWindowWhileAGapWaits) {
    for (std::uint32_t i = 2; i <= 20000; ++i) {
        receiver.push({static_cast<std::uint16_t>(10 + i), 1000 + i, true}, kSlice, 1);
    }
    // 11 is given up when 11 + 16384 arrives.
    EXPECT_EQ(20000u, receiver.pictures.size());
    EXPECT_EQ(1u, receiver.receiver.statistics().lostPackets);
}

}  // namespace
}  // namespace talrtp::kit
