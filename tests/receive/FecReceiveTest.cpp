// The steps around recovery: which FEC packets are kept, when they are tried again, and how rebuilt
// packets join the media path. XOR parity stands for both kinds where the kind does not matter.

#include <pthread.h>

#include <algorithm>

#include "SessionFixture.h"

namespace talrtp {
namespace test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// XOR parity over the units of `media(seq)` for `seqs`, all of one timestamp.
Bytes parityOver(unsigned short fecSeq, const std::vector<unsigned short>& seqs,
                 unsigned int timestamp = kTimestamp) {
    XorFec fec;
    fec.seq = fecSeq;
    fec.timestamp = timestamp;
    fec.base = seqs.front();
    fec.parity = Bytes(4, 0x00);
    for (const unsigned short seq : seqs) {
        fec.mask |= 0x800000u >> static_cast<unsigned short>(seq - fec.base);
        fec.length ^= 4;
        fec.payloadType ^= kMediaType;
        fec.recoveredTimestamp ^= timestamp;
        for (std::size_t i = 0; i < 4; ++i) {
            fec.parity[i] ^= unitOf(seq)[i];
        }
    }
    return fec.bytes();
}

class FecReceiveTest : public SessionTest<SvcProbe> {
protected:
    FecReceiveTest() { session.SetFecType(RTP_FEC_XOR); }

    std::vector<int> storedFec() {
        std::vector<int> seqs;
        for (const auto& entry : session.m_fecPacketList) {
            seqs.push_back(entry.first);
        }
        return seqs;
    }

    static ExpectedLine rebuilt(int seq, unsigned int ts = kTimestamp) {
        return info("CMMRTPSessionBase::recoverPacketWithXORFEC recoveredSeq = " + std::to_string(seq) +
                    ", recoveredTS = " + std::to_string(ts) + ", sourceID = 168496141");
    }
};

// --- Intake --------------------------------------------------------------------------------------------

TEST_F(FecReceiveTest, NullFecPacketIsAnError) {
    EXPECT_EQ(session.inputReceivedFECPacket(nullptr), -1);
    expectLines({error("CMMRTPSessionBase::inputReceivedFECPacket invalid parameter: fecPacket = 0x0")});
    EXPECT_EQ(session.m_receivedValidFECPacketNumber, 0u);
}

TEST_F(FecReceiveTest, PacketThatMayStillHelpIsStoredAndNoted) {
    at(1000);
    EXPECT_EQ(receive(parityOver(500, {1, 2}, 7)), 0);
    ASSERT_NE(session.getFECPacketBySeq(500), nullptr);
    EXPECT_EQ(session.getFECPacketBySeq(500)->get_sequence_number(), 500);
    EXPECT_EQ(session.getFECPacketBySeq(501), nullptr);
    const stTalRtpTSInfo* const record = session.tsInfo(7);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->createTime, 1000u);
    EXPECT_EQ(record->updateTime, 1000u);
    EXPECT_THAT(record->fecSeqList, ElementsAre(500));
    EXPECT_THAT(record->mediaSeqList, IsEmpty());
    EXPECT_THAT(record->dataInfoMap, IsEmpty());

    at(1300);
    receive(parityOver(400, {1, 3}, 7));
    EXPECT_EQ(record->createTime, 1000u);
    EXPECT_EQ(record->updateTime, 1300u);
    EXPECT_THAT(record->fecSeqList, ElementsAre(500, 400));
    expectDelivered({});
}

TEST_F(FecReceiveTest, NotesOfMediaAndFecShareTheRecord) {
    media(1);
    receive(parityOver(500, {2, 3}));
    ASSERT_NE(session.tsInfo(kTimestamp), nullptr);
    EXPECT_THAT(session.tsInfo(kTimestamp)->mediaSeqList, ElementsAre(1));
    EXPECT_THAT(session.tsInfo(kTimestamp)->fecSeqList, ElementsAre(500));
}

TEST_F(FecReceiveTest, SpentPacketIsCountedDestroyedAndLeavesNoRecord) {
    EXPECT_EQ(receive(XorFec().bytes()), 0);  // protects nothing
    EXPECT_THAT(session.m_fecPacketList, IsEmpty());
    EXPECT_THAT(session.m_tsInfoList, IsEmpty());
    EXPECT_EQ(session.m_receivedFECPacketNumber, 1u);
    EXPECT_EQ(session.m_receivedValidFECPacketNumber, 1u);
    expectLines({fecArrived()});
}

