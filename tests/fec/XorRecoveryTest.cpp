// Rebuilding one lost media packet from an XOR parity packet (RFC 2733) and the others that it protects.

#include <memory>

#include "SessionFixture.h"

namespace talrtp {
namespace test {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

template <typename Session>
class XorTestOf : public SessionTest<Session> {
protected:
    XorTestOf() { this->session.SetFecType(RTP_FEC_XOR); }

    // The bytes of the stored media packet with that number, or nothing.
    Bytes stored(unsigned short seq) {
        const CTalRtpPacket* const packet = this->session.getMediaPacketBySeq(seq);
        return packet == nullptr ? Bytes() : bytesOf(*packet);
    }

    static ExpectedLine rebuilt(int seq, unsigned int ts) {
        return info("CMMRTPSessionBase::recoverPacketWithXORFEC recoveredSeq = " + std::to_string(seq) +
                    ", recoveredTS = " + std::to_string(ts) + ", sourceID = 168496141");
    }
};

class XorRecoveryTest : public XorTestOf<SvcProbe> {};

// Two packets of one group, and the parity over both.
// clang-format off
const Bytes kFirst = {
    0x80, 0xe2, 0x00, 0x64,  // V=2 P=0 X=0 CC=0 | M=1 PT=98 | sequence number 100
    0x00, 0x01, 0x5f, 0x90,  // timestamp 90000
    0x11, 0x22, 0x33, 0x44,  // SSRC
    0x41, 0x22, 0x33,        // payload: 3 bytes after the fixed header
};
const Bytes kThird = {
    0xa1, 0x62, 0x00, 0x66,  // V=2 P=1 X=0 CC=1 | M=0 PT=98 | sequence number 102
    0x00, 0x01, 0x6d, 0xa0,  // timestamp 93600
    0x11, 0x22, 0x33, 0x44,  // SSRC
    0x01, 0x02, 0x03, 0x04,  // CSRC
    0x41, 0x01,              // payload and 1 byte of padding: 6 bytes after the fixed header
};
const Bytes kParity = {
    0xa1, 0xef, 0x02, 0x00,  // V=2, P, CC=1 | M, PT=111 | FEC sequence number 512
    0x00, 0x01, 0x6d, 0xa0,  // timestamp 93600
    0xca, 0xfe, 0xba, 0xbe,  // SSRC of the FEC stream
    0x00, 0x64, 0x00, 0x05,  // SN base 100 | length recovery 3^6
    0x00, 0xa0, 0x00, 0x00,  // PT recovery 98^98 | mask: base + 0 and base + 2
    0x00, 0x00, 0x32, 0x30,  // TS recovery 0x15f90 ^ 0x16da0
    0x40, 0x20, 0x30, 0x04,  // parity: 41^01 22^02 33^03 00^04
    0x41, 0x01,              // 00^41 00^01
};
// clang-format on

TEST_F(XorRecoveryTest, LostPacketIsRebuiltFromParityAndTheOther) {
    receive(kThird);
    sink.handovers.clear();
    receive(kParity);
    // clang-format off
    const Bytes expected = {
        0x80, 0x81, 0x00, 0x64,  // P=1^1 CC=1^1 | M=1^0, PT=0^1: the kind mark of packet 102 | as requested
        0x00, 0x01, 0x5f, 0x90,  // 0x3230 ^ 0x16da0
        0xca, 0xfe, 0xba, 0xbe,  // SSRC of the FEC packet
        0x41, 0x22, 0x33,        // length 5^6 = 3
    };
    // clang-format on
    EXPECT_EQ(stored(100), expected);
    expectHandovers({{100, inByteStream({0x41, 0x22, 0x33}), 0}});
    expectLines({rebuilt(100, 90000), fecArrived()});
    EXPECT_THAT(session.m_fecPacketList, IsEmpty());
}

TEST_F(XorRecoveryTest, LostPacketWithCsrcAndPaddingIsRebuilt) {
    receive(kFirst);
    sink.handovers.clear();
    receive(kParity);
    Bytes expected = kThird;
    expected[1] = 0x01;  // PT=0^1
    std::copy(kParity.begin() + 8, kParity.begin() + 12, expected.begin() + 8);
    EXPECT_EQ(stored(102), expected);
    ASSERT_NE(session.getMediaPacketBySeq(102), nullptr);
    EXPECT_EQ(session.getMediaPacketBySeq(102)->get_payload_size(), 2);  // without the CSRC
    expectHandovers({{102, inByteStream({0x41, 0x01}), 0}});
}

// Senders XOR payload types, receivers kind marks: 1 for a packet that the SVC session stores.
TEST_F(XorRecoveryTest, PayloadTypeIsXoredWithKindMarksWhichIsKept) {
    for (int count = 1; count <= 4; ++count) {
        const unsigned short first = static_cast<unsigned short>(count * 10);
        Group group(RTP_FEC_XOR, first, first, unitsFrom(first, count));
        group.lose(first);
        receiveAll(group.arriving());
        receive(group.fec[0]);
        ASSERT_NE(session.getMediaPacketBySeq(first), nullptr);
        const unsigned int recovery = count % 2 == 1 ? 98 : 0;
        const unsigned int kinds = (count - 1) % 2 == 1 ? 1 : 0;
        EXPECT_EQ(session.getMediaPacketBySeq(first)->get_payload_type(), recovery ^ kinds) << count;
    }
}

class BaseXorRecoveryTest : public XorTestOf<BaseProbe> {};

TEST_F(BaseXorRecoveryTest, KindMarksOfTheBaseSessionAreZero) {
    Group group(RTP_FEC_XOR, 10, 1, unitsFrom(10, 2));
    group.lose(10);
    receiveAll(group.arriving());
    receive(group.fec[0]);
    ASSERT_NE(session.getMediaPacketBySeq(10), nullptr);
    EXPECT_EQ(session.getMediaPacketBySeq(10)->get_payload_type(), 0u);
    expectDelivered({11, 10});
}

TEST_F(XorRecoveryTest, PacketProtectedAloneIsCopiedOutOfTheFecPacket) {
    XorFec fec;
    fec.seq = 3;
    fec.recoveredBits = 0x31;  // P=1 X=1 CC=1
    fec.marker = true;
    fec.base = 77;
    fec.length = 4 + 8 + 2;
    fec.payloadType = 98;
    fec.mask = 0x800000;
    fec.recoveredTimestamp = 0x01020304;
    fec.parity = {0xaa, 0xbb, 0xcc, 0xdd,  // CSRC
                  0xbe, 0xde, 0x00, 0x01,  // extension of one word
                  0x10, 0x01, 0x00, 0x00,  //
                  0x65, 0x01};             // payload, 1 byte of it padding
    receive(fec.bytes());
    const Bytes expected =
        join({{0xb1, 0xe2, 0x00, 0x4d, 0x01, 0x02, 0x03, 0x04, 0x11, 0x22, 0x33, 0x44}, fec.parity});
    EXPECT_EQ(stored(77), expected);
    expectHandovers({{77, inByteStream({0x65, 0x01}), 0}});
}

TEST_F(XorRecoveryTest, MaskOfZeroDropsTheFecPacket) {
    XorFec fec;
    fec.parity = Bytes(4, 0xff);
    receive(fec.bytes());
    EXPECT_THAT(session.m_fecPacketList, IsEmpty());
    EXPECT_THAT(session.m_mediaPacketList, IsEmpty());
    expectLines({fecArrived()});
}

TEST_F(XorRecoveryTest, NothingMissingDropsTheFecPacket) {
    Group group(RTP_FEC_XOR, 10, 1, unitsFrom(10, 3));
    receiveAll(group.arriving());
    receive(group.fec[0]);
    EXPECT_THAT(session.m_fecPacketList, IsEmpty());
    expectDelivered({10, 11, 12});
    expectLines({fecArrived()});
}

TEST_F(XorRecoveryTest, SecondLossKeepsTheFecPacketUntilMediaArrives) {
    Group group(RTP_FEC_XOR, 10, 1, unitsFrom(10, 4));
    group.lose(11);
    group.lose(12);
    receiveAll(group.arriving());
    receive(group.fec[0]);
    expectDelivered({10, 13});
    EXPECT_THAT(session.m_fecPacketList, SizeIs(1));
    receive(group.media[1]);
    expectDelivered({11, 12});
    EXPECT_THAT(session.m_fecPacketList, IsEmpty());
}

TEST_F(XorRecoveryTest, EveryPlaceOfTheMaskIsRebuiltAcrossTheWrap) {
    for (unsigned short place = 0; place < 24; ++place) {
        SvcProbe receiver(&sink, kSourceId);
        receiver.SetFecType(RTP_FEC_XOR);
        const unsigned short first = 65530;
        const unsigned short lost = static_cast<unsigned short>(first + place);
        Group group(RTP_FEC_XOR, first, 1, unitsFrom(first, 24));
        group.lose(lost);
        for (Bytes& datagram : group.arriving()) {
            receiver.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), 0);
        }
        sink.handovers.clear();
        receiver.InputReceivedData(group.fec[0].data(), static_cast<int>(group.fec[0].size()), 0);
        expectDelivered({lost});
    }
}

