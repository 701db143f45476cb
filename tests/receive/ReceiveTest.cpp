// The entry of received datagrams and the records that are kept of them.

#include "HeapCounter.h"
#include "SessionFixture.h"

namespace talrtp {
namespace test {
namespace {

// An XOR FEC packet that waits for numbers 100 and 101.
Bytes waitingFec(unsigned short seq) {
    XorFec fec;
    fec.seq = seq;
    fec.base = 100;
    fec.mask = 0xc00000;
    return fec.bytes();
}

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class ReceiveTest : public SessionTest<SvcProbe> {};

// --- InputReceivedData ---------------------------------------------------------------------------------

TEST_F(ReceiveTest, FirstCallSetsBothTimesAndLaterOnesTheLast) {
    at(5000);
    media(1);
    EXPECT_EQ(session.m_firstReceivedTime, 5000u);
    EXPECT_EQ(session.m_lastReceivedTime, 5000u);
    EXPECT_FALSE(session.m_isFirstReceived);
    at(5040);
    media(2);
    EXPECT_EQ(session.m_firstReceivedTime, 5000u);
    EXPECT_EQ(session.m_lastReceivedTime, 5040u);
    at(4000);  // the host's clock, whatever it does
    media(3);
    EXPECT_EQ(session.m_lastReceivedTime, 4000u);
}

TEST_F(ReceiveTest, FirstCallSetsBothTimesEvenForANullDatagram) {
    EXPECT_EQ(session.InputReceivedData(nullptr, 16, 5000), -1);
    EXPECT_EQ(session.m_firstReceivedTime, 5000u);
    EXPECT_EQ(session.m_lastReceivedTime, 5000u);
    EXPECT_FALSE(session.m_isFirstReceived);
    media(1);
    EXPECT_EQ(session.m_firstReceivedTime, 5000u);
}

TEST_F(ReceiveTest, FirstTimeMayBeZero) {
    at(0);
    media(1);
    at(70);
    media(2);
    EXPECT_EQ(session.m_firstReceivedTime, 0u);
    EXPECT_EQ(session.m_lastReceivedTime, 70u);
}

TEST_F(ReceiveTest, EveryCallCountsItsDatagramAndItsBytes) {
    media(1);                                     // 16 bytes, stored
    media(1);                                     // a duplicate
    receive(rtp(2, kTimestamp, {0x01}, 0x55));    // 13 bytes, unknown type
    session.InputReceivedData(nullptr, 1000, 0);  // null
    Bytes wrongVersion = rtp(3, kTimestamp, {});
    wrongVersion[0] = 0x40;
    receiveRefused(wrongVersion);  // 12 bytes, refused
    EXPECT_EQ(session.m_receivedPacketNumber, 5u);
    EXPECT_EQ(session.m_receivedPacketBytes, 16u + 16 + 13 + 1000 + 12);
    EXPECT_EQ(session.m_receivedMediaPacketNumber, 2u);
    EXPECT_EQ(session.m_receivedValidMediaPacketNumber, 1u);
}

TEST_F(ReceiveTest, NegativeLengthIsCountedSignExtended) {
    session.InputReceivedData(nullptr, -5, 0);
    EXPECT_EQ(session.m_receivedPacketBytes, 0xfffffffffffffffbu);
    expectLines({error("CMMRTPSessionBase::InputReceivedData load data failed, data = 0x0, dataLen = -5")});
}

TEST_F(ReceiveTest, NullDatagramIsAnError) {
    EXPECT_EQ(session.InputReceivedData(nullptr, 16, 0), -1);
    expectLines({error("CMMRTPSessionBase::InputReceivedData load data failed, data = 0x0, dataLen = 16")});
    EXPECT_EQ(session.m_receivedMediaPacketNumber, 0u);
}

TEST_F(ReceiveTest, DatagramThatFailsValidationIsAnErrorAndNotStored) {
    Bytes datagram = rtp(3, kTimestamp, unitOf(3));
    datagram[0] = 0x40;  // version 1
    {
        const DocumentedLeak leak;
        EXPECT_EQ(session.InputReceivedData(datagram.data(), 16, 7), -1);
    }
    expectLines({warning("CTalRtpPacket::validate, version isn't supported, version = 1", "TalRtpPacket"),
                 error("CMMRTPSessionBase::InputReceivedData check data validate failed, data = " +
                       printed(datagram.data()) + ", dataLen = 16")});
    EXPECT_EQ(session.m_lastReceivedTime, 7u);
    EXPECT_EQ(session.m_receivedMediaPacketNumber, 0u);
    EXPECT_THAT(session.m_mediaPacketList, IsEmpty());
    expectDelivered({});
}

TEST_F(ReceiveTest, RtcpOnTheRtpPortFailsValidation) {
    Bytes senderReport = rtp(6, kTimestamp, Bytes(16, 0x00));
    senderReport[1] = 200;
    EXPECT_EQ(receiveRefused(senderReport), -1);
    EXPECT_EQ(trace.messages(1).back(), "CTalRtpPacket::validate, RTCP packet is on RTP port?");
}

TEST_F(ReceiveTest, BytesAreCopied) {
    Bytes datagram = rtp(1, kTimestamp, unitOf(1));
    session.InputReceivedData(datagram.data(), 16, 0);
    std::fill(datagram.begin(), datagram.end(), 0xff);
    EXPECT_EQ(bytesOf(*session.getMediaPacketBySeq(1)), rtp(1, kTimestamp, unitOf(1)));
}

TEST_F(ReceiveTest, UnknownPayloadTypeIsToldAndReturnsOne) {
    EXPECT_EQ(receive(rtp(1, kTimestamp, unitOf(1), 97)), 1);
    expectLines({info("CMMRTPSessionBase::InputReceivedData payload type is unknown, type  = 97")});
    EXPECT_THAT(session.m_mediaPacketList, IsEmpty());
    EXPECT_THAT(session.m_tsInfoList, IsEmpty());
    EXPECT_EQ(session.m_receivedMediaPacketNumber, 0u);
    expectDelivered({});
}

TEST_F(ReceiveTest, MarkerBitIsNoPartOfThePayloadType) {
    Bytes datagram = rtp(1, kTimestamp, unitOf(1));
    datagram[1] |= 0x80;
    EXPECT_EQ(receive(datagram), 0);
    expectDelivered({1});
}

TEST_F(ReceiveTest, SourceIsNotCheckedWhichIsKept) {
    Bytes datagram = rtp(1, kTimestamp, unitOf(1));
    datagram[8] ^= 0xff;
    EXPECT_EQ(receive(datagram), 0);
    media(2);
    expectDelivered({1, 2});
}

TEST_F(ReceiveTest, EveryFecPacketIsAnsweredWithAnErrorLineWhichIsKept) {
    RsFecFields fec;
    fec.mediaCount = 2;
    fec.count = 1;
    fec.parity = Bytes(20, 0x01);
    EXPECT_EQ(receive(fec.bytes()), 0);
    EXPECT_EQ(receive(fec.bytes()), 0);  // a duplicate, destroyed before the line is given
    expectLines({fecArrived(), fecArrived()});
    EXPECT_EQ(session.m_receivedFECPacketNumber, 2u);

    session.SetFecType(RTP_FEC_XOR);
    session.SetPayloadType(98, 112);
    XorFec xorFec;
    xorFec.seq = 9;
    Bytes datagram = xorFec.bytes();
    datagram[1] = 112 | 0x80;  // the marker bit does not show
    EXPECT_EQ(receive(datagram), 0);
    expectLines({fecArrived(112)});
    EXPECT_EQ(session.m_receivedFECPacketNumber, 3u);
}

TEST_F(ReceiveTest, FecLineNeedsTheMaskAtZero) {
    trace.setMask(-1);
    receive(XorFec().bytes());
    EXPECT_THAT(trace.lines(), IsEmpty());
    trace.setMask(0);
    receive(XorFec().bytes());
    expectLines({fecArrived()});
}

TEST_F(ReceiveTest, FecLineFollowsWhatTheIntakeGave) {
    session.SetFecType(RTP_FEC_XOR);
    XorFec fec;
    fec.base = 5;
    fec.mask = 0x800000;
    fec.length = 4;
    fec.payloadType = 98;
    fec.recoveredTimestamp = kTimestamp;
    fec.parity = unitOf(5);
    receive(fec.bytes());
    expectLines({info("CMMRTPSessionBase::recoverPacketWithXORFEC recoveredSeq = 5, recoveredTS = 90000, "
                      "sourceID = 168496141"),
                 fecArrived()});
    expectDelivered({5});
}

// In an XOR FEC packet CC and X hold recovery values, so it is validated as a packet without either.
TEST_F(ReceiveTest, XorFecPacketIsMadeAsItsClassInXorModeOnly) {
    XorFec fec;
    fec.recoveredBits = 0x1f;  // X and 15 CSRCs: as a plain packet longer than its 24 bytes
    fec.mask = 0xc00000;
    session.SetFecType(RTP_FEC_XOR);
    EXPECT_EQ(receive(fec.bytes()), 0);
    ASSERT_NE(session.getFECPacketBySeq(0), nullptr);
    EXPECT_NE(dynamic_cast<CRTPFECPacket*>(session.getFECPacketBySeq(0)), nullptr);
    EXPECT_EQ(session.getFECPacketBySeq(0)->get_header_size(), 12);

    session.SetFecType(RTP_FEC_RS);
    fec.seq = 1;
    EXPECT_EQ(receiveRefused(fec.bytes()), -1);
    EXPECT_EQ(session.m_receivedFECPacketNumber, 1u);
}

TEST_F(ReceiveTest, RsFecPacketKeepsThePlainHeader) {
    RsFecFields fec;
    fec.mediaCount = 2;
    fec.count = 1;
    fec.parity = Bytes(20, 0x01);
    EXPECT_EQ(receive(fec.bytes()), 0);
    ASSERT_NE(session.getFECPacketBySeq(0), nullptr);
    EXPECT_EQ(dynamic_cast<CRTPFECPacket*>(session.getFECPacketBySeq(0)), nullptr);
}

TEST_F(ReceiveTest, FecTypeIsTestedBeforeTheMediaType) {
    session.SetPayloadType(0x100000060, 0x60);  // both 96
    EXPECT_EQ(receive(rtp(1, kTimestamp, unitOf(1), 96)), 0);
    EXPECT_EQ(session.m_receivedFECPacketNumber, 1u);
    EXPECT_EQ(session.m_receivedMediaPacketNumber, 0u);
}

// --- Duplicates and stored packets ---------------------------------------------------------------------

TEST_F(ReceiveTest, DuplicateIsDroppedSilently) {
    media(7);
    const unsigned long storedBytes = session.m_receivedValidMediaPacketBytes;
    expectDelivered({7});
    EXPECT_EQ(receive(rtp(7, kTimestamp + 1, {0x41, 0xff})), 0);
    expectDelivered({});
    expectLines({});
    EXPECT_EQ(session.m_receivedMediaPacketNumber, 2u);
    EXPECT_EQ(session.m_receivedValidMediaPacketNumber, 1u);
    EXPECT_EQ(session.m_receivedValidMediaPacketBytes, storedBytes);
    EXPECT_EQ(bytesOf(*session.getMediaPacketBySeq(7)), rtp(7, kTimestamp, unitOf(7)));
    EXPECT_EQ(session.tsInfo(kTimestamp + 1), nullptr);
    EXPECT_THAT(session.tsInfo(kTimestamp)->mediaSeqList, ElementsAre(7));
}

TEST_F(ReceiveTest, DuplicateDoesNotKeepItsTimestampAlive) {
    at(1000);
    media(7);
    at(3000);
    media(7);
    EXPECT_EQ(session.tsInfo(kTimestamp)->updateTime, 1000u);
}

TEST_F(ReceiveTest, ValidBytesAreTheBufferSizes) {
    media(1);  // a small packet takes the least capacity
    EXPECT_EQ(session.m_receivedValidMediaPacketBytes, 1300u);
    media(2, join({{0x41}, Bytes(1287, 0x00)}));  // 12 + 1288 = 1300 bytes
    EXPECT_EQ(session.m_receivedValidMediaPacketBytes, 2600u);
    media(3, join({{0x41}, Bytes(1288, 0x00)}));  // 1301 bytes
    EXPECT_EQ(session.m_receivedValidMediaPacketBytes, 3901u);
}

TEST_F(ReceiveTest, MediaPacketIsFoundUnderItsNumber) {
    EXPECT_EQ(session.getMediaPacketBySeq(7), nullptr);
    media(7);
    ASSERT_NE(session.getMediaPacketBySeq(7), nullptr);
    EXPECT_EQ(session.getMediaPacketBySeq(7)->get_sequence_number(), 7);
    EXPECT_EQ(session.getMediaPacketBySeq(8), nullptr);
    EXPECT_EQ(session.m_mediaPacketList.count(7), 1u);
}

TEST_F(ReceiveTest, NullMediaPacketIsAnError) {
    EXPECT_EQ(session.inputReceivedMediaPacket(nullptr), -1);
    expectLines({error("CMMRTPSessionBase::inputReceivedMediaPacket invalid parameter: packet = 0x0")});
}

TEST_F(ReceiveTest, IsFecPacketComparesWithTheFecType) {
    EXPECT_TRUE(session.isFECPacket(111));
    EXPECT_FALSE(session.isFECPacket(98));
    session.SetPayloadType(111, 98);
    EXPECT_TRUE(session.isFECPacket(98));
    EXPECT_FALSE(session.isFECPacket(111));
}

// --- What is on the heap -------------------------------------------------------------------------------

class ObjectCountTest : public ::testing::Test {
protected:
    ObjectCountTest() {
        receive(rtp(1, kTimestamp, unitOf(1)));  // the first packet makes what the session itself needs
        receive(rtp(2, kTimestamp, unitOf(2)));
    }

