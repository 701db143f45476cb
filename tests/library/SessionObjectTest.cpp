// The entry points, the session object as a host compiled elsewhere sees it, its configuration, its
// diagnostics and its end.

#include <talrtp/ITalRTPSession.h>
#include <talrtp/RsFec.h>

#include <cstdlib>
#include <memory>
#include <typeinfo>

#include "FakeClock.h"
#include "SessionFixture.h"

namespace {

// The C library's generator as a test wants it: it tells how it was seeded and may begin with numbers of the
// test's choice.
struct FakeGenerator {
    int seedings = 0;
    unsigned int seed = 0;
    std::vector<int> nextNumbers;
    unsigned int state = 1;
};

FakeGenerator& fakeGenerator() {
    static FakeGenerator generator;
    return generator;
}

}  // namespace

extern "C" {

void srand(unsigned int seed) noexcept {
    ++fakeGenerator().seedings;
    fakeGenerator().seed = seed;
    fakeGenerator().state = seed;
}

int rand(void) noexcept {
    FakeGenerator& generator = fakeGenerator();
    if (!generator.nextNumbers.empty()) {
        const int number = generator.nextNumbers.front();
        generator.nextNumbers.erase(generator.nextNumbers.begin());
        return number;
    }
    generator.state = generator.state * 1103515245u + 12345u;
    return static_cast<int>(generator.state & 0x7fffffff);
}

}  // extern "C"

namespace talrtp {
namespace test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// --- Entry points --------------------------------------------------------------------------------------

TEST(EntryPointTest, VersionTwoMakesAnSvcSessionWithTheDefaults) {
    RecordingSink sink;
    ITalRTPSession* session = nullptr;
    TalCreateRTPSession(&session, &sink, kSourceId, 2);
    ASSERT_NE(session, nullptr);
    EXPECT_NE(dynamic_cast<CMMRTPSession4SVC*>(session), nullptr);

    CTalRtpPacket packet(100);
    unsigned char unit[] = {0x65, 0x01};
    EXPECT_EQ(session->CreateSinglePacket(0x0102030405060708, 2, unit, &packet), 0);
    EXPECT_EQ(packet.get_payload_type(), 98u);
    EXPECT_EQ(packet.get_sync_source(), kSourceId);
    CTalRtpPacket parity(200);
    EXPECT_EQ(session->CreateRsFecPackets(&packet, 1, &parity, 1), 0);
    EXPECT_EQ(parity.get_payload_type(), 111u);
    TalDestroyRTPSession(session);
}

TEST(EntryPointTest, OtherVersionsStoreNullAndWarn) {
    for (const unsigned int version : {0u, 1u, 3u, 4294967295u}) {
        TraceCatcher trace(1);
        ITalRTPSession* session = reinterpret_cast<ITalRTPSession*>(&trace);
        TalCreateRTPSession(&session, nullptr, kSourceId, version);
        EXPECT_EQ(session, nullptr);
        EXPECT_THAT(trace.lines(),
                    ElementsAre(IsLine(warning(
                        "TalCreateRTPSession rtp version isn't support, version = " + std::to_string(version),
                        "TalRtpMain"))));
    }
}

TEST(EntryPointTest, WrongVersionIsSilentBelowWarningLevel) {
    TraceCatcher trace(0);
    ITalRTPSession* session = reinterpret_cast<ITalRTPSession*>(&trace);
    TalCreateRTPSession(&session, nullptr, kSourceId, 3);
    EXPECT_EQ(session, nullptr);
    EXPECT_THAT(trace.lines(), IsEmpty());
}

TEST(EntryPointTest, NullSinkMeansThatNothingIsHandedOver) {
    ITalRTPSession* session = nullptr;
    TalCreateRTPSession(&session, nullptr, kSourceId, 2);
    ASSERT_NE(session, nullptr);
    Bytes datagram = rtp(1, kTimestamp, unitOf(1));
    EXPECT_EQ(session->InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), 0), 0);
    EXPECT_EQ(session->ForceHandover(kTimestamp), 0);
    TalDestroyRTPSession(session);
}

TEST(EntryPointTest, DestroyingNullDoesNothing) {
    TraceCatcher trace(2);
    TalDestroyRTPSession(nullptr);
    EXPECT_THAT(trace.lines(), IsEmpty());
}

class FlaggingSession : public CMMRTPSession4SVC {
public:
    FlaggingSession(int* destroyed, int* freed) : CMMRTPSession4SVC(nullptr, 0), m_destroyed(destroyed) {
        s_freed = freed;
    }
    ~FlaggingSession() override { ++*m_destroyed; }
    static void* operator new(std::size_t size) { return ::operator new(size); }
    static void* operator new(std::size_t, void* memory) { return memory; }
    static void operator delete(void* memory) {
        ++*s_freed;
        ::operator delete(memory);
    }

private:
    static int* s_freed;
    int* m_destroyed;
};
int* FlaggingSession::s_freed = nullptr;

