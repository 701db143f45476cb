// Ordering, delivery and ageing, as the base session does them and as both classes share them.

#include <limits>

#include "SessionFixture.h"

namespace talrtp {
namespace test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class BaseDeliveryTest : public SessionTest<BaseProbe> {};
class DeliveryTest : public SessionTest<SvcProbe> {};

// --- The base session ----------------------------------------------------------------------------------

TEST_F(BaseDeliveryTest, EveryPacketIsHandedOverAtOnceInOrderOfArrival) {
    media(3);
    expectDelivered({3});
    media(1);
    media(9);
    expectDelivered({1, 9});
    expectLines({});
}

TEST_F(BaseDeliveryTest, StoredPacketItselfIsLentWithTypeZero) {
    media(3);
    ASSERT_THAT(sink.handovers, SizeIs(1));
    EXPECT_EQ(sink.handovers[0].packet, session.getMediaPacketBySeq(3));
    EXPECT_EQ(sink.handovers[0].packetType, 0u);
    EXPECT_EQ(session.getMediaPacketBySeq(3)->get_packet_type(), 0u);
}

TEST_F(BaseDeliveryTest, NoUnitTypeIsLookedAt) {
    media(1, {0x00, 0x01});
    media(2, fragment(kMiddle, {0x01}));
    media(3, {});
    EXPECT_THAT(sink.handovers, SizeIs(3));
    expectLines({});
}

TEST_F(BaseDeliveryTest, NullPacketsAreErrorsOfTheBase) {
    session.dealPacket(nullptr);
    session.forceHandoverPacket(nullptr);
    expectLines({error("CMMRTPSessionBase::dealPacket invalid parameter: packet = 0x0"),
                 error("CMMRTPSessionBase::forceHandoverPacket invalid parameter: packet = 0x0")});
    expectDelivered({});
}

TEST_F(BaseDeliveryTest, ForcedHandOverLendsThePacketWithTypeZero) {
    CTalRtpPacket packet(100);
    packet.set_payload_size(4);
    session.forceHandoverPacket(&packet);
    ASSERT_THAT(sink.handovers, SizeIs(1));
    EXPECT_EQ(sink.handovers[0].packet, &packet);
    EXPECT_EQ(sink.handovers[0].packetType, 0u);
}

TEST_F(BaseDeliveryTest, EveryPacketIsAUnitByItself) {
    media(5, fragment(kMiddle, {0x01}));
    const stTalRtpDataInfo* const unit = session.unitInfo(kTimestamp, 5);
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(unit->packetCount, 1);
    EXPECT_TRUE(unit->complete);
    EXPECT_TRUE(unit->delivered);
}

TEST_F(BaseDeliveryTest, StartAndEndAreTheNumberItselfStoredOrNot) {
    for (const unsigned short seq : {0, 1, 40000, 65535}) {
        unsigned short start = 7;
        unsigned short end = 7;
        EXPECT_TRUE(session.findStartSeq(seq, start));
        EXPECT_EQ(start, seq);
        EXPECT_TRUE(session.findEndSeq(seq, end));
        EXPECT_EQ(end, seq);
        EXPECT_TRUE(session.isStartSeq(seq));
        EXPECT_TRUE(session.isEndSeq(seq));
    }
}

TEST_F(BaseDeliveryTest, ForceHandoverFindsEverythingDelivered) {
    media(5);
    sink.handovers.clear();
    EXPECT_EQ(session.ForceHandover(kTimestamp), 1);
    expectDelivered({});
}

// --- deliverPacket -------------------------------------------------------------------------------------

TEST_F(BaseDeliveryTest, DeliveryCountsAndMarksBeforeItCallsTheSink) {
    unsigned long counted = 0;
    bool marked = false;
    sink.onPacket = [&](CTalRtpPacket* packet) {
        counted = session.m_deliveredDataBytes;
        marked = session.unitInfo(kTimestamp, packet->get_sequence_number())->delivered;
    };
    media(5);
    EXPECT_EQ(counted, 4u);
    EXPECT_TRUE(marked);
}

TEST_F(BaseDeliveryTest, DeliveredBytesAreThePayloadsOfEveryHandOver) {
    media(1);
    media(2, {0x41});
    media(3, {});
    EXPECT_EQ(session.m_deliveredDataBytes, 5u);
}

TEST_F(BaseDeliveryTest, NegativePayloadSizeIsWidenedWithItsSign) {
    CTalRtpPacket packet(100);
    packet.set_payload_size(-3);
    sink.onPacket = nullptr;
    BaseProbe silent(nullptr, kSourceId);
    silent.deliverPacket(&packet);
    EXPECT_EQ(silent.m_deliveredDataBytes, 0u);  // no sink: nothing at all

    struct Ignoring : ITalRTPSessionSink {
        void OnReceivedRTPPacket(CTalRtpPacket*) override {}
    } ignoring;
    BaseProbe counting(&ignoring, kSourceId);
    counting.deliverPacket(&packet);
    EXPECT_EQ(counting.m_deliveredDataBytes, 0xfffffffffffffffdu);
}

TEST_F(BaseDeliveryTest, NullPacketIsNotDeliveredAndNotReported) {
    session.deliverPacket(nullptr);
    EXPECT_EQ(session.m_deliveredDataBytes, 0u);
    expectDelivered({});
    expectLines({});
}

TEST_F(BaseDeliveryTest, WithoutASinkNothingIsCountedOrMarked) {
    BaseProbe silent(nullptr, kSourceId);
    Bytes datagram = rtp(1, kTimestamp, unitOf(1));
    EXPECT_EQ(silent.InputReceivedData(datagram.data(), 16, 0), 0);
    EXPECT_EQ(silent.m_deliveredDataBytes, 0u);
    EXPECT_FALSE(silent.unitInfo(kTimestamp, 1)->delivered);
    EXPECT_EQ(silent.getMediaPacketBySeq(1)->get_packet_type(), 0u);
}

TEST_F(BaseDeliveryTest, PacketThatHasNoRecordIsDeliveredAllTheSame) {
    CTalRtpPacket packet(100);
    packet.set_payload_size(4);
    session.deliverPacket(&packet);
    EXPECT_THAT(sink.handovers, SizeIs(1));
    EXPECT_EQ(session.m_deliveredDataBytes, 4u);
    EXPECT_THAT(session.m_tsInfoList, IsEmpty());
}

// --- ForceHandover -------------------------------------------------------------------------------------

TEST_F(DeliveryTest, ForceHandoverOfAnUnknownTimestampReturnsOne) {
    EXPECT_EQ(session.ForceHandover(1), 1);
    media(5);
    sink.handovers.clear();
    EXPECT_EQ(session.ForceHandover(kTimestamp + 1), 1);
    EXPECT_EQ(session.ForceHandover(kTimestamp), 1);  // all delivered
    expectDelivered({});
    expectLines({});
}

TEST_F(DeliveryTest, ForceHandoverOfATimestampWithoutUnitsReturnsOne) {
    media(5, fragment(kMiddle, {0x01}));
    EXPECT_EQ(session.ForceHandover(kTimestamp), 1);
    expectDelivered({});
    expectLines({});
}

TEST_F(DeliveryTest, ForceHandoverUsesTheLowBitsOfTheTimestamp) {
    media(5, fragment(kStart, {0x01}));
    EXPECT_EQ(session.ForceHandover(0xabcd00000000u + kTimestamp), 0);
    EXPECT_THAT(sink.handovers, SizeIs(1));
}

TEST_F(DeliveryTest, ForceHandoverGoesByPlainNumbersWhichIsKept) {
    media(65000, fragment(kStart, {0x01}));
    media(3, fragment(kStart, {0x02}));
    media(500, fragment(kStart, {0x03}));
    EXPECT_EQ(session.ForceHandover(kTimestamp), 0);
    ASSERT_THAT(sink.handovers, SizeIs(3));
    EXPECT_EQ(sink.handovers[0].seq, 3);
    EXPECT_EQ(sink.handovers[1].seq, 500);
    EXPECT_EQ(sink.handovers[2].seq, 65000);
}

TEST_F(DeliveryTest, ForceHandoverSkipsWhatWasDelivered) {
    media(1);
    media(2, fragment(kStart, {0x01}));
    media(4);
    sink.handovers.clear();
    EXPECT_EQ(session.ForceHandover(kTimestamp), 0);
    expectHandovers({{2, inByteStream({0x65, 0x01}), 1}});
    EXPECT_EQ(session.ForceHandover(kTimestamp), 1);
    expectDelivered({});
}

TEST_F(DeliveryTest, ForceHandoverTouchesNoOtherTimestamp) {
    picture(1);
    media(10, fragment(kStart, {0x01}));
    picture(2);
    media(20, fragment(kStart, {0x02}));
    EXPECT_EQ(session.ForceHandover(2), 0);
    expectHandovers({{20, inByteStream({0x65, 0x02}), 1}});
}

// A unit whose start packet belongs to an older timestamp outlives it there.
TEST_F(DeliveryTest, ForceHandoverOfAUnitWhoseStartAgedOutReportsANullPacket) {
    at(1000);
    picture(1);
    media(10, fragment(kStart, {0x01}));
    at(5000);
    picture(2);
    media(11, fragment(kMiddle, {0x02}));
    at(6001);
    media(30);
    EXPECT_EQ(session.getMediaPacketBySeq(10), nullptr);
    sink.handovers.clear();
    EXPECT_EQ(session.ForceHandover(2), 0);
    expectLines({error("CMMRTPSession4SVC::forceHandoverPacket invalid parameter: packet = 0x0")});
    expectDelivered({});
    EXPECT_EQ(session.ForceHandover(2), 0);  // it stays undelivered
}

TEST_F(DeliveryTest, ForceHandoverWithoutASinkLeavesTheUnitUndelivered) {
    SvcProbe silent(nullptr, kSourceId);
    Bytes datagram = rtp(1, kTimestamp, fragment(kStart, {0x01}));
    silent.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), 0);
    EXPECT_EQ(silent.ForceHandover(kTimestamp), 0);
    EXPECT_EQ(silent.ForceHandover(kTimestamp), 0);  // nobody took it, so it was not delivered
}