    // The objects that one datagram leaves behind.
    long leftBy(const Bytes& datagram) {
        const long before = heap().blocks;
        receive(datagram);
        return heap().blocks - before;
    }
    void receive(const Bytes& datagram) {
        session.InputReceivedData(const_cast<unsigned char*>(datagram.data()),
                                  static_cast<int>(datagram.size()), 0);
    }

    SvcProbe session{nullptr, kSourceId};
};

TEST_F(ObjectCountTest, StoredPacketStays) {
    EXPECT_GE(leftBy(rtp(3, kTimestamp, unitOf(3))), 1);
}

TEST_F(ObjectCountTest, DuplicateIsDestroyed) {
    EXPECT_EQ(leftBy(rtp(2, kTimestamp, unitOf(2))), 0);
}

TEST_F(ObjectCountTest, PacketOfUnknownTypeIsDestroyed) {
    EXPECT_EQ(leftBy(rtp(3, kTimestamp, unitOf(3), 0x55)), 0);
}

TEST_F(ObjectCountTest, RefusedDatagramLeavesOnePacketAllocatedWhichIsKept) {
    Bytes wrongVersion = rtp(3, kTimestamp, unitOf(3));
    wrongVersion[0] = 0x40;
    const DocumentedLeak leak;
    EXPECT_EQ(leftBy(wrongVersion), 1);
    EXPECT_EQ(leftBy(wrongVersion), 1);
}

TEST_F(ObjectCountTest, NullDatagramLeavesNothing) {
    const long before = heap().blocks;
    session.InputReceivedData(nullptr, 100, 0);
    EXPECT_EQ(heap().blocks, before);
}

TEST_F(ObjectCountTest, SpentFecPacketAndItsDuplicateAreDestroyed) {
    session.SetFecType(RTP_FEC_XOR);
    XorFec fec;  // protects nothing
    leftBy(fec.bytes());
    EXPECT_EQ(leftBy(fec.bytes()), 0);
    fec.base = 100;
    fec.mask = 0xc00000;
    receive(fec.bytes());  // waits
    EXPECT_EQ(leftBy(fec.bytes()), 0);
}

TEST_F(ObjectCountTest, SessionFreesAllThatItHolds) {
    const long before = heap().blocks;
    {
        SvcProbe other(nullptr, kSourceId);
        other.SetFecType(RTP_FEC_XOR);
        const Bytes fec = waitingFec(0);
        for (const Bytes& datagram : {rtp(1, 1, unitOf(1)), rtp(2, 2, fragment(kStart, {1})), fec}) {
            other.InputReceivedData(const_cast<unsigned char*>(datagram.data()),
                                    static_cast<int>(datagram.size()), 0);
        }
    }
    EXPECT_EQ(heap().blocks, before);
}

TEST_F(ReceiveTest, ClearAllListEmptiesTheLists) {
    session.SetFecType(RTP_FEC_XOR);
    const Bytes fec = waitingFec(0);
    media(1);
    receive(fec);
    trace.clear();
    sink.handovers.clear();
    session.clearAllList();
    EXPECT_THAT(session.m_mediaPacketList, IsEmpty());
    EXPECT_THAT(session.m_fecPacketList, IsEmpty());
    EXPECT_THAT(session.m_recoverPacketList, IsEmpty());
    EXPECT_THAT(session.m_tsInfoList, IsEmpty());
    expectDelivered({});
    media(1);  // new again
    expectDelivered({1});
}

// Null entries, which only a derived class can have put into the lists.

TEST_F(ReceiveTest, NullEntryOfTheMediaListIsFilled) {
    session.m_mediaPacketList[700] = nullptr;
    media(700);
    media(700);
    expectDelivered({700});
    EXPECT_EQ(session.m_receivedValidMediaPacketNumber, 1u);
    EXPECT_EQ(session.m_mediaPacketList[700], session.getMediaPacketBySeq(700));
}

TEST_F(ReceiveTest, NullEntryOfTheFecListIsPassedOverAndFilled) {
    session.SetFecType(RTP_FEC_XOR);
    session.m_fecPacketList[700] = nullptr;
    media(1);
    const Bytes fec = waitingFec(700);
    receive(fec);
    ASSERT_NE(session.getFECPacketBySeq(700), nullptr);
    EXPECT_EQ(session.m_fecPacketList[700], session.getFECPacketBySeq(700));
    EXPECT_EQ(session.m_receivedValidFECPacketNumber, 1u);
}

TEST_F(ReceiveTest, NullRecordOfATimestampStaysAndThePacketIsDealt) {
    session.m_tsInfoList[kTimestamp] = nullptr;
    media(1);
    media(2);
    expectDelivered({1, 2});
    EXPECT_EQ(session.m_tsInfoList[kTimestamp], nullptr);
    EXPECT_EQ(session.ForceHandover(kTimestamp), 1);
}

TEST_F(ReceiveTest, NullRecordOfATimestampLeavesAFecPacketWithoutANote) {
    session.SetFecType(RTP_FEC_XOR);
    session.m_tsInfoList[kTimestamp] = nullptr;
    media(1);
    receive(waitingFec(700));
    EXPECT_NE(session.getFECPacketBySeq(700), nullptr);
    EXPECT_EQ(session.m_tsInfoList[kTimestamp], nullptr);
}

TEST_F(ReceiveTest, NullRecordOfAUnitStaysAndIsPassedOver) {
    media(1, fragment(kStart, {1}));
    session.tsInfo(kTimestamp)->dataInfoMap[3] = nullptr;
    session.updateMediaDataInfo(kTimestamp, 2);
    media(3);
    expectDelivered({3});
    EXPECT_EQ(session.tsInfo(kTimestamp)->dataInfoMap[3], nullptr);
    EXPECT_EQ(session.ForceHandover(kTimestamp), 0);
    ASSERT_EQ(sink.handovers.size(), 1u);
    EXPECT_EQ(sink.handovers[0].seq, 1);
    sink.handovers.clear();
    at(6001);
    picture(kTimestamp + 1);
    media(4);
    expectDelivered({4});
    EXPECT_EQ(session.tsInfo(kTimestamp), nullptr);
}

TEST_F(ReceiveTest, NullEntryOfTheRebuiltListIsDroppedBesideAPacket) {
    session.m_recoverPacketList[4] = nullptr;
    Bytes bytes = rtp(5, kTimestamp, unitOf(5));
    session.m_recoverPacketList[5] = new CTalRtpPacket(bytes.data(), static_cast<int>(bytes.size()));
    session.dealRecoverPacketList();
    expectDelivered({5});
    EXPECT_THAT(session.m_recoverPacketList, IsEmpty());
}

TEST_F(ReceiveTest, NullEntriesAreClearedWithTheOthers) {
    session.SetFecType(RTP_FEC_XOR);
    const Bytes fec = waitingFec(0);
    media(1);
    receive(fec);
    for (const unsigned short seq : {2, 700}) {  // beside a packet, and far from all
        session.m_mediaPacketList[seq] = nullptr;
        session.m_fecPacketList[seq] = nullptr;
        session.m_recoverPacketList[seq] = nullptr;
        session.m_tsInfoList[seq] = nullptr;
    }
    session.clearAllList();
    EXPECT_THAT(session.m_mediaPacketList, IsEmpty());
    EXPECT_THAT(session.m_fecPacketList, IsEmpty());
    EXPECT_THAT(session.m_recoverPacketList, IsEmpty());
    EXPECT_THAT(session.m_tsInfoList, IsEmpty());
    expectDelivered({1});
    media(1);  // all are new again
    media(2);
    media(700);
    expectDelivered({1, 2, 700});
}

// The packet that is being dealt goes with the others.
TEST_F(ReceiveTest, ListsMayBeClearedWhileAPacketIsDealt) {
    class ClearingSession : public SvcProbe {
    public:
        using SvcProbe::SvcProbe;
        void dealPacket(CTalRtpPacket* packet) override {
            SvcProbe::dealPacket(packet);
            clearAllList();
        }
    };
    ClearingSession clearing(&sink, kSourceId);
    for (int round = 0; round < 2; ++round) {
        for (const unsigned short seq : {1, 2, 700}) {
            Bytes datagram = rtp(seq, kTimestamp, unitOf(seq));
            EXPECT_EQ(clearing.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), 0), 0);
            EXPECT_THAT(clearing.m_mediaPacketList, IsEmpty());
            EXPECT_THAT(clearing.m_tsInfoList, IsEmpty());
        }
    }
    expectDelivered({1, 2, 700, 1, 2, 700});
}

// --- Records -------------------------------------------------------------------------------------------

TEST_F(ReceiveTest, FirstPacketOfATimestampMakesItsRecord) {
    at(1000);
    media(7);
    const stTalRtpTSInfo* const record = session.tsInfo(kTimestamp);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->createTime, 1000u);
    EXPECT_EQ(record->updateTime, 1000u);
    EXPECT_THAT(record->mediaSeqList, ElementsAre(7));
    EXPECT_THAT(record->fecSeqList, IsEmpty());
    ASSERT_THAT(record->dataInfoMap, SizeIs(1));