TEST_F(XorRecoveryTest, UnitsOfAllLengthsComeBack) {
    std::vector<Bytes> units;
    for (std::size_t i = 0; i < 20; ++i) {
        units.push_back(join({{0x41}, pattern(1 + i * 67 % 1200, static_cast<unsigned int>(i))}));
    }
    for (unsigned short place = 0; place < 20; ++place) {
        const unsigned short first = static_cast<unsigned short>(1000 + place * 100);
        const unsigned short lost = static_cast<unsigned short>(first + place);
        Group group(RTP_FEC_XOR, first, first, units);
        group.lose(lost);
        receiveAll(group.arriving());
        sink.handovers.clear();
        receive(group.fec[0]);
        expectHandovers({{lost, inByteStream(units[place]), 0}});
    }
}

TEST_F(XorRecoveryTest, PacketInTheListOfRebuiltOnesHelpsToRebuildAnother) {
    Group first(RTP_FEC_XOR, 10, 1, unitsFrom(10, 1));
    Group second(RTP_FEC_XOR, 10, 2, unitsFrom(10, 2));
    CRTPFECPacket fec(first.fec[0].data(), static_cast<int>(first.fec[0].size()));
    CRTPFECPacket other(second.fec[0].data(), static_cast<int>(second.fec[0].size()));
    bool keep = true;
    session.recoverPacketWithXORFEC(&fec, keep);
    EXPECT_FALSE(keep);
    keep = true;
    session.recoverPacketWithXORFEC(&other, keep);
    EXPECT_FALSE(keep);
    EXPECT_THAT(session.m_recoverPacketList, SizeIs(2));
    session.dealRecoverPacketList();
    expectDelivered({10, 11});
}