// --- Ageing --------------------------------------------------------------------------------------------

TEST_F(DeliveryTest, RecordOf5000MillisecondsIsKeptAndOf5001Dropped) {
    at(1000);
    picture(1);
    media(10);
    at(6000);
    picture(2);
    media(20);
    EXPECT_NE(session.tsInfo(1), nullptr);
    EXPECT_NE(session.getMediaPacketBySeq(10), nullptr);
    at(6001);
    media(21);
    EXPECT_EQ(session.tsInfo(1), nullptr);
    EXPECT_EQ(session.getMediaPacketBySeq(10), nullptr);
    EXPECT_NE(session.getMediaPacketBySeq(20), nullptr);
    EXPECT_THAT(session.m_mediaPacketList, SizeIs(2));
    EXPECT_THAT(session.m_tsInfoList, SizeIs(1));
}

TEST_F(DeliveryTest, LaterPacketOfATimestampKeepsItAlive) {
    at(1000);
    picture(1);
    media(10);
    at(5000);
    media(11);
    at(10000);
    picture(2);
    media(20);
    EXPECT_NE(session.getMediaPacketBySeq(10), nullptr);
    at(10001);
    media(21);
    EXPECT_EQ(session.getMediaPacketBySeq(10), nullptr);
    EXPECT_EQ(session.getMediaPacketBySeq(11), nullptr);
}