TEST(EntryPointTest, DestroyCallsTheVirtualDeletingDestructor) {
    int destroyed = 0;
    int freed = 0;
    TalDestroyRTPSession(new FlaggingSession(&destroyed, &freed));
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(freed, 1);
}

// --- The object ----------------------------------------------------------------------------------------

TEST(SessionObjectTest, FieldsHaveTheirDefaults) {
    RecordingSink sink;
    const SvcProbe session(&sink, kSourceId);
    EXPECT_EQ(session.m_pSink, &sink);
    EXPECT_EQ(session.m_sourceId, kSourceId);
    EXPECT_EQ(session.m_payloadType, 98u);
    EXPECT_EQ(session.m_fecPayloadType, 111u);
    EXPECT_EQ(session.m_fecType, RTP_FEC_RS);
    EXPECT_THAT(session.m_mediaPacketList, IsEmpty());
    EXPECT_THAT(session.m_fecPacketList, IsEmpty());
    EXPECT_THAT(session.m_recoverPacketList, IsEmpty());
    EXPECT_THAT(session.m_tsInfoList, IsEmpty());
    EXPECT_EQ(session.m_receivedTS, 0u);
    EXPECT_EQ(session.m_firstReceivedTime, 0u);
    EXPECT_EQ(session.m_lastReceivedTime, 0u);
    EXPECT_TRUE(session.m_isFirstReceived);
    EXPECT_EQ(session.m_createdMediaPacketNumber, 0u);
    EXPECT_EQ(session.m_createdFECPacketNumber, 0u);
    EXPECT_EQ(session.m_receivedPacketNumber, 0u);
    EXPECT_EQ(session.m_receivedPacketBytes, 0u);
    EXPECT_EQ(session.m_receivedMediaPacketNumber, 0u);
    EXPECT_EQ(session.m_receivedValidMediaPacketNumber, 0u);
    EXPECT_EQ(session.m_receivedValidMediaPacketBytes, 0u);
    EXPECT_EQ(session.m_receivedFECPacketNumber, 0u);
    EXPECT_EQ(session.m_receivedValidFECPacketNumber, 0u);
    EXPECT_EQ(session.m_receivedValidFECPacketBytes, 0u);
    EXPECT_EQ(session.m_recoveredMediaPacketNumber, 0u);
    EXPECT_EQ(session.m_recoveredMediaPacketBytes, 0u);
    EXPECT_EQ(session.m_deliveredDataBytes, 0u);
}

template <typename Member>
std::size_t offsetIn(const BaseProbe& session, const Member& member) {
    return static_cast<std::size_t>(reinterpret_cast<const char*>(&member) -
                                    reinterpret_cast<const char*>(&session));
}

static_assert(sizeof(BaseProbe::m_sourceId) == 4, "32 bits");
static_assert(sizeof(BaseProbe::m_payloadType) == 4, "32 bits");
static_assert(sizeof(BaseProbe::m_fecPayloadType) == 4, "32 bits");
static_assert(sizeof(BaseProbe::m_fecType) == 4, "32 bits");
static_assert(sizeof(BaseProbe::m_sequenceNumber) == 2, "16 bits");
static_assert(sizeof(BaseProbe::m_fecSequenceNumber) == 2, "16 bits");
static_assert(sizeof(BaseProbe::m_receivedTS) == 4, "32 bits");
static_assert(sizeof(BaseProbe::m_firstReceivedTime) == 8, "64 bits");
static_assert(sizeof(BaseProbe::m_lastReceivedTime) == 8, "64 bits");
static_assert(sizeof(BaseProbe::m_isFirstReceived) == 1, "a boolean");
static_assert(sizeof(BaseProbe::m_createdMediaPacketNumber) == 8, "64 bits");
static_assert(sizeof(BaseProbe::m_deliveredDataBytes) == 8, "64 bits");
static_assert(std::is_unsigned<decltype(BaseProbe::m_sourceId)>::value, "unsigned");
static_assert(std::is_unsigned<decltype(BaseProbe::m_sequenceNumber)>::value, "unsigned");
static_assert(std::is_unsigned<decltype(BaseProbe::m_firstReceivedTime)>::value, "unsigned");
static_assert(std::is_unsigned<decltype(BaseProbe::m_deliveredDataBytes)>::value, "unsigned");