    const stTalRtpDataInfo* const unit = session.unitInfo(kTimestamp, 7);
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(unit->startSeq, 7);
    EXPECT_EQ(unit->packetCount, 1);
    EXPECT_TRUE(unit->complete);
    EXPECT_TRUE(unit->delivered);
}

TEST_F(ReceiveTest, LaterPacketsUpdateTheRecordInOrderOfArrival) {
    at(1000);
    media(9);
    at(1200);
    media(7);
    media(8);
    const stTalRtpTSInfo* const record = session.tsInfo(kTimestamp);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->createTime, 1000u);
    EXPECT_EQ(record->updateTime, 1200u);
    EXPECT_THAT(record->mediaSeqList, ElementsAre(9, 7, 8));
    EXPECT_THAT(session.m_tsInfoList, SizeIs(1));
}

TEST_F(ReceiveTest, EachTimestampHasItsRecord) {
    picture(5);
    media(1);
    picture(3);
    media(2);
    ASSERT_THAT(session.m_tsInfoList, SizeIs(2));
    EXPECT_EQ(session.m_tsInfoList.begin()->first, 3u);  // plain numeric order
    EXPECT_THAT(session.tsInfo(5)->mediaSeqList, ElementsAre(1));
    EXPECT_THAT(session.tsInfo(3)->mediaSeqList, ElementsAre(2));
}