TEST_F(FecReceiveTest, DuplicateIsDroppedSilentlyAndNotCountedAsValid) {
    at(1000);
    receive(parityOver(500, {1, 2}));
    const CTalRtpPacket* const stored = session.getFECPacketBySeq(500);
    at(1200);
    EXPECT_EQ(receive(parityOver(500, {1})), 0);  // would rebuild packet 1 if it were looked at
    expectDelivered({});
    expectLines({fecArrived(), fecArrived()});
    EXPECT_EQ(session.getFECPacketBySeq(500), stored);
    EXPECT_EQ(session.m_receivedFECPacketNumber, 2u);
    EXPECT_EQ(session.m_receivedValidFECPacketNumber, 1u);
    EXPECT_EQ(session.m_receivedValidFECPacketBytes, 1300u);
    EXPECT_EQ(session.tsInfo(kTimestamp)->updateTime, 1000u);
    EXPECT_THAT(session.tsInfo(kTimestamp)->fecSeqList, ElementsAre(500));
}

TEST_F(FecReceiveTest, NumberOfADroppedPacketIsNoDuplicate) {
    receive(parityOver(500, {1}));
    receive(parityOver(500, {2}));
    expectDelivered({1, 2});
    EXPECT_EQ(session.m_receivedValidFECPacketNumber, 2u);
}

TEST_F(FecReceiveTest, ValidBytesAreTheBufferSizes) {
    XorFec fec;
    fec.parity = Bytes(1300 - 24, 0x00);
    receive(fec.bytes());
    EXPECT_EQ(session.m_receivedValidFECPacketBytes, 1300u);
    fec.parity = Bytes(1301 - 24, 0x00);
    receive(fec.bytes());
    EXPECT_EQ(session.m_receivedValidFECPacketBytes, 2601u);
}

TEST_F(FecReceiveTest, UnknownFecTypeCountsAndDropsEveryPacket) {
    session.m_fecType = 7;
    EXPECT_EQ(receive(parityOver(500, {1, 2})), 0);
    EXPECT_EQ(session.m_receivedValidFECPacketNumber, 1u);
    EXPECT_THAT(session.m_fecPacketList, IsEmpty());
    EXPECT_THAT(session.m_tsInfoList, IsEmpty());
    expectLines({fecArrived()});
}

TEST_F(FecReceiveTest, FecAndMediaNumbersAreApart) {
    media(5);
    receive(parityOver(5, {6, 7}));
    EXPECT_NE(session.getFECPacketBySeq(5), nullptr);
    EXPECT_NE(session.getMediaPacketBySeq(5), nullptr);
}

// --- One attempt ---------------------------------------------------------------------------------------

TEST_F(FecReceiveTest, AttemptWithoutAPacketIsAnErrorAndKeepsNothing) {
    bool keep = true;
    session.recoverPacketWithFEC(nullptr, keep);
    EXPECT_FALSE(keep);
    expectLines({error("CMMRTPSessionBase::recoverPacketWithFEC invalid parameter: fecPacket = 0x0")});
}

TEST_F(FecReceiveTest, AttemptFillsTheListOfRebuiltPacketsAndDealsNothing) {
    Bytes bytes = parityOver(500, {5});
    CRTPFECPacket fec(bytes.data(), static_cast<int>(bytes.size()));
    bool keep = true;
    session.recoverPacketWithFEC(&fec, keep);
    EXPECT_FALSE(keep);
    EXPECT_NE(session.getRecoverPacketBySeq(5), nullptr);
    EXPECT_EQ(session.getRecoverPacketBySeq(6), nullptr);
    EXPECT_EQ(session.getMediaPacketBySeq(5), nullptr);
    expectDelivered({});

    session.dealRecoverPacketList();
    EXPECT_EQ(session.getRecoverPacketBySeq(5), nullptr);
    EXPECT_NE(session.getMediaPacketBySeq(5), nullptr);
    expectDelivered({5});
}

// --- Rebuilt packets -----------------------------------------------------------------------------------

