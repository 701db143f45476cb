// Frames of every link type that is read, byte by byte, and what they must not be taken for.

#include "inspect/Frame.h"

#include <gtest/gtest.h>

#include <vector>

#include "Bytes.h"

namespace talrtp::host::inspect {
namespace {

using test::Bytes;

Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// clang-format off
const Bytes kUdp{0x9c, 0x40, 0x13, 0x8c,   // port 40000 to 5004
                 0x00, 0x0b, 0x00, 0x00,   // 11 bytes: 3 of payload
                 0xaa, 0xbb, 0xcc};
const Bytes kIpv4{0x45, 0x00, 0x00, 0x1f,  // 20 bytes of header, 31 in all
                  0x12, 0x34, 0x40, 0x00,  // do not fragment
                  0x40, 0x11, 0x00, 0x00,  // UDP
                  10, 0, 0, 1,
                  10, 0, 0, 2};
const Bytes kIpv6{0x60, 0x00, 0x00, 0x00,
                  0x00, 0x0b, 0x11, 0x40,  // 11 bytes, UDP
                  0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1,
                  0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2};
const Bytes kMacAddresses{2, 0, 0, 0, 0, 1, 2, 0, 0, 0, 0, 2};
const Bytes kTypeIpv4{0x08, 0x00};
const Bytes kTypeIpv6{0x86, 0xdd};
// clang-format on

void expectPayload(const Frame& frame) {
    ASSERT_EQ(frame.kind, FrameKind::kUdp);
    EXPECT_EQ(frame.datagram.from.port, 40000);
    EXPECT_EQ(frame.datagram.to.port, 5004);
    EXPECT_EQ(frame.datagram.size, 3U);
    ASSERT_EQ(frame.datagram.bytes.size(), 3U);
    EXPECT_EQ(frame.datagram.bytes[0], 0xaa);
    EXPECT_EQ(frame.datagram.bytes[2], 0xcc);
    EXPECT_FALSE(frame.datagram.isCut());
}

FrameKind kindOf(LinkLayer link, const Bytes& bytes) {
    return readFrame(link, bytes).kind;
}

TEST(InspectFrame, EthernetCarriesIpv4) {
    const Bytes bytes = kMacAddresses + kTypeIpv4 + kIpv4 + kUdp;
    const Frame frame = readFrame(LinkLayer::kEthernet, bytes);
    expectPayload(frame);
    EXPECT_FALSE(frame.datagram.from.isIpv6);
    EXPECT_EQ(frame.datagram.from.address[3], 1);
    EXPECT_EQ(frame.datagram.to.address[3], 2);
}

TEST(InspectFrame, PaddingOfAShortEthernetFrameIsNoPayload) {
    const Bytes bytes = kMacAddresses + kTypeIpv4 + kIpv4 + kUdp + Bytes(15);
    expectPayload(readFrame(LinkLayer::kEthernet, bytes));
}

TEST(InspectFrame, VlanTagsAreStepped) {
    const Bytes bytes =
        kMacAddresses + Bytes{0x88, 0xa8, 0x00, 0x01, 0x81, 0x00, 0x00, 0x02} + kTypeIpv6 + kIpv6 + kUdp;
    const Frame frame = readFrame(LinkLayer::kEthernet, bytes);
    expectPayload(frame);
    EXPECT_TRUE(frame.datagram.from.isIpv6);
    EXPECT_EQ(frame.datagram.to.address[0], 0xfe);
    EXPECT_EQ(frame.datagram.to.address[15], 2);
}

TEST(InspectFrame, CookedCapturesOfBothVersions) {
    // Packet type, ARPHRD type, address length, address; then the protocol type.
    const Bytes first{0, 0, 3, 4, 0, 6, 0, 0, 0, 0, 0, 0, 0, 0};
    expectPayload(readFrame(LinkLayer::kCooked, first + kTypeIpv4 + kIpv4 + kUdp));
    // The protocol type, then 18 bytes more.
    expectPayload(readFrame(LinkLayer::kCooked2, kTypeIpv6 + Bytes(18) + kIpv6 + kUdp));
}

TEST(InspectFrame, NullAndRawFollowTheVersionField) {
    expectPayload(readFrame(LinkLayer::kNull, Bytes{2, 0, 0, 0} + kIpv4 + kUdp));
    expectPayload(readFrame(LinkLayer::kNull, Bytes{0, 0, 0, 30} + kIpv6 + kUdp));
    expectPayload(readFrame(LinkLayer::kRaw, kIpv4 + kUdp));
    expectPayload(readFrame(LinkLayer::kRaw, kIpv6 + kUdp));
}

TEST(InspectFrame, Ipv4OptionsAreStepped) {
    Bytes header = kIpv4 + Bytes{1, 1, 1, 0};
    header[0] = 0x46;
    header[3] = 0x23;
    expectPayload(readFrame(LinkLayer::kRaw, header + kUdp));
}

TEST(InspectFrame, FragmentsAreToldFromDatagrams) {
    Bytes first = kIpv4 + kUdp;
    first[6] = 0x20;  // more fragments
    EXPECT_EQ(kindOf(LinkLayer::kRaw, first), FrameKind::kFragment);
    Bytes last = kIpv4 + kUdp;
    last[7] = 0x01;  // an offset
    EXPECT_EQ(kindOf(LinkLayer::kRaw, last), FrameKind::kFragment);
}

TEST(InspectFrame, Ipv6ExtensionHeadersAreStepped) {
    Bytes header = kIpv6 + Bytes{60, 0, 1, 4, 0, 0, 0, 0}  // hop by hop, destination options follow
                   + Bytes{17, 1, 1, 12} + Bytes(12);      // 16 bytes, UDP follows
    header[5] = 35;
    header[6] = 0;
    expectPayload(readFrame(LinkLayer::kRaw, header + kUdp));
}

TEST(InspectFrame, AnIpv6FragmentHeaderOverAWholePacketHidesNothing) {
    Bytes whole = kIpv6 + Bytes{17, 0, 0, 0, 0, 0, 0, 7} + kUdp;
    whole[5] = 19;
    whole[6] = 44;
    expectPayload(readFrame(LinkLayer::kRaw, whole));
    whole[43] = 0x01;  // more fragments
    EXPECT_EQ(kindOf(LinkLayer::kRaw, whole), FrameKind::kFragment);
    whole[43] = 0x08;  // an offset
    EXPECT_EQ(kindOf(LinkLayer::kRaw, whole), FrameKind::kFragment);
}

TEST(InspectFrame, ADatagramThatWasCapturedInPartKeepsItsSize) {
    Bytes bytes = kIpv4 + kUdp;
    bytes.pop_back();
    const Frame frame = readFrame(LinkLayer::kRaw, bytes);
    ASSERT_EQ(frame.kind, FrameKind::kUdp);
    EXPECT_EQ(frame.datagram.bytes.size(), 2U);
    EXPECT_EQ(frame.datagram.size, 3U);
    EXPECT_TRUE(frame.datagram.isCut());
}

TEST(InspectFrame, OtherProtocolsAreNoDatagrams) {
    EXPECT_EQ(kindOf(LinkLayer::kEthernet, kMacAddresses + Bytes{0x08, 0x06} + Bytes(28)), FrameKind::kOther);
    Bytes tcp = kIpv4 + kUdp;
    tcp[9] = 6;
    EXPECT_EQ(kindOf(LinkLayer::kRaw, tcp), FrameKind::kOther);
    Bytes icmp = kIpv6 + kUdp;
    icmp[6] = 58;
    EXPECT_EQ(kindOf(LinkLayer::kRaw, icmp), FrameKind::kOther);
}

TEST(InspectFrame, HeadersThatContradictThemselvesAreMalformed) {
    Bytes shortHeader = kIpv4 + kUdp;
    shortHeader[0] = 0x44;  // 16 bytes
    EXPECT_EQ(kindOf(LinkLayer::kRaw, shortHeader), FrameKind::kMalformed);
    Bytes shortTotal = kIpv4 + kUdp;
    shortTotal[3] = 19;
    EXPECT_EQ(kindOf(LinkLayer::kRaw, shortTotal), FrameKind::kMalformed);
    Bytes shortUdp = kIpv4 + kUdp;
    shortUdp[25] = 7;
    EXPECT_EQ(kindOf(LinkLayer::kRaw, shortUdp), FrameKind::kMalformed);
}

// The end of the UDP header is the first byte from which a datagram is told; nothing before is one.
TEST(InspectFrame, EveryCutBeforeTheEndOfTheHeadersIsMalformed) {
    const Bytes bytes = kMacAddresses + Bytes{0x81, 0x00, 0x00, 0x02} + kTypeIpv6 + kIpv6 + kUdp;
    const std::size_t headers = bytes.size() - 3;
    for (std::size_t size = 0; size < headers; ++size) {
        const Bytes cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(kindOf(LinkLayer::kEthernet, cut), FrameKind::kMalformed) << size;
    }
}

}  // namespace
}  // namespace talrtp::host::inspect