TEST_F(ReceiveTest, PacketWithoutAKnownStartIsNotedButHasNoUnit) {
    media(7, fragment(kMiddle, {0x01}));
    EXPECT_THAT(session.tsInfo(kTimestamp)->mediaSeqList, ElementsAre(7));
    EXPECT_THAT(session.tsInfo(kTimestamp)->dataInfoMap, IsEmpty());
    EXPECT_EQ(session.getMediaDataInfo(kTimestamp, 7), nullptr);
}

TEST_F(ReceiveTest, UnitGrowsWithTheContiguousRunUntilItsEnd) {
    media(5, fragment(kStart, {0x01}));
    const stTalRtpDataInfo* const unit = session.unitInfo(kTimestamp, 5);
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(unit->packetCount, 1);
    EXPECT_FALSE(unit->complete);
    EXPECT_FALSE(unit->delivered);
    media(7, fragment(kMiddle, {0x03}));  // after a gap: no start to be found
    EXPECT_EQ(unit->packetCount, 1);
    media(6, fragment(kMiddle, {0x02}));
    EXPECT_EQ(unit->packetCount, 3);
    EXPECT_FALSE(unit->complete);
    media(8, fragment(kEnd, {0x04}));
    EXPECT_EQ(unit->packetCount, 4);
    EXPECT_TRUE(unit->complete);
    EXPECT_TRUE(unit->delivered);
    EXPECT_EQ(session.unitInfo(kTimestamp, 5), unit);
}