TEST(SessionObjectTest, FieldsStandInTheirOrderWithTheirWidths) {
    const BaseProbe session(nullptr, kSourceId);
    EXPECT_EQ(offsetIn(session, session.m_pSink), 8u);
    EXPECT_EQ(offsetIn(session, session.m_sourceId), 16u);
    EXPECT_EQ(offsetIn(session, session.m_payloadType), 20u);
    EXPECT_EQ(offsetIn(session, session.m_fecPayloadType), 24u);
    EXPECT_EQ(offsetIn(session, session.m_fecType), 28u);
    EXPECT_EQ(offsetIn(session, session.m_sequenceNumber), 32u);
    EXPECT_EQ(offsetIn(session, session.m_fecSequenceNumber), 34u);
    EXPECT_EQ(offsetIn(session, session.m_mediaPacketList), 40u);

    std::size_t expected = 40 + sizeof(session.m_mediaPacketList);
    EXPECT_EQ(offsetIn(session, session.m_fecPacketList), expected);
    expected += sizeof(session.m_fecPacketList);
    EXPECT_EQ(offsetIn(session, session.m_recoverPacketList), expected);
    expected += sizeof(session.m_recoverPacketList);
    EXPECT_EQ(offsetIn(session, session.m_tsInfoList), expected);

    const std::size_t times = expected + sizeof(session.m_tsInfoList);
    EXPECT_EQ(offsetIn(session, session.m_receivedTS), times);
    EXPECT_EQ(offsetIn(session, session.m_firstReceivedTime), times + 8);
    EXPECT_EQ(offsetIn(session, session.m_lastReceivedTime), times + 16);
    EXPECT_EQ(offsetIn(session, session.m_isFirstReceived), times + 24);

    const std::size_t counters = times + 32;
    EXPECT_EQ(offsetIn(session, session.m_createdMediaPacketNumber), counters);
    EXPECT_EQ(offsetIn(session, session.m_createdFECPacketNumber), counters + 8);
    EXPECT_EQ(offsetIn(session, session.m_receivedPacketNumber), counters + 16);
    EXPECT_EQ(offsetIn(session, session.m_receivedPacketBytes), counters + 24);
    EXPECT_EQ(offsetIn(session, session.m_receivedMediaPacketNumber), counters + 32);
    EXPECT_EQ(offsetIn(session, session.m_receivedValidMediaPacketNumber), counters + 40);
    EXPECT_EQ(offsetIn(session, session.m_receivedValidMediaPacketBytes), counters + 48);
    EXPECT_EQ(offsetIn(session, session.m_receivedFECPacketNumber), counters + 56);
    EXPECT_EQ(offsetIn(session, session.m_receivedValidFECPacketNumber), counters + 64);
    EXPECT_EQ(offsetIn(session, session.m_receivedValidFECPacketBytes), counters + 72);
    EXPECT_EQ(offsetIn(session, session.m_recoveredMediaPacketNumber), counters + 80);
    EXPECT_EQ(offsetIn(session, session.m_recoveredMediaPacketBytes), counters + 88);
    EXPECT_EQ(offsetIn(session, session.m_deliveredDataBytes), counters + 96);
}

TEST(SessionObjectTest, NalHeaderFollowsTheFieldsOfTheBase) {
    SvcProbe session(nullptr, kSourceId);
    unsigned char unit[] = {0x67, 0x01};
    CTalRtpPacket packet(100);
    ASSERT_EQ(session.setSinglePayload(2, unit, &packet), 0);
    const unsigned char* const bytes = reinterpret_cast<const unsigned char*>(&session);
    EXPECT_EQ(session.m_nalHeader, 0x67);
    EXPECT_EQ(&session.m_nalHeader, bytes + sizeof(CMMRTPSessionBase));
    EXPECT_EQ(sizeof(CMMRTPSession4SVC), sizeof(CMMRTPSessionBase) + 8);
}

TEST(SessionObjectTest, RecordsHaveTheirFieldsInOrder) {
    EXPECT_EQ(offsetof(stTalRtpDataInfo, startSeq), 0u);
    EXPECT_EQ(offsetof(stTalRtpDataInfo, packetCount), 4u);
    EXPECT_EQ(offsetof(stTalRtpDataInfo, delivered), 8u);
    EXPECT_EQ(offsetof(stTalRtpDataInfo, complete), 9u);
    EXPECT_EQ(sizeof(stTalRtpDataInfo), 12u);
    static_assert(std::is_signed<decltype(stTalRtpDataInfo::packetCount)>::value, "signed 32-bit");

    SvcProbe session(nullptr, kSourceId);
    Bytes datagram = rtp(1, kTimestamp, unitOf(1));
    session.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), 0);
    const stTalRtpTSInfo* const record = session.tsInfo(kTimestamp);
    ASSERT_NE(record, nullptr);
    const char* const start = reinterpret_cast<const char*>(record);
    EXPECT_EQ(reinterpret_cast<const char*>(&record->createTime) - start, 0);
    EXPECT_EQ(reinterpret_cast<const char*>(&record->updateTime) - start, 8);
    EXPECT_EQ(reinterpret_cast<const char*>(&record->dataInfoMap) - start, 16);
    EXPECT_GT(reinterpret_cast<const void*>(&record->mediaSeqList),
              reinterpret_cast<const void*>(&record->dataInfoMap));
    EXPECT_GT(reinterpret_cast<const void*>(&record->fecSeqList),
              reinterpret_cast<const void*>(&record->mediaSeqList));
}

