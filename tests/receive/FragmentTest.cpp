// Reassembly of fragmented NAL units (RFC 6184, 5.8): where a run starts and ends, and when it is handed
// over.

#include "SessionFixture.h"

namespace talrtp {
namespace test {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

class FragmentTest : public SessionTest<SvcProbe> {
protected:
    void start(unsigned short seq, const Bytes& data) { media(seq, fragment(kStart, data)); }
    void middle(unsigned short seq, const Bytes& data) { media(seq, fragment(kMiddle, data)); }
    void end(unsigned short seq, const Bytes& data) { media(seq, fragment(kEnd, data)); }

    static ExpectedLine missing(const std::string& operation, int seq) {
        return warning("CMMRTPSession4SVC::" + operation +
                       " can't find packet, seq = " + std::to_string(seq));
    }
};

// --- Start and end rules -------------------------------------------------------------------------------

TEST_F(FragmentTest, WholePacketsAreStartAndEndAndFragmentsByTheirBits) {
    for (int type = 0; type < 32; ++type) {
        const unsigned short seq = static_cast<unsigned short>(type * 2);
        media(seq, {static_cast<unsigned char>(0xe0 | type), 0x00, 0x11});
        const bool isWhole = type >= 1 && type <= 24;
        EXPECT_EQ(session.isStartSeq(seq), isWhole) << type;
        EXPECT_EQ(session.isEndSeq(seq), isWhole) << type;
    }
    media(100, {0x7c, 0x80});
    EXPECT_TRUE(session.isStartSeq(100));
    EXPECT_FALSE(session.isEndSeq(100));
    media(102, {0x7c, 0x40});
    EXPECT_FALSE(session.isStartSeq(102));
    EXPECT_TRUE(session.isEndSeq(102));
    media(104, {0x7c, 0xc0});
    EXPECT_TRUE(session.isStartSeq(104));
    EXPECT_TRUE(session.isEndSeq(104));
    media(106, {0x7c, 0x3f});
    EXPECT_FALSE(session.isStartSeq(106));
    EXPECT_FALSE(session.isEndSeq(106));
}

TEST_F(FragmentTest, NothingStoredIsNeitherStartNorEnd) {
    EXPECT_FALSE(session.isStartSeq(7));
    EXPECT_FALSE(session.isEndSeq(7));
}

TEST_F(FragmentTest, StartIsFoundBackwardsOverStoredPackets) {
    start(65534, {0x01});
    middle(65535, {0x02});
    middle(0, {0x03});
    middle(1, {0x04});
    for (const unsigned short seq : {65534, 65535, 0, 1}) {
        unsigned short found = 7;
        EXPECT_TRUE(session.findStartSeq(seq, found)) << seq;
        EXPECT_EQ(found, 65534);
    }
}

TEST_F(FragmentTest, NearestStartWins) {
    start(10, {0x01});
    start(11, {0x02});
    middle(12, {0x03});
    unsigned short found = 0;
    EXPECT_TRUE(session.findStartSeq(12, found));
    EXPECT_EQ(found, 11);
}

TEST_F(FragmentTest, StartIsNotFoundAcrossAGapOrWithoutAPacket) {
    start(10, {0x01});
    middle(12, {0x03});
    unsigned short found = 7;
    EXPECT_FALSE(session.findStartSeq(12, found));
    EXPECT_FALSE(session.findStartSeq(11, found));
    EXPECT_FALSE(session.findStartSeq(9, found));
    EXPECT_EQ(found, 7);
}

TEST_F(FragmentTest, EndIsFoundForwardsAndLeftAtTheLastPacketBeforeAGap) {
    start(65534, {0x01});
    middle(65535, {0x02});
    middle(0, {0x03});
    end(2, {0x05});
    unsigned short found = 7;
    EXPECT_FALSE(session.findEndSeq(65534, found));
    EXPECT_EQ(found, 0);
    middle(1, {0x04});
    EXPECT_TRUE(session.findEndSeq(65534, found));
    EXPECT_EQ(found, 2);
    EXPECT_TRUE(session.findEndSeq(0, found));
    EXPECT_EQ(found, 2);
    found = 7;
    EXPECT_FALSE(session.findEndSeq(50, found));
    EXPECT_EQ(found, 7);
}

TEST_F(FragmentTest, FirstEndWins) {
    end(10, {0x01});
    end(11, {0x02});
    unsigned short found = 0;
    EXPECT_TRUE(session.findEndSeq(10, found));
    EXPECT_EQ(found, 10);
}

TEST_F(FragmentTest, RunsAreLookedForAcrossTimestampsWhichIsKept) {
    picture(1);
    start(10, {0x01});
    picture(2);
    end(11, {0x02});
    unsigned short found = 0;
    EXPECT_TRUE(session.findStartSeq(11, found));
    EXPECT_EQ(found, 10);
    EXPECT_TRUE(session.findEndSeq(10, found));
    EXPECT_EQ(found, 11);
    expectHandovers({{10, inByteStream({0x65, 0x01, 0x02}), 0}});
}

// --- Whole runs ----------------------------------------------------------------------------------------

TEST_F(FragmentTest, FragmentThatFillsTheLastGapHandsTheUnitOver) {
    start(10, {0x11, 0x12});
    end(12, {0x31});
    expectDelivered({});
    middle(11, {0x21, 0x22, 0x23});
    expectHandovers({{10, inByteStream({0x65, 0x11, 0x12, 0x21, 0x22, 0x23, 0x31}), 0}});
    expectLines({});
    EXPECT_EQ(session.m_deliveredDataBytes, 11u);
    EXPECT_TRUE(session.unitInfo(kTimestamp, 10)->delivered);
    EXPECT_EQ(session.ForceHandover(kTimestamp), 1);
}

TEST_F(FragmentTest, EveryOrderOfArrivalHandsTheUnitOverOnceWithItsLastFragment) {
    std::vector<int> order = {0, 1, 2, 3};
    unsigned int ts = 1;
    unsigned short base = 65534;  // the runs cross the wrap and go on from there
    do {
        picture(ts++);
        for (std::size_t i = 0; i < order.size(); ++i) {
            EXPECT_THAT(sink.handovers, IsEmpty());
            const int place = order[i];
            const unsigned char flags = place == 0 ? kStart : place == 3 ? kEnd : kMiddle;
            media(static_cast<unsigned short>(base + place),
                  fragment(flags, {static_cast<unsigned char>(0xa0 + place)}));
        }
        expectHandovers({{base, inByteStream({0x65, 0xa0, 0xa1, 0xa2, 0xa3}), 0}});
        base = static_cast<unsigned short>(base + 10);
    } while (std::next_permutation(order.begin(), order.end()));
    expectLines({});
}

TEST_F(FragmentTest, OnlyFragmentWithBothBitsIsAWholeUnit) {
    media(10, fragment(kStart | kEnd, {0x11}));
    expectHandovers({{10, inByteStream({0x65, 0x11}), 0}});
}

TEST_F(FragmentTest, RunAcrossTheWrapIsReassembled) {
    end(0, {0x22});
    start(65535, {0x11});
    expectHandovers({{65535, inByteStream({0x65, 0x11, 0x22}), 0}});
    EXPECT_EQ(session.unitInfo(kTimestamp, 65535)->packetCount, 2);
}

struct HeaderCase {
    unsigned char indicator;
    unsigned char header;
    unsigned char unitHeader;
};

TEST_F(FragmentTest, UnitHeaderIsPutTogetherFromIndicatorAndFragmentHeader) {
    const HeaderCase cases[] = {
        {0x7c, 0xc5, 0x65},  // NRI 3, type 5
        {0x3c, 0xc1, 0x21},  // NRI 1, type 1
        {0xfc, 0xc5, 0xe5},  // the forbidden bit travels along
        {0x7c, 0xe5, 0x65},  // the reserved bit of the fragment header does not
        {0x1c, 0xdf, 0x1f},  // NRI 0, type 31
        {0x7c, 0xc0, 0x60},  // type 0
    };
    unsigned short seq = 0;
    for (const HeaderCase& one : cases) {
        seq = static_cast<unsigned short>(seq + 2);
        media(seq, {one.indicator, one.header, 0x11});
        expectHandovers({{seq, inByteStream({one.unitHeader, 0x11}), 0}});
    }
}

TEST_F(FragmentTest, RtpHeaderIsThatOfTheStartFragment) {
    Bytes first = rtp(10, kTimestamp, join({{0xde, 0xad, 0xbe, 0xef}, fragment(kStart, {0x11})}));
    first[0] = 0x81;  // one CSRC
    Bytes last = rtp(11, kTimestamp, fragment(kEnd, {0x22}));
    last[1] |= 0x80;  // the marker stands on the last packet
    receive(last);
    receive(first);
    ASSERT_THAT(sink.handovers, SizeIs(1));
    EXPECT_EQ(sink.handovers[0].header, slice(first, 0, 16));
    EXPECT_EQ(sink.handovers[0].payload, inByteStream({0x65, 0x11, 0x22}));
}

TEST_F(FragmentTest, FragmentsMayBeEmptyAfterTheirTwoBytes) {
    start(10, {});
    middle(11, {});
    end(12, {0x33});
    expectHandovers({{10, inByteStream({0x65, 0x33}), 0}});
}

TEST_F(FragmentTest, UnitThatASessionCutComesBackWhole) {
    SvcProbe sender(nullptr, kPeerId);
    Bytes unit = join({{0x65}, pattern(5000, 3)});
    PacketArray<CTalRtpPacket> packets(5, 1400);
    ASSERT_EQ(sender.CreateFuaPackets(kTimestamp, 5001, unit.data(), 5, packets), 0);
    const unsigned short first = packets[0].get_sequence_number();
    for (const int place : {4, 1, 0, 3, 2}) {
        EXPECT_THAT(sink.handovers, IsEmpty());
        receive(bytesOf(packets[place]));
    }
    expectHandovers({{first, inByteStream(unit), 0}});
}

TEST_F(FragmentTest, TwoRunsInARowAreTwoUnits) {
    start(10, {0x11});
    end(11, {0x12});
    start(12, {0x21});
    end(13, {0x22});
    expectHandovers({{10, inByteStream({0x65, 0x11, 0x12}), 0}, {12, inByteStream({0x65, 0x21, 0x22}), 0}});
}

// --- Forced and partial runs ---------------------------------------------------------------------------

TEST_F(FragmentTest, ForceHandoverDeliversTheContiguousPartOnceWithTypeOne) {
    start(10, {0x11});
    middle(11, {0x22, 0x23});
    end(13, {0x44});
    EXPECT_EQ(session.ForceHandover(kTimestamp), 0);
    expectHandovers({{10, inByteStream({0x65, 0x11, 0x22, 0x23}), 1}});
    EXPECT_EQ(session.ForceHandover(kTimestamp), 1);
    expectDelivered({});
    expectLines({});
}

TEST_F(FragmentTest, FragmentThatCompletesAForcedRunHandsItOverAgainWhichIsKept) {
    start(10, {0x11});
    session.ForceHandover(kTimestamp);
    expectHandovers({{10, inByteStream({0x65, 0x11}), 1}});
    end(11, {0x22});
    expectHandovers({{10, inByteStream({0x65, 0x11, 0x22}), 0}});
}

TEST_F(FragmentTest, RunWithoutItsStartIsNeverDelivered) {
    middle(11, {0x22});
    end(12, {0x33});
    EXPECT_EQ(session.ForceHandover(kTimestamp), 1);
    expectDelivered({});
    expectLines({});
    EXPECT_THAT(session.tsInfo(kTimestamp)->dataInfoMap, IsEmpty());
}

TEST_F(FragmentTest, RunWithoutItsStartIsDroppedWithItsTimestamp) {
    at(1000);
    middle(11, {0x22});
    at(6001);
    picture(2);
    media(50);
    EXPECT_EQ(session.getMediaPacketBySeq(11), nullptr);
}

// --- Oddities that hosts see ---------------------------------------------------------------------------

TEST_F(FragmentTest, MiddleFragmentAfterASingleUnitHandsThatOverAsAFragmentWhichIsKept) {
    media(5, {0x41, 0x9a, 0x05, 0xa5});
    sink.handovers.clear();
    middle(6, {0x22});
    // (0x41 & 0xe0) | (0x9a & 0x1f), then the bytes of packet 5 from the third one on.
    expectHandovers({{5, inByteStream({0x5a, 0x05, 0xa5}), 0}});
    EXPECT_THAT(session.tsInfo(kTimestamp)->dataInfoMap, SizeIs(1));
}

TEST_F(FragmentTest, StrayMiddleFragmentAfterACompleteRunHandsThatOverAgainWhichIsKept) {
    start(10, {0x11});
    end(11, {0x22});
    sink.handovers.clear();
    middle(12, {0x33});
    expectHandovers({{10, inByteStream({0x65, 0x11, 0x22}), 0}});
    middle(13, {0x44});
    expectHandovers({{10, inByteStream({0x65, 0x11, 0x22}), 0}});
}

TEST_F(FragmentTest, SingleUnitAfterAnOpenRunEndsItWhichIsKept) {
    start(10, {0x11});
    media(12, {0x41, 0x9a, 0x05});
    sink.handovers.clear();
    middle(11, {0x22});
    expectHandovers({{10, inByteStream({0x65, 0x11, 0x22, 0x05}), 0}});
}

TEST_F(FragmentTest, EndIsLookedForPastAnotherStartWhichIsKept) {
    start(12, {0x33});
    end(13, {0x44});
    start(10, {0x11});
    sink.handovers.clear();
    middle(11, {0x22});
    expectHandovers({{10, inByteStream({0x65, 0x11, 0x22, 0x33, 0x44}), 0}});
}

// --- The single operations -----------------------------------------------------------------------------

TEST_F(FragmentTest, NullPacketsAreErrorsOfTheirOperation) {
    session.combineFUPacket(nullptr);
    session.forceHandoverFUPacket(nullptr);
    expectLines({error("CMMRTPSession4SVC::combineFUPacket invalid parameter: packet = 0x0"),
                 error("CMMRTPSession4SVC::forceHandoverFUPacket invalid parameter: packet = 0x0")});
}

TEST_F(FragmentTest, InfoOfARunGivesItsExtent) {
    start(65535, {0x11});
    middle(0, {0x22});
    bool complete = true;
    unsigned short first = 7;
    unsigned short last = 7;
    EXPECT_EQ(session.getFUPacketsInfoBySeq(0, complete, first, last), 0);
    EXPECT_FALSE(complete);
    EXPECT_EQ(first, 65535);
    EXPECT_EQ(last, 0);
    end(1, {0x33});
    EXPECT_EQ(session.getFUPacketsInfoBySeq(65535, complete, first, last), 0);
    EXPECT_TRUE(complete);
    EXPECT_EQ(first, 65535);
    EXPECT_EQ(last, 1);
}

TEST_F(FragmentTest, InfoOfAPacketThatIsNotStoredIsAWarning) {
    bool complete = true;
    unsigned short first = 7;
    unsigned short last = 7;
    EXPECT_EQ(session.getFUPacketsInfoBySeq(10, complete, first, last), 1);
    EXPECT_FALSE(complete);
    EXPECT_EQ(first, 0);
    EXPECT_EQ(last, 0);
    expectLines({missing("getFUPacketsInfoBySeq", 10)});
}

TEST_F(FragmentTest, InfoOfAFragmentWithoutItsStartIsSilent) {
    middle(10, {0x11});
    bool complete = true;
    unsigned short first = 7;
    unsigned short last = 7;
    EXPECT_EQ(session.getFUPacketsInfoBySeq(10, complete, first, last), 1);
    EXPECT_FALSE(complete);
    EXPECT_EQ(first, 0);
    EXPECT_EQ(last, 0);
    expectLines({});
}

TEST_F(FragmentTest, PayloadSizeOfARunIsWithoutTheTwoBytesOfEach) {
    start(65535, {0x11, 0x12});
    middle(0, {0x21, 0x22, 0x23});
    end(1, {});
    EXPECT_EQ(session.getFUPacketsPayloadSize(65535, 65535), 2u);
    EXPECT_EQ(session.getFUPacketsPayloadSize(65535, 0), 5u);
    EXPECT_EQ(session.getFUPacketsPayloadSize(65535, 1), 5u);
    expectLines({});
}

TEST_F(FragmentTest, PayloadSizeStopsAtAGapWithAWarning) {
    start(10, {0x11, 0x12});
    end(12, {0x31});
    EXPECT_EQ(session.getFUPacketsPayloadSize(10, 12), 2u);
    expectLines({missing("getFUPacketsPayloadSize", 11)});
    EXPECT_EQ(session.getFUPacketsPayloadSize(20, 21), 0u);
    expectLines({missing("getFUPacketsPayloadSize", 20)});
}

TEST_F(FragmentTest, DeliveryWithoutTheStartIsAWarning) {
    session.deliveFUPacket(10, 12, true);
    expectLines({warning("CMMRTPSession4SVC::deliveFUPacket can't find start packet, start seq = 10")});
    expectDelivered({});
}

TEST_F(FragmentTest, DeliveryAcrossAGapGivesWhatStandsBeforeIt) {
    start(10, {0x11});
    middle(11, {0x22});
    end(13, {0x44});
    session.deliveFUPacket(10, 13, false);
    expectHandovers({{10, inByteStream({0x65, 0x11, 0x22}), 1}});
    expectLines({missing("getFUPacketsPayloadSize", 12), missing("deliveFUPacket", 12)});
}

TEST_F(FragmentTest, TypeOfADeliveryIsWhatTheRecordSaysWhateverIsMissing) {
    start(10, {0x11});
    session.deliveFUPacket(10, 11, true);
    expectHandovers({{10, inByteStream({0x65, 0x11}), 0}});
    expectLines({missing("getFUPacketsPayloadSize", 11), missing("deliveFUPacket", 11)});
}

TEST_F(FragmentTest, DeliveryMarksTheRunsRecord) {
    start(10, {0x11});
    EXPECT_FALSE(session.unitInfo(kTimestamp, 10)->delivered);
    session.deliveFUPacket(10, 10, false);
    EXPECT_TRUE(session.unitInfo(kTimestamp, 10)->delivered);
}

// A run may lose fragments that belong to an older timestamp.
TEST_F(FragmentTest, ForceHandoverOfARunWhoseMiddleAgedOutWarnsAndDeliversTheRest) {
    at(1000);
    picture(1);
    middle(11, {0x22});
    at(5000);
    picture(2);
    start(10, {0x11});
    middle(12, {0x33});
    EXPECT_EQ(session.unitInfo(2, 10)->packetCount, 3);
    at(6001);
    media(50);
    sink.handovers.clear();
    EXPECT_EQ(session.ForceHandover(2), 0);
    expectHandovers({{10, inByteStream({0x65, 0x11}), 1}});
    expectLines({missing("getFUPacketsPayloadSize", 11), missing("deliveFUPacket", 11)});
}

TEST_F(FragmentTest, FragmentThatAgedOutIsAGapAgain) {
    at(1000);
    picture(1);
    middle(11, {0x22});
    at(5000);
    picture(2);
    start(10, {0x11});
    middle(12, {0x33});
    at(6001);
    media(50);
    sink.handovers.clear();
    unsigned short found = 7;
    EXPECT_FALSE(session.findStartSeq(12, found));
    EXPECT_EQ(found, 7);
    EXPECT_FALSE(session.findEndSeq(10, found));
    EXPECT_EQ(found, 10);
    end(13, {0x44});
    expectDelivered({});
    middle(11, {0x55});
    expectHandovers({{10, inByteStream({0x65, 0x11, 0x55, 0x33, 0x44}), 0}});
}

// The library's class goes on with the unit that grew last. Here its record has aged out, and the next
// fragment of its timestamp gets a record in the same memory.
TEST_F(FragmentTest, RunThatAgedOutIsNotGoneOnWith) {
    CMMRTPSession4SVC own(&sink, kSourceId);
    const auto receiveAt = [&own](unsigned long now, Bytes datagram) {
        EXPECT_EQ(own.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), now), 0);
    };
    receiveAt(0, rtp(10, kTimestamp, fragment(kStart, {1})));
    receiveAt(0, rtp(11, kTimestamp, fragment(kMiddle, {2})));
    receiveAt(6000, rtp(500, kTimestamp + 1, unitOf(500)));
    expectDelivered({500});
    receiveAt(6000, rtp(12, kTimestamp, fragment(kEnd, {3})));
    EXPECT_EQ(own.ForceHandover(kTimestamp), 1);
    expectDelivered({});
    expectLines({});
    receiveAt(6000, rtp(11, kTimestamp, fragment(kMiddle, {2})));
    receiveAt(6000, rtp(10, kTimestamp, fragment(kStart, {1})));
    ASSERT_THAT(sink.handovers, SizeIs(1));
    EXPECT_EQ(sink.handovers[0].payload, inByteStream({0x65, 1, 2, 3}));
}

}  // namespace
}  // namespace test
}  // namespace talrtp