TEST_F(ReceiveTest, CompleteUnitIsNotUpdatedAgain) {
    media(5);
    media(6, fragment(kMiddle, {0x01}));  // links back to 5
    EXPECT_EQ(session.unitInfo(kTimestamp, 5)->packetCount, 1);
    EXPECT_TRUE(session.unitInfo(kTimestamp, 5)->complete);
    EXPECT_THAT(session.tsInfo(kTimestamp)->dataInfoMap, SizeIs(1));
}

TEST_F(ReceiveTest, RecordOfAUnitIsFoundFromEachOfItsPackets) {
    media(5, fragment(kStart, {0x01}));
    media(6, fragment(kEnd, {0x02}));
    stTalRtpDataInfo* const unit = session.unitInfo(kTimestamp, 5);
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(session.getMediaDataInfo(kTimestamp, 5), unit);
    EXPECT_EQ(session.getMediaDataInfo(kTimestamp, 6), unit);
    EXPECT_EQ(session.getMediaDataInfo(kTimestamp, 7), nullptr);
    EXPECT_EQ(session.getMediaDataInfo(kTimestamp + 1, 5), nullptr);
}

TEST_F(ReceiveTest, RecordIsKeptUnderTheTimestampOfTheLaterPacketToo) {
    picture(1);
    media(5, fragment(kStart, {0x01}));
    picture(2);
    media(6, fragment(kMiddle, {0x02}));
    EXPECT_EQ(session.unitInfo(1, 5)->packetCount, 1);
    ASSERT_NE(session.unitInfo(2, 5), nullptr);
    EXPECT_EQ(session.unitInfo(2, 5)->packetCount, 2);
    EXPECT_EQ(session.getMediaDataInfo(2, 6), session.unitInfo(2, 5));
    EXPECT_EQ(session.getMediaDataInfo(1, 6), session.unitInfo(1, 5));
}

