#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <talrtp/TalRtpPacket.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "Bytes.h"
#include "TraceCatcher.h"

namespace talrtp {
namespace {

using test::TraceCatcher;
using testing::ElementsAre;
using testing::IsEmpty;

using test::Bytes;

// Binary interface.

class LayoutProbe : public CTalRtpPacket {
public:
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
    static void check() {
        static_assert(offsetof(LayoutProbe, m_buffer) == 8, "after the virtual table");
        static_assert(offsetof(LayoutProbe, m_payloadSize) == 16, "in the documented order");
        static_assert(offsetof(LayoutProbe, m_packetSize) == 20, "in the documented order");
        static_assert(offsetof(LayoutProbe, m_bufferSize) == 24, "in the documented order");
        static_assert(offsetof(LayoutProbe, m_packetType) == 28, "in the documented order");
        static_assert(std::is_same<decltype(m_payloadSize), _int32_t>::value, "signed 32-bit");
        static_assert(std::is_same<decltype(m_packetType), _packet_type_t>::value, "unsigned 32-bit");
    }
#pragma GCC diagnostic pop
};

static_assert(sizeof(CTalRtpPacket) == 32, "virtual table, buffer, three sizes, packet type");
static_assert(sizeof(_rtp_packet_header_t) == 12, "RFC 3550, 5.1");
static_assert(offsetof(_rtp_packet_header_t, sequenceNumber) == 2, "RFC 3550, 5.1");
static_assert(offsetof(_rtp_packet_header_t, timestamp) == 4, "RFC 3550, 5.1");
static_assert(offsetof(_rtp_packet_header_t, syncSource) == 8, "RFC 3550, 5.1");
static_assert(std::is_same<_packet_type_t, unsigned int>::value, "32 bits");
static_assert(std::has_virtual_destructor<CTalRtpPacket>::value, "the first two slots");
static_assert(std::is_convertible<int, CTalRtpPacket>::value, "constructors are not explicit");

const CTalRtpPacket& constant(const CTalRtpPacket& packet) {
    return packet;
}
static_assert(
    std::is_same<decltype(std::declval<const CTalRtpPacket&>().get_sequence_number()), unsigned short>::value,
    "16 bits");
static_assert(
    std::is_same<decltype(std::declval<const CTalRtpPacket&>().get_buffer()), unsigned char*>::value,
    "lends the packet's own bytes");

// The function in a slot of the packet's virtual table, as a host compiled elsewhere finds it.
template <typename Function>
Function slot(CTalRtpPacket* packet, int number) {
    void** const table = *reinterpret_cast<void***>(packet);
    return reinterpret_cast<Function>(table[number]);
}

TEST(PacketVirtualTable, HasItsFunctionsInTheDocumentedSlots) {
    LayoutProbe::check();
    CTalRtpPacket* const packet = new CTalRtpPacket(1500);
    slot<void (*)(CTalRtpPacket*, int, unsigned int)>(packet, 3)(packet, 0, 0xcafef00d);
    EXPECT_EQ(packet->get_contrib_src_count(), 1);
    EXPECT_EQ(slot<unsigned int (*)(const CTalRtpPacket*, int)>(packet, 2)(packet, 0), 0xcafef00du);
    EXPECT_EQ(slot<int (*)(const CTalRtpPacket*)>(packet, 4)(packet), 16);

    unsigned char data[4] = {1, 2, 3, 4};
    slot<void (*)(CTalRtpPacket*, unsigned short, unsigned char*, int)>(packet, 6)(packet, 0x1234, data, 4);
    EXPECT_TRUE(packet->get_extension_flag());
    unsigned char copy[4] = {};
    int length = 4;
    EXPECT_TRUE((slot<bool (*)(const CTalRtpPacket*, unsigned short, unsigned char*, int*)>(packet, 5)(
        packet, 0x1234, copy, &length)));
    EXPECT_THAT(copy, ElementsAre(1, 2, 3, 4));
    EXPECT_TRUE(slot<bool (*)(const CTalRtpPacket*)>(packet, 7)(packet));
    packet->set_version(1);
    EXPECT_FALSE(slot<bool (*)(const CTalRtpPacket*)>(packet, 7)(packet));

    // The complete destructor frees the buffer and leaves the object; the deleting one frees the object too.
    slot<void (*)(CTalRtpPacket*)>(packet, 0)(packet);
    ::operator delete(static_cast<void*>(packet));
    CTalRtpPacket* const other = new CTalRtpPacket(1500);
    slot<void (*)(CTalRtpPacket*)>(other, 1)(other);
}

// A derived view whose header is longer than its bytes say.
class LongHeaderPacket : public CTalRtpPacket {
public:
    LongHeaderPacket(int capacity) : CTalRtpPacket(capacity) {}
    int get_header_size() const override { return 20; }
};

TEST(Packet, AsksTheVirtualHeaderSizeEverywhere) {
    LongHeaderPacket packet(100);
    packet.set_payload_size(5);
    EXPECT_EQ(packet.get_packet_size(), 25);
    EXPECT_EQ(packet.get_payload_ptr(), packet.get_buffer() + 20);

    Bytes bytes(19, 0);
    bytes[0] = 0x80;
    packet.from_buffer(bytes.data(), 19);
    EXPECT_EQ(packet.get_payload_size(), -1);
    EXPECT_FALSE(packet.validate());
    bytes.push_back(0);
    packet.from_buffer(bytes.data(), 20);
    EXPECT_EQ(packet.get_payload_size(), 0);
    EXPECT_TRUE(packet.validate());
}

// Reading: one table, each packet whole and cut at every length.

// clang-format off
const Bytes kPlain = {
    0x80, 0x62, 0x12, 0x34,  // V=2 P=0 X=0 CC=0 | M=0 PT=98 | sequence number 0x1234
    0x00, 0x01, 0x5f, 0x90,  // timestamp 90000
    0xde, 0xad, 0xbe, 0xef,  // SSRC
    0x65, 0x88, 0x84,        // payload
};
const Bytes kFull = {
    0xb2, 0xff, 0xff, 0xfe,  // V=2 P=1 X=1 CC=2 | M=1 PT=127 | sequence number 65534
    0xff, 0xff, 0xff, 0xff,  // timestamp
    0x80, 0x00, 0x00, 0x01,  // SSRC
    0x01, 0x02, 0x03, 0x04,  // CSRC 0
    0xf1, 0xf2, 0xf3, 0xf4,  // CSRC 1
    0xab, 0xcd, 0x00, 0x02,  // extension profile | 2 words
    0x11, 0x12, 0x13, 0x14,
    0x15, 0x16, 0x17, 0x18,
    0x41, 0x42, 0x00, 0x02,  // payload of 4 bytes, the last 2 of them padding
};
const Bytes kMostSources = {
    0x8f, 0x80, 0x00, 0x01,  // V=2 P=0 X=0 CC=15 | M=1 PT=0 | sequence number 1
    0x00, 0x00, 0x00, 0x02,  // timestamp
    0x00, 0x00, 0x00, 0x03,  // SSRC
    0, 0, 1, 0,  0, 0, 1, 1,  0, 0, 1, 2,  0, 0, 1, 3,  0, 0, 1, 4,
    0, 0, 1, 5,  0, 0, 1, 6,  0, 0, 1, 7,  0, 0, 1, 8,  0, 0, 1, 9,
    0, 0, 1, 10, 0, 0, 1, 11, 0, 0, 1, 12, 0, 0, 1, 13, 0, 0, 1, 14,
};
// clang-format on

struct Vector {
    const char* name;
    Bytes bytes;
    bool padding;
    bool extension;
    Bytes sources;  // the last byte of each CSRC
    bool marker;
    unsigned int payloadType;
    unsigned short sequenceNumber;
    unsigned int timestamp;
    unsigned int syncSource;
    int headerSize;
};

const Vector kVectors[] = {
    {"plain", kPlain, false, false, {}, false, 98, 0x1234, 90000, 0xdeadbeef, 12},
    {"full", kFull, true, true, {0x04, 0xf4}, true, 127, 65534, 0xffffffff, 0x80000001, 32},
    {"most sources",
     kMostSources,
     false,
     false,
     {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14},
     true,
     0,
     1,
     2,
     3,
     72},
};

TEST(PacketFields, ReadFromReceivedBytes) {
    for (const Vector& vector : kVectors) {
        SCOPED_TRACE(vector.name);
        Bytes bytes = vector.bytes;
        CTalRtpPacket packet(bytes.data(), static_cast<int>(bytes.size()));
        EXPECT_EQ(packet.get_version(), 2u);
        EXPECT_EQ(packet.get_pad_flag(), vector.padding);
        EXPECT_EQ(packet.get_extension_flag(), vector.extension);
        EXPECT_EQ(packet.get_contrib_src_count(), static_cast<int>(vector.sources.size()));
        for (std::size_t i = 0; i < vector.sources.size(); ++i) {
            EXPECT_EQ(packet.get_contrib_source(static_cast<int>(i)) & 0xff, vector.sources[i]);
        }
        EXPECT_EQ(packet.get_marker_flag(), vector.marker);
        EXPECT_EQ(packet.get_payload_type(), vector.payloadType);
        EXPECT_EQ(packet.get_sequence_number(), vector.sequenceNumber);
        EXPECT_EQ(packet.get_timestamp(), vector.timestamp);
        EXPECT_EQ(packet.get_sync_source(), vector.syncSource);
        EXPECT_EQ(packet.get_header_size(), vector.headerSize);
        EXPECT_EQ(packet.get_payload_ptr(), packet.get_buffer() + vector.headerSize);
        EXPECT_EQ(packet.get_packet_size(), static_cast<int>(bytes.size()));
        EXPECT_EQ(packet.get_payload_size(), static_cast<int>(bytes.size()) - vector.headerSize);
        EXPECT_TRUE(packet.validate());

        EXPECT_EQ(CTalRtpPacket::get_payload_type(bytes.data()), vector.payloadType);
        EXPECT_EQ(CTalRtpPacket::get_sequence_number(bytes.data()), vector.sequenceNumber);
        EXPECT_EQ(CTalRtpPacket::get_timestamp(bytes.data()), vector.timestamp);
        EXPECT_EQ(CTalRtpPacket::get_ssrc(bytes.data()), vector.syncSource);
        EXPECT_EQ(CTalRtpPacket::get_header_size(bytes.data()), vector.headerSize);
        EXPECT_EQ(CTalRtpPacket::get_payload_ptr(bytes.data()), bytes.data() + vector.headerSize);
    }
    Bytes full = kFull;
    CTalRtpPacket packet(full.data(), static_cast<int>(full.size()));
    EXPECT_EQ(packet.get_contrib_source(0), 0x01020304u);
    EXPECT_EQ(packet.get_contrib_source(1), 0xf1f2f3f4u);
}

TEST(PacketFields, WriteTheSameBytes) {
    CTalRtpPacket packet(static_cast<int>(kFull.size()));
    packet.set_version(2);
    packet.set_pad_flag(true);
    packet.set_marker_flag(true);
    packet.set_payload_type(127);
    packet.set_sequence_number(65534);
    packet.set_timestamp(0xffffffff);
    packet.set_sync_source(0x80000001);
    packet.set_contrib_source(0, 0x01020304);
    packet.set_contrib_source(1, 0xf1f2f3f4);
    Bytes data = {0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18};
    packet.set_extension(0xabcd, data.data(), 8);
    const Bytes payload = {0x41, 0x42, 0x00, 0x02};
    std::copy(payload.begin(), payload.end(), packet.get_payload_ptr());
    packet.set_payload_size(4);
    ASSERT_EQ(packet.get_packet_size(), static_cast<int>(kFull.size()));
    EXPECT_EQ(Bytes(packet.get_buffer(), packet.get_buffer() + packet.get_packet_size()), kFull);
}

TEST(PacketFields, WriteTheFixedHeaderIntoRawBytes) {
    Bytes bytes(12, 0);
    CTalRtpPacket::set_sequence_number(bytes.data(), 0x1234);
    CTalRtpPacket::set_timestamp(bytes.data(), 0x01020304);
    EXPECT_EQ(bytes, Bytes({0, 0, 0x12, 0x34, 0x01, 0x02, 0x03, 0x04, 0, 0, 0, 0}));
}

// The buffer is a recycled one: the bytes after a short packet are still those of a long one unless zeroed.
TEST(PacketFields, BeyondACutPacketReadAsZero) {
    for (const Vector& vector : kVectors) {
        SCOPED_TRACE(vector.name);
        Bytes noise(1300, 0xee);
        for (int length = 12; length < static_cast<int>(vector.bytes.size()); ++length) {
            SCOPED_TRACE(length);
            CTalRtpPacket packet(noise.data(), static_cast<int>(noise.size()));
            Bytes cut(vector.bytes.begin(), vector.bytes.begin() + length);
            packet.from_buffer(cut.data(), length);
            cut.resize(length + 88, 0);
            EXPECT_EQ(Bytes(packet.get_buffer(), packet.get_buffer() + length + 88), cut);
            EXPECT_EQ(packet.get_packet_size(), length);

            const int headerSize = CTalRtpPacket::get_header_size(cut.data());
            EXPECT_EQ(packet.get_header_size(), headerSize);
            EXPECT_EQ(packet.get_payload_size(), length - headerSize);
            for (std::size_t i = 0; i < vector.sources.size(); ++i) {
                const int last = 12 + 4 * static_cast<int>(i) + 3;
                EXPECT_EQ(packet.get_contrib_source(static_cast<int>(i)) & 0xff,
                          last < length ? vector.sources[i] : 0);
            }
            if (length < headerSize) {
                const TraceCatcher trace(1);
                EXPECT_FALSE(packet.validate());
                EXPECT_THAT(
                    trace.messages(1),
                    ElementsAre("CTalRtpPacket::validate, packet length is smaller than the header size"));
            }
        }
    }
}

TEST(PacketFields, SpareBytesLieBehindEveryKindOfBuffer) {
    const Bytes zeros(88, 0);
    CTalRtpPacket empty(12);
    EXPECT_EQ(Bytes(empty.get_buffer() + 12, empty.get_buffer() + 12 + 88), zeros);
    Bytes bytes(1400, 0xee);
    bytes[0] = 0x80;
    CTalRtpPacket received(bytes.data(), 1400);
    EXPECT_EQ(received.get_buffer_size(), 1400);
    EXPECT_EQ(Bytes(received.get_buffer() + 1400, received.get_buffer() + 1400 + 88), zeros);
    CTalRtpPacket copy(received);
    EXPECT_EQ(Bytes(copy.get_buffer() + 1400, copy.get_buffer() + 1400 + 88), zeros);
    CTalRtpPacket outgrown(12);
    outgrown.from_buffer(bytes.data(), 1400);
    EXPECT_EQ(Bytes(outgrown.get_buffer() + 1400, outgrown.get_buffer() + 1400 + 88), zeros);
    CTalRtpPacket assigned(2000);
    std::memset(assigned.get_buffer(), 0xdd, 2000);
    assigned = received;
    EXPECT_EQ(Bytes(assigned.get_buffer() + 1400, assigned.get_buffer() + 1400 + 88), zeros);
}

TEST(PacketFields, SetVersionKeepsTheLowTwoBits) {
    CTalRtpPacket packet(12);
    packet.get_buffer()[0] = 0xff;
    packet.set_version(4);
    EXPECT_EQ(packet.get_buffer()[0], 0x3f);
    packet.set_version(7);
    EXPECT_EQ(packet.get_buffer()[0], 0xff);
    packet.set_version(0xfffffffe);
    EXPECT_EQ(packet.get_buffer()[0], 0xbf);
}

TEST(PacketFields, FlagsChangeOnlyTheirBit) {
    CTalRtpPacket packet(12);
    packet.get_buffer()[0] = 0;
    packet.set_pad_flag(true);
    EXPECT_EQ(packet.get_buffer()[0], 0x20);
    packet.set_extension_flag(true);
    EXPECT_EQ(packet.get_buffer()[0], 0x30);
    packet.get_buffer()[0] = 0xff;
    packet.set_pad_flag(false);
    EXPECT_EQ(packet.get_buffer()[0], 0xdf);
    packet.set_extension_flag(false);
    EXPECT_EQ(packet.get_buffer()[0], 0xcf);
    packet.get_buffer()[1] = 0x7f;
    packet.set_marker_flag(true);
    EXPECT_EQ(packet.get_buffer()[1], 0xff);
    packet.set_marker_flag(false);
    EXPECT_EQ(packet.get_buffer()[1], 0x7f);
}

TEST(PacketFields, SetPayloadTypeReplacesTheOldOneAndKeepsTheMarker) {
    CTalRtpPacket packet(12);
    packet.set_payload_type(0x55);
    packet.set_payload_type(0x2a);
    EXPECT_EQ(packet.get_buffer()[1], 0x2a);
    packet.set_marker_flag(true);
    packet.set_payload_type(0x7f);
    EXPECT_EQ(packet.get_buffer()[1], 0xff);
    packet.set_payload_type(0);
    EXPECT_EQ(packet.get_buffer()[1], 0x80);
}

TEST(PacketFieldsDeathTest, AssertTheirRanges) {
    CTalRtpPacket packet(100);
    EXPECT_DEATH(packet.set_payload_type(0x80),
                 "src/rtp/TalRtpPacket\\.cpp:.*set_payload_type.*Assertion `t <= 0x7f' failed");
    EXPECT_DEATH(packet.set_contrib_src_count(16), "set_contrib_src_count.*Assertion `count <= 0xf' failed");
    EXPECT_DEATH(packet.get_contrib_source(0),
                 "get_contrib_source.*Assertion `idx < get_contrib_src_count\\(\\)' failed");
    EXPECT_DEATH(packet.set_contrib_source(16, 0), "set_contrib_source.*Assertion `idx <= 15' failed");
}

TEST(PacketFieldsDeathTest, SetContribSource15PassesItsOwnAssertionAndEndsInTheCount) {
    CTalRtpPacket packet(100);
    EXPECT_DEATH(packet.set_contrib_source(15, 0), "Assertion `count <= 0xf' failed");
    packet.set_contrib_src_count(15);
    EXPECT_DEATH(packet.set_contrib_source(15, 0), "Assertion `count <= 0xf' failed");
}

TEST(PacketFields, SetContribSrcCountMovesNothing) {
    CTalRtpPacket packet(100);
    packet.set_payload_size(4);
    std::memcpy(packet.get_payload_ptr(), "\x01\x02\x03\x04", 4);
    packet.set_contrib_src_count(15);
    EXPECT_EQ(packet.get_buffer()[0], 0x8f);
    EXPECT_EQ(Bytes(packet.get_buffer() + 12, packet.get_buffer() + 16), Bytes({1, 2, 3, 4}));
    EXPECT_EQ(packet.get_packet_size(), 16);
}

// Construction, assignment and buffers.

TEST(Packet, IsMadeEmptyWithVersion2) {
    CTalRtpPacket packet(1500);
    Bytes expected(1500, 0);
    expected[0] = 0x80;
    EXPECT_EQ(Bytes(packet.get_buffer(), packet.get_buffer() + 1500), expected);
    EXPECT_EQ(packet.get_header_size(), 12);
    EXPECT_EQ(packet.get_payload_size(), 0);
    EXPECT_EQ(packet.get_packet_size(), 0);
    EXPECT_EQ(packet.get_buffer_size(), 1500);
    EXPECT_EQ(packet.get_packet_type(), 1u);
}

TEST(Packet, LendsItsBufferUnderThreeNames) {
    CTalRtpPacket packet(20);
    char* const writable = packet;
    const char* const readable = packet;
    EXPECT_EQ(reinterpret_cast<unsigned char*>(writable), packet.get_buffer());
    EXPECT_EQ(readable, writable);
    EXPECT_EQ(static_cast<const char*>(constant(packet)), readable);
}

TEST(Packet, MadeFromBytesHasRoomForAtLeast1300) {
    Bytes bytes(1301, 0);
    for (const int length : {12, 1299, 1300, 1301}) {
        CTalRtpPacket packet(bytes.data(), length);
        EXPECT_EQ(packet.get_buffer_size(), std::max(length, 1300)) << length;
        EXPECT_EQ(packet.get_packet_size(), length);
        EXPECT_EQ(packet.get_packet_type(), 1u);
    }
}

// A second copy gets the memory of the first one, or memory that the allocator has filled.
TEST(Packet, SpareBytesBehindACopyAreZero) {
    Bytes bytes(60, 0x11);
    bytes[0] = 0x80;
    CTalRtpPacket packet(bytes.data(), 60);
    {
        CTalRtpPacket used(packet);
        std::fill_n(used.get_buffer(), 1300 + 88, static_cast<unsigned char>(0xee));
    }
    CTalRtpPacket copy(packet);
    EXPECT_EQ(Bytes(copy.get_buffer() + 60, copy.get_buffer() + 148), Bytes(88, 0));
    EXPECT_EQ(Bytes(copy.get_buffer() + 1300, copy.get_buffer() + 1388), Bytes(88, 0));
}

TEST(Packet, CopyTakesThePacketBytesAndItsType) {
    CTalRtpPacket original(5000);
    original.set_payload_size(8);
    std::memcpy(original.get_payload_ptr(), "payload!", 8);
    original.get_buffer()[20] = 0x77;  // beyond the packet: not copied
    original.set_packet_type(0);
    CTalRtpPacket copy(original);
    EXPECT_EQ(copy.get_buffer_size(), 1300);
    EXPECT_EQ(copy.get_packet_size(), 20);
    EXPECT_EQ(copy.get_payload_size(), 8);
    EXPECT_EQ(copy.get_packet_type(), 0u);
    EXPECT_EQ(std::memcmp(copy.get_buffer(), original.get_buffer(), 20), 0);
    EXPECT_EQ(copy.get_buffer()[20], 0);

    original.set_payload_size(1301 - 12);
    CTalRtpPacket large(original);
    EXPECT_EQ(large.get_buffer_size(), 1301);
}

TEST(PacketDeathTest, CopyOfAnEmptyPacketFailsTheLengthAssertion) {
    CTalRtpPacket empty(1500);
    EXPECT_DEATH(CTalRtpPacket copy(empty),
                 "from_buffer.*Assertion `len>=\\(_int32_t\\)sizeof\\(_rtp_packet_header_t\\)' failed");
}

TEST(PacketDeathTest, FromBufferAssertsTheFixedHeader) {
    CTalRtpPacket packet(1500);
    Bytes bytes(12, 0);
    for (const int length : {11, 0, -1, INT_MIN}) {
        EXPECT_DEATH(packet.from_buffer(bytes.data(), length),
                     "src/rtp/TalRtpPacket\\.cpp:.*Assertion "
                     "`len>=\\(_int32_t\\)sizeof\\(_rtp_packet_header_t\\)' failed")
            << length;
    }
}

TEST(Packet, FromBufferOfTwelveBytesHasNoPayload) {
    Bytes bytes(12, 0);
    bytes[0] = 0x80;
    CTalRtpPacket packet(1500);
    packet.from_buffer(bytes.data(), 12);
    EXPECT_EQ(packet.get_payload_size(), 0);
    EXPECT_EQ(packet.get_packet_size(), 12);
    bytes[0] = 0x83;
    packet.from_buffer(bytes.data(), 12);
    EXPECT_EQ(packet.get_payload_size(), -12) << "three CSRCs that are not there";
    EXPECT_FALSE(packet.validate());
    bytes[0] = 0x90;
    packet.from_buffer(bytes.data(), 12);
    EXPECT_EQ(packet.get_payload_size(), -4) << "an extension header that is not there";
    EXPECT_FALSE(packet.validate());
}

TEST(Packet, FromBufferGrowsToExactlyTheLength) {
    Bytes bytes(100, 0x80);
    CTalRtpPacket packet(50);
    packet.set_packet_type(0);
    const unsigned char* const buffer = packet.get_buffer();
    packet.from_buffer(bytes.data(), 50);
    EXPECT_EQ(packet.get_buffer_size(), 50);
    EXPECT_EQ(packet.get_buffer(), buffer) << "not allocated anew";
    packet.from_buffer(bytes.data(), 51);
    EXPECT_EQ(packet.get_buffer_size(), 51);
    packet.from_buffer(bytes.data(), 20);
    EXPECT_EQ(packet.get_buffer_size(), 51);
    EXPECT_EQ(packet.get_packet_type(), 0u) << "the packet type stays";
}

TEST(Packet, FromBufferTakesBytesOutOfItself) {
    CTalRtpPacket packet(100);
    for (int i = 0; i < 100; ++i) {
        packet.get_buffer()[i] = static_cast<unsigned char>(i);
    }
    packet.from_buffer(packet.get_buffer() + 10, 80);
    for (int i = 0; i < 80; ++i) {
        ASSERT_EQ(packet.get_buffer()[i], 10 + i);
    }
}

TEST(Packet, AssignmentCopiesTheWholeCapacity) {
    CTalRtpPacket original(200);
    original.set_payload_size(10);
    original.set_packet_type(0);
    original.get_buffer()[199] = 0x42;
    CTalRtpPacket smaller(100);
    CTalRtpPacket& result = smaller = original;
    EXPECT_EQ(&result, &smaller);
    EXPECT_EQ(smaller.get_buffer_size(), 200);
    EXPECT_EQ(smaller.get_packet_size(), 22);
    EXPECT_EQ(smaller.get_payload_size(), 10);
    EXPECT_EQ(smaller.get_packet_type(), 0u);
    EXPECT_EQ(std::memcmp(smaller.get_buffer(), original.get_buffer(), 200), 0);
    EXPECT_NE(smaller.get_buffer(), original.get_buffer());
}

TEST(Packet, AssignmentRecordsTheSmallerCapacityKept) {
    CTalRtpPacket original(100);
    CTalRtpPacket larger(200);
    const unsigned char* const buffer = larger.get_buffer();
    larger = original;
    EXPECT_EQ(larger.get_buffer(), buffer) << "not allocated anew";
    EXPECT_EQ(larger.get_buffer_size(), 100);
    Bytes bytes(101, 0x80);
    larger.from_buffer(bytes.data(), 101);
    EXPECT_EQ(larger.get_buffer_size(), 101);
}

TEST(Packet, AssignmentToItselfChangesNothing) {
    Bytes bytes = kFull;
    CTalRtpPacket packet(bytes.data(), static_cast<int>(bytes.size()));
    const CTalRtpPacket& same = packet;
    packet = same;
    EXPECT_EQ(packet.get_packet_size(), static_cast<int>(kFull.size()));
    EXPECT_EQ(std::memcmp(packet.get_buffer(), kFull.data(), kFull.size()), 0);
}

TEST(Packet, ResetZeroesTheWholeCapacity) {
    CTalRtpPacket packet(300);
    std::memset(packet.get_buffer(), 0xff, 300);
    packet.set_packet_type(0);
    packet.set_payload_size(10);
    packet.reset();
    Bytes expected(300, 0);
    expected[0] = 0x80;
    EXPECT_EQ(Bytes(packet.get_buffer(), packet.get_buffer() + 300), expected);
    EXPECT_EQ(packet.get_packet_size(), 0);
    EXPECT_EQ(packet.get_payload_size(), 0);
    EXPECT_EQ(packet.get_buffer_size(), 300);
    EXPECT_EQ(packet.get_packet_type(), 1u);
}

// Contributing sources.

TEST(PacketSources, GrowTheListAndMoveThePayload) {
    CTalRtpPacket packet(100);
    packet.set_payload_size(6);
    std::memcpy(packet.get_payload_ptr(), "abcdef", 6);
    packet.set_contrib_source(3, 0x0a0b0c0d);
    EXPECT_EQ(packet.get_contrib_src_count(), 4);
    EXPECT_EQ(packet.get_header_size(), 28);
    EXPECT_EQ(packet.get_contrib_source(3), 0x0a0b0c0du);
    EXPECT_EQ(std::memcmp(packet.get_payload_ptr(), "abcdef", 6), 0);
}

TEST(PacketSources, SkippedEntriesHoldWhatLayThereKept) {
    CTalRtpPacket packet(100);
    packet.set_payload_size(14);
    std::memcpy(packet.get_payload_ptr(), "abcdefghijklmn", 14);
    packet.set_contrib_source(3, 0);
    EXPECT_EQ(packet.get_contrib_source(0), 0x61626364u);
    EXPECT_EQ(packet.get_contrib_source(1), 0x65666768u);
    EXPECT_EQ(packet.get_contrib_source(2), 0x696a6b6cu);
}

TEST(PacketSources, PacketSizeIsNotUpdatedKept) {
    CTalRtpPacket packet(100);
    packet.set_payload_size(6);
    packet.set_contrib_source(0, 1);
    EXPECT_EQ(packet.get_packet_size(), 18);
    EXPECT_EQ(packet.get_payload_size(), 6);
    packet.set_payload_size(6);
    EXPECT_EQ(packet.get_packet_size(), 22);
}

TEST(PacketSources, OverwriteAnEntryInPlace) {
    CTalRtpPacket packet(100);
    packet.set_payload_size(2);
    packet.set_contrib_source(1, 7);
    std::memcpy(packet.get_payload_ptr(), "xy", 2);
    packet.set_contrib_source(0, 0x01020304);
    EXPECT_EQ(packet.get_contrib_src_count(), 2);
    EXPECT_EQ(packet.get_contrib_source(0), 0x01020304u);
    EXPECT_EQ(packet.get_contrib_source(1), 7u);
    EXPECT_EQ(std::memcmp(packet.get_payload_ptr(), "xy", 2), 0);
}

TEST(PacketSources, AnExtensionDoesNotMoveWithTheListKept) {
    CTalRtpPacket packet(100);
    unsigned char data[4] = {0x00, 0x00, 0x00, 0x00};
    packet.set_extension(0x1234, data, 4);  // the extension at 12, its data at 16
    packet.set_contrib_source(0, 0x12340001);
    EXPECT_EQ(packet.get_contrib_source(0), 0x12340001u) << "written over the extension's header";
    EXPECT_EQ(packet.get_header_size(), 20) << "what was data now reads as an extension of 0 words";
}

// The bytes after the grown list are then read as the extension's length, so a forger picks the header's
// end.
TEST(PacketSources, AddedToAReceivedExtensionStayInsideTheBuffer) {
    Bytes bytes(60, 0x11);
    bytes[0] = 0x90;
    bytes[14] = 0x00;  // 1 word: the payload starts at 20
    bytes[15] = 0x01;
    bytes[18] = 0x01;  // with one CSRC, 318 words: the payload starts at 1292, 8 bytes below the capacity
    bytes[19] = 0x3e;
    CTalRtpPacket packet(bytes.data(), 60);
    ASSERT_EQ(packet.get_payload_size(), 40);
    packet.set_contrib_source(0, 1);
    EXPECT_EQ(packet.get_header_size(), 1292);
    EXPECT_EQ(Bytes(packet.get_buffer() + 1292, packet.get_buffer() + 1300), Bytes(8, 0x11));
    EXPECT_EQ(Bytes(packet.get_buffer() + 1300, packet.get_buffer() + 1388), Bytes(88, 0));

    bytes[18] = 0x3f;  // 16382 words: far outside
    bytes[19] = 0xfe;
    packet.from_buffer(bytes.data(), 60);
    packet.set_contrib_source(0, 1);
    EXPECT_EQ(packet.get_header_size(), 65548);
    EXPECT_EQ(packet.get_contrib_source(0), 1u);
}

TEST(PacketSources, AddedToAPacketWithANegativePayloadSizeMoveNothing) {
    Bytes bytes(12, 0);
    bytes[0] = 0x81;
    CTalRtpPacket packet(bytes.data(), 12);
    ASSERT_EQ(packet.get_payload_size(), -4);
    packet.set_contrib_source(1, 5);
    EXPECT_EQ(packet.get_contrib_source(0), 0u);
    EXPECT_EQ(packet.get_contrib_source(1), 5u);
}

// The extension.

TEST(PacketExtension, RoundsUpToWholeWordsAndMovesThePayload) {
    CTalRtpPacket packet(100);
    packet.set_payload_size(3);
    std::memcpy(packet.get_payload_ptr(), "xyz", 3);
    Bytes data = {1, 2, 3, 4, 5, 6, 7, 8};
    packet.set_extension(0xabcd, data.data(), 5);
    EXPECT_EQ(packet.get_header_size(), 24);
    EXPECT_EQ(packet.get_packet_size(), 27);
    EXPECT_EQ(packet.get_payload_size(), 3);
    EXPECT_EQ(Bytes(packet.get_buffer(), packet.get_buffer() + 1), Bytes({0x90}));
    EXPECT_EQ(Bytes(packet.get_buffer() + 12, packet.get_buffer() + 27),
              Bytes({0xab, 0xcd, 0x00, 0x02, 1, 2, 3, 4, 5, 6, 7, 8, 'x', 'y', 'z'}))
        << "bytes 6 to 8 of the caller's buffer go along, which is kept";
}

TEST(PacketExtension, EachLengthTakesItsWords) {
    for (int length = 1; length <= 9; ++length) {
        CTalRtpPacket packet(100);
        Bytes data(12, 0x33);
        packet.set_extension(1, data.data(), length);
        EXPECT_EQ(packet.get_buffer()[15], (length + 3) / 4) << length;
        EXPECT_EQ(packet.get_packet_size(), 16 + (length + 3) / 4 * 4) << length;
    }
}

TEST(PacketExtension, IsSetOnce) {
    CTalRtpPacket packet(100);
    unsigned char first[4] = {1, 1, 1, 1};
    unsigned char second[4] = {2, 2, 2, 2};
    packet.set_extension(0x1111, first, 4);
    const Bytes before(packet.get_buffer(), packet.get_buffer() + 100);
    packet.set_extension(0x2222, second, 4);
    EXPECT_EQ(Bytes(packet.get_buffer(), packet.get_buffer() + 100), before);
    EXPECT_EQ(packet.get_packet_size(), 20);
}

TEST(PacketExtension, OfNothingIsNotSet) {
    CTalRtpPacket packet(100);
    unsigned char data[4] = {};
    packet.set_extension(1, nullptr, 4);
    packet.set_extension(1, data, 0);
    packet.set_extension(1, data, -4);
    EXPECT_FALSE(packet.get_extension_flag());
    EXPECT_EQ(packet.get_packet_size(), 0);
}

TEST(PacketExtension, LengthCountsModulo65536Kept) {
    CTalRtpPacket packet(100);
    unsigned char data[4] = {9, 9, 9, 9};
    packet.set_extension(0x0102, data, 65536);
    EXPECT_EQ(packet.get_header_size(), 16);
    EXPECT_EQ(Bytes(packet.get_buffer() + 12, packet.get_buffer() + 20), Bytes({1, 2, 0, 0, 0, 0, 0, 0}));
    CTalRtpPacket other(100);
    other.set_extension(0x0102, data, 65537);
    EXPECT_EQ(Bytes(other.get_buffer() + 12, other.get_buffer() + 20), Bytes({1, 2, 0, 1, 9, 9, 9, 9}));
}

TEST(PacketExtension, HeaderSizeTruncatesTo16BitsKept) {
    struct Case {
        unsigned int words;
        int headerSize;
    };
    const Case cases[] = {{0, 16},     {1, 20},     {16382, 12 + 65532}, {16383, 12},
                          {16384, 16}, {32767, 12}, {65535, 12}};
    for (const Case& c : cases) {
        CTalRtpPacket packet(100);
        packet.set_extension_flag(true);
        packet.get_buffer()[14] = static_cast<unsigned char>(c.words >> 8);
        packet.get_buffer()[15] = static_cast<unsigned char>(c.words);
        EXPECT_EQ(packet.get_header_size(), c.headerSize) << c.words;
        EXPECT_EQ(CTalRtpPacket::get_header_size(packet.get_buffer()), c.headerSize) << c.words;
    }
}

TEST(PacketExtension, IsReadUpToTheSmallerLength) {
    Bytes bytes = kFull;
    const CTalRtpPacket& packet = CTalRtpPacket(bytes.data(), static_cast<int>(bytes.size()));
    const Bytes whole = {0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18};
    for (int room = 0; room <= 10; ++room) {
        Bytes data(10, 0xee);
        int length = room;
        ASSERT_TRUE(packet.get_extension(0xabcd, data.data(), &length));
        EXPECT_EQ(length, std::min(room, 8));
        Bytes expected(whole.begin(), whole.begin() + length);
        expected.resize(10, 0xee);
        EXPECT_EQ(data, expected) << room;
    }
}

TEST(PacketExtension, IsNotReadWithoutPointersFlagOrProfile) {
    Bytes bytes = kFull;
    CTalRtpPacket packet(bytes.data(), static_cast<int>(bytes.size()));
    unsigned char data[8] = {0xee};
    int length = 8;
    EXPECT_FALSE(packet.get_extension(0xabcd, nullptr, &length));
    EXPECT_FALSE(packet.get_extension(0xabcd, data, nullptr));
    EXPECT_FALSE(packet.get_extension(0xabce, data, &length));
    packet.set_extension_flag(false);
    EXPECT_FALSE(packet.get_extension(0xabcd, data, &length));
    EXPECT_EQ(length, 8);
    EXPECT_EQ(data[0], 0xee);
}

TEST(PacketExtension, NegativeLengthIsStoredBackUnchanged) {
    Bytes bytes = kFull;
    CTalRtpPacket packet(bytes.data(), static_cast<int>(bytes.size()));
    unsigned char data[8] = {0xee};
    for (const int negative : {-1, -8, INT_MIN}) {
        int length = negative;
        EXPECT_TRUE(packet.get_extension(0xabcd, data, &length));
        EXPECT_EQ(length, negative);
        EXPECT_EQ(data[0], 0xee);
    }
}

TEST(PacketExtension, BeyondTheEndOfThePacketReadsAsZeros) {
    for (int cut = 12; cut < static_cast<int>(kFull.size()); ++cut) {
        SCOPED_TRACE(cut);
        Bytes noise(1300, 0xee);
        CTalRtpPacket packet(noise.data(), 1300);
        Bytes bytes(kFull.begin(), kFull.begin() + cut);
        packet.from_buffer(bytes.data(), cut);
        Bytes data(8, 0xdd);
        int length = 8;
        const bool hasProfile = packet.get_extension(0xabcd, data.data(), &length);
        EXPECT_EQ(hasProfile, cut >= 22);
        if (hasProfile) {
            // The low byte of the extension length is byte 23.
            EXPECT_EQ(length, cut >= 24 ? 8 : 0);
            Bytes expected(8, cut >= 24 ? 0x00 : 0xdd);
            for (int i = 24; i < std::min(cut, 32); ++i) {
                expected[static_cast<std::size_t>(i - 24)] = kFull[static_cast<std::size_t>(i)];
            }
            EXPECT_EQ(data, expected);
        }
    }
}

TEST(PacketExtension, ThatClaimsTheMostReadsAsZerosBehindThePacket) {
    Bytes bytes(20, 0x11);
    bytes[0] = 0x90;
    bytes[14] = 0xff;
    bytes[15] = 0xff;
    CTalRtpPacket packet(bytes.data(), 20);
    Bytes data(300000, 0xee);
    int length = 300000;
    EXPECT_TRUE(packet.get_extension(0x1111, data.data(), &length));
    ASSERT_EQ(length, 262140);
    EXPECT_EQ(Bytes(data.begin(), data.begin() + 4), Bytes(4, 0x11));
    EXPECT_EQ(Bytes(data.begin() + 4, data.begin() + 262140), Bytes(262136, 0));
    EXPECT_EQ(data[262140], 0xee);
}

TEST(PacketExtension, InRawBytesIsFoundWhateverTheProfileKept) {
    Bytes bytes = kFull;
    EXPECT_EQ(CTalRtpPacket::get_extension(0x0000, bytes.data(), static_cast<int>(bytes.size())),
              bytes.data() + 24);
    EXPECT_EQ(CTalRtpPacket::get_extension(0xabcd, bytes.data(), 24), bytes.data() + 24);
    for (int length = 23; length >= -1; --length) {
        EXPECT_EQ(CTalRtpPacket::get_extension(0xabcd, bytes.data(), length), nullptr) << length;
    }
    EXPECT_EQ(CTalRtpPacket::get_extension(0xabcd, nullptr, 100), nullptr);
    bytes[0] &= 0xef;
    EXPECT_EQ(CTalRtpPacket::get_extension(0xabcd, bytes.data(), static_cast<int>(bytes.size())), nullptr);
}

TEST(PacketExtension, InNoBytesAtAllIsNotLookedFor) {
    const std::unique_ptr<unsigned char[]> bytes(new unsigned char[8]());
    unsigned char* const end = bytes.get() + 8;  // a read here is one beyond the allocation
    EXPECT_EQ(CTalRtpPacket::get_extension(0xabcd, end, 0), nullptr);
    unsigned char* element = nullptr;
    int length = 0;
    EXPECT_FALSE(CTalRtpPacket::get_onebyte_extension_element(end, 0, 1, element, length));
}

TEST(PacketExtension, RawHelpersTakeNull) {
    EXPECT_EQ(CTalRtpPacket::get_header_size(nullptr), 0);
    EXPECT_EQ(CTalRtpPacket::get_payload_ptr(nullptr), nullptr);
}

// Validation.

// A packet of 16 bytes with a payload of 4.
Bytes packetBytes(unsigned char flags, unsigned char markerAndType, unsigned char lastByte) {
    return {flags, markerAndType, 0x01, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3, lastByte};
}

std::vector<std::string> warningsOf(Bytes bytes, bool* isValid) {
    CTalRtpPacket packet(bytes.data(), static_cast<int>(bytes.size()));
    const TraceCatcher trace(2);
    const int payloadSize = packet.get_payload_size();
    *isValid = packet.validate();
    EXPECT_EQ(packet.get_payload_size(), payloadSize) << "validate changes nothing";
    EXPECT_EQ(Bytes(packet.get_buffer(), packet.get_buffer() + bytes.size()), bytes);
    EXPECT_EQ(trace.messages().size(), trace.messages(1).size()) << "every line is a WARNING";
    return trace.messages();
}

TEST(Validate, GivesEachReason) {
    struct Case {
        const char* name;
        Bytes bytes;
        std::vector<std::string> warnings;
    };
    const std::string kReserved = "CTalRtpPacket::validate, payload type is reserved, payload-type = ";
    const Case cases[] = {
        {"valid", packetBytes(0x80, 98, 9), {}},
        {"version 0",
         packetBytes(0x00, 98, 9),
         {"CTalRtpPacket::validate, version isn't supported, version = 0"}},
        {"version 1",
         packetBytes(0x40, 98, 9),
         {"CTalRtpPacket::validate, version isn't supported, version = 1"}},
        {"version 3",
         packetBytes(0xc0, 98, 9),
         {"CTalRtpPacket::validate, version isn't supported, version = 3"}},
        {"type 71", packetBytes(0x80, 71, 9), {}},
        {"type 72", packetBytes(0x80, 72, 9), {kReserved + "72, seq 258, marker-flag = 0"}},
        {"type 74", packetBytes(0x80, 74, 9), {kReserved + "74, seq 258, marker-flag = 0"}},
        {"type 76", packetBytes(0x80, 76, 9), {kReserved + "76, seq 258, marker-flag = 0"}},
        {"type 77", packetBytes(0x80, 77, 9), {}},
        {"type 71 with the marker", packetBytes(0x80, 199, 9), {}},
        {"an RTCP sender report",
         packetBytes(0x80, 200, 9),
         {kReserved + "72, seq 258, marker-flag = 1",
          "CTalRtpPacket::validate, RTCP packet is on RTP port?"}},
        {"an RTCP APP packet",
         packetBytes(0x80, 204, 9),
         {kReserved + "76, seq 258, marker-flag = 1",
          "CTalRtpPacket::validate, RTCP packet is on RTP port?"}},
        {"type 77 with the marker", packetBytes(0x80, 205, 9), {}},
        {"a header that just fits", packetBytes(0x81, 98, 9), {}},
        {"a header too long",
         packetBytes(0x82, 98, 9),
         {"CTalRtpPacket::validate, packet length is smaller than the header size"}},
        {"padding of 1", packetBytes(0xa0, 98, 1), {}},
        {"padding of the whole payload", packetBytes(0xa0, 98, 4), {}},
        {"padding of one more",
         packetBytes(0xa0, 98, 5),
         {"CTalRtpPacket::validate, padding is greater than payload length"}},
        {"padding of 255",
         packetBytes(0xa0, 98, 255),
         {"CTalRtpPacket::validate, padding is greater than payload length"}},
        {"padding of 0", packetBytes(0xa0, 98, 0), {"CTalRtpPacket::validate, padding is zero"}},
        {"version before type",
         packetBytes(0x00, 200, 9),
         {"CTalRtpPacket::validate, version isn't supported, version = 0"}},
        {"type before length", packetBytes(0x8f, 72, 9), {kReserved + "72, seq 258, marker-flag = 0"}},
        {"length before padding",
         packetBytes(0xaf, 98, 0),
         {"CTalRtpPacket::validate, packet length is smaller than the header size"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        bool isValid = false;
        EXPECT_EQ(warningsOf(c.bytes, &isValid), c.warnings);
        EXPECT_EQ(isValid, c.warnings.empty());
    }
}

TEST(Validate, CountsPaddingFromTheHeaderEndWithoutAPayload) {
    // The last byte of the packet is then the last one of the SSRC.
    Bytes bytes = packetBytes(0xa0, 98, 0);
    bytes.resize(12);
    bool isValid = true;
    EXPECT_THAT(warningsOf(bytes, &isValid), ElementsAre("CTalRtpPacket::validate, padding is zero"));
    EXPECT_FALSE(isValid);
    bytes[11] = 1;
    EXPECT_THAT(warningsOf(bytes, &isValid),
                ElementsAre("CTalRtpPacket::validate, padding is greater than payload length"));
    EXPECT_FALSE(isValid);
}

TEST(Validate, ReadsTheCountAtThePayloadEndWhenThePacketSizeIsStale) {
    CTalRtpPacket packet(100);
    packet.set_pad_flag(true);
    packet.set_payload_size(8);
    std::memcpy(packet.get_payload_ptr(), "\0\0\0\0\0\0\0\x02", 8);
    packet.set_contrib_source(0, 0);  // the payload moves up, the packet size stays at 20
    EXPECT_EQ(packet.get_packet_size(), 20);
    EXPECT_TRUE(packet.validate());
}

TEST(Validate, AnEmptyPacketIsTooShort) {
    CTalRtpPacket packet(100);
    const TraceCatcher trace(1);
    EXPECT_FALSE(packet.validate());
    EXPECT_THAT(trace.messages(),
                ElementsAre("CTalRtpPacket::validate, packet length is smaller than the header size"));
}

TEST(Validate, GivesNoLineBelowMask1) {
    CTalRtpPacket packet(100);
    const TraceCatcher trace(0);
    EXPECT_FALSE(packet.validate());
    EXPECT_THAT(trace.lines(), IsEmpty());
}

// Setters and getters against a model of plain bytes.

class Model {
public:
    explicit Model(int capacity) : m_bytes(static_cast<std::size_t>(capacity), 0) { m_bytes[0] = 0x80; }

    // Puts `width` bits of `value` at `bit`, counted from the most significant bit of byte 0.
    void put(int bit, int width, unsigned int value) {
        for (int i = 0; i < width; ++i) {
            unsigned char& byte = m_bytes[static_cast<std::size_t>((bit + i) / 8)];
            const unsigned char mask = static_cast<unsigned char>(0x80 >> ((bit + i) % 8));
            const bool isSet = ((value >> (width - 1 - i)) & 1) != 0;
            byte = static_cast<unsigned char>(isSet ? byte | mask : byte & ~mask);
        }
    }
    unsigned int get(int bit, int width) const {
        unsigned int value = 0;
        for (int i = 0; i < width; ++i) {
            value =
                value << 1 | ((m_bytes[static_cast<std::size_t>((bit + i) / 8)] >> (7 - (bit + i) % 8)) & 1);
        }
        return value;
    }
    const Bytes& bytes() const { return m_bytes; }

private:
    Bytes m_bytes;
};

void expectSameFields(const CTalRtpPacket& packet, const Model& model) {
    ASSERT_EQ(packet.get_version(), model.get(0, 2));
    ASSERT_EQ(packet.get_pad_flag(), model.get(2, 1) == 1);
    ASSERT_EQ(packet.get_extension_flag(), model.get(3, 1) == 1);
    ASSERT_EQ(packet.get_contrib_src_count(), static_cast<int>(model.get(4, 4)));
    ASSERT_EQ(packet.get_marker_flag(), model.get(8, 1) == 1);
    ASSERT_EQ(packet.get_payload_type(), model.get(9, 7));
    ASSERT_EQ(packet.get_sequence_number(), model.get(16, 16));
    ASSERT_EQ(packet.get_timestamp(), model.get(32, 32));
    ASSERT_EQ(packet.get_sync_source(), model.get(64, 32));
    for (int i = 0; i < packet.get_contrib_src_count(); ++i) {
        ASSERT_EQ(packet.get_contrib_source(i), model.get(96 + 32 * i, 32));
    }
}

TEST(PacketProperty, RandomSettersAgreeWithAByteModel) {
    constexpr int kCapacity = 160;
    const unsigned int seed = 12;
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    CTalRtpPacket packet(kCapacity);
    Model model(kCapacity);
    for (int round = 0; round < 20000; ++round) {
        SCOPED_TRACE(round);
        const unsigned int value = random();
        switch (random() % 10) {
            case 0:
                packet.set_version(value);
                model.put(0, 2, value);
                break;
            case 1:
                packet.set_pad_flag(value % 2 == 1);
                model.put(2, 1, value);
                break;
            case 2:
                packet.set_extension_flag(value % 2 == 1);
                model.put(3, 1, value);
                break;
            case 3:
                packet.set_contrib_src_count(static_cast<int>(value % 16));
                model.put(4, 4, value % 16);
                break;
            case 4:
                packet.set_marker_flag(value % 2 == 1);
                model.put(8, 1, value);
                break;
            case 5:
                packet.set_payload_type(value % 128);
                model.put(9, 7, value);
                break;
            case 6:
                packet.set_sequence_number(static_cast<unsigned short>(value));
                model.put(16, 16, value);
                break;
            case 7:
                packet.set_timestamp(value);
                model.put(32, 32, value);
                break;
            case 8:
                packet.set_sync_source(value);
                model.put(64, 32, value);
                break;
            default:
                if (packet.get_contrib_src_count() > 0) {  // in place: nothing moves
                    const int idx = static_cast<int>(
                        random() % static_cast<unsigned int>(packet.get_contrib_src_count()));
                    packet.set_contrib_source(idx, value);
                    model.put(96 + 32 * idx, 32, value);
                }
        }
        ASSERT_EQ(Bytes(packet.get_buffer(), packet.get_buffer() + kCapacity), model.bytes());
        ASSERT_NO_FATAL_FAILURE(expectSameFields(packet, model));
    }
}

// A packet built in the documented order holds, piece by piece, what was put in.
TEST(PacketProperty, RandomPacketsAreTheirPiecesInOrder) {
    const unsigned int seed = 34;
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    for (int round = 0; round < 2000; ++round) {
        SCOPED_TRACE(round);
        Bytes payload(random() % 60);
        std::generate(payload.begin(), payload.end(),
                      [&random] { return static_cast<unsigned char>(random()); });
        const int sources = static_cast<int>(random() % 16);
        Bytes extension(4 * (random() % 5));
        std::generate(extension.begin(), extension.end(),
                      [&random] { return static_cast<unsigned char>(random()); });

        CTalRtpPacket packet(300);
        packet.set_payload_size(static_cast<int>(payload.size()));
        std::copy(payload.begin(), payload.end(), packet.get_payload_ptr());
        Bytes expected = {static_cast<unsigned char>(0x80 | (extension.empty() ? 0 : 0x10) | sources),
                          0,
                          0,
                          0,
                          0,
                          0,
                          0,
                          0,
                          0,
                          0,
                          0,
                          0};
        for (int i = 0; i < sources; ++i) {
            packet.set_contrib_source(i, 0x01010101u * static_cast<unsigned int>(i));
            expected.insert(expected.end(), 4, static_cast<unsigned char>(i));
        }
        packet.set_extension(0x7788, extension.data(), static_cast<int>(extension.size()));
        if (!extension.empty()) {
            const unsigned char words = static_cast<unsigned char>(extension.size() / 4);
            expected.insert(expected.end(), {0x77, 0x88, 0x00, words});
            expected.insert(expected.end(), extension.begin(), extension.end());
        }
        expected.insert(expected.end(), payload.begin(), payload.end());
        packet.set_payload_size(static_cast<int>(payload.size()));
        ASSERT_EQ(Bytes(packet.get_buffer(), packet.get_buffer() + packet.get_packet_size()), expected);

        CTalRtpPacket received(packet.get_buffer(), packet.get_packet_size());
        ASSERT_EQ(received.get_payload_size(), static_cast<int>(payload.size()));
        ASSERT_TRUE(std::equal(payload.begin(), payload.end(), received.get_payload_ptr()));
    }
}

}  // namespace
}  // namespace talrtp
