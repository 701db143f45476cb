// The worked examples of docs/wire-formats.md: the library writes and reads the very bytes that the page
// shows.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <talrtp/talrtp.h>

#include <cstring>
#include <vector>

#include "Bytes.h"
#include "RecordingSink.h"

namespace talrtp {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

using test::Bytes;
using test::bytesOf;
using test::RecordingSink;

constexpr unsigned int kSsrc = 0x11223344;
constexpr unsigned int kOtherSsrc = 0x55667788;
constexpr unsigned long kTimestamp = 90000;

// A packet of the page: payload type 98, timestamp 90000, its SSRC.
Bytes mediaPacket(unsigned char seq, bool isMarked, const Bytes& payload) {
    const unsigned char second = isMarked ? 0xe2 : 0x62;
    Bytes packet = {
        0x80, second, 0x00, seq,   // V=2 | M, PT=98 | sequence number
        0x00, 0x01,   0x5f, 0x90,  // timestamp 90000
        0x11, 0x22,   0x33, 0x44,  // SSRC
    };
    packet.insert(packet.end(), payload.begin(), payload.end());
    return packet;
}

class NumberedSession : public CMMRTPSession4SVC {
public:
    NumberedSession(ITalRTPSessionSink* sink, unsigned long fecType, _uint16_t seq, _uint16_t fecSeq)
        : CMMRTPSession4SVC(sink, kSsrc) {
        SetFecType(fecType);
        m_sequenceNumber = seq;
        m_fecSequenceNumber = fecSeq;
    }
    void input(Bytes datagram) { InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), 0); }
};

TEST(WorkedExamplesTest, RtpPacketHasAHeaderOf24BytesAndAPayloadOf5) {
    Bytes bytes = {
        0xb1, 0xe2, 0x12, 0x34,  // V=2, P, X, CC=1 | M, PT=98 | sequence number
        0x00, 0x01, 0x5f, 0x90,  // timestamp
        0x11, 0x22, 0x33, 0x44,  // SSRC
        0xca, 0xfe, 0xba, 0xbe,  // CSRC 0
        0xbe, 0xde, 0x00, 0x01,  // extension, 1 word
        0x10, 0xaa, 0x00, 0x00,  //
        0x65, 0x88, 0x84,        // payload
        0x00, 0x02,              // padding
    };
    const CTalRtpPacket packet(bytes.data(), static_cast<int>(bytes.size()));
    EXPECT_TRUE(packet.validate());
    EXPECT_EQ(24, packet.get_header_size());
    EXPECT_EQ(5, packet.get_payload_size());
    EXPECT_EQ(98u, packet.get_payload_type());
    EXPECT_EQ(0x1234, packet.get_sequence_number());
    EXPECT_EQ(90000u, packet.get_timestamp());
    EXPECT_EQ(0xcafebabe, packet.get_contrib_source(0));
}

TEST(WorkedExamplesTest, ElementsAreFoundAndAppended) {
    Bytes bytes = {0x90, 0x62, 0,    0,    0,    0,    0,    0,    0,    0,    0,    0,
                   0xbe, 0xde, 0x00, 0x02, 0x10, 0xaa, 0x00, 0x31, 0xbb, 0xcc, 0x00, 0x00};
    CTalRtpPacket packet(bytes.data(), static_cast<int>(bytes.size()));
    unsigned char* element = nullptr;
    int length = 0;
    ASSERT_TRUE(packet.get_onebyte_extension_element(3, element, length));
    EXPECT_EQ(0x31, *element);
    EXPECT_EQ(3, length);

    unsigned char added[] = {0x50, 0xdd};
    ASSERT_TRUE(packet.add_onebyte_extension_element(5, added, 2));
    const Bytes expected = {0x90, 0x62, 0,    0,    0,    0,    0,    0,    0,    0,    0,    0,
                            0xbe, 0xde, 0x00, 0x02, 0x10, 0xaa, 0x31, 0xbb, 0xcc, 0x50, 0xdd, 0x00};
    EXPECT_THAT(bytesOf(packet), ElementsAreArray(expected));
}

const Bytes kSingle = {0x65, 0x88, 0x84};
const Bytes kStapA = {0x78, 0x00, 0x03, 0x21, 0x11, 0x22, 0x00, 0x04, 0x65, 0x33, 0x44, 0x55};
const std::vector<Bytes> kFragments = {
    {0x7c, 0x85, 0x01, 0x02},
    {0x7c, 0x05, 0x03, 0x04, 0x05},
    {0x7c, 0x05, 0x06, 0x07, 0x08},
    {0x7c, 0x45, 0x09},
};

TEST(WorkedExamplesTest, StapAHasTheHeaderOfItsMostImportantUnit) {
    NumberedSession session(nullptr, RTP_FEC_RS, 100, 0);
    unsigned char first[] = {0x21, 0x11, 0x22};
    unsigned char second[] = {0x65, 0x33, 0x44, 0x55};
    unsigned char* units[] = {first, second};
    int sizes[] = {3, 4};
    CTalRtpPacket packet(100);
    ASSERT_EQ(0, session.CreateStapaPacket(kTimestamp, 2, sizes, units, &packet));
    EXPECT_THAT(bytesOf(packet), ElementsAreArray(mediaPacket(100, true, kStapA)));
}