TEST_F(DeliveryTest, FecPacketsAgeOutWithTheirTimestamp) {
    session.SetFecType(RTP_FEC_XOR);
    XorFec fec;
    fec.seq = 500;
    fec.timestamp = 1;
    fec.base = 100;
    fec.mask = 0xc00000;
    at(1000);
    receive(fec.bytes());
    fec.seq = 501;
    fec.timestamp = 2;
    at(3000);
    receive(fec.bytes());
    at(6001);
    picture(3);
    media(20);
    EXPECT_EQ(session.getFECPacketBySeq(500), nullptr);
    EXPECT_NE(session.getFECPacketBySeq(501), nullptr);
    EXPECT_EQ(session.tsInfo(1), nullptr);
    EXPECT_NE(session.tsInfo(2), nullptr);
}

TEST_F(DeliveryTest, ManyRecordsAgeOutAtOnce) {
    at(1000);
    for (unsigned short seq = 0; seq < 100; ++seq) {
        picture(1000u + seq);
        media(seq);
    }
    at(6001);
    picture(5);
    media(500);
    EXPECT_THAT(session.m_tsInfoList, SizeIs(1));
    EXPECT_THAT(session.m_mediaPacketList, SizeIs(1));
}

TEST_F(DeliveryTest, ClockThatStepsBackAgesEverythingOutWhichIsKept) {
    at(1000);
    picture(1);
    media(10);
    at(999);
    picture(2);
    media(20);
    EXPECT_EQ(session.tsInfo(1), nullptr);
    EXPECT_EQ(session.getMediaPacketBySeq(10), nullptr);
    EXPECT_NE(session.getMediaPacketBySeq(20), nullptr);
}

