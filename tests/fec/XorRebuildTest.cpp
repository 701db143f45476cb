// The arithmetic that rebuilds a media packet from XOR parity (RFC 2733, 7), without a session: against bytes
// worked out by hand, and against packets that a plain sum made the parity of.

#include "fec/XorRecovery.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "Bytes.h"

namespace talrtp {
namespace test {
namespace {

constexpr std::size_t kParityBegin = 12 + 12;  // after the RTP header and the FEC header

stByteView viewOf(const Bytes& bytes) {
    return {bytes.data(), static_cast<int>(bytes.size())};
}

stByteView parityOf(const Bytes& fec) {
    return {fec.data() + kParityBegin, static_cast<int>(fec.size() - kParityBegin)};
}

int capacityOf(const Bytes& fec) {
    return static_cast<int>(fec.size() - kParityBegin);
}

// The packet that the FEC packet and the others leave, cut to its size.
Bytes rebuild(const Bytes& fec, const std::vector<Bytes>& others, std::uint16_t seq, std::uint32_t ssrc) {
    CXorRecovery recovery(fec.data(), capacityOf(fec));
    EXPECT_EQ(recovery.addParity(parityOf(fec)), EXorBody::kWhole);
    for (const Bytes& other : others) {
        EXPECT_EQ(recovery.addMediaPacket(viewOf(other), other[1] & 0x7f), EXorBody::kWhole);
    }
    EXPECT_TRUE(recovery.isPlausible());
    Bytes packet(12 + fec.size() - kParityBegin, 0xee);
    recovery.writeTo(packet.data(), seq, ssrc);
    packet[1] = static_cast<unsigned char>(packet[1] | recovery.payloadType());
    const std::size_t headerSize = 12 + 4 * (packet[0] & 0x0f);  // none of these has an extension
    packet.resize(headerSize + static_cast<std::size_t>(recovery.payloadSize()));
    return packet;
}

// clang-format off
const Bytes kFirst = {
    0x80, 0xe2, 0xff, 0xff,  // V=2 P=0 X=0 CC=0 | M=1 PT=98 | sequence number 65535
    0x00, 0x01, 0x5f, 0x90,  // timestamp 90000
    0x11, 0x22, 0x33, 0x44,  // SSRC
    0x41, 0x22, 0x33,        // payload: 3 bytes after the fixed header
};
const Bytes kSecond = {
    0xa1, 0x61, 0x00, 0x00,  // V=2 P=1 X=0 CC=1 | M=0 PT=97 | sequence number 0
    0x00, 0x01, 0x6d, 0xa0,  // timestamp 93600
    0x11, 0x22, 0x33, 0x44,  // SSRC
    0x01, 0x02, 0x03, 0x04,  // CSRC
    0x41, 0x01,              // payload and 1 byte of padding: 6 bytes after the fixed header
};
const Bytes kFec = {
    0xa1, 0xef, 0x02, 0x00,  // V=2 P=0^1 X=0 CC=0^1 | M=1^0, PT=111 | FEC sequence number 512
    0x00, 0x01, 0x6d, 0xa0,  // timestamp 93600
    0xca, 0xfe, 0xba, 0xbe,  // SSRC of the FEC stream
    0xff, 0xff, 0x00, 0x05,  // SN base 65535 | length recovery 3^6
    0x83, 0xc0, 0x00, 0x00,  // E=1, which means nothing here, PT recovery 98^97 | mask: base + 0 and base + 1
    0x00, 0x00, 0x32, 0x30,  // TS recovery 0x15f90 ^ 0x16da0
    0x40, 0x20, 0x30, 0x04,  // parity: 41^01 22^02 33^03 00^04
    0x41, 0x01,              // 00^41 00^01
};
// clang-format on

TEST(XorRebuildTest, EachOfTwoPacketsWorkedOutByHand) {
    EXPECT_EQ(rebuild(kFec, {kSecond}, 65535, 0x11223344), kFirst);
    EXPECT_EQ(rebuild(kFec, {kFirst}, 0, 0x11223344), kSecond);
}

TEST(XorRebuildTest, NumberAndSsrcAreThoseAskedFor) {
    const Bytes packet = rebuild(kFec, {kSecond}, 0x1234, 0xcafebabe);
    EXPECT_EQ(Bytes(packet.begin() + 2, packet.begin() + 4), (Bytes{0x12, 0x34}));
    EXPECT_EQ(Bytes(packet.begin() + 8, packet.begin() + 12), (Bytes{0xca, 0xfe, 0xba, 0xbe}));
}

TEST(XorRebuildTest, KindOfEachPacketCountsAsItsPayloadType) {
    CXorRecovery recovery(kFec.data(), capacityOf(kFec));
    recovery.addParity(parityOf(kFec));
    EXPECT_EQ(recovery.payloadType(), 0x03);
    recovery.addMediaPacket(viewOf(kFirst), 1);
    EXPECT_EQ(recovery.payloadType(), 0x02);
    recovery.addMediaPacket(viewOf(kSecond), 0x81);
    EXPECT_EQ(recovery.payloadType(), 0x83);
}

TEST(XorRebuildTest, EachOfTwentyFourPacketsComesBack) {
    std::mt19937 random(24);
    std::vector<Bytes> packets;
    Bytes fec(kParityBegin + 500, 0);
    for (unsigned int n = 0; n < 24; ++n) {
        Bytes packet(13 + random() % 500);
        std::generate(packet.begin(), packet.end(), [&] { return static_cast<unsigned char>(random()); });
        packet[0] = static_cast<unsigned char>(0x80 | (packet[0] & 0x20));  // padding or none, nothing else
        packet[2] = 0;
        packet[3] = static_cast<unsigned char>(n);
        std::fill(packet.begin() + 8, packet.begin() + 12, 0x77);
        const std::size_t length = packet.size() - 12;
        fec[0] ^= packet[0] & 0x3f;
        fec[1] ^= packet[1] & 0x80;
        fec[14] ^= static_cast<unsigned char>(length >> 8);
        fec[15] ^= static_cast<unsigned char>(length);
        fec[16] ^= packet[1] & 0x7f;
        for (std::size_t i = 0; i < 4; ++i) {
            fec[20 + i] ^= packet[4 + i];
        }
        for (std::size_t i = 0; i < length; ++i) {
            fec[kParityBegin + i] ^= packet[12 + i];
        }
        packets.push_back(packet);
    }
    for (std::size_t lost = 0; lost < packets.size(); ++lost) {
        std::vector<Bytes> others = packets;
        others.erase(others.begin() + static_cast<std::ptrdiff_t>(lost));
        ASSERT_EQ(rebuild(fec, others, static_cast<std::uint16_t>(lost), 0x77777777), packets[lost]) << lost;
    }
}

// --- Packets that do not fit ---------------------------------------------------------------------------

// An FEC packet that protects one packet only, and so is that packet but for its place.
struct Alone {
    Bytes fec = Bytes(kParityBegin + 20, 0);