TEST(WorkedExamplesTest, FragmentsLeaveOutTheUnitsHeaderByte) {
    NumberedSession session(nullptr, RTP_FEC_RS, 100, 0);
    unsigned char unit[] = {0x65, 1, 2, 3, 4, 5, 6, 7, 8, 9};
    CTalRtpPacket packets[] = {100, 100, 100, 100};
    ASSERT_EQ(0, session.CreateFuaPackets(kTimestamp, sizeof(unit), unit, 4, packets));
    for (unsigned char i = 0; i < 4; ++i) {
        const Bytes expected = mediaPacket(static_cast<unsigned char>(100 + i), i == 3, kFragments[i]);
        EXPECT_THAT(bytesOf(packets[i]), ElementsAreArray(expected)) << "fragment " << int{i};
    }
}

TEST(WorkedExamplesTest, HandOversOfWholeUnits) {
    RecordingSink sink;
    NumberedSession session(&sink, RTP_FEC_RS, 0, 0);
    session.input(mediaPacket(99, true, kSingle));
    session.input(mediaPacket(100, true, kStapA));
    for (unsigned char i = 0; i < 4; ++i) {
        session.input(mediaPacket(static_cast<unsigned char>(101 + i), i == 3, kFragments[i]));
    }
    ASSERT_EQ(4u, sink.handovers.size());
    EXPECT_THAT(sink.handovers[0].payload, ElementsAre(0, 0, 0, 1, 0x65, 0x88, 0x84));
    EXPECT_THAT(sink.handovers[1].payload, ElementsAre(0, 0, 0, 1, 0x21, 0x11, 0x22));
    Bytes growing = sink.handovers[2].payload;
    EXPECT_EQ(15u, growing.size());
    growing.resize(8);
    EXPECT_THAT(growing, ElementsAre(0, 0, 0, 1, 0x65, 0x33, 0x44, 0x55));
    EXPECT_THAT(sink.handovers[3].payload, ElementsAre(0, 0, 0, 1, 0x65, 1, 2, 3, 4, 5, 6, 7, 8, 9));
    for (const test::Handover& handover : sink.handovers) {
        EXPECT_EQ(0u, handover.packetType);
    }
}

TEST(WorkedExamplesTest, ForcedHandOverIsCutAtTheLostFragment) {
    RecordingSink sink;
    NumberedSession session(&sink, RTP_FEC_RS, 0, 0);
    for (unsigned char i = 0; i < 3; ++i) {
        session.input(mediaPacket(static_cast<unsigned char>(101 + i), false, kFragments[i]));
    }
    EXPECT_EQ(0, session.ForceHandover(kTimestamp));
    ASSERT_EQ(1u, sink.handovers.size());
    EXPECT_THAT(sink.handovers[0].payload, ElementsAre(0, 0, 0, 1, 0x65, 1, 2, 3, 4, 5, 6, 7, 8));
    EXPECT_EQ(1u, sink.handovers[0].packetType);
}

TEST(WorkedExamplesTest, XorFecPacketOverThreePackets) {
    Bytes a = mediaPacket(100, false, {0x65, 0x11, 0x22});
    Bytes b = mediaPacket(101, false, {0x41, 0x33});
    Bytes c = mediaPacket(102, true, {0x41, 0x44, 0x55, 0x66});
    CTalRtpPacket media[] = {{a.data(), 15}, {b.data(), 14}, {c.data(), 16}};
    NumberedSession sender(nullptr, RTP_FEC_XOR, 0, 7);
    CRTPFECPacket fec(100);
    ASSERT_EQ(0, sender.CreateXorFecPackets(media, 3, 7, &fec));
    const Bytes expected = {
        0x80, 0xef, 0x00, 0x07,  // V=2 | M recovery 1, PT=111 | FEC sequence number
        0x00, 0x01, 0x5f, 0x90,  // timestamp
        0x11, 0x22, 0x33, 0x44,  // SSRC
        0x00, 0x64, 0x00, 0x05,  // SN base 100 | length recovery
        0x62, 0xe0, 0x00, 0x00,  // PT recovery | mask
        0x00, 0x01, 0x5f, 0x90,  // TS recovery
        0x65, 0x66, 0x77, 0x66,  // parity
    };
    EXPECT_THAT(bytesOf(fec), ElementsAreArray(expected));

    RecordingSink sink;
    NumberedSession receiver(&sink, RTP_FEC_XOR, 0, 0);
    receiver.input(a);
    receiver.input(c);
    receiver.input(expected);
    ASSERT_EQ(3u, sink.handovers.size());
    EXPECT_THAT(sink.handovers[2].payload, ElementsAre(0, 0, 0, 1, 0x41, 0x33));
}