// 5000 ms lie between the two sides of the wrap-around, then 5001.
TEST_F(DeliveryTest, AgeIsCountedAcrossTheWrapAroundOfTheClock) {
    at(std::numeric_limits<unsigned long>::max() - 999);
    picture(1);
    media(10);
    at(4000);
    picture(2);
    media(20);
    EXPECT_NE(session.getMediaPacketBySeq(10), nullptr);
    at(4001);
    picture(3);
    media(30);
    EXPECT_EQ(session.getMediaPacketBySeq(10), nullptr);
    EXPECT_NE(session.getMediaPacketBySeq(20), nullptr);
}

// An idle FEC packet looks at no clock, so a record may be older than one that was made before it.
TEST_F(DeliveryTest, EachRecordAgesByItsOwnTime) {
    session.SetFecType(RTP_FEC_XOR);
    XorFec fec;
    fec.timestamp = 2;
    fec.base = 100;
    fec.mask = 0xc00000;
    at(5000);
    picture(1);
    media(10);
    at(3000);
    receive(fec.bytes());
    EXPECT_NE(session.tsInfo(1), nullptr);
    at(8001);
    picture(3);
    media(20);
    EXPECT_EQ(session.tsInfo(2), nullptr);
    EXPECT_THAT(session.m_fecPacketList, IsEmpty());
    EXPECT_NE(session.tsInfo(1), nullptr);
}

TEST_F(DeliveryTest, LateDuplicateOfAnAgedOutPacketIsDeliveredAgainWhichIsKept) {
    at(1000);
    media(10);
    at(6001);
    picture(2);
    media(20);
    expectDelivered({10, 20});
    picture(kTimestamp);
    media(10);
    expectDelivered({10});
}

TEST_F(DeliveryTest, PacketStaysStoredAfterItsDelivery) {
    media(10);
    EXPECT_NE(session.getMediaPacketBySeq(10), nullptr);
    media(10);
    expectDelivered({10});
}