TEST_F(FecReceiveTest, RebuiltPacketIsStoredRecordedAndDealtLikeAReceivedOne) {
    at(1000);
    receive(parityOver(500, {5}));
    expectDelivered({5});
    expectLines({rebuilt(5), fecArrived()});
    EXPECT_THAT(session.tsInfo(kTimestamp)->mediaSeqList, ElementsAre(5));
    EXPECT_EQ(session.tsInfo(kTimestamp)->updateTime, 1000u);
    ASSERT_NE(session.unitInfo(kTimestamp, 5), nullptr);
    EXPECT_TRUE(session.unitInfo(kTimestamp, 5)->delivered);
    EXPECT_EQ(session.m_recoveredMediaPacketNumber, 1u);
    EXPECT_EQ(session.m_recoveredMediaPacketBytes, 16u);  // its buffer: 28 bytes of FEC packet minus 12
    EXPECT_EQ(session.m_receivedMediaPacketNumber, 0u);
    EXPECT_EQ(session.m_receivedValidMediaPacketNumber, 0u);
    EXPECT_THAT(session.m_recoverPacketList, IsEmpty());
}

TEST_F(FecReceiveTest, RebuiltPacketThatArrivesLaterIsADuplicate) {
    receive(parityOver(500, {5}));
    sink.handovers.clear();
    EXPECT_EQ(media(5), 0);
    expectDelivered({});
    EXPECT_EQ(session.m_receivedValidMediaPacketNumber, 0u);
}

TEST_F(FecReceiveTest, RebuiltPacketThatTheNetworkBroughtFirstIsReportedAndDropped) {
    Bytes bytes = parityOver(500, {5});
    CRTPFECPacket fec(bytes.data(), static_cast<int>(bytes.size()));
    bool keep = true;
    session.recoverPacketWithFEC(&fec, keep);
    trace.clear();
    media(5);
    expectDelivered({5});
    expectLines(
        {warning("CMMRTPSessionBase::dealRecoverPacketList recover repeat packet: seq = 5, ts = 90000")});
    EXPECT_EQ(session.m_recoveredMediaPacketNumber, 0u);
    EXPECT_THAT(session.m_recoverPacketList, IsEmpty());
}

TEST_F(FecReceiveTest, PacketThatIsDroppedBecauseTheNetworkBroughtItIsAWarning) {
    Bytes bytes = parityOver(500, {5});
    CRTPFECPacket fec(bytes.data(), static_cast<int>(bytes.size()));
    bool keep = true;
    session.recoverPacketWithFEC(&fec, keep);
    trace.clear();
    trace.setMask(0);
    media(5);
    expectDelivered({5});
    expectLines({});
    EXPECT_THAT(session.m_recoverPacketList, IsEmpty());
}

TEST_F(FecReceiveTest, RebuiltFragmentCompletesItsRun) {
    XorFec fec;
    fec.base = 11;
    fec.mask = 0x800000;
    fec.length = 3;
    fec.payloadType = kMediaType;
    fec.recoveredTimestamp = kTimestamp;
    fec.parity = fragment(kMiddle, {0x22});
    media(10, fragment(kStart, {0x11}));
    media(12, fragment(kEnd, {0x33}));
    receive(fec.bytes());
    expectHandovers({{10, inByteStream({0x65, 0x11, 0x22, 0x33}), 0}});
}

// --- Trying again --------------------------------------------------------------------------------------

TEST_F(FecReceiveTest, MediaPacketIsHandedOverBeforeWhatItMakesRebuildable) {
    receive(parityOver(500, {4, 5}));
    trace.clear();
    media(5);
    expectDelivered({5, 4});
    expectLines({rebuilt(4)});
    EXPECT_THAT(session.m_fecPacketList, IsEmpty());
    EXPECT_THAT(session.tsInfo(kTimestamp)->fecSeqList, IsEmpty());
}

TEST_F(FecReceiveTest, StoredPacketsAreTriedByNumberAndRebuiltOnesDealtByNumber) {
    receive(parityOver(520, {1, 2}));
    receive(parityOver(510, {1, 3}));
    trace.clear();
    media(1);
    expectLines({rebuilt(3), rebuilt(2)});
    expectDelivered({1, 2, 3});
}

TEST_F(FecReceiveTest, PacketThatCanStillHelpStaysStored) {
    receive(parityOver(500, {1, 2, 3}));
    media(1);
    EXPECT_THAT(storedFec(), ElementsAre(500));
    media(3);
    expectDelivered({1, 3, 2});
    EXPECT_THAT(storedFec(), IsEmpty());
}