TEST_F(ReceiveTest, NewestTimestampIsKept) {
    EXPECT_FALSE(session.updateReceivedTS(0));
    EXPECT_TRUE(session.updateReceivedTS(1000));
    EXPECT_EQ(session.m_receivedTS, 1000u);
    EXPECT_FALSE(session.updateReceivedTS(1000));
    EXPECT_FALSE(session.updateReceivedTS(999));
    EXPECT_EQ(session.m_receivedTS, 1000u);
    EXPECT_FALSE(session.updateReceivedTS(1000 + 0x80000001));
    EXPECT_EQ(session.m_receivedTS, 1000u);
    EXPECT_TRUE(session.updateReceivedTS(1000 + 0x80000000));
    EXPECT_EQ(session.m_receivedTS, 1000 + 0x80000000);
    EXPECT_TRUE(session.updateReceivedTS(5));  // across the wrap
    EXPECT_EQ(session.m_receivedTS, 5u);
}

TEST_F(ReceiveTest, ReceivingDoesNotTouchTheNewestTimestampWhichIsKept) {
    media(1);
    EXPECT_EQ(session.m_receivedTS, 0u);
}

// --- A host's own rules --------------------------------------------------------------------------------

// Gives scripted answers for the extent of every unit, and checks what it is asked with.
class ScriptedUnits : public BaseProbe {
public:
    using BaseProbe::BaseProbe;