TEST_F(DeliveryTest, AgeingDropsUndeliveredPacketsWithoutATraceLine) {
    at(1000);
    picture(1);
    media(10, fragment(kStart, {0x01}));
    at(6001);
    picture(2);
    media(20);
    expectDelivered({20});
    expectLines({});
    EXPECT_EQ(session.ForceHandover(1), 1);
}

// Nothing but a stored or rebuilt packet looks at the clock.
TEST_F(DeliveryTest, DuplicatesUnknownTypesAndIdleFecPacketsAgeNothingOut) {
    at(1000);
    picture(1);
    media(10);
    at(3000);
    picture(2);
    media(20);
    at(7000);
    picture(1);
    media(10);
    receive(rtp(30, 3, unitOf(30), 0x55));
    RsFecFields fec;
    fec.base = 200;
    fec.mediaCount = 2;
    fec.count = 1;
    receive(fec.bytes());
    session.InputReceivedData(nullptr, 0, now);
    EXPECT_NE(session.getMediaPacketBySeq(10), nullptr);
    session.checkAllLists();
    EXPECT_EQ(session.getMediaPacketBySeq(10), nullptr);
    EXPECT_NE(session.getMediaPacketBySeq(20), nullptr);
}

// --- Comparisons ---------------------------------------------------------------------------------------

TEST(CompareTest, SequenceNumbersAcrossTheWrap) {
    EXPECT_EQ(CMMRTPSessionBase::compareSeq(7, 7), 0);
    EXPECT_EQ(CMMRTPSessionBase::compareSeq(8, 7), 1);
    EXPECT_EQ(CMMRTPSessionBase::compareSeq(7, 8), -1);
    EXPECT_EQ(CMMRTPSessionBase::compareSeq(0x0000, 0xffff), 1);
    EXPECT_EQ(CMMRTPSessionBase::compareSeq(0xffff, 0x0000), -1);
    EXPECT_EQ(CMMRTPSessionBase::compareSeq(32767, 0), 1);
    EXPECT_EQ(CMMRTPSessionBase::compareSeq(32769, 0), -1);
}

TEST(CompareTest, SequenceNumbersHalfWayApartAreBothNewerWhichIsKept) {
    EXPECT_EQ(CMMRTPSessionBase::compareSeq(0x8000, 0x0000), 1);
    EXPECT_EQ(CMMRTPSessionBase::compareSeq(0x0000, 0x8000), 1);
}

TEST(CompareTest, TimestampsAcrossTheWrap) {
    EXPECT_EQ(CMMRTPSessionBase::compareTS(7, 7), 0);
    EXPECT_EQ(CMMRTPSessionBase::compareTS(8, 7), 1);
    EXPECT_EQ(CMMRTPSessionBase::compareTS(7, 8), -1);
    EXPECT_EQ(CMMRTPSessionBase::compareTS(0, 0xffffffff), 1);
    EXPECT_EQ(CMMRTPSessionBase::compareTS(0xffffffff, 0), -1);
    EXPECT_EQ(CMMRTPSessionBase::compareTS(0x7fffffff, 0), 1);
    EXPECT_EQ(CMMRTPSessionBase::compareTS(0x80000001, 0), -1);
}

TEST(CompareTest, TimestampsHalfWayApartAreBothNewerWhichIsKept) {
    EXPECT_EQ(CMMRTPSessionBase::compareTS(0, 0x80000000), 1);
    EXPECT_EQ(CMMRTPSessionBase::compareTS(0x80000000, 0), 1);
}

// --- A host's own hooks --------------------------------------------------------------------------------

// Holds packets back until they are forced out.
class HoldingSession : public BaseProbe {
public:
    using BaseProbe::BaseProbe;

    void dealPacket(CTalRtpPacket* packet) override { dealt.push_back(packet->get_sequence_number()); }
    void forceHandoverPacket(CTalRtpPacket* packet) override {
        forced.push_back(packet == nullptr ? -1 : packet->get_sequence_number());
        BaseProbe::forceHandoverPacket(packet);
    }

