// The making of media packets: the header writer, the three public operations, and the payload writers of
// both session classes.

#include "SessionFixture.h"

namespace talrtp {
namespace test {
namespace {

using testing::Each;
using testing::ElementsAre;

class SendTest : public SessionTest<SvcProbe> {
protected:
    SendTest() { session.m_sequenceNumber = 0x1234; }

    int single(const Bytes& unit) { return single(unit, &packet); }
    int single(const Bytes& unit, CTalRtpPacket* into) {
        return session.CreateSinglePacket(kTimestamp, static_cast<int>(unit.size()),
                                          const_cast<unsigned char*>(unit.data()), into);
    }
    int stapa(const std::vector<Bytes>& units, CTalRtpPacket* into) {
        std::vector<int> sizes;
        std::vector<unsigned char*> buffers;
        for (const Bytes& unit : units) {
            sizes.push_back(static_cast<int>(unit.size()));
            buffers.push_back(const_cast<unsigned char*>(unit.data()));
        }
        sizes.push_back(0);
        buffers.push_back(nullptr);
        return session.CreateStapaPacket(kTimestamp, static_cast<int>(units.size()), sizes.data(),
                                         buffers.data(), into);
    }
    int fua(const Bytes& unit, int count, CTalRtpPacket* into) {
        return session.CreateFuaPackets(kTimestamp, static_cast<int>(unit.size()),
                                        const_cast<unsigned char*>(unit.data()), count, into);
    }