TEST_F(FecReceiveTest, PacketWhoseMediaAllArrivedIsDroppedAndForgotten) {
    media(1);
    receive(parityOver(500, {1, 2, 3}));
    receive(parityOver(501, {1, 8, 9}));
    receive(parityOver(502, {2, 3, 4, 5}));
    trace.clear();
    media(2);
    expectDelivered({1, 2, 3});  // 500 rebuilt packet 3 at once
    EXPECT_THAT(storedFec(), ElementsAre(501, 502));
    EXPECT_THAT(session.tsInfo(kTimestamp)->fecSeqList, ElementsAre(501, 502));
}

TEST_F(FecReceiveTest, ArrivingFecPacketCompletesASecondGroupInTheSameCall) {
    receive(parityOver(500, {3, 4}));
    receive(parityOver(501, {4, 5}));
    trace.clear();
    receive(parityOver(502, {5}));
    // The arriving packet is tried alone; what it rebuilt is dealt, and then every stored packet gets its
    // turn.
    expectLines({rebuilt(5), rebuilt(4), rebuilt(3), fecArrived()});
    expectDelivered({5, 4, 3});
    EXPECT_THAT(storedFec(), IsEmpty());
}

TEST_F(FecReceiveTest, PacketRebuiltEarlierInTheSameRoundCountsAsPresent) {
    receive(parityOver(500, {4, 5}));
    receive(parityOver(501, {5, 6}));
    receive(parityOver(502, {6, 7}));
    trace.clear();
    media(4);
    // One walk upwards rebuilds all three, so they are dealt in the order of their numbers.
    expectLines({rebuilt(5), rebuilt(6), rebuilt(7)});
    expectDelivered({4, 5, 6, 7});
}

TEST_F(FecReceiveTest, RoundsGoOnWhileTheyRebuildSomething) {
    receive(parityOver(502, {4, 5}));
    receive(parityOver(501, {5, 6}));
    receive(parityOver(500, {6, 7}));
    trace.clear();
    std::vector<std::size_t> linesAtHandOver;
    sink.onPacket = [&](CTalRtpPacket*) { linesAtHandOver.push_back(trace.lines().size()); };
    media(4);
    expectLines({rebuilt(5), rebuilt(6), rebuilt(7)});
    expectDelivered({4, 5, 6, 7});
    EXPECT_THAT(linesAtHandOver, ElementsAre(0, 1, 2, 3));  // dealt after each round, before the next
}

TEST_F(FecReceiveTest, RebuildingAgesOutAndIdleFecDoesNot) {
    at(1000);
    picture(1);
    media(50);
    at(6001);
    receive(parityOver(500, {8, 9}));
    EXPECT_NE(session.getMediaPacketBySeq(50), nullptr);
    receive(parityOver(501, {5}));
    EXPECT_EQ(session.getMediaPacketBySeq(50), nullptr);
}

TEST_F(FecReceiveTest, StoredPacketsWaitWhileNothingTheyProtectArrives) {
    receive(parityOver(500, {4, 5}));
    for (unsigned short seq = 100; seq < 110; ++seq) {
        media(seq);
    }
    EXPECT_THAT(storedFec(), ElementsAre(500));
    trace.clear();
    media(5);
    expectLines({rebuilt(4)});
}

TEST_F(FecReceiveTest, StoredPacketUsesMediaThatArrivedInAnyPicture) {
    XorFec fec;
    fec.seq = 500;
    fec.timestamp = 2;
    fec.base = 4;
    fec.mask = 0xc00000;
    fec.recoveredTimestamp = 1 ^ 2;
    fec.parity = {0x00, 0x00, 0x01, 0x00};
    receive(fec.bytes());
    picture(2);
    media(5);
    expectDelivered({5, 4});
    EXPECT_THAT(session.tsInfo(1)->mediaSeqList, ElementsAre(4));
}

TEST_F(FecReceiveTest, MediaThatAgedOutIsMissingAgain) {
    at(1000);
    picture(1);
    media(1);
    at(3000);
    receive(parityOver(500, {1, 2, 3}));
    at(6001);
    picture(2);
    media(50);
    EXPECT_EQ(session.getMediaPacketBySeq(1), nullptr);
    picture(kTimestamp);
    media(2);
    expectDelivered({1, 50, 2});
    EXPECT_THAT(storedFec(), ElementsAre(500));
    media(3);
    expectDelivered({3, 1});
}