    explicit Alone(unsigned char flags) { fec[0] = flags; }
    void setLength(int length) {
        fec[14] = static_cast<unsigned char>(length >> 8);
        fec[15] = static_cast<unsigned char>(length);
    }
    bool isPlausible(int length) {
        setLength(length);
        CXorRecovery recovery(fec.data(), capacityOf(fec));
        recovery.addParity(parityOf(fec));
        return recovery.isPlausible();
    }
};

TEST(XorRebuildTest, LengthFitsUpToTheRoom) {
    Alone alone(0x80);
    EXPECT_TRUE(alone.isPlausible(0));
    EXPECT_TRUE(alone.isPlausible(20));
    EXPECT_FALSE(alone.isPlausible(21));
    EXPECT_FALSE(alone.isPlausible(0xffff));
}

TEST(XorRebuildTest, PacketHoldsItsCsrcs) {
    Alone alone(0x83);  // 3 of 4 bytes each
    EXPECT_FALSE(alone.isPlausible(11));
    EXPECT_TRUE(alone.isPlausible(12));
}

TEST(XorRebuildTest, PacketHoldsItsExtension) {
    Alone alone(0x91);                    // one CSRC, then the extension's header, whose last two bytes count
    alone.fec[kParityBegin + 4 + 3] = 2;  // words
    EXPECT_FALSE(alone.isPlausible(4 + 4 + 8 - 1));
    EXPECT_TRUE(alone.isPlausible(4 + 4 + 8));
    alone.fec[kParityBegin + 4 + 2] = 1;  // 258 words
    EXPECT_FALSE(alone.isPlausible(20));
}

TEST(XorRebuildTest, LengthOfTheExtensionIsSummedUpToo) {
    Bytes other(12 + 8, 0);
    other[12 + 3] = 2;
    Alone alone(0x90);
    alone.fec[kParityBegin + 3] = 3;  // 3^2 is 1 word, so 8 bytes in all
    alone.setLength(0);
    CXorRecovery recovery(alone.fec.data(), capacityOf(alone.fec));
    recovery.addParity(parityOf(alone.fec));
    EXPECT_FALSE(recovery.isPlausible());  // 0 bytes do not hold 3 words
    recovery.addMediaPacket(viewOf(other), 0);
    EXPECT_TRUE(recovery.isPlausible());
    EXPECT_EQ(recovery.payloadSize(), 0);
}

TEST(XorRebuildTest, BodyBeyondTheRoomIsCutAndReported) {
    Bytes fec(kParityBegin + 2, 0);
    fec[kParityBegin] = 0x24;
    fec[kParityBegin + 1] = 0xff;
    fec[15] = 4 ^ 2;
    CXorRecovery recovery(fec.data(), 2);
    EXPECT_EQ(recovery.addParity(parityOf(fec)), EXorBody::kWhole);
    const Bytes exact = {0x80, 0x62, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(recovery.addMediaPacket(viewOf(exact), 0), EXorBody::kWhole);
    const Bytes longer = {0x80, 0x62, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0x41, 0x00, 0x0b, 0xa5};
    EXPECT_EQ(recovery.addMediaPacket(viewOf(longer), 0), EXorBody::kCut);
    EXPECT_TRUE(recovery.isPlausible());  // 6^2^4 leaves 0 bytes after the fixed header
    Bytes packet(12 + 2 + 1, 0xee);
    recovery.writeTo(packet.data(), 3, 0);
    EXPECT_EQ(packet[12], 0x65);  // 24^00^41
    EXPECT_EQ(packet[13], 0xff);  // ff^00^00
    EXPECT_EQ(packet[14], 0xee);
}

// 16383 words add nothing to a header size; these lie where the room has ended.
TEST(XorRebuildTest, ExtensionLengthBeyondTheRoomCountsAsZero) {
    Bytes fec(kParityBegin + 2, 0);
    fec[0] = 0x90;
    fec[15] = 4;  // that of the other packet, so 0 bytes are left
    const Bytes other = {0x80, 0x62, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0x00, 0x00, 0x3f, 0xff};
    CXorRecovery recovery(fec.data(), 2);
    recovery.addParity(parityOf(fec));
    EXPECT_EQ(recovery.addMediaPacket(viewOf(other), 0), EXorBody::kCut);
    EXPECT_FALSE(recovery.isPlausible());
}

TEST(XorRebuildTest, ShorterBodyCountsAsZeroAfterItsEnd) {
    Bytes fec(kParityBegin + 3, 0);
    fec[kParityBegin] = 0x24;
    fec[kParityBegin + 1] = 0x11;
    fec[kParityBegin + 2] = 0x22;
    fec[15] = 3 ^ 1;
    CXorRecovery recovery(fec.data(), 3);
    recovery.addParity(parityOf(fec));
    const Bytes shorter = {0x80, 0x62, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0x41};
    recovery.addMediaPacket(viewOf(shorter), 0);
    Bytes packet(12 + 3, 0xee);
    EXPECT_EQ(recovery.payloadSize(), 3);
    recovery.writeTo(packet.data(), 3, 0);
    EXPECT_EQ(Bytes(packet.begin() + 12, packet.end()), (Bytes{0x65, 0x11, 0x22}));
}

}  // namespace
}  // namespace test
}  // namespace talrtp