    CTalRtpPacket packet{200};
    PacketArray<CTalRtpPacket> packets{8, 200};
};

// --- setPacketHeader -----------------------------------------------------------------------------------

TEST_F(SendTest, HeaderOfANewPacket) {
    EXPECT_EQ(session.setPacketHeader(0x00015f90, &packet), 0);
    // clang-format off
    const Bytes expected = {
        0x80, 0xe2, 0x12, 0x34,  // V=2 P=0 X=0 CC=0 | M=1 PT=98 | sequence number 0x1234
        0x00, 0x01, 0x5f, 0x90,  // timestamp 90000
        0x0a, 0x0b, 0x0c, 0x0d,  // SSRC
    };
    // clang-format on
    EXPECT_EQ(Bytes(packet.get_buffer(), packet.get_buffer() + 12), expected);
    EXPECT_EQ(session.m_sequenceNumber, 0x1235);
    EXPECT_EQ(session.m_createdMediaPacketNumber, 1u);
}

TEST_F(SendTest, HeaderOfANullPacketGivesAnErrorAndUsesNothingUp) {
    EXPECT_EQ(session.setPacketHeader(0, nullptr), -1);
    expectLines({error("CMMRTPSessionBase::setPacketHeader invalid parameter, packet = 0x0")});
    EXPECT_EQ(session.m_sequenceNumber, 0x1234);
    EXPECT_EQ(session.m_createdMediaPacketNumber, 0u);
}

TEST_F(SendTest, HeaderResetsThePacketFirst) {
    std::fill(packet.get_buffer(), packet.get_buffer() + 200, 0xff);
    packet.set_packet_type(0);
    session.setPacketHeader(0, &packet);
    const Bytes behind(packet.get_buffer() + 12, packet.get_buffer() + 200);
    EXPECT_THAT(behind, Each(0x00));
    EXPECT_EQ(packet.get_buffer()[0], 0x80);
    EXPECT_EQ(packet.get_packet_type(), 1u);
    EXPECT_EQ(packet.get_payload_size(), 0);
    EXPECT_EQ(packet.get_packet_size(), 0);
}

TEST_F(SendTest, HeaderTakesTheLowBitsOfTheTimestamp) {
    session.setPacketHeader(0xfedcba9876543210, &packet);
    EXPECT_EQ(packet.get_timestamp(), 0x76543210u);
}

TEST_F(SendTest, SequenceNumberWrapsAfter65535) {
    session.m_sequenceNumber = 65535;
    session.setPacketHeader(0, &packet);
    EXPECT_EQ(packet.get_sequence_number(), 65535);
    session.setPacketHeader(0, &packet);
    EXPECT_EQ(packet.get_sequence_number(), 0);
    EXPECT_EQ(session.m_sequenceNumber, 1);
    EXPECT_EQ(session.m_createdMediaPacketNumber, 2u);
}

TEST_F(SendTest, HeaderUsesThePayloadTypeInForce) {
    session.SetPayloadType(127, 111);
    EXPECT_EQ(session.setPacketHeader(0, &packet), 0);
    EXPECT_EQ(packet.get_buffer()[1], 0xff);
}

// --- CreateSinglePacket --------------------------------------------------------------------------------

TEST_F(SendTest, SinglePacketCarriesTheUnitUnchanged) {
    EXPECT_EQ(single({0x65, 0x88, 0x84, 0x00, 0x10}), 0);
    // clang-format off
    const Bytes expected = {
        0x80, 0xe2, 0x12, 0x34,  // V=2 P=0 X=0 CC=0 | M=1 PT=98 | sequence number 0x1234
        0x00, 0x01, 0x5f, 0x90,  // timestamp 90000
        0x0a, 0x0b, 0x0c, 0x0d,  // SSRC
        0x65, 0x88, 0x84, 0x00,  // NAL unit: F=0 NRI=3 type 5, then its bytes
        0x10,
    };
    // clang-format on
    EXPECT_EQ(bytesOf(packet), expected);
    EXPECT_EQ(packet.get_packet_size(), 17);
    EXPECT_EQ(session.m_sequenceNumber, 0x1235);
    expectLines({});
}

TEST_F(SendTest, SinglePacketRefusesNullWithAnErrorAndUsesNothingUp) {
    unsigned char unit[] = {0x65};
    EXPECT_EQ(session.CreateSinglePacket(0, 1, nullptr, &packet), -1);
    EXPECT_EQ(session.CreateSinglePacket(0, 1, unit, nullptr), -1);
    const std::string opening = "CMMRTPSessionBase::CreateSinglePacket invalid parameter: nal_buf = ";
    expectLines({error(opening + "0x0, pRtpPacket = " + printed(&packet)),
                 error(opening + printed(unit) + ", pRtpPacket = 0x0")});
    EXPECT_EQ(session.m_sequenceNumber, 0x1234);
    EXPECT_EQ(packet.get_packet_size(), 0);
}

TEST_F(SendTest, NullArgumentsAreReportedAtMaskZeroAndNotBelow) {
    trace.setMask(0);
    EXPECT_EQ(session.CreateSinglePacket(0, 1, nullptr, nullptr), -1);
    EXPECT_EQ(session.CreateStapaPacket(0, 1, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(session.CreateFuaPackets(0, 1, nullptr, 1, nullptr), -1);
    EXPECT_EQ(trace.lines().size(), 3u);
    trace.setMask(-1);
    EXPECT_EQ(session.CreateSinglePacket(0, 1, nullptr, nullptr), -1);
    EXPECT_EQ(session.CreateStapaPacket(0, 1, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(session.CreateFuaPackets(0, 1, nullptr, 1, nullptr), -1);
    EXPECT_EQ(trace.lines().size(), 3u);
}

// --- CreateStapaPacket ---------------------------------------------------------------------------------

TEST_F(SendTest, StapaPacketHasHeaderSizesAndUnits) {
    EXPECT_EQ(stapa({{0x21, 0xaa, 0xbb}, {0x65, 0xcc, 0xdd, 0xee}}, &packet), 0);
    // clang-format off
    const Bytes expected = {
        0x80, 0xe2, 0x12, 0x34,  // V=2 P=0 X=0 CC=0 | M=1 PT=98 | sequence number 0x1234
        0x00, 0x01, 0x5f, 0x90,  // timestamp 90000
        0x0a, 0x0b, 0x0c, 0x0d,  // SSRC
        0x78, 0x00, 0x03, 0x21,  // STAP-A: F=0 NRI=3 type 24 | size 3 | first unit
        0xaa, 0xbb, 0x00, 0x04,  // its rest | size 4
        0x65, 0xcc, 0xdd, 0xee,  // second unit
    };
    // clang-format on
    EXPECT_EQ(bytesOf(packet), expected);
    EXPECT_EQ(packet.get_payload_size(), 12);
    EXPECT_TRUE(packet.get_marker_flag());
    EXPECT_EQ(session.m_sequenceNumber, 0x1235);
    EXPECT_EQ(session.m_createdMediaPacketNumber, 1u);
}

struct NriCase {
    std::vector<unsigned char> unitHeaders;
    unsigned char stapaHeader;
};

TEST_F(SendTest, StapaHeaderIsThatOfTheFirstUnitWithTheHighestNri) {
    const NriCase cases[] = {
        {{0x21, 0x65, 0x41}, 0x78},  // NRI 1, 3, 2: 3
        {{0x41, 0x41, 0x21}, 0x58},  // NRI 2, 2, 1: 2
        {{0xc1, 0x41}, 0xd8},        // F=1 NRI=2 ties with F=0 NRI=2: the first unit's F stays
        {{0x41, 0xc1}, 0x58},        // the other way round
        {{0x21, 0xe5}, 0xf8},        // F travels with the higher NRI
        {{0xe5, 0x21}, 0xf8},        // and stays with it
        {{0x01, 0x06}, 0x18},        // NRI 0
        {{0x01}, 0x18},              // one unit
    };
    for (const NriCase& one : cases) {
        std::vector<Bytes> units;
        for (const unsigned char header : one.unitHeaders) {
            units.push_back({header, 0x00});
        }
        EXPECT_EQ(stapa(units, &packet), 0);
        EXPECT_EQ(packet.get_payload_ptr()[0], one.stapaHeader) << testing::PrintToString(one.unitHeaders);
    }
}

TEST_F(SendTest, StapaRefusesEachNullWithAnError) {
    unsigned char unit[] = {0x65};
    unsigned char* buffers[] = {unit};
    int sizes[] = {1};
    EXPECT_EQ(session.CreateStapaPacket(0, 1, nullptr, buffers, &packet), -1);
    EXPECT_EQ(session.CreateStapaPacket(0, 1, sizes, nullptr, &packet), -1);
    EXPECT_EQ(session.CreateStapaPacket(0, 1, sizes, buffers, nullptr), -1);
    const std::string opening = "CMMRTPSessionBase::CreateStapaPacket invalid parameter: nal_buf = ";
    expectLines({error(opening + printed(buffers) + ", nal_len = 0x0, pRtpPacket = " + printed(&packet)),
                 error(opening + "0x0, nal_len = " + printed(sizes) + ", pRtpPacket = " + printed(&packet)),
                 error(opening + printed(buffers) + ", nal_len = " + printed(sizes) + ", pRtpPacket = 0x0")});
    EXPECT_EQ(session.m_sequenceNumber, 0x1234);
}

TEST_F(SendTest, StapaOfNoUnitsIsOnlyAHeader) {
    for (const int count : {0, -1}) {
        unsigned char* buffers[] = {nullptr};
        int sizes[] = {0};
        EXPECT_EQ(session.CreateStapaPacket(kTimestamp, count, sizes, buffers, &packet), 0);
        EXPECT_EQ(packet.get_payload_size(), 0);
        EXPECT_EQ(packet.get_packet_size(), 0);
        EXPECT_EQ(packet.get_timestamp(), kTimestamp);
    }
    EXPECT_EQ(session.m_sequenceNumber, 0x1236);
}

TEST_F(SendTest, FailingUnitEndsTheStapaPartlyFilledAndUsesItsNumberUp) {
    unsigned char unit[] = {0x65, 0x01};
    unsigned char* buffers[] = {unit, nullptr, unit};
    int sizes[] = {2, 2, 2};
    EXPECT_EQ(session.CreateStapaPacket(0, 3, sizes, buffers, &packet), -1);
    EXPECT_EQ(payloadOf(packet), aggregation({{0x65, 0x01}}));
    expectLines({error("CMMRTPSession4SVC::setAUPayload invalid parameter: packet = " + printed(&packet) +
                       ", data = 0x0"),
                 warning("CMMRTPSessionBase::CreateStapaPacket ret = -1, nal_index = 2")});
    EXPECT_EQ(session.m_sequenceNumber, 0x1235);
}

// The size field has 16 bits; a host that aggregates larger units is on its own.
TEST_F(SendTest, StapaSizeFieldKeepsTheLowSixteenBits) {
    CTalRtpPacket large(70000);
    EXPECT_EQ(stapa({pattern(65535, 1)}, &large), 0);
    EXPECT_EQ(slice(payloadOf(large), 1, 3), (Bytes{0xff, 0xff}));
    EXPECT_EQ(stapa({pattern(65537, 1)}, &large), 0);
    EXPECT_EQ(slice(payloadOf(large), 1, 3), (Bytes{0x00, 0x01}));
    EXPECT_EQ(large.get_payload_size(), 1 + 2 + 65537);
}

// --- CreateFuaPackets ----------------------------------------------------------------------------------

TEST_F(SendTest, FuaCutsTheUnitIntoPiecesOfTheCeiling) {
    EXPECT_EQ(fua({0x65, 1, 2, 3, 4, 5, 6, 7, 8, 9}, 4, packets), 0);
    EXPECT_EQ(payloadOf(packets[0]), (Bytes{0x7c, 0x85, 1, 2}));
    EXPECT_EQ(payloadOf(packets[1]), (Bytes{0x7c, 0x05, 3, 4, 5}));
    EXPECT_EQ(payloadOf(packets[2]), (Bytes{0x7c, 0x05, 6, 7, 8}));
    EXPECT_EQ(payloadOf(packets[3]), (Bytes{0x7c, 0x45, 9}));
    EXPECT_EQ(session.m_createdMediaPacketNumber, 4u);
    EXPECT_EQ(session.m_sequenceNumber, 0x1238);
    expectLines({});
}

TEST_F(SendTest, FuaPacketToTheByte) {
    EXPECT_EQ(fua({0x65, 0x11, 0x22, 0x33}, 2, packets), 0);
    // clang-format off
    const Bytes first = {
        0x80, 0x62, 0x12, 0x34,  // V=2 P=0 X=0 CC=0 | M=0 PT=98 | sequence number 0x1234
        0x00, 0x01, 0x5f, 0x90,  // timestamp 90000
        0x0a, 0x0b, 0x0c, 0x0d,  // SSRC
        0x7c, 0x85, 0x11,        // indicator: NRI=3 type 28 | S=1 E=0 type 5 | data
    };
    const Bytes last = {
        0x80, 0xe2, 0x12, 0x35,  // M=1 PT=98 | sequence number 0x1235
        0x00, 0x01, 0x5f, 0x90,  // the same timestamp
        0x0a, 0x0b, 0x0c, 0x0d,  // SSRC
        0x7c, 0x45, 0x22, 0x33,  // indicator | S=0 E=1 type 5 | data
    };
    // clang-format on
    EXPECT_EQ(bytesOf(packets[0]), first);
    EXPECT_EQ(bytesOf(packets[1]), last);
}

TEST_F(SendTest, FuaHeadersOfThreePieces) {
    EXPECT_EQ(fua({0x65, 1, 2, 3, 4, 5}, 3, packets), 0);
    const unsigned char headers[] = {0x85, 0x05, 0x45};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(packets[i].get_payload_ptr()[0], 0x7c);
        EXPECT_EQ(packets[i].get_payload_ptr()[1], headers[i]);
        EXPECT_EQ(packets[i].get_marker_flag(), i == 2);
        EXPECT_EQ(packets[i].get_sequence_number(), 0x1234 + i);
        EXPECT_EQ(packets[i].get_timestamp(), kTimestamp);
    }
}

TEST_F(SendTest, FuaIndicatorKeepsForbiddenBitAndNri) {
    EXPECT_EQ(fua({0xa1, 1}, 2, packets), 0);  // F=1 NRI=1 type 1; the first piece is the header alone
    EXPECT_EQ(payloadOf(packets[0]), (Bytes{0xbc, 0x81}));
    EXPECT_EQ(payloadOf(packets[1]), (Bytes{0xbc, 0x41, 1}));
}

TEST_F(SendTest, FuaWithOnePacketIsASingleNalUnitPacket) {
    EXPECT_EQ(fua({0x65, 1, 2}, 1, packets), 0);
    EXPECT_EQ(payloadOf(packets[0]), (Bytes{0x65, 1, 2}));
    EXPECT_TRUE(packets[0].get_marker_flag());
}

TEST_F(SendTest, FuaWithANegativeCountTouchesNothing) {
    const Bytes unit = {0x65, 1, 2};
    EXPECT_EQ(fua(unit, -3, packets), 0);
    EXPECT_EQ(session.m_sequenceNumber, 0x1234);
    EXPECT_EQ(packets[0].get_packet_size(), 0);
    expectLines({});
}

TEST_F(SendTest, FuaRefusesNullWithAnError) {
    unsigned char unit[] = {0x65};
    EXPECT_EQ(session.CreateFuaPackets(0, 1, nullptr, 1, packets), -1);
    EXPECT_EQ(session.CreateFuaPackets(0, 1, unit, 1, nullptr), -1);
    const std::string opening = "CMMRTPSessionBase::CreateFuaPackets invalid parameter: nal_buf = ";
    expectLines({error(opening + "0x0, pRtpPacket = " + printed(&packets[0])),
                 error(opening + printed(unit) + ", pRtpPacket = 0x0")});
    EXPECT_EQ(session.m_sequenceNumber, 0x1234);
}

// --- The writers of the SVC session --------------------------------------------------------------------

TEST_F(SendTest, WriterIsChosenByTheCountAlone) {
    unsigned char unit[] = {0x65, 1, 2};
    session.setPacketHeader(0, &packet);
    EXPECT_EQ(session.setPacketPayload(7, 1, 3, unit, &packet), 0);  // the index is ignored
    EXPECT_EQ(payloadOf(packet), (Bytes{0x65, 1, 2}));

    session.setPacketHeader(0, &packet);
    EXPECT_EQ(session.setPacketPayload(1, 0, 3, unit, &packet), 0);
    EXPECT_EQ(payloadOf(packet), (Bytes{0x78, 0, 3, 0x65, 1, 2}));

    session.setPacketHeader(0, &packet);
    EXPECT_EQ(session.setPacketPayload(1, 2, 3, unit, &packet), 0);
    EXPECT_EQ(payloadOf(packet), (Bytes{0x7c, 0x85, 1, 2}));
}

TEST_F(SendTest, NegativeCountWarnsAndWritesNothing) {
    unsigned char unit[] = {0x65, 1, 2};
    session.setPacketHeader(0, &packet);
    EXPECT_EQ(session.setPacketPayload(1, -1, 3, unit, &packet), -1);
    EXPECT_EQ(packet.get_packet_size(), 0);
    EXPECT_EQ(packet.get_buffer()[12], 0x00);
    expectLines({warning("CMMRTPSession4SVC::setPacketPayload payload count is samller zero, count = -1")});
}

TEST_F(SendTest, EachWriterRefusesNullWithItsOwnError) {
    unsigned char unit[] = {0x65, 1, 2};
    EXPECT_EQ(session.setSinglePayload(3, unit, nullptr), -1);
    EXPECT_EQ(session.setSinglePayload(3, nullptr, &packet), -1);
    EXPECT_EQ(session.setAUPayload(1, 3, unit, nullptr), -1);
    EXPECT_EQ(session.setAUPayload(1, 3, nullptr, &packet), -1);
    EXPECT_EQ(session.setFUPayload(1, 2, 3, unit, nullptr), -1);
    EXPECT_EQ(session.setFUPayload(1, 2, 3, nullptr, &packet), -1);
    std::vector<ExpectedLine> expected;
    for (const char* const writer : {"setSinglePayload", "setAUPayload", "setFUPayload"}) {
        const std::string opening =
            std::string("CMMRTPSession4SVC::") + writer + " invalid parameter: packet = ";
        expected.push_back(error(opening + "0x0, data = " + printed(unit)));
        expected.push_back(error(opening + printed(&packet) + ", data = 0x0"));
    }
    expectLines(expected);
    EXPECT_EQ(packet.get_packet_size(), 0);
}

TEST_F(SendTest, NalHeaderOfAnEarlierCallIsUsedByLaterFragmentsWhichIsKept) {
    unsigned char unit[] = {0x65, 1, 2};
    session.setSinglePayload(3, unit, &packet);
    session.setPacketHeader(0, &packet);
    EXPECT_EQ(session.setFUPayload(2, 3, 3, unit, &packet), 0);
    EXPECT_EQ(payloadOf(packet),
              (Bytes{0x7c, 0x05, 0x65, 1, 2}));  // no byte is dropped after the first piece
}

TEST_F(SendTest, EndBitStandsOnThePieceWhoseIndexIsTheCount) {
    unsigned char unit[] = {0x41, 1};
    session.setPacketHeader(0, &packet);
    session.setFUPayload(1, 2, 2, unit, &packet);
    EXPECT_EQ(packet.get_payload_ptr()[1], 0x81);
    session.setPacketHeader(0, &packet);
    session.setFUPayload(2, 2, 2, unit, &packet);
    EXPECT_EQ(packet.get_payload_ptr()[1], 0x41);
}

TEST_F(SendTest, AggregationHeaderIsRewrittenWithEveryUnit) {
    unsigned char low[] = {0x21, 1};
    unsigned char high[] = {0x65, 2};
    session.setPacketHeader(0, &packet);
    session.setAUPayload(1, 2, low, &packet);
    EXPECT_EQ(payloadOf(packet), (Bytes{0x38, 0, 2, 0x21, 1}));
    session.setAUPayload(2, 2, high, &packet);
    EXPECT_EQ(payloadOf(packet), (Bytes{0x78, 0, 2, 0x21, 1, 0, 2, 0x65, 2}));
}

// --- The writer of the base session --------------------------------------------------------------------

class BaseSendTest : public SessionTest<BaseProbe> {
protected:
    CTalRtpPacket packet{200};
    unsigned char unit[3] = {0x65, 1, 2};
};

TEST_F(BaseSendTest, BaseWriterTakesASingleUnit) {
    EXPECT_EQ(session.CreateSinglePacket(0, 3, unit, &packet), 0);
    EXPECT_EQ(payloadOf(packet), (Bytes{0x65, 1, 2}));
    EXPECT_EQ(session.CreateFuaPackets(0, 3, unit, 1, &packet), 0);
    EXPECT_EQ(payloadOf(packet), (Bytes{0x65, 1, 2}));
    expectLines({});
}

TEST_F(BaseSendTest, BaseWriterTakesNothingElse) {
    for (const std::pair<int, int>& indexAndCount : {std::pair<int, int>(1, 0), {2, 1}, {1, 2}, {0, 1}}) {
        EXPECT_EQ(session.setPacketPayload(indexAndCount.first, indexAndCount.second, 3, unit, &packet), -1);
        expectLines({warning("CMMRTPSessionBase::setPacketPayload support only single packet.")});
    }
    EXPECT_EQ(packet.get_payload_size(), 0);
}

TEST_F(BaseSendTest, BaseWriterRefusesNullBeforeItLooksAtTheCount) {
    EXPECT_EQ(session.setPacketPayload(1, 0, 3, nullptr, &packet), -1);
    EXPECT_EQ(session.setPacketPayload(1, 1, 3, unit, nullptr), -1);
    const std::string opening = "CMMRTPSessionBase::setPacketPayload invalid parameter, packet = ";
    expectLines({error(opening + printed(&packet) + ", data = 0x0"),
                 error(opening + "0x0, data = " + printed(unit))});
}

TEST_F(BaseSendTest, FuaOfTheBaseFailsAtItsFirstPacket) {
    PacketArray<CTalRtpPacket> packets(2, 100);
    session.m_sequenceNumber = 10;
    EXPECT_EQ(session.CreateFuaPackets(0, 3, unit, 2, packets), -1);
    expectLines({warning("CMMRTPSessionBase::setPacketPayload support only single packet."),
                 warning("CMMRTPSessionBase::CreateFuaPackets ret = -1, packet_index = 1")});
    EXPECT_TRUE(packets[0].get_marker_flag());
    EXPECT_EQ(session.m_sequenceNumber, 11);
}

// --- A host's own writers ------------------------------------------------------------------------------

struct PayloadCall {
    int index;
    int count;
    int size;
    std::ptrdiff_t offset;
    bool operator==(const PayloadCall& other) const {
        return index == other.index && count == other.count && size == other.size && offset == other.offset;
    }
};

std::ostream& operator<<(std::ostream& out, const PayloadCall& call) {
    return out << "(" << call.index << ", " << call.count << ", " << call.size << ", +" << call.offset << ")";
}

// Notes how the makers of packets call their two hooks, and fails where it is told to.
class HookedSession : public SvcProbe {
public:
    using SvcProbe::SvcProbe;

    int setPacketHeader(unsigned long timestamp, CTalRtpPacket* packet) override {
        ++headerCalls;
        SvcProbe::setPacketHeader(timestamp, packet);
        packet->set_timestamp(77);
        return headerResult;
    }
    int setPacketPayload(int index, int count, int size, unsigned char* data,
                         CTalRtpPacket* packet) override {
        payloadCalls.push_back({index, count, size, data - start});
        markers.push_back(packet->get_marker_flag());
        return index == failingIndex ? 5 : 0;
    }

    int headerCalls = 0;
    int headerResult = 0;
    int failingIndex = 0;
    unsigned char* start = nullptr;
    std::vector<PayloadCall> payloadCalls;
    std::vector<bool> markers;
};

class HookedSendTest : public SessionTest<HookedSession> {
protected:
    HookedSendTest() {
        session.start = unit;
        session.m_sequenceNumber = 10;
    }
    unsigned char unit[16] = {0x65};
    PacketArray<CTalRtpPacket> packets{8, 100};
};

TEST_F(HookedSendTest, HeaderHookTakesEffectAndItsResultIsNotUsed) {
    session.headerResult = 9;
    EXPECT_EQ(session.CreateSinglePacket(1, 4, unit, packets), 0);
    EXPECT_EQ(packets[0].get_timestamp(), 77u);
    EXPECT_EQ(session.CreateFuaPackets(1, 4, unit, 2, packets), 0);
    EXPECT_EQ(packets[1].get_timestamp(), 77u);
    unsigned char* units[] = {unit};
    int sizes[] = {4};
    EXPECT_EQ(session.CreateStapaPacket(1, 1, sizes, units, packets), 0);
    EXPECT_EQ(session.headerCalls, 4);
}

TEST_F(HookedSendTest, StapaOfNoUnitsReturnsTheResultOfTheHeaderWriter) {
    session.headerResult = 9;
    unsigned char* units[] = {unit};
    int sizes[] = {4};
    EXPECT_EQ(session.CreateStapaPacket(1, 0, sizes, units, packets), 9);
    EXPECT_THAT(session.payloadCalls, ElementsAre());
}

TEST_F(HookedSendTest, SinglePacketAsksForPieceOneOfOneAndReturnsTheResult) {
    EXPECT_EQ(session.CreateSinglePacket(1, 4, unit, packets), 0);
    EXPECT_THAT(session.payloadCalls, ElementsAre(PayloadCall{1, 1, 4, 0}));
    session.failingIndex = 1;
    EXPECT_EQ(session.CreateSinglePacket(1, 4, unit, packets), 5);
    EXPECT_EQ(session.m_sequenceNumber, 12);
}

TEST_F(HookedSendTest, StapaAsksForUnitsFromOneWithACountOfZero) {
    unsigned char* units[] = {unit, unit + 3, unit + 5};
    int sizes[] = {3, 2, 7};
    EXPECT_EQ(session.CreateStapaPacket(1, 3, sizes, units, packets), 0);
    EXPECT_THAT(session.payloadCalls,
                ElementsAre(PayloadCall{1, 0, 3, 0}, PayloadCall{2, 0, 2, 3}, PayloadCall{3, 0, 7, 5}));
    EXPECT_EQ(session.headerCalls, 1);
}

TEST_F(HookedSendTest, StapaReturnsTheResultThatEndedIt) {
    session.failingIndex = 2;
    unsigned char* units[] = {unit, unit, unit};
    int sizes[] = {3, 2, 7};
    EXPECT_EQ(session.CreateStapaPacket(1, 3, sizes, units, packets), 5);
    EXPECT_EQ(session.payloadCalls.size(), 2u);
    expectLines({warning("CMMRTPSessionBase::CreateStapaPacket ret = 5, nal_index = 2")});
}

TEST_F(HookedSendTest, FuaCutsWithTheHeaderByteIncluded) {
    EXPECT_EQ(session.CreateFuaPackets(1, 10, unit, 4, packets), 0);
    EXPECT_THAT(session.payloadCalls, ElementsAre(PayloadCall{1, 4, 3, 0}, PayloadCall{2, 4, 3, 3},
                                                  PayloadCall{3, 4, 3, 6}, PayloadCall{4, 4, 1, 9}));
    EXPECT_EQ(session.headerCalls, 4);
}

// Choosing a count that fits is the host's part; what it chose is passed on as it comes out.
TEST_F(HookedSendTest, FuaPassesEmptyAndNegativePiecesOnWhichIsKept) {
    EXPECT_EQ(session.CreateFuaPackets(1, 4, unit, 3, packets), 0);
    EXPECT_THAT(session.payloadCalls,
                ElementsAre(PayloadCall{1, 3, 2, 0}, PayloadCall{2, 3, 2, 2}, PayloadCall{3, 3, 0, 4}));
    session.payloadCalls.clear();
    EXPECT_EQ(session.CreateFuaPackets(1, 5, unit, 4, packets), 0);
    EXPECT_THAT(session.payloadCalls, ElementsAre(PayloadCall{1, 4, 2, 0}, PayloadCall{2, 4, 2, 2},
                                                  PayloadCall{3, 4, 1, 4}, PayloadCall{4, 4, -1, 5}));
}

TEST_F(HookedSendTest, FuaSetsTheMarkerAfterThePayload) {
    EXPECT_EQ(session.CreateFuaPackets(1, 6, unit, 3, packets), 0);
    EXPECT_THAT(session.markers, ElementsAre(true, true, true));
    EXPECT_FALSE(packets[0].get_marker_flag());
    EXPECT_FALSE(packets[1].get_marker_flag());
    EXPECT_TRUE(packets[2].get_marker_flag());
}

TEST_F(HookedSendTest, FailingPieceEndsTheFuaWhereItStands) {
    session.failingIndex = 2;
    EXPECT_EQ(session.CreateFuaPackets(1, 6, unit, 3, packets), 5);
    expectLines({warning("CMMRTPSessionBase::CreateFuaPackets ret = 5, packet_index = 2")});
    EXPECT_EQ(session.headerCalls, 2);
    EXPECT_FALSE(packets[0].get_marker_flag());
    EXPECT_TRUE(packets[1].get_marker_flag());  // not reached by the clearing
    EXPECT_EQ(packets[2].get_timestamp(), 0u);  // untouched
    EXPECT_EQ(session.m_sequenceNumber, 12);
}

// --- The library's class beside a derived one ----------------------------------------------------------

// A packet class of a host, with a header of its own after the fixed one.
class WideHeaderPacket : public CTalRtpPacket {
public:
    using CTalRtpPacket::CTalRtpPacket;

    int get_header_size() const override { return 16; }
};

// One whose payload begins in the fixed header.
class NarrowHeaderPacket : public CTalRtpPacket {
public:
    using CTalRtpPacket::CTalRtpPacket;

    int get_header_size() const override { return 8; }
};

// One that says in the byte after the fixed header how many more there are: none in a packet that was reset.
class CountedHeaderPacket : public CTalRtpPacket {
public:
    using CTalRtpPacket::CTalRtpPacket;

    int get_header_size() const override { return 12 + get_buffer()[12]; }
};

// One with four bytes of its own, unless the byte after the fixed header says that they are left out.
class OmittedHeaderPacket : public CTalRtpPacket {
public:
    using CTalRtpPacket::CTalRtpPacket;

    int get_header_size() const override { return get_buffer()[12] == 0 ? 16 : 12; }
};

// The sessions that `TalCreateRTPSession` makes write packets without asking hooks, which must not show. Used
// packets, in which no byte is 0, are filled by such a session and by a class derived from it.
class StockRulesTest : public SendTest {
protected:
    template <typename Packet>
    static void use(Packet& used) {
        used.set_payload_size(150);
        std::fill_n(used.get_buffer(), used.get_buffer_size(), static_cast<unsigned char>(0xee));
        used.set_packet_type(5);
    }

    // `make` fills `count` packets of `session`.
    template <typename Packet, typename Make>
    void expectTheSame(int count, Make make) {
        PacketArray<Packet> made(count, 200);
        PacketArray<Packet> expected(count, 200);
        for (int i = 0; i < count; ++i) {
            use(made[i]);
            use(expected[i]);
        }
        EXPECT_EQ(make(stock, made), 0);
        session.m_sequenceNumber = made[0].get_sequence_number();
        EXPECT_EQ(make(session, expected), 0);
        for (int i = 0; i < count; ++i) {
            SCOPED_TRACE("packet " + std::to_string(i));
            EXPECT_EQ(made[i].get_packet_size(), expected[i].get_packet_size());
            EXPECT_EQ(made[i].get_payload_size(), expected[i].get_payload_size());
            EXPECT_EQ(made[i].get_packet_type(), expected[i].get_packet_type());
            EXPECT_EQ(capacityOf(made[i]), capacityOf(expected[i]));
        }
    }
    template <typename Packet>
    void expectTheSameSingleUnit(const Bytes& unit) {
        expectTheSame<Packet>(1, [&](ITalRTPSession& maker, CTalRtpPacket* into) {
            return maker.CreateSinglePacket(kTimestamp, static_cast<int>(unit.size()),
                                            const_cast<unsigned char*>(unit.data()), into);
        });
    }
    template <typename Packet>
    void expectTheSameFragments(const Bytes& unit, int count) {
        expectTheSame<Packet>(count, [&](ITalRTPSession& maker, CTalRtpPacket* into) {
            return maker.CreateFuaPackets(kTimestamp, static_cast<int>(unit.size()),
                                          const_cast<unsigned char*>(unit.data()), count, into);
        });
    }

    static Bytes capacityOf(const CTalRtpPacket& packet) {
        return Bytes(packet.get_buffer(), packet.get_buffer() + packet.get_buffer_size());
    }

    CMMRTPSession4SVC stock{nullptr, kSourceId};
};

TEST_F(StockRulesTest, SingleUnitsAreTheSame) {
    expectTheSameSingleUnit<CTalRtpPacket>({0x65});
    expectTheSameSingleUnit<CTalRtpPacket>(join({{0x65}, pattern(187, 1)}));
}

TEST_F(StockRulesTest, FragmentsAreTheSame) {
    for (int count = 1; count <= 5; ++count) {
        SCOPED_TRACE("packets: " + std::to_string(count));
        expectTheSameFragments<CTalRtpPacket>(join({{0x65}, pattern(100, 1)}), count);
    }
}

TEST_F(StockRulesTest, FragmentsWithoutBytesAreTheSame) {
    expectTheSameFragments<CTalRtpPacket>({0x65, 0x11, 0x22, 0x33, 0x44}, 4);
}

TEST_F(StockRulesTest, PacketsWithAHeaderOfTheHostsAreTheSame) {
    expectTheSameSingleUnit<WideHeaderPacket>({0x65, 0x11, 0x22});
    expectTheSameFragments<WideHeaderPacket>({0x65, 0x11, 0x22, 0x33}, 2);
    expectTheSameSingleUnit<NarrowHeaderPacket>({0x65});
    expectTheSameFragments<NarrowHeaderPacket>({0x65, 0x11, 0x22, 0x33}, 2);
    expectTheSameSingleUnit<CountedHeaderPacket>({0x65, 0x11, 0x22});
    expectTheSameFragments<CountedHeaderPacket>({0x65, 0x11, 0x22, 0x33}, 2);
    expectTheSameSingleUnit<OmittedHeaderPacket>({0x65, 0x11, 0x22});
    expectTheSameFragments<OmittedHeaderPacket>({0x65, 0x11, 0x22, 0x33}, 2);
}

TEST_F(StockRulesTest, PayloadTypeBeyondSevenBitsFailsTheSameAssertion) {
    stock.SetPayloadType(128, 111);
    unsigned char unit[] = {0x65, 0x11};
    EXPECT_DEATH(stock.CreateSinglePacket(kTimestamp, 2, unit, &packet),
                 "src/rtp/TalRtpPacket\\.cpp:.*set_payload_type.*Assertion `t <= 0x7f' failed");
}

TEST_F(StockRulesTest, HeaderOfTheHostsIsZeroBehindTheFixedHeader) {
    WideHeaderPacket wide(200);
    use(wide);
    unsigned char unit[] = {0x65, 0x11};
    EXPECT_EQ(stock.CreateSinglePacket(kTimestamp, 2, unit, &wide), 0);
    EXPECT_EQ(slice(bytesOf(wide), 12), Bytes({0, 0, 0, 0, 0x65, 0x11}));
}

}  // namespace
}  // namespace test
}  // namespace talrtp
