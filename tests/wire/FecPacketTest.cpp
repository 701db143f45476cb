#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <talrtp/TalRtpFecPacket.h>

#include <cstring>
#include <random>
#include <type_traits>
#include <vector>

#include "Bytes.h"
#include "TraceCatcher.h"

namespace talrtp {
namespace {

using test::TraceCatcher;
using testing::ElementsAre;

using test::Bytes;

static_assert(sizeof(CRTPFECPacket) == sizeof(CTalRtpPacket), "no data member of its own");
static_assert(sizeof(CRTPRSPacket) == sizeof(CTalRtpPacket), "no data member of its own");
static_assert(std::is_base_of<CTalRtpPacket, CRTPFECPacket>::value, "a packet");
static_assert(std::is_base_of<CTalRtpPacket, CRTPRSPacket>::value, "a packet");

template <typename Function>
Function slot(CTalRtpPacket* packet, int number) {
    void** const table = *reinterpret_cast<void***>(packet);
    return reinterpret_cast<Function>(table[number]);
}

// Payload bytes `first` to `last` of a packet with a fixed header only.
Bytes payload(const CTalRtpPacket& packet, int first, int last) {
    return Bytes(packet.get_buffer() + 12 + first, packet.get_buffer() + 12 + last + 1);
}

// clang-format off
const Bytes kXorPacket = {
    0xbf, 0xef, 0x00, 0x07,  // V=2 P=1 X=1 CC=15: recovery values | M=1 PT=111 | sequence number 7
    0x00, 0x01, 0x5f, 0x90,  // timestamp 90000
    0xde, 0xad, 0xbe, 0xef,  // SSRC
    0xff, 0xf0, 0x04, 0xd2,  // SN base 65520 | length recovery 1234
    0xe2, 0x80, 0x00, 0x01,  // E=1, PT recovery 98 | mask 0x800001: base and base + 23
    0x01, 0x02, 0x03, 0x04,  // TS recovery
    0x55, 0x66, 0x02,        // parity; its last byte passes for a padding count
};
const Bytes kRsPacket = {
    0x80, 0x6f, 0x00, 0x08,  // V=2 P=0 X=0 CC=0 | M=0 PT=111 | sequence number 8
    0x00, 0x01, 0x5f, 0x90,  // timestamp 90000
    0xde, 0xad, 0xbe, 0xef,  // SSRC
    0x12, 0x34, 0x9a, 0xbc,  // SN base | recover length
    0x03, 0x04, 0x0a, 0x00,  // index 3 | count 4 | mask: 10 media packets | reserved
    0x77, 0x88,              // parity block
};
// clang-format on

// The value of a big-endian field of `size` bytes at `offset` when the packet is cut: the bytes beyond count
// as 0.
unsigned int fieldOf(const Bytes& packet, int length, int offset, int size) {
    unsigned int value = 0;
    for (int i = offset; i < offset + size; ++i) {
        value = value << 8 | (i < length ? packet[static_cast<std::size_t>(i)] : 0u);
    }
    return value;
}

// XOR FEC packet.

TEST(XorFecPacket, IsReadFromReceivedBytes) {
    Bytes bytes = kXorPacket;
    const CRTPFECPacket packet(bytes.data(), static_cast<int>(bytes.size()));
    EXPECT_EQ(packet.get_fec_sequence_number_base(), 65520);
    EXPECT_EQ(packet.get_fec_recover_length(), 1234);
    EXPECT_TRUE(packet.get_fec_extension_flag());
    EXPECT_EQ(packet.get_fec_recover_payload_type(), 98);
    EXPECT_EQ(packet.get_fec_mask(), 0x800001u);
    EXPECT_EQ(packet.get_fec_recover_timestamp(), 0x01020304u);
    EXPECT_TRUE(packet.get_fec_recover_pad_flag());
    EXPECT_TRUE(packet.get_fec_recover_extension_flag());
    EXPECT_EQ(packet.get_fec_recover_contrib_src_count(), 15);
    EXPECT_TRUE(packet.get_fec_recover_marker_flag());
    EXPECT_TRUE(packet.validate());

    Bytes cleared = kXorPacket;
    cleared[0] = 0x80;
    cleared[1] = 0x6f;
    const CRTPFECPacket other(cleared.data(), static_cast<int>(cleared.size()));
    EXPECT_FALSE(other.get_fec_recover_pad_flag());
    EXPECT_FALSE(other.get_fec_recover_extension_flag());
    EXPECT_EQ(other.get_fec_recover_contrib_src_count(), 0);
    EXPECT_FALSE(other.get_fec_recover_marker_flag());
}

TEST(XorFecPacket, IsWrittenAsTheSameBytes) {
    CRTPFECPacket packet(static_cast<int>(kXorPacket.size()));
    packet.set_pad_flag(true);
    packet.set_extension_flag(true);
    packet.set_contrib_src_count(15);
    packet.set_marker_flag(true);
    packet.set_payload_type(111);
    packet.set_sequence_number(7);
    packet.set_timestamp(90000);
    packet.set_sync_source(0xdeadbeef);
    packet.set_fec_sequence_number_base(65520);
    packet.set_fec_recover_length(1234);
    packet.set_fec_mask(0x800001);
    packet.set_fec_recover_payload_type(98);
    packet.set_fec_extension_flag(true);
    packet.set_fec_recover_timestamp(0x01020304);
    std::memcpy(packet.get_payload_ptr() + 12, "\x55\x66\x02", 3);
    packet.set_payload_size(15);
    ASSERT_EQ(packet.get_packet_size(), static_cast<int>(kXorPacket.size()));
    EXPECT_EQ(Bytes(packet.get_buffer(), packet.get_buffer() + packet.get_packet_size()), kXorPacket);
}

TEST(XorFecPacket, CutAtAnyLengthReadsZerosBeyond) {
    Bytes noise(1300, 0xee);
    for (int length = 12; length < static_cast<int>(kXorPacket.size()); ++length) {
        SCOPED_TRACE(length);
        CRTPFECPacket packet(noise.data(), 1300);
        Bytes cut(kXorPacket.begin(), kXorPacket.begin() + length);
        packet.from_buffer(cut.data(), length);
        EXPECT_EQ(packet.get_payload_size(), length - 12);
        EXPECT_EQ(packet.get_fec_sequence_number_base(), fieldOf(kXorPacket, length, 12, 2));
        EXPECT_EQ(packet.get_fec_recover_length(), fieldOf(kXorPacket, length, 14, 2));
        EXPECT_EQ(packet.get_fec_extension_flag(), length > 16);
        EXPECT_EQ(packet.get_fec_recover_payload_type(), fieldOf(kXorPacket, length, 16, 1) & 0x7f);
        EXPECT_EQ(packet.get_fec_mask(), fieldOf(kXorPacket, length, 17, 3));
        EXPECT_EQ(packet.get_fec_recover_timestamp(), fieldOf(kXorPacket, length, 20, 4));
    }
}

TEST(XorFecPacket, HeaderIsAlwaysTwelveBytes) {
    Bytes bytes = kXorPacket;
    CRTPFECPacket packet(bytes.data(), static_cast<int>(bytes.size()));
    EXPECT_EQ(packet.get_contrib_src_count(), 15);
    EXPECT_TRUE(packet.get_extension_flag());
    EXPECT_EQ(packet.get_header_size(), 12);
    EXPECT_EQ(packet.get_payload_ptr(), packet.get_buffer() + 12);
    packet.set_payload_size(100);
    EXPECT_EQ(packet.get_packet_size(), 112);
}

TEST(XorFecPacket, PayloadSizeIsRightFromTheConstructorOn) {
    Bytes bytes = kXorPacket;  // CC = 15 and X are no description of this packet
    CRTPFECPacket packet(bytes.data(), static_cast<int>(bytes.size()));
    EXPECT_EQ(packet.get_payload_size(), 15);
    CRTPFECPacket copy(packet);
    EXPECT_EQ(copy.get_payload_size(), 15);
    EXPECT_EQ(copy.get_packet_size(), 27);
    CRTPFECPacket shortest(bytes.data(), 12);
    EXPECT_EQ(shortest.get_payload_size(), 0);
    CRTPFECPacket assigned(1500);
    assigned = packet;
    EXPECT_EQ(assigned.get_payload_size(), 15);
    EXPECT_EQ(assigned.get_buffer_size(), 1300);
    EXPECT_EQ(assigned.get_fec_mask(), 0x800001u);
}

TEST(XorFecPacket, IsMadeEmptyLikeAnyPacket) {
    const CRTPFECPacket packet(1500);
    EXPECT_EQ(packet.get_buffer_size(), 1500);
    EXPECT_EQ(packet.get_buffer()[0], 0x80);
    EXPECT_EQ(packet.get_packet_size(), 0);
    EXPECT_EQ(packet.get_payload_size(), 0);
    EXPECT_EQ(packet.get_packet_type(), 1u);
}

TEST(XorFecPacket, HasNeitherSourcesNorExtension) {
    Bytes bytes = kXorPacket;
    CRTPFECPacket packet(bytes.data(), static_cast<int>(bytes.size()));
    EXPECT_EQ(packet.get_contrib_source(0), 0u);
    EXPECT_EQ(packet.get_contrib_source(99), 0u) << "no assertion either";
    unsigned char data[4] = {0xee, 0xee, 0xee, 0xee};
    int length = 4;
    EXPECT_FALSE(packet.get_extension(0xfff0, data, &length));
    EXPECT_EQ(length, 4);
    EXPECT_EQ(data[0], 0xee);

    packet.set_contrib_source(99, 0x11111111);
    packet.set_extension_flag(false);
    bytes[0] = 0xaf;
    packet.set_extension(0x1234, data, 4);
    EXPECT_EQ(Bytes(packet.get_buffer(), packet.get_buffer() + bytes.size()), bytes);
    EXPECT_EQ(packet.get_packet_size(), static_cast<int>(bytes.size()));
}

TEST(XorFecPacket, OverridesShowInTheSlotsOfTheBase) {
    CRTPFECPacket* const packet = new CRTPFECPacket(100);
    packet->set_contrib_src_count(15);
    packet->set_extension_flag(true);
    packet->set_payload_size(12);
    const Bytes before(packet->get_buffer(), packet->get_buffer() + 100);
    unsigned char data[4] = {0xee};
    int length = 4;
    EXPECT_EQ(slot<unsigned int (*)(const CTalRtpPacket*, int)>(packet, 2)(packet, 0), 0u);
    slot<void (*)(CTalRtpPacket*, int, unsigned int)>(packet, 3)(packet, 0, 1);
    EXPECT_EQ(slot<int (*)(const CTalRtpPacket*)>(packet, 4)(packet), 12);
    EXPECT_FALSE((slot<bool (*)(const CTalRtpPacket*, unsigned short, unsigned char*, int*)>(packet, 5)(
        packet, 0, data, &length)));
    slot<void (*)(CTalRtpPacket*, unsigned short, unsigned char*, int)>(packet, 6)(packet, 0, data, 4);
    EXPECT_TRUE(slot<bool (*)(const CTalRtpPacket*)>(packet, 7)(packet));
    EXPECT_EQ(Bytes(packet->get_buffer(), packet->get_buffer() + 100), before);
    slot<void (*)(CTalRtpPacket*)>(packet, 1)(packet);
}

TEST(XorFecPacket, ValidatesLikeAPacketOfTwelveHeaderBytes) {
    Bytes bytes = kXorPacket;
    CRTPFECPacket valid(bytes.data(), static_cast<int>(bytes.size()));
    const TraceCatcher trace(1);
    EXPECT_TRUE(valid.validate());
    CRTPFECPacket shortest(bytes.data(), 12);
    shortest.set_pad_flag(false);
    EXPECT_TRUE(shortest.validate());
    EXPECT_THAT(trace.lines(), testing::IsEmpty());
    bytes.back() = 16;
    CRTPFECPacket padded(bytes.data(), static_cast<int>(bytes.size()));
    EXPECT_FALSE(padded.validate());
    bytes[0] = 0x3f;
    CRTPFECPacket versionZero(bytes.data(), static_cast<int>(bytes.size()));
    EXPECT_FALSE(versionZero.validate());
    EXPECT_THAT(trace.messages(1),
                ElementsAre("CTalRtpPacket::validate, padding is greater than payload length",
                            "CTalRtpPacket::validate, version isn't supported, version = 0"));
}

TEST(XorFecPacket, SetMaskMergesTheWholeWordKept) {
    CRTPFECPacket packet(100);
    packet.set_fec_mask(0x800001);
    EXPECT_EQ(payload(packet, 4, 7), Bytes({0x00, 0x80, 0x00, 0x01}));

    packet.reset();
    packet.set_fec_recover_payload_type(0x60);
    packet.set_fec_extension_flag(true);
    packet.set_fec_mask(0x800001);
    EXPECT_EQ(payload(packet, 4, 7), Bytes({0x00, 0x80, 0x00, 0x01})) << "E and the PT recovery are lost";

    packet.set_fec_mask(0x123440);
    EXPECT_EQ(payload(packet, 4, 7), Bytes({0x00, 0x12, 0x34, 0x41})) << "the lowest byte is ORed";
}

TEST(XorFecPacket, SetMaskWritesBits31To24OverTheTypeKept) {
    CRTPFECPacket packet(100);
    packet.set_fec_mask(0x01000000);
    EXPECT_EQ(payload(packet, 4, 7), Bytes({0x01, 0x00, 0x00, 0x00}));
    EXPECT_FALSE(packet.get_fec_extension_flag());
    EXPECT_EQ(packet.get_fec_recover_payload_type(), 1);
    packet.set_fec_mask(0xfeffffff);
    EXPECT_EQ(payload(packet, 4, 7), Bytes({0xfe, 0xff, 0xff, 0xff}));
}

TEST(XorFecPacket, SetMaskTouchesItsWordOnly) {
    CRTPFECPacket packet(100);
    std::memset(packet.get_payload_ptr(), 0xaa, 16);
    packet.set_fec_mask(0x111111);
    EXPECT_EQ(payload(packet, 0, 11),
              Bytes({0xaa, 0xaa, 0xaa, 0xaa, 0x00, 0x11, 0x11, 0xbb, 0xaa, 0xaa, 0xaa, 0xaa}));
}

// Hosts match this report: file, line and function.
TEST(XorFecPacketDeathTest, MaskAssertionNamesItsFileLineAndFunction) {
    CRTPFECPacket packet(100);
    EXPECT_DEATH(packet.set_fec_mask(0xff000000),
                 "src/rtp/TalRtpFecPacket\\.cpp:105: .*CRTPFECPacket::set_fec_mask\\(unsigned int\\): "
                 "Assertion `mask < 0xff000000' failed");
    EXPECT_DEATH(packet.set_fec_mask(0xffffffff), "TalRtpFecPacket\\.cpp:105: ");
}

TEST(XorFecPacket, GetMaskLeavesTheFirstByteOut) {
    CRTPFECPacket packet(100);
    std::memset(packet.get_payload_ptr(), 0xff, 12);
    EXPECT_EQ(packet.get_fec_mask(), 0xffffffu);
    packet.set_fec_mask(0xfe000000);
    EXPECT_EQ(packet.get_fec_mask(), 0x0000ffu);
}

TEST(XorFecPacket, SetPayloadTypeDoesNotMaskItsArgumentKept) {
    CRTPFECPacket packet(100);
    packet.set_fec_recover_payload_type(0xff);
    EXPECT_EQ(payload(packet, 4, 4), Bytes({0xff}));
    EXPECT_EQ(packet.get_fec_recover_payload_type(), 0x7f);
    EXPECT_TRUE(packet.get_fec_extension_flag());
    packet.set_fec_recover_payload_type(0x12);
    EXPECT_EQ(payload(packet, 4, 4), Bytes({0x92})) << "E stays, the old type goes";
}

TEST(XorFecPacket, SetExtensionFlagChangesItsBitOnly) {
    CRTPFECPacket packet(100);
    std::memset(packet.get_payload_ptr(), 0x55, 12);
    packet.set_fec_extension_flag(true);
    EXPECT_EQ(payload(packet, 3, 5), Bytes({0x55, 0xd5, 0x55}));
    packet.set_fec_extension_flag(false);
    EXPECT_EQ(payload(packet, 3, 5), Bytes({0x55, 0x55, 0x55}));
}

TEST(XorFecPacket, RandomFieldsComeBack) {
    const unsigned int seed = 14;
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    CRTPFECPacket packet(64);
    for (int round = 0; round < 5000; ++round) {
        packet.reset();
        const unsigned short base = static_cast<unsigned short>(random());
        const unsigned short length = static_cast<unsigned short>(random());
        const unsigned int mask = random() & 0xffffff;
        const unsigned char type = random() & 0x7f;
        const bool extension = random() % 2 == 1;
        const unsigned int timestamp = random();
        packet.set_fec_sequence_number_base(base);
        packet.set_fec_recover_length(length);
        packet.set_fec_mask(mask);
        packet.set_fec_recover_payload_type(type);
        packet.set_fec_extension_flag(extension);
        packet.set_fec_recover_timestamp(timestamp);
        ASSERT_EQ(packet.get_fec_sequence_number_base(), base);
        ASSERT_EQ(packet.get_fec_recover_length(), length);
        ASSERT_EQ(packet.get_fec_mask(), mask);
        ASSERT_EQ(packet.get_fec_recover_payload_type(), type);
        ASSERT_EQ(packet.get_fec_extension_flag(), extension);
        ASSERT_EQ(packet.get_fec_recover_timestamp(), timestamp);
        const Bytes expected = {static_cast<unsigned char>(base >> 8),
                                static_cast<unsigned char>(base),
                                static_cast<unsigned char>(length >> 8),
                                static_cast<unsigned char>(length),
                                static_cast<unsigned char>(type | (extension ? 0x80 : 0)),
                                static_cast<unsigned char>(mask >> 16),
                                static_cast<unsigned char>(mask >> 8),
                                static_cast<unsigned char>(mask),
                                static_cast<unsigned char>(timestamp >> 24),
                                static_cast<unsigned char>(timestamp >> 16),
                                static_cast<unsigned char>(timestamp >> 8),
                                static_cast<unsigned char>(timestamp)};
        ASSERT_EQ(payload(packet, 0, 11), expected) << round;
    }
}

// Reed-Solomon FEC packet.

TEST(RsFecPacket, IsReadFromReceivedBytes) {
    Bytes bytes = kRsPacket;
    CRTPRSPacket packet(bytes.data(), static_cast<int>(bytes.size()));
    EXPECT_EQ(packet.get_rs_sequence_number_base(), 0x1234);
    EXPECT_EQ(packet.get_rs_recover_length(), 0x9abc);
    EXPECT_EQ(packet.get_rs_index(), 3);
    EXPECT_EQ(packet.get_rs_count(), 4);
    EXPECT_EQ(packet.get_rs_mask(), 10);
    EXPECT_EQ(packet.get_payload_size(), 10);
    EXPECT_TRUE(packet.validate());
    CRTPRSPacket copy(packet);
    EXPECT_EQ(copy.get_packet_size(), 22);
    EXPECT_EQ(copy.get_rs_index(), 3);
    CRTPRSPacket assigned(1500);
    assigned = packet;
    EXPECT_EQ(assigned.get_rs_mask(), 10);
}

TEST(RsFecPacket, IsWrittenAsTheSameBytes) {
    CRTPRSPacket packet(static_cast<int>(kRsPacket.size()));
    packet.set_payload_type(111);
    packet.set_sequence_number(8);
    packet.set_timestamp(90000);
    packet.set_sync_source(0xdeadbeef);
    packet.set_rs_sequence_number_base(0x1234);
    packet.set_rs_recover_length(0x9abc);
    packet.set_rs_index(3);
    packet.set_rs_count(4);
    packet.set_rs_mask(10);
    std::memcpy(packet.get_payload_ptr() + 8, "\x77\x88", 2);
    packet.set_payload_size(10);
    EXPECT_EQ(Bytes(packet.get_buffer(), packet.get_buffer() + packet.get_packet_size()), kRsPacket);
}

TEST(RsFecPacket, AccessorsLeaveTheReservedByteAsItWas) {
    CRTPRSPacket packet(100);
    std::memset(packet.get_payload_ptr(), 0x5a, 9);
    packet.set_rs_sequence_number_base(0x1234);
    EXPECT_EQ(payload(packet, 0, 8), Bytes({0x12, 0x34, 0x5a, 0x5a, 0x5a, 0x5a, 0x5a, 0x5a, 0x5a}));
    packet.set_rs_recover_length(0x0506);
    packet.set_rs_index(3);
    packet.set_rs_count(4);
    packet.set_rs_mask(10);
    EXPECT_EQ(payload(packet, 0, 8), Bytes({0x12, 0x34, 0x05, 0x06, 0x03, 0x04, 0x0a, 0x5a, 0x5a}));
}

TEST(RsFecPacket, IsWrittenAfterItsHeaderBeforeItsSizeIsSet) {
    CRTPRSPacket withSources(100);
    withSources.set_payload_size(0);
    withSources.set_contrib_src_count(2);
    withSources.set_rs_index(3);
    EXPECT_EQ(withSources.get_buffer()[12 + 8 + 4], 3);
    CRTPRSPacket withExtension(100);
    withExtension.set_extension_flag(true);
    withExtension.set_rs_index(3);
    EXPECT_EQ(withExtension.get_buffer()[12 + 4 + 4], 3);
}

TEST(RsFecPacket, CutAtAnyLengthReadsZerosBeyond) {
    Bytes noise(1300, 0xee);
    for (int length = 12; length < static_cast<int>(kRsPacket.size()); ++length) {
        SCOPED_TRACE(length);
        CRTPRSPacket packet(noise.data(), 1300);
        Bytes cut(kRsPacket.begin(), kRsPacket.begin() + length);
        packet.from_buffer(cut.data(), length);
        EXPECT_EQ(packet.get_rs_sequence_number_base(), fieldOf(kRsPacket, length, 12, 2));
        EXPECT_EQ(packet.get_rs_recover_length(), fieldOf(kRsPacket, length, 14, 2));
        EXPECT_EQ(packet.get_rs_index(), fieldOf(kRsPacket, length, 16, 1));
        EXPECT_EQ(packet.get_rs_count(), fieldOf(kRsPacket, length, 17, 1));
        EXPECT_EQ(packet.get_rs_mask(), fieldOf(kRsPacket, length, 18, 1));
    }
}

TEST(RsFecPacket, KeepsEveryPacketOperationOfTheBase) {
    CRTPRSPacket packet(100);
    packet.set_payload_size(8);
    packet.set_rs_index(9);
    packet.set_contrib_source(1, 0x01020304);
    EXPECT_EQ(packet.get_header_size(), 20);
    EXPECT_EQ(packet.get_contrib_source(1), 0x01020304u);
    EXPECT_EQ(packet.get_rs_index(), 9) << "the header moved with the payload";
    unsigned char data[4] = {1, 2, 3, 4};
    packet.set_extension(0x1234, data, 4);
    EXPECT_EQ(packet.get_header_size(), 28);
    unsigned char copy[4] = {};
    int length = 4;
    EXPECT_TRUE(packet.get_extension(0x1234, copy, &length));
    EXPECT_THAT(copy, ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(packet.get_rs_index(), 9);
    EXPECT_EQ(slot<int (*)(const CTalRtpPacket*)>(&packet, 4)(&packet), 28);
}

TEST(RsFecPacket, AfterAnExtensionThatRunsPastThePacketReadsZeros) {
    Bytes bytes(24, 0xee);
    bytes[0] = 0x90;
    for (const unsigned char high : {0x00, 0x01, 0x3f}) {
        SCOPED_TRACE(static_cast<int>(high));
        bytes[14] = high;
        CRTPRSPacket packet(bytes.data(), 24);  // the header claims 968 bytes and more
        EXPECT_GT(packet.get_header_size(), 24);
        EXPECT_EQ(packet.get_rs_sequence_number_base(), 0);
        EXPECT_EQ(packet.get_rs_recover_length(), 0);
        EXPECT_EQ(packet.get_rs_index(), 0);
        EXPECT_EQ(packet.get_rs_count(), 0);
        EXPECT_EQ(packet.get_rs_mask(), 0);
        packet.set_rs_mask(1);
        EXPECT_EQ(packet.get_rs_mask(), 1) << "written into the spare bytes, not outside";
    }
}

}  // namespace
}  // namespace talrtp