// A virtual function called by its place in the table, as a host does that was compiled elsewhere.
template <typename Result, typename... Arguments>
__attribute__((no_sanitize("undefined"))) Result callSlot(ITalRTPSession* session, int slot,
                                                          Arguments... arguments) {
    typedef Result (*Function)(ITalRTPSession*, Arguments...);
    void** const table = *reinterpret_cast<void***>(session);
    return reinterpret_cast<Function>(table[slot])(session, arguments...);
}

TEST(SessionObjectTest, VirtualTableHasTheConfigurationInSlotsTwoAndThree) {
    TraceCatcher trace(2);
    SvcProbe session(nullptr, kSourceId);
    EXPECT_EQ((callSlot<int, unsigned long, unsigned long>(&session, 2, 96, 97)), 0);
    EXPECT_EQ(session.m_payloadType, 96u);
    EXPECT_EQ(session.m_fecPayloadType, 97u);
    EXPECT_EQ((callSlot<int, unsigned long>(&session, 3, 0)), 0);
    EXPECT_EQ(session.m_fecType, RTP_FEC_XOR);
}

TEST(SessionObjectTest, VirtualTableHasTheMakersOfPacketsInSlotsFourToEight) {
    SvcProbe session(nullptr, kSourceId);
    unsigned char unit[] = {0x65, 0x01, 0x02, 0x03};
    unsigned char* units[] = {unit, unit};
    int sizes[] = {4, 3};
    PacketArray<CTalRtpPacket> packets(2, 100);

    EXPECT_EQ((callSlot<int, unsigned long, int, int*, unsigned char**, CTalRtpPacket*>(
                  &session, 4, 1, 2, sizes, units, packets)),
              0);
    EXPECT_EQ(payloadOf(packets[0]), aggregation({{0x65, 0x01, 0x02, 0x03}, {0x65, 0x01, 0x02}}));

    EXPECT_EQ((callSlot<int, unsigned long, int, unsigned char*, int, CTalRtpPacket*>(&session, 5, 1, 4, unit,
                                                                                      2, packets)),
              0);
    EXPECT_EQ(payloadOf(packets[1]), (Bytes{0x7c, 0x45, 0x02, 0x03}));

    EXPECT_EQ(
        (callSlot<int, unsigned long, int, unsigned char*, CTalRtpPacket*>(&session, 6, 1, 4, unit, packets)),
        0);
    EXPECT_EQ(payloadOf(packets[0]), (Bytes{0x65, 0x01, 0x02, 0x03}));

    CTalRtpPacket parity(200);
    EXPECT_EQ((callSlot<int, CTalRtpPacket*, int, CTalRtpPacket*, int>(&session, 8, packets, 1, &parity, 1)),
              0);
    EXPECT_EQ(parity.get_packet_size(), 12 + 8 + 16);

    session.SetFecType(RTP_FEC_XOR);
    CRTPFECPacket xorParity(200);
    EXPECT_EQ((callSlot<int, CTalRtpPacket*, int, unsigned int, CRTPFECPacket*>(&session, 7, packets, 1, 1,
                                                                                &xorParity)),
              0);
    EXPECT_EQ(xorParity.get_packet_size(), 24 + 4);
}

TEST(SessionObjectTest, VirtualTableHasTheReceivingSideInSlotsNineAndTen) {
    RecordingSink sink;
    SvcProbe session(&sink, kSourceId);
    Bytes first = rtp(1, kTimestamp, fragment(kStart, {0x01}));
    EXPECT_EQ((callSlot<int, unsigned char*, int, unsigned long>(&session, 9, first.data(),
                                                                 static_cast<int>(first.size()), 77)),
              0);
    EXPECT_EQ(session.m_lastReceivedTime, 77u);
    EXPECT_THAT(sink.handovers, IsEmpty());
    EXPECT_EQ((callSlot<int, unsigned long>(&session, 10, kTimestamp)), 0);
    EXPECT_THAT(sink.handovers, SizeIs(1));
}