TEST(WorkedExamplesTest, ReedSolomonFecPacketOverTwoPackets) {
    Bytes a = mediaPacket(100, false, {0x65, 0x11, 0x22});
    Bytes b = mediaPacket(101, true, {0x41, 0x33});
    CTalRtpPacket media[] = {{a.data(), 15}, {b.data(), 14}};
    NumberedSession sender(nullptr, RTP_FEC_RS, 0, 8);
    CTalRtpPacket fec(100);
    ASSERT_EQ(0, sender.CreateRsFecPackets(media, 2, &fec, 1));
    const Bytes expected = {
        0x80, 0x6f, 0x00, 0x08,  // V=2 | PT=111 | FEC sequence number
        0x00, 0x01, 0x5f, 0x90,  // timestamp
        0x11, 0x22, 0x33, 0x44,  // SSRC
        0x00, 0x64, 0x00, 0x0d,  // SN base 100 | recover length
        0x00, 0x01, 0x02, 0x00,  // index 0 | of 1 | over 2
        0x80, 0x7f, 0x00, 0x66, 0x00, 0x01, 0x5f, 0x90, 0x11, 0x22, 0x33, 0x44, 0x2d, 0x55, 0x66,
    };
    EXPECT_THAT(bytesOf(fec), ElementsAreArray(expected));

    RecordingSink sink;
    NumberedSession receiver(&sink, RTP_FEC_RS, 0, 0);
    receiver.input(a);
    receiver.input(expected);
    ASSERT_EQ(2u, sink.handovers.size());
    EXPECT_THAT(sink.handovers[1].payload, ElementsAre(0, 0, 0, 1, 0x41, 0x33));
}

TEST(WorkedExamplesTest, RtcpPackets) {
    CTalRTCPStack stack;
    unsigned char room[600];
    int len = 0;
    const auto built = [&](std::int64_t result) { return Bytes(room, room + (result == 0 ? len : 0)); };
    const auto empty = [&]() -> int& { return len = sizeof(room); };

    _SenderInfo info = {0xe8d6a480, 0x80000000, 90000, 10, 10000};
    _ReportBlock block = {};
    block.ssrc = kOtherSsrc;
    block.fractionLost = 12;
    block.cumulativeLost = 345;
    block.extendedHighestSeq = 0x0001fffe;
    block.jitter = 32;
    block.lastSR = 0xa4808000;
    block.delaySinceLastSR = 0x00010000;
    EXPECT_THAT(built(stack.CreateSenderReportPacket(kSsrc, &info, &block, 1, room, empty())),
                ElementsAre(0x81, 0xc8, 0x00, 0x0d, 0x11, 0x22, 0x33, 0x44, 0xe8, 0xd6, 0xa4, 0x80, 0x80,
                            0x00, 0x00, 0x00, 0x00, 0x01, 0x5f, 0x90, 0x00, 0x00, 0x00, 0x0a, 0x00, 0x00,
                            0x27, 0x10, 0x55, 0x66, 0x77, 0x88, 0x0c, 0x00, 0x01, 0x59, 0x00, 0x01, 0xff,
                            0xfe, 0x00, 0x00, 0x00, 0x20, 0xa4, 0x80, 0x80, 0x00, 0x00, 0x01, 0x00, 0x00));
    EXPECT_THAT(built(stack.CreateReceiverReportPacket(kSsrc, &block, 0, room, empty())),
                ElementsAre(0x80, 0xc9, 0x00, 0x02, 0x11, 0x22, 0x33, 0x44));

    _SdesItem item;
    item.ssrc = kSsrc;
    item.type = 1;
    item.length = 5;
    std::memcpy(item.data, "hello", 5);
    EXPECT_THAT(built(stack.CreateSdesPacket(&item, 1, room, empty())),
                ElementsAre(0x81, 0xca, 0x00, 0x04, 0x11, 0x22, 0x33, 0x44, 0x01, 0x05, 0x68, 0x65, 0x6c,
                            0x6c, 0x6f));

    unsigned int leaving[] = {kSsrc, kOtherSsrc};
    EXPECT_THAT(built(stack.CreateByePacket(leaving, 2, room, empty())),
                ElementsAre(0x82, 0xcb, 0x00, 0x03, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88));

    unsigned char name[] = {'s', 't', 'a', 't'};
    unsigned char data[] = {1, 2, 3, 4, 5};
    EXPECT_THAT(
        built(stack.CreateAppPacket(kSsrc, 5, name, data, 5, room, empty())),
        ElementsAre(0x85, 0xcc, 0x00, 0x05, 0x11, 0x22, 0x33, 0x44, 0x73, 0x74, 0x61, 0x74, 1, 2, 3, 4, 5));

    unsigned char lost[] = {0x00, 0x65, 0x00, 0x00};
    EXPECT_THAT(built(stack.CreateRTPFBPacket(kSsrc, kOtherSsrc, 1, lost, 4, room, empty())),
                ElementsAre(0x81, 0xcd, 0x00, 0x04, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x00,
                            0x65, 0x00, 0x00));
    EXPECT_THAT(built(stack.CreatePSFBPacket(kSsrc, kOtherSsrc, 1, nullptr, 0, room, empty())),
                ElementsAre(0x81, 0xce, 0x00, 0x03, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88));
}

}  // namespace
}  // namespace talrtp