TEST_F(FecReceiveTest, PacketsOfTheOtherKindAreDroppedAtTheNextTry) {
    receive(parityOver(500, {4, 5}));
    session.SetFecType(RTP_FEC_RS);
    RsFecFields fec;
    fec.seq = 600;
    fec.base = 4;
    fec.count = 1;
    fec.mediaCount = 2;
    fec.parity = Bytes(16, 0x00);
    receive(fec.bytes());
    EXPECT_THAT(storedFec(), ElementsAre(500, 600));
    trace.clear();
    media(90);
    EXPECT_THAT(storedFec(), ElementsAre(600));
    EXPECT_THAT(session.tsInfo(kTimestamp)->fecSeqList, ElementsAre(600));
    session.SetFecType(RTP_FEC_XOR);
    media(91);
    EXPECT_THAT(storedFec(), IsEmpty());
    expectLines({});
    expectDelivered({90, 91});
}

// A host's class of XOR packets, of whose kind the compiler must be asked.
class HostXorPacket : public CRTPFECPacket {
public:
    using CRTPFECPacket::CRTPFECPacket;
};

TEST_F(FecReceiveTest, PacketOfADerivedClassRebuilds) {
    Bytes bytes = parityOver(500, {1, 2});
    EXPECT_EQ(session.inputReceivedFECPacket(new HostXorPacket(bytes.data(), static_cast<int>(bytes.size()))),
              0);
    EXPECT_THAT(storedFec(), ElementsAre(500));
    media(1);
    expectDelivered({1, 2});
    EXPECT_THAT(storedFec(), IsEmpty());
}

TEST_F(FecReceiveTest, PacketOfNoFecClassIsDroppedAtOnce) {
    Bytes bytes = parityOver(500, {1, 2});
    EXPECT_EQ(session.inputReceivedFECPacket(new CTalRtpPacket(bytes.data(), static_cast<int>(bytes.size()))),
              0);
    EXPECT_THAT(storedFec(), IsEmpty());
    media(1);
    expectDelivered({1});
}

TEST_F(FecReceiveTest, ClearedListsForgetRebuiltPacketsToo) {
    Bytes bytes = parityOver(500, {5});
    CRTPFECPacket fec(bytes.data(), static_cast<int>(bytes.size()));
    bool keep = true;
    session.recoverPacketWithFEC(&fec, keep);
    EXPECT_THAT(session.m_recoverPacketList, SizeIs(1));
    session.clearAllList();
    EXPECT_THAT(session.m_recoverPacketList, IsEmpty());
    receive(bytes);
    expectDelivered({5});
}

// --- Notes ---------------------------------------------------------------------------------------------

TEST_F(FecReceiveTest, ForgettingANoteThatIsNotThereDoesNothing) {
    receive(parityOver(500, {4, 5}));
    session.removeFECInfoFromList(kTimestamp + 1, 500);
    session.removeFECInfoFromList(kTimestamp, 501);
    EXPECT_THAT(session.tsInfo(kTimestamp)->fecSeqList, ElementsAre(500));
    EXPECT_EQ(session.tsInfo(kTimestamp + 1), nullptr);
}

TEST_F(FecReceiveTest, OnlyTheFirstOfTwoEqualNotesIsForgotten) {
    at(1000);
    media(1);
    session.updateFECListInfo(kTimestamp, 7);
    session.updateFECListInfo(kTimestamp, 8);
    session.updateFECListInfo(kTimestamp, 7);
    session.removeFECInfoFromList(kTimestamp, 7);
    EXPECT_THAT(session.tsInfo(kTimestamp)->fecSeqList, ElementsAre(8, 7));
    session.removeFECInfoFromList(kTimestamp, 7);
    EXPECT_THAT(session.tsInfo(kTimestamp)->fecSeqList, ElementsAre(8));
}