TEST_F(XorRecoveryTest, AttemptTellsWhetherToKeepThePacket) {
    Group group(RTP_FEC_XOR, 10, 1, unitsFrom(10, 2));
    CRTPFECPacket fec(group.fec[0].data(), static_cast<int>(group.fec[0].size()));
    bool keep = false;
    session.recoverPacketWithXORFEC(&fec, keep);
    EXPECT_TRUE(keep);
    receiveAll(group.arriving());
    session.recoverPacketWithXORFEC(&fec, keep);
    EXPECT_FALSE(keep);
}

TEST_F(XorRecoveryTest, NullPacketsAreErrors) {
    bool keep = true;
    session.recoverPacketWithXORFEC(nullptr, keep);
    EXPECT_FALSE(keep);
    EXPECT_EQ(session.recoverPacket(5, nullptr), nullptr);
    expectLines({error("CMMRTPSessionBase::recoverPacketWithXORFEC invalid parameter: fecPacket = 0x0"),
                 error("CMMRTPSessionBase::recoverPacket invalid parameter: fecPacket = 0x0")});
}

TEST_F(XorRecoveryTest, RebuildingAloneReturnsANewPacketAndStoresNothing) {
    Group group(RTP_FEC_XOR, 10, 1, unitsFrom(10, 2));
    receive(group.media[1]);
    CRTPFECPacket fec(group.fec[0].data(), static_cast<int>(group.fec[0].size()));
    const std::unique_ptr<CTalRtpPacket> packet(session.recoverPacket(10, &fec));
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(payloadOf(*packet), unitOf(10));
    EXPECT_EQ(packet->get_packet_type(), 1u);
    EXPECT_EQ(packet->get_version(), 2u);
    EXPECT_EQ(packet->get_buffer_size(), fec.get_packet_size() - 12);
    EXPECT_THAT(session.m_recoverPacketList, IsEmpty());
}

TEST_F(XorRecoveryTest, RebuiltPacketBearsTheRequestedNumber) {
    Group group(RTP_FEC_XOR, 10, 1, unitsFrom(10, 1));
    CRTPFECPacket fec(group.fec[0].data(), static_cast<int>(group.fec[0].size()));
    const std::unique_ptr<CTalRtpPacket> packet(session.recoverPacket(4711, &fec));
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->get_sequence_number(), 4711);
}