TEST(SessionObjectTest, VirtualTableHasTheHooksInSlotsElevenToNineteen) {
    TraceCatcher trace(2);
    RecordingSink sink;
    SvcProbe session(&sink, kSourceId);
    CTalRtpPacket packet(100);
    unsigned char unit[] = {0x65, 0x01};
    EXPECT_EQ((callSlot<int, unsigned long, CTalRtpPacket*>(&session, 11, 0x01020304, &packet)), 0);
    EXPECT_EQ(packet.get_timestamp(), 0x01020304u);
    EXPECT_EQ(
        (callSlot<int, int, int, int, unsigned char*, CTalRtpPacket*>(&session, 12, 1, 1, 2, unit, &packet)),
        0);
    EXPECT_EQ(packet.get_payload_size(), 2);
    EXPECT_EQ((callSlot<CTalRtpPacket*, unsigned short, CRTPFECPacket*>(&session, 13, 1, nullptr)), nullptr);
    callSlot<void, CTalRtpPacket*>(&session, 14, nullptr);
    callSlot<void, CTalRtpPacket*>(&session, 15, nullptr);
    EXPECT_THAT(
        trace.lines(),
        ElementsAre(IsLine(error("CMMRTPSessionBase::recoverPacket invalid parameter: fecPacket = 0x0")),
                    IsLine(error("CMMRTPSession4SVC::dealPacket invalid parameter: packet = 0x0")),
                    IsLine(error("CMMRTPSession4SVC::forceHandoverPacket invalid parameter: packet = 0x0"))));

    for (const unsigned short seq : {5, 6, 7}) {
        const unsigned char flags = seq == 5 ? kStart : seq == 7 ? kEnd : kMiddle;
        Bytes datagram = rtp(seq, kTimestamp, fragment(flags, {0x01}));
        session.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), 0);
    }
    unsigned short found = 0;
    EXPECT_TRUE((callSlot<bool, unsigned short, unsigned short&>(&session, 16, 6, found)));
    EXPECT_EQ(found, 5);
    EXPECT_TRUE((callSlot<bool, unsigned short, unsigned short&>(&session, 17, 5, found)));
    EXPECT_EQ(found, 7);
    EXPECT_TRUE((callSlot<bool, unsigned short>(&session, 18, 5)));
    EXPECT_FALSE((callSlot<bool, unsigned short>(&session, 18, 7)));
    EXPECT_FALSE((callSlot<bool, unsigned short>(&session, 19, 5)));
    EXPECT_TRUE((callSlot<bool, unsigned short>(&session, 19, 7)));
}

TEST(SessionObjectTest, VirtualTableHasTheDestructorsInSlotsZeroAndOne) {
    int destroyed = 0;
    int freed = 0;
    ITalRTPSession* const session = new FlaggingSession(&destroyed, &freed);
    callSlot<void>(session, 1);
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(freed, 1);

    void* const memory = ::operator new(sizeof(FlaggingSession));
    callSlot<void>(::new (memory) FlaggingSession(&destroyed, &freed), 0);
    EXPECT_EQ(destroyed, 2);
    EXPECT_EQ(freed, 1);
    ::operator delete(memory);
}

// The place of the delivery operation in a sink that was compiled elsewhere: a table of three functions.
struct ForeignSink {
    void** table;
    CTalRtpPacket* lent;
};

void refuse(ForeignSink*) {
    FAIL() << "the library called a destructor of the sink";
}

__attribute__((no_sanitize("undefined"))) int takePacket(ForeignSink* sink, CTalRtpPacket* packet) {
    sink->lent = packet;
    return -1;  // whatever a host returns is ignored
}

TEST(SessionObjectTest, OnlyTheThirdSlotOfTheSinkIsCalled) {
    // In front of the functions stand the offset to the top of the object and its type, as in every table.
    void* table[] = {nullptr, const_cast<std::type_info*>(&typeid(ITalRTPSessionSink)),
                     reinterpret_cast<void*>(&refuse), reinterpret_cast<void*>(&refuse),
                     reinterpret_cast<void*>(&takePacket)};
    ForeignSink sink = {table + 2, nullptr};
    ITalRTPSession* session = nullptr;
    TalCreateRTPSession(&session, reinterpret_cast<ITalRTPSessionSink*>(&sink), kSourceId, 2);
    Bytes datagram = rtp(1, kTimestamp, unitOf(1));
    EXPECT_EQ(session->InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), 0), 0);
    EXPECT_NE(sink.lent, nullptr);
    TalDestroyRTPSession(session);
}

