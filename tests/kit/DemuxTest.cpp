#include "SeededRandom.h"

#include <talrtp/TalRtpFecPacket.h>
#include <talrtp/TalRtpPacket.h>
#include <talrtp/kit/Demux.h>

#include <gtest/gtest.h>

#include <vector>

namespace talrtp::kit {
namespace {

using test::SeededRandom;

DatagramKind classifyStart(std::uint8_t first, std::uint8_t second, std::size_t size = 64) {
    std::vector<std::uint8_t> datagram(size, 0);
    datagram[0] = first;
    datagram[1] = second;
    return classify(datagram);
}

TEST(ClassifyTest, TellsTheProtocolsApartByTheFirstByte) {
    struct {
        std::uint8_t first;
        DatagramKind kind;
    } const table[] = {
        {0, DatagramKind::kStun},      {3, DatagramKind::kStun},     {4, DatagramKind::kUnknown},
        {15, DatagramKind::kUnknown},  {16, DatagramKind::kZrtp},    {19, DatagramKind::kZrtp},
        {20, DatagramKind::kDtls},     {63, DatagramKind::kDtls},    {64, DatagramKind::kTurn},
        {79, DatagramKind::kTurn},     {80, DatagramKind::kUnknown}, {127, DatagramKind::kUnknown},
        {128, DatagramKind::kRtp},     {191, DatagramKind::kRtp},    {192, DatagramKind::kUnknown},
        {255, DatagramKind::kUnknown},
    };
    for (const auto& row : table) {
        EXPECT_EQ(classifyStart(row.first, 98), row.kind) << "first byte " << int{row.first};
    }
}

TEST(ClassifyTest, TellsRtcpFromRtpByThePacketType) {
    EXPECT_EQ(classifyStart(0x80, 191), DatagramKind::kRtp);
    EXPECT_EQ(classifyStart(0x80, 192), DatagramKind::kRtcp);
    EXPECT_EQ(classifyStart(0x81, 200), DatagramKind::kRtcp);  // sender report
    EXPECT_EQ(classifyStart(0x81, 206), DatagramKind::kRtcp);  // payload-specific feedback
    EXPECT_EQ(classifyStart(0x80, 223), DatagramKind::kRtcp);
    EXPECT_EQ(classifyStart(0x80, 224), DatagramKind::kRtp);  // marker bit and payload type 96
    EXPECT_EQ(classifyStart(0x80, 98), DatagramKind::kRtp);
    EXPECT_EQ(classifyStart(0x80, 0x80 | 111), DatagramKind::kRtp);
}

TEST(ClassifyTest, RefusesWhatIsShorterThanItsHeader) {
    struct {
        std::uint8_t first;
        std::uint8_t second;
        std::size_t least;
        DatagramKind kind;
    } const table[] = {
        {0x80, 98, 12, DatagramKind::kRtp}, {0x81, 203, 4, DatagramKind::kRtcp},
        {0, 1, 20, DatagramKind::kStun},    {16, 0, 12, DatagramKind::kZrtp},
        {22, 254, 13, DatagramKind::kDtls}, {64, 0, 4, DatagramKind::kTurn},
    };
    for (const auto& row : table) {
        for (std::size_t size = 2; size < row.least; ++size) {
            EXPECT_EQ(classifyStart(row.first, row.second, size), DatagramKind::kUnknown) << size;
        }
        EXPECT_EQ(classifyStart(row.first, row.second, row.least), row.kind);
    }
}

TEST(ClassifyTest, AcceptsNoBytes) {
    const std::uint8_t one = 0x80;
    EXPECT_EQ(classify(BytesView()), DatagramKind::kUnknown);
    EXPECT_EQ(classify(BytesView(&one, 1)), DatagramKind::kUnknown);
}

// A datagram passes as RTP if it has version 2 (RFC 3550), is long enough, and has no RTCP type.
TEST(ClassifyTest, LetsOnlyRtpThrough) {
    SeededRandom random(20);
    SCOPED_TRACE(random.describe());
    for (int i = 0; i < 20000; ++i) {
        const std::vector<std::uint8_t> datagram = random.bytes(random.between(1, 30));
        if (classify(datagram) == DatagramKind::kRtp) {
            ASSERT_GE(datagram.size(), 12u);
            EXPECT_EQ(datagram[0] >> 6, 2);
            EXPECT_FALSE(datagram[1] >= 192 && datagram[1] <= 223);
        }
    }
}

// A packet of random bytes, mostly with the fields in the ranges where the rules differ.
std::vector<std::uint8_t> drawPacket(SeededRandom& random) {
    std::vector<std::uint8_t> bytes = random.bytes(random.between(0, random.oneIn(2) ? 90 : 16));
    if (bytes.size() < 12) {
        return bytes;
    }
    bytes[0] = static_cast<std::uint8_t>(random.oneIn(8) ? bytes[0] : 0x80 | (bytes[0] & 0x3f));
    if (random.oneIn(3)) {
        bytes[1] = static_cast<std::uint8_t>((bytes[1] & 0x80) | random.between(70, 78));
    }
    if (random.oneIn(2)) {
        bytes[0] &= 0xf0;  // no contributing sources
    }
    const std::size_t lengthAt = 12 + 4 * static_cast<std::size_t>(bytes[0] & 0x0f) + 2;
    if (lengthAt + 2 <= bytes.size() && !random.oneIn(4)) {
        const std::uint32_t words = random.oneIn(6) ? random.between(16380, 16390) : random.between(0, 12);
        bytes[lengthAt] = static_cast<std::uint8_t>(words >> 8);
        bytes[lengthAt + 1] = static_cast<std::uint8_t>(words);
    }
    if (random.oneIn(2)) {
        bytes.back() = static_cast<std::uint8_t>(random.between(0, static_cast<std::uint32_t>(bytes.size())));
    }
    return bytes;
}

TEST(IsValidRtpTest, AgreesWithTheSessionsOwnCheck) {
    int validMedia = 0;
    int validXor = 0;
    constexpr int kPackets = 200000;
    SeededRandom random(7);
    SCOPED_TRACE(random.describe());
    for (int i = 0; i < kPackets; ++i) {
        std::vector<std::uint8_t> bytes = drawPacket(random);
        const bool isMedia = isValidRtp(bytes, false);
        const bool isXor = isValidRtp(bytes, true);
        validMedia += isMedia ? 1 : 0;
        validXor += isXor ? 1 : 0;
        if (bytes.size() < 12) {
            ASSERT_FALSE(isMedia || isXor);
            continue;
        }
        const int size = static_cast<int>(bytes.size());
        ASSERT_EQ(CTalRtpPacket(bytes.data(), size).validate(), isMedia) << i;
        ASSERT_EQ(CRTPRSPacket(bytes.data(), size).validate(), isMedia) << i;
        ASSERT_EQ(CRTPFECPacket(bytes.data(), size).validate(), isXor) << i;
    }
    EXPECT_GT(validMedia, kPackets / 10);  // both answers were asked for
    EXPECT_GT(validXor, kPackets / 10);
    EXPECT_LT(validMedia, kPackets * 9 / 10);
    EXPECT_LT(validXor, kPackets * 9 / 10);
}

// The extension's part of the header size has 16 bits: 16383 words and its own header add nothing.
TEST(IsValidRtpTest, CountsALongExtensionAsASessionDoes) {
    std::vector<std::uint8_t> packet = {0x90, 98, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 0xbe, 0xde, 0x3f, 0xff};
    EXPECT_TRUE(isValidRtp(packet, false));
    packet[15] = 0xfe;  // 16382 words
    EXPECT_FALSE(isValidRtp(packet, false));
    EXPECT_TRUE(isValidRtp(packet, true));  // an XOR FEC packet has no extension
}

}  // namespace
}  // namespace talrtp::kit