TEST_F(FecReceiveTest, SecondNoteOfAStoredPacketStaysWhenTheFirstIsForgotten) {
    receive(parityOver(500, {4, 5}));
    session.updateFECListInfo(kTimestamp, 500);
    EXPECT_THAT(session.tsInfo(kTimestamp)->fecSeqList, ElementsAre(500, 500));
    session.updateFECListInfo(kTimestamp, 501);
    session.removeFECInfoFromList(kTimestamp, 500);
    EXPECT_THAT(session.tsInfo(kTimestamp)->fecSeqList, ElementsAre(500, 501));
}

TEST_F(FecReceiveTest, FirstEqualNoteIsForgottenThoughItIsOlderThanItsPacket) {
    at(1000);
    media(1);
    session.updateFECListInfo(kTimestamp, 500);
    session.updateFECListInfo(kTimestamp, 7);
    receive(parityOver(500, {4, 5}));
    EXPECT_THAT(session.tsInfo(kTimestamp)->fecSeqList, ElementsAre(500, 7, 500));
    session.removeFECInfoFromList(kTimestamp, 500);
    EXPECT_THAT(session.tsInfo(kTimestamp)->fecSeqList, ElementsAre(7, 500));
}

TEST_F(FecReceiveTest, NoteOfAPacketThatIsNotStoredAgesOutWithItsTimestamp) {
    at(1000);
    media(1);
    session.updateFECListInfo(kTimestamp, 7);
    at(6001);
    picture(2);
    media(2);
    EXPECT_EQ(session.tsInfo(kTimestamp), nullptr);
    picture(kTimestamp);
    media(3);
    session.removeFECInfoFromList(kTimestamp, 7);
    session.updateFECListInfo(kTimestamp, 7);
    session.removeFECInfoFromList(kTimestamp, 7);
    EXPECT_THAT(session.tsInfo(kTimestamp)->fecSeqList, IsEmpty());
}

TEST_F(FecReceiveTest, NoteUnderANewTimestampMakesItsRecordWithTheLastReceiveTime) {
    at(1234);
    media(1);
    session.updateFECListInfo(55, 7);
    ASSERT_NE(session.tsInfo(55), nullptr);
    EXPECT_EQ(session.tsInfo(55)->createTime, 1234u);
    EXPECT_EQ(session.tsInfo(55)->updateTime, 1234u);
    EXPECT_THAT(session.tsInfo(55)->fecSeqList, ElementsAre(7));
}

// --- Long chains ---------------------------------------------------------------------------------------

// Each round rebuilds the one packet that completes the next group, so that nested calls would be as many as
// the packets of the chain. Runs on a small stack, which several thousand nested rounds would overrun.
void* receiveChain(void* argument) {
    std::vector<unsigned short>& delivered = *static_cast<std::vector<unsigned short>*>(argument);
    struct CountingSink : ITalRTPSessionSink {
        explicit CountingSink(std::vector<unsigned short>* list) : seqs(list) {}
        void OnReceivedRTPPacket(CTalRtpPacket* packet) override {
            seqs->push_back(packet->get_sequence_number());
        }
        std::vector<unsigned short>* seqs;
    } sink(&delivered);
    SvcProbe session(&sink, kSourceId);
    session.SetFecType(RTP_FEC_XOR);
    const unsigned short kLength = 4000;
    for (unsigned short i = 0; i < kLength; ++i) {
        // FEC numbers fall while media numbers rise: a walk over the stored packets meets only one that fits.
        Bytes fec =
            parityOver(static_cast<unsigned short>(60000 - i), {i, static_cast<unsigned short>(i + 1)});
        session.InputReceivedData(fec.data(), static_cast<int>(fec.size()), 0);
    }
    Bytes first = rtp(0, kTimestamp, unitOf(0));
    session.InputReceivedData(first.data(), static_cast<int>(first.size()), 0);
    return nullptr;
}

TEST(FecChainTest, ThousandsOfRoundsNeedNoDeepStack) {
    std::vector<unsigned short> delivered;
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 128 * 1024), 0);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, &receiveChain, &delivered), 0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    pthread_attr_destroy(&attributes);
    ASSERT_THAT(delivered, SizeIs(4001));
    for (unsigned short i = 0; i <= 4000; ++i) {
        ASSERT_EQ(delivered[i], i);
    }
}

// --- Sizes that tries keep -----------------------------------------------------------------------------

// Units of these sizes, and XOR parity over them all from number 10 on.
class FecSizeTest : public SessionTest<CMMRTPSession4SVC> {
protected:
    FecSizeTest() { session.SetFecType(RTP_FEC_XOR); }