// --- Sequence numbers and the generator ----------------------------------------------------------------

TEST(SessionObjectTest, SequenceNumbersAreTheLowBitsOfTwoDrawsMediaFirst) {
    { const SvcProbe seeded(nullptr, 0); }
    fakeGenerator().nextNumbers = {0x12345678, 0x0fedcba9, 0x7fff0000, 0x7fffffff};
    const SvcProbe one(nullptr, 0);
    EXPECT_EQ(one.m_sequenceNumber, 0x5678);
    EXPECT_EQ(one.m_fecSequenceNumber, 0xcba9);
    const SvcProbe two(nullptr, 0);
    EXPECT_EQ(two.m_sequenceNumber, 0);  // a draw is never 0, its low bits may be
    EXPECT_EQ(two.m_fecSequenceNumber, 0xffff);
    EXPECT_THAT(fakeGenerator().nextNumbers, IsEmpty());
}

TEST(RandomTest, DrawsAgainWhileTheGeneratorGivesZero) {
    { const SvcProbe seeded(nullptr, 0); }
    random32();
    fakeGenerator().nextNumbers = {0, 0, 41};
    EXPECT_EQ(CMMRTPSessionBase::random32(), 41u);
    fakeGenerator().nextNumbers = {0, 42, 43};
    EXPECT_EQ(random32(), 42u);
    fakeGenerator().nextNumbers.clear();
}