// The parity of 2 bytes belongs to no sender that saw packet 11 with its 4.
TEST_F(XorRecoveryTest, MediaLongerThanTheParityIsClippedWithAWarning) {
    media(11);  // 41 00 0b a5
    sink.handovers.clear();
    XorFec fec;
    fec.base = 10;
    fec.mask = 0xc00000;
    fec.length = 4 ^ 2;
    fec.recoveredTimestamp = 0;
    fec.parity = {0x24, 0xff};
    receive(fec.bytes());
    expectHandovers({{10, inByteStream({0x65, 0xff}), 0}});
    expectLines({warning("CMMRTPSessionBase::recoverPacket recovered packet size is too small, "
                         "recoveredSeq = 10, recoveredLen = 2, recoverLen = 4"),
                 rebuilt(10, 90000), fecArrived()});
}

TEST_F(XorRecoveryTest, ShorterMediaCountsAsZeroBeyondItsEnd) {
    media(11, {0x41});
    sink.handovers.clear();
    XorFec fec;
    fec.base = 10;
    fec.mask = 0xc00000;
    fec.length = 1 ^ 3;
    fec.parity = {0x24, 0x11, 0x22};
    receive(fec.bytes());
    expectHandovers({{10, inByteStream({0x65, 0x11, 0x22}), 0}});
}

TEST_F(XorRecoveryTest, InfoLineNeedsTheMaskAtTwo) {
    trace.setMask(1);
    Group group(RTP_FEC_XOR, 10, 1, unitsFrom(10, 1));
    receive(group.fec[0]);
    expectLines({fecArrived()});
    expectDelivered({10});
}

// --- A host's own rebuilding ---------------------------------------------------------------------------

class OwnRecovery : public SvcProbe {
public:
    using SvcProbe::SvcProbe;

    CTalRtpPacket* recoverPacket(unsigned short seq, CRTPFECPacket* /*fecPacket*/) override {
        requested.push_back(seq);
        if (!gives) {
            return nullptr;
        }
        Bytes bytes = rtp(static_cast<unsigned short>(seq + shift), kTimestamp, unitOf(seq));
        given = new CTalRtpPacket(bytes.data(), static_cast<int>(bytes.size()));
        return given;
    }

    bool gives = true;
    unsigned short shift = 0;
    CTalRtpPacket* given = nullptr;
    std::vector<unsigned short> requested;
};

class OwnRecoveryTest : public XorTestOf<OwnRecovery> {
protected:
    OwnRecoveryTest() {
        XorFec fec;
        fec.base = 10;
        fec.mask = 0xa00000;
        fecBytes = fec.bytes();
        media(10);
        sink.handovers.clear();
    }
    Bytes fecBytes;
};

TEST_F(OwnRecoveryTest, OwnPacketIsTakenOver) {
    receive(fecBytes);
    EXPECT_THAT(session.requested, testing::ElementsAre(12));
    EXPECT_EQ(session.getMediaPacketBySeq(12), session.given);
    expectDelivered({12});
}

TEST_F(OwnRecoveryTest, NoPacketDropsTheFecPacketWithoutAWord) {
    session.gives = false;
    receive(fecBytes);
    EXPECT_THAT(session.m_fecPacketList, IsEmpty());
    expectLines({fecArrived()});
    expectDelivered({});
}

// A host that rebuilds on its own may keep its packet; the session does not touch what it did not ask for.
TEST_F(OwnRecoveryTest, PacketWithAnotherNumberIsReportedAndLeftAloneWhichIsKept) {
    session.shift = 3;
    receive(fecBytes);
    expectLines({warning("CMMRTPSessionBase::recoverPacketWithXORFEC recover seq number is differ with "
                         "request, recoveredSeq = 15, requestSeq = 12"),
                 fecArrived()});
    expectDelivered({});
    EXPECT_THAT(session.m_recoverPacketList, IsEmpty());
    EXPECT_THAT(session.m_fecPacketList, IsEmpty());
    EXPECT_EQ(session.getMediaPacketBySeq(15), nullptr);
    EXPECT_EQ(payloadOf(*session.given), unitOf(12));  // still alive
    delete session.given;
}

}  // namespace
}  // namespace test
}  // namespace talrtp