    static Bytes unit(unsigned short seq, std::size_t size) {
        Bytes bytes(size, static_cast<unsigned char>(seq));
        bytes.front() = 0x41;
        return bytes;
    }
    static Bytes parityOver(unsigned short fecSeq, const std::vector<std::size_t>& sizes, unsigned int ts) {
        XorFec fec;
        fec.seq = fecSeq;
        fec.timestamp = ts;
        fec.base = 10;
        fec.parity = Bytes(*std::max_element(sizes.begin(), sizes.end()), 0x00);
        for (std::size_t j = 0; j < sizes.size(); ++j) {
            const Bytes bytes = unit(static_cast<unsigned short>(10 + j), sizes[j]);
            fec.mask |= 0x800000u >> j;
            fec.length = static_cast<unsigned short>(fec.length ^ sizes[j]);
            fec.payloadType ^= kMediaType;
            fec.recoveredTimestamp ^= ts;
            for (std::size_t i = 0; i < bytes.size(); ++i) {
                fec.parity[i] ^= bytes[i];
            }
        }
        return fec.bytes();
    }
    // Packet 10 is too long for the parity that waits for it: the try in a round fails. Then it ages out.
    void failInARound() {
        receive(parityOver(1, {4, 4}, kTimestamp));
        media(10, unit(10, 20));
        ASSERT_THAT(sink.handovers, SizeIs(1));
        at(7000);
        picture(kTimestamp + 1);
        media(40);
        sink.handovers.clear();
    }

    TraceCatcher silence{-1};  // nobody reads the lines about packets that are too long
};

TEST_F(FecSizeTest, RoundOfTriesKnowsNoSizeOfTheRoundBefore) {
    failInARound();
    receive(parityOver(2, {4, 4}, timestamp));
    media(10, unit(10, 4));
    EXPECT_THAT(sink.handovers, SizeIs(2));
}

TEST_F(FecSizeTest, TryOnArrivalKnowsNoSizeOfARound) {
    failInARound();
    media(10, unit(10, 4));
    receive(parityOver(2, {4, 4}, timestamp));
    EXPECT_THAT(sink.handovers, SizeIs(2));
}

// Cuts media packet 10 once it was asked to rebuild something.
class CuttingProbe : public SvcProbe {
public:
    using SvcProbe::SvcProbe;

    CTalRtpPacket* recoverPacket(unsigned short seq, CRTPFECPacket* fecPacket) override {
        CTalRtpPacket* const packet = SvcProbe::recoverPacket(seq, fecPacket);
        m_mediaPacketList.at(10)->set_payload_size(4);
        return packet;
    }
};

TEST_F(FecSizeTest, HostMayChangeSizesInARound) {
    CuttingProbe host(&sink, kSourceId);
    host.SetFecType(RTP_FEC_XOR);
    const auto receiveNow = [&host](Bytes datagram) {
        host.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), 1000);
    };
    receiveNow(parityOver(1, {4, 8}, kTimestamp));
    receiveNow(parityOver(2, {4, 4}, kTimestamp));
    receiveNow(rtp(10, kTimestamp, unit(10, 20)));  // too long for both, until it is cut
    EXPECT_THAT(host.m_fecPacketList, IsEmpty());
    EXPECT_EQ(host.m_mediaPacketList.count(11), 1u);
}

// A host may never make a public call.
TEST_F(FecSizeTest, HostThatFeedsItselfMayChangeSizesInARound) {
    CuttingProbe host(&sink, kSourceId);
    host.SetFecType(RTP_FEC_XOR);
    const auto feedFec = [&host](Bytes datagram) {
        host.inputReceivedFECPacket(new CRTPFECPacket(datagram.data(), static_cast<int>(datagram.size())));
    };
    feedFec(parityOver(1, {4, 8}, kTimestamp));
    feedFec(parityOver(2, {4, 4}, kTimestamp));
    Bytes media = rtp(10, kTimestamp, unit(10, 20));
    host.inputReceivedMediaPacket(new CTalRtpPacket(media.data(), static_cast<int>(media.size())));
    EXPECT_THAT(host.m_fecPacketList, IsEmpty());
    EXPECT_EQ(host.m_mediaPacketList.count(11), 1u);
}

}  // namespace
}  // namespace test
}  // namespace talrtp