    bool findStartSeq(unsigned short /*seq*/, unsigned short& startSeq) override {
        presets.push_back(startSeq);
        startSeq = start;
        return startFound;
    }
    bool findEndSeq(unsigned short startSeq, unsigned short& endSeq) override {
        presets.push_back(endSeq);
        askedStart = startSeq;
        endSeq = end;
        return endFound;
    }

    unsigned short start = 0;
    bool startFound = true;
    unsigned short end = 0;
    bool endFound = false;
    unsigned short askedStart = 0;
    std::vector<unsigned short> presets;
};

class ScriptedUnitsTest : public SessionTest<ScriptedUnits> {
protected:
    void recorded(unsigned short start, unsigned short end, bool endFound) {
        session.start = start;
        session.end = end;
        session.endFound = endFound;
        media(next++);
    }
    unsigned short next = 100;
};

TEST_F(ScriptedUnitsTest, StartAndEndAreAskedForWithZeroPreset) {
    recorded(20, 22, false);
    for (const unsigned short preset : session.presets) {
        EXPECT_EQ(preset, 0);
    }
    EXPECT_GE(session.presets.size(), 2u);
    EXPECT_EQ(session.askedStart, 20);
}

TEST_F(ScriptedUnitsTest, SpanCountsAcrossTheWrap) {
    recorded(65535, 1, true);
    ASSERT_NE(session.unitInfo(kTimestamp, 65535), nullptr);
    EXPECT_EQ(session.unitInfo(kTimestamp, 65535)->packetCount, 3);
    EXPECT_TRUE(session.unitInfo(kTimestamp, 65535)->complete);
}