// A process in which nothing was drawn before: a death test of its own.
TEST(RandomDeathTest, EachGeneratorSeedsOnceFromSecondsOrFraction) {
#ifndef TALRTP_UNDER_EMULATOR  // where a program can't start itself; death tests come first there, too
    testing::FLAGS_gtest_death_test_style = "threadsafe";
#endif
    EXPECT_EXIT(
        {
            FakeGenerator& generator = fakeGenerator();
            // 500000 us are the fraction 0x80000000; ORed with 0x80000005 that is 0x80000005, XORed 5.
            FakeClock::at(0x80000005, 500000);
            CMMRTPSessionBase::random32();
            CMMRTPSessionBase::random32();
            const bool memberSeedsOnce = generator.seedings == 1 && generator.seed == 0x80000005;
            // 250000 us are the fraction 0x40000000.
            FakeClock::at(7, 250000);
            random32();
            random32();
            const bool freeSeedsOnce = generator.seedings == 2 && generator.seed == 0x40000007;
            std::exit(memberSeedsOnce && freeSeedsOnce ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

// --- Configuration -------------------------------------------------------------------------------------

class ConfigurationTest : public SessionTest<SvcProbe> {};

TEST_F(ConfigurationTest, SetPayloadTypeStoresTwoDifferentTypes) {
    EXPECT_EQ(session.SetPayloadType(96, 97), 0);
    EXPECT_EQ(session.m_payloadType, 96u);
    EXPECT_EQ(session.m_fecPayloadType, 97u);
    expectLines({});
}

TEST_F(ConfigurationTest, SetPayloadTypeRefusesEqualTypesAndKeepsTheOldOnes) {
    EXPECT_EQ(session.SetPayloadType(96, 96), -1);
    EXPECT_EQ(session.m_payloadType, 98u);
    EXPECT_EQ(session.m_fecPayloadType, 111u);
    expectLines({warning(
        "CMMRTPSessionBase::SetPayloadType invalid parameter: payloadType is same as fecPayloadType, "
        "payloadType = 96")});
}

TEST_F(ConfigurationTest, SetPayloadTypeComparesSixtyFourBitsAndStoresThirtyTwo) {
    EXPECT_EQ(session.SetPayloadType(0x100000060, 0x60), 0);
    EXPECT_EQ(session.m_payloadType, 96u);
    EXPECT_EQ(session.m_fecPayloadType, 96u);
}

// Hosts set types before they know the stream; the packet's own setter is where a wrong one is caught.
TEST_F(ConfigurationTest, SetPayloadTypeChecksNoRangeWhichIsKept) {
    EXPECT_EQ(session.SetPayloadType(128, 200), 0);
    EXPECT_EQ(session.m_payloadType, 128u);
    EXPECT_EQ(session.m_fecPayloadType, 200u);
    CTalRtpPacket packet(100);
    EXPECT_DEATH(session.setPacketHeader(0, &packet), "t <= 0x7f");
}

TEST_F(ConfigurationTest, PayloadTypesApplyFromTheNextPacketOn) {
    EXPECT_EQ(media(1), 0);
    session.SetPayloadType(96, 98);
    EXPECT_EQ(media(2), 0);
    EXPECT_EQ(session.m_receivedMediaPacketNumber, 1u);
    EXPECT_EQ(session.m_receivedFECPacketNumber, 1u);
    EXPECT_EQ(receive(rtp(3, kTimestamp, unitOf(3), 96)), 0);
    expectDelivered({1, 3});
}

TEST_F(ConfigurationTest, SetFecTypeStoresZeroAndOne) {
    EXPECT_EQ(session.SetFecType(0), 0);
    EXPECT_EQ(session.m_fecType, RTP_FEC_XOR);
    EXPECT_EQ(session.SetFecType(1), 0);
    EXPECT_EQ(session.m_fecType, RTP_FEC_RS);
    expectLines({});
}

TEST_F(ConfigurationTest, SetFecTypeRefusesTwoAndMore) {
    EXPECT_EQ(session.SetFecType(2), -1);
    EXPECT_EQ(session.SetFecType(0x100000000), -1);
    EXPECT_EQ(session.SetFecType(static_cast<unsigned long>(-1)), -1);
    EXPECT_EQ(session.m_fecType, RTP_FEC_RS);
    const std::string opening =
        "CMMRTPSessionBase::SetFecType invalid parameter: unknown fecType, fecType = ";
    expectLines(
        {warning(opening + "2"), warning(opening + "4294967296"), warning(opening + "18446744073709551615")});
}

// --- Trace facility ------------------------------------------------------------------------------------

TEST_F(ConfigurationTest, EachLevelAppearsFromItsMaskOn) {
    CTalRtpPacket packet(100);
    const auto provokeAll = [&] {
        trace.clear();
        session.setPacketHeader(0, nullptr);           // ERROR
        session.SetFecType(2);                         // WARNING
        receive(rtp(1, kTimestamp, unitOf(1), 0x55));  // INFO
        std::vector<int> levels;
        for (const TraceLine& line : trace.lines()) {
            levels.push_back(line.level);
        }
        return levels;
    };
    trace.setMask(-1);
    EXPECT_THAT(provokeAll(), IsEmpty());
    trace.setMask(0);
    EXPECT_THAT(provokeAll(), ElementsAre(0));
    trace.setMask(1);
    EXPECT_THAT(provokeAll(), ElementsAre(0, 1));
    trace.setMask(2);
    EXPECT_THAT(provokeAll(), ElementsAre(0, 1, 2));
    trace.setMask(1000);
    EXPECT_THAT(provokeAll(), ElementsAre(0, 1, 2));
}

TEST_F(ConfigurationTest, LineIsPutTogetherWithNothingBetweenItsPieces) {
    session.SetFecType(2);
    ASSERT_THAT(trace.lines(), SizeIs(1));
    const TraceLine& line = trace.lines()[0];
    const std::string opening =
        "[TAL] WARNING: [TalRtp]: CMMRTPSessionBase::SetFecType invalid parameter: unknown fecType, fecType "
        "= "
        "2[src/rtp/TalRtpSession.cpp:";
    EXPECT_EQ(line.text.substr(0, opening.size()), opening);
    EXPECT_EQ(line.text.back(), ']');
    EXPECT_EQ(line.length, line.text.size());
    EXPECT_EQ(line.tag, "TAL");
}

TEST_F(ConfigurationTest, MaskIsAskedAfreshForEachDiagnostic) {
    session.SetFecType(2);
    session.SetFecType(3);
    EXPECT_EQ(trace.maskCalls(), 2);
    trace.setMask(0);
    session.SetFecType(4);
    EXPECT_EQ(trace.maskCalls(), 3);
    EXPECT_THAT(trace.lines(), SizeIs(2));
}

TEST_F(ConfigurationTest, LineBelowTheMaskIsAskedForOnceAndNeverSent) {
    trace.setMask(0);
    for (int i = 0; i < 1000; ++i) {
        session.SetFecType(2);
    }
    EXPECT_EQ(trace.maskCalls(), 1000);
    EXPECT_THAT(trace.lines(), IsEmpty());
}

// --- Statistics and destruction ------------------------------------------------------------------------

TEST_F(ConfigurationTest, StatisticsOfAnUnusedSessionPrintNothing) {
    session.displayStatisticInfo();
    expectLines({});
}

TEST_F(ConfigurationTest, StatisticsOfASenderCarryNoPosition) {
    PacketArray<CTalRtpPacket> packets(2, 100);
    unsigned char unit[] = {0x65, 0x01};
    session.CreateSinglePacket(0, 2, unit, &packets[0]);
    session.CreateSinglePacket(0, 2, unit, &packets[1]);
    CTalRtpPacket parity(200);
    session.CreateRsFecPackets(packets, 2, &parity, 1);
    session.displayStatisticInfo();
    expectLines(
        {info("CMMRTPSessionBase::displayStatisticInfo SourceID = 168496141, "
              "CreatedMediaPacketNumber = 2, CreatedFECPacketNumber = 1",
              "")});
}

TEST_F(ConfigurationTest, StatisticsOfAReceiverCarryNoPosition) {
    at(1000);
    media(1);
    media(2);
    at(1500);
    media(2);
    receive(rtp(9, kTimestamp, {0x00}, kFecType));
    trace.clear();
    session.displayStatisticInfo();
    // 3 datagrams of 12 + 4 bytes and one of 12 + 1; 2 deliveries of 4 + 4 bytes.
    expectLines(
        {info("CMMRTPSessionBase::displayStatisticInfo SourceID = 168496141, ReceivedTime = 500 ms, "
              "ReceivedPacketNumber = 4, ReceivedPacketBytes = 61, ReceivedMediaPacketNumber = 3, "
              "ReceivedValidMediaPacketNumber = 2, ReceivedFECPacketNumber = 1, "
              "ReceivedValidFECPacketNumber = 1, RecoveredMediaPacketNumber = 0, "
              "DeliveredDataBytes = 16",
              "")});
}

TEST_F(ConfigurationTest, ReceivedTimeOfAClockThatStepsBackIsUnsignedWhichIsKept) {
    at(1000);
    media(1);
    at(999);
    media(2);
    session.displayStatisticInfo();
    ASSERT_THAT(trace.lines(), SizeIs(1));
    EXPECT_THAT(trace.lines()[0].message(),
                testing::HasSubstr(", ReceivedTime = 18446744073709551615 ms, ReceivedPacketNumber = 2,"));
}

TEST_F(ConfigurationTest, StatisticsAreInfoLines) {
    media(1);
    CTalRtpPacket packet(100);
    session.setPacketHeader(0, &packet);
    trace.setMask(1);
    session.displayStatisticInfo();
    expectLines({});
    trace.setMask(2);
    session.displayStatisticInfo();
    ASSERT_THAT(trace.lines(), SizeIs(2));
    EXPECT_THAT(trace.lines()[0].message(), testing::HasSubstr("CreatedMediaPacketNumber"));
    EXPECT_THAT(trace.lines()[1].message(), testing::HasSubstr("ReceivedTime"));
}

TEST(DestructionTest, StatisticsComeFirstWhileSinkAndListsStillStand) {
    TraceCatcher trace(2);
    RecordingSink sink;
    std::unique_ptr<SvcProbe> session(new SvcProbe(&sink, kSourceId));
    Bytes datagram = rtp(1, kTimestamp, fragment(kStart, {0x01}));
    session->InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), 0);

    // Plain pointers, since the session is no SvcProbe any more when they are used.
    ITalRTPSessionSink* const* const sinkField = &session->m_pSink;
    const auto* const mediaList = &session->m_mediaPacketList;
    bool sinkStood = false;
    bool listStood = false;
    trace.onLine = [&](const TraceLine&) {
        sinkStood = *sinkField == &sink;
        listStood = mediaList->size() == 1;
    };
    session.reset();
    EXPECT_TRUE(sinkStood);
    EXPECT_TRUE(listStood);
    EXPECT_THAT(trace.lines(), SizeIs(1));
    EXPECT_THAT(sink.handovers, IsEmpty());
}

TEST(DestructionTest, HeldPacketsAreFreedWithoutCallingTheSink) {
    RecordingSink sink;
    {
        SvcProbe session(&sink, kSourceId);
        for (const unsigned short seq : {1, 2, 3}) {
            Bytes datagram = rtp(seq, kTimestamp, fragment(seq == 1 ? kStart : kMiddle, {0x01}));
            session.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), 0);
        }
        RsFecFields fec;
        fec.mediaCount = 4;
        fec.count = 1;
        fec.base = 1;
        fec.parity = Bytes(20, 0x00);
        Bytes parity = fec.bytes();
        session.InputReceivedData(parity.data(), static_cast<int>(parity.size()), 0);
        EXPECT_THAT(session.m_mediaPacketList, SizeIs(3));
    }
    EXPECT_THAT(sink.handovers, IsEmpty());
}

TEST(DestructionTest, EachSessionHoldsOneReferenceOnTheModelCache) {
    const unsigned int before = RsMapRetain();
    {
        const SvcProbe one(nullptr, 0);
        const SvcProbe two(nullptr, 0);
        EXPECT_EQ(RsMapRetain(), before + 3);
        RsMapRelease();
    }
    EXPECT_EQ(RsMapRetain(), before + 1);
    RsMapRelease();
    RsMapRelease();
}

}  // namespace
}  // namespace test
}  // namespace talrtp