    std::vector<int> dealt;
    std::vector<int> forced;
};

class HoldingTest : public SessionTest<HoldingSession> {};

TEST_F(HoldingTest, OwnHooksDecideWhenAPacketIsHandedOver) {
    media(3);
    media(1);
    EXPECT_THAT(session.dealt, ElementsAre(3, 1));
    expectDelivered({});
    EXPECT_EQ(session.ForceHandover(kTimestamp), 0);
    EXPECT_THAT(session.forced, ElementsAre(1, 3));
    expectDelivered({1, 3});
    EXPECT_EQ(session.ForceHandover(kTimestamp), 1);
}

// Takes every packet whose marker bit is clear for a start.
class MarkerRules : public SvcProbe {
public:
    using SvcProbe::SvcProbe;

    bool isStartSeq(unsigned short seq) override {
        const CTalRtpPacket* const packet = getMediaPacketBySeq(seq);
        return packet != nullptr && !packet->get_marker_flag();
    }
    bool isEndSeq(unsigned short seq) override {
        const CTalRtpPacket* const packet = getMediaPacketBySeq(seq);
        return packet != nullptr && packet->get_marker_flag();
    }
};

class MarkerRulesTest : public SessionTest<MarkerRules> {
protected:
    void marked(unsigned short seq, bool marker, const Bytes& payload) {
        Bytes datagram = rtp(seq, kTimestamp, payload);
        datagram[1] |= marker ? 0x80 : 0x00;
        receive(datagram);
    }
};

TEST_F(MarkerRulesTest, OwnStartAndEndRulesDecideWhereAUnitBeginsAndEnds) {
    marked(10, false, fragment(kMiddle, {0x01}));
    marked(11, true, fragment(kMiddle, {0x02}));
    expectHandovers({{10, inByteStream({0x65, 0x01, 0x02}), 0}});
    unsigned short found = 0;
    EXPECT_TRUE(session.findStartSeq(11, found));
    EXPECT_EQ(found, 10);
    EXPECT_TRUE(session.findEndSeq(10, found));
    EXPECT_EQ(found, 11);
}

// --- Records that aged out -----------------------------------------------------------------------------

class AgedRecordTest : public SessionTest<SvcProbe> {};

TEST_F(AgedRecordTest, TimestampUsedLastGetsANewRecordOnceItsOldOneAgedOut) {
    at(1000);
    media(1);
    at(6001);
    receive(rtp(2, kTimestamp, unitOf(2), 97));  // of no known type, but it tells the time
    session.checkAllLists();
    EXPECT_EQ(session.tsInfo(kTimestamp), nullptr);
    media(3);
    ASSERT_NE(session.tsInfo(kTimestamp), nullptr);
    EXPECT_EQ(session.tsInfo(kTimestamp)->createTime, 6001u);
    EXPECT_THAT(session.tsInfo(kTimestamp)->mediaSeqList, testing::ElementsAre(3));
    EXPECT_NE(session.unitInfo(kTimestamp, 3), nullptr);
}

// A unit is found across timestamps, so the record that ages out need not be that of the start packet.
TEST_F(AgedRecordTest, UnitGetsANewRecordOnceItsOldOneAgedOutThoughItsStartPacketStays) {
    at(1000);
    picture(1);
    media(10);
    picture(2);
    media(11, fragment(kMiddle, {0x22}));
    ASSERT_NE(session.unitInfo(2, 10), nullptr);
    at(5000);
    picture(1);
    media(50);
    at(6001);
    media(51);
    ASSERT_EQ(session.tsInfo(2), nullptr);
    ASSERT_NE(session.getMediaPacketBySeq(10), nullptr);
    picture(3);
    media(11, fragment(kMiddle, {0x33}));
    EXPECT_NE(session.unitInfo(3, 10), nullptr);
}

}  // namespace
}  // namespace test
}  // namespace talrtp