TEST_F(ScriptedUnitsTest, SmallerSpanChangesNothing) {
    recorded(20, 24, false);
    EXPECT_EQ(session.unitInfo(kTimestamp, 20)->packetCount, 5);
    recorded(20, 23, true);
    EXPECT_EQ(session.unitInfo(kTimestamp, 20)->packetCount, 5);
    EXPECT_FALSE(session.unitInfo(kTimestamp, 20)->complete);
    recorded(20, 24, true);  // an equal one counts
    EXPECT_EQ(session.unitInfo(kTimestamp, 20)->packetCount, 5);
    EXPECT_TRUE(session.unitInfo(kTimestamp, 20)->complete);
}

TEST_F(ScriptedUnitsTest, LongestSpanIs65536) {
    recorded(20, 19, false);
    EXPECT_EQ(session.unitInfo(kTimestamp, 20)->packetCount, 65536);
}

TEST_F(ScriptedUnitsTest, CompleteRecordAsksForNoEndAgain) {
    recorded(20, 22, true);
    session.askedStart = 0;
    recorded(20, 30, true);
    EXPECT_EQ(session.askedStart, 0);
    EXPECT_EQ(session.unitInfo(kTimestamp, 20)->packetCount, 3);
}

TEST_F(ScriptedUnitsTest, NoStartMeansNoUnit) {
    session.startFound = false;
    recorded(20, 22, true);
    EXPECT_THAT(session.tsInfo(kTimestamp)->dataInfoMap, IsEmpty());
    EXPECT_EQ(session.getMediaDataInfo(kTimestamp, 100), nullptr);
    EXPECT_THAT(session.tsInfo(kTimestamp)->mediaSeqList, ElementsAre(100));
}

// Looks around when a stored packet is dealt.
class WatchingSession : public SvcProbe {
public:
    using SvcProbe::SvcProbe;

    void dealPacket(CTalRtpPacket* packet) override {
        const unsigned short seq = packet->get_sequence_number();
        stored.push_back(getMediaPacketBySeq(seq) == packet);
        counted.push_back(m_receivedValidMediaPacketNumber);
        const stTalRtpDataInfo* const unit = getMediaDataInfo(packet->get_timestamp(), seq);
        recordedUndelivered.push_back(unit != nullptr && unit->complete && !unit->delivered);
        SvcProbe::dealPacket(packet);
    }

    std::vector<bool> stored;
    std::vector<unsigned long> counted;
    std::vector<bool> recordedUndelivered;
};

class WatchingTest : public SessionTest<WatchingSession> {};

TEST_F(WatchingTest, PacketIsCountedStoredAndRecordedBeforeItIsDealt) {
    media(1);
    media(2);
    EXPECT_THAT(session.stored, ElementsAre(true, true));
    EXPECT_THAT(session.counted, ElementsAre(1, 2));
    EXPECT_THAT(session.recordedUndelivered, ElementsAre(true, true));
    expectDelivered({1, 2});
}

// The FEC packet of a picture that is about to age out still rebuilds, because ageing comes last.
TEST_F(WatchingTest, DeliveryThenFecThenAgeing) {
    session.SetFecType(RTP_FEC_XOR);
    XorFec fec;
    fec.timestamp = 1;
    fec.base = 10;
    fec.mask = 0xc00000;
    fec.length = 0;  // 4 ^ 4
    fec.recoveredTimestamp = 1 ^ 2;
    fec.parity = {0x00, 0x00, 0x01, 0x00};  // unit of 10 ^ unit of 11
    at(1000);
    receive(fec.bytes());
    at(6001);
    picture(2);
    media(11);
    expectDelivered({11, 10});
    EXPECT_THAT(session.m_fecPacketList, IsEmpty());
}

}  // namespace
}  // namespace test
}  // namespace talrtp
