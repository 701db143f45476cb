// What the guard makes of datagrams on a media port.

#include "KitRandom.h"
#include "kit/DatagramGuard.h"

#include <gtest/gtest.h>

#include <vector>

namespace talrtp::kit {
namespace {

using test::SeededRandom;

DatagramKind classify(std::uint8_t first, std::uint8_t second, std::size_t size = 64) {
    std::vector<std::uint8_t> datagram(size, 0);
    datagram[0] = first;
    datagram[1] = second;
    return classifyDatagram(datagram.data(), datagram.size());
}

TEST(DatagramGuard, TellsTheProtocolsApartByTheFirstByte) {
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
        EXPECT_EQ(classify(row.first, 98), row.kind) << "first byte " << int{row.first};
    }
}

TEST(DatagramGuard, TellsRtcpFromRtpByThePacketType) {
    EXPECT_EQ(classify(0x80, 191), DatagramKind::kRtp);
    EXPECT_EQ(classify(0x80, 192), DatagramKind::kRtcp);
    EXPECT_EQ(classify(0x81, 200), DatagramKind::kRtcp);  // sender report
    EXPECT_EQ(classify(0x81, 206), DatagramKind::kRtcp);  // payload-specific feedback
    EXPECT_EQ(classify(0x80, 223), DatagramKind::kRtcp);
    EXPECT_EQ(classify(0x80, 224), DatagramKind::kRtp);  // marker bit and payload type 96
    EXPECT_EQ(classify(0x80, 98), DatagramKind::kRtp);
    EXPECT_EQ(classify(0x80, 0x80 | 111), DatagramKind::kRtp);
}

TEST(DatagramGuard, RefusesWhatIsShorterThanItsHeader) {
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
            EXPECT_EQ(classify(row.first, row.second, size), DatagramKind::kUnknown) << size;
        }
        EXPECT_EQ(classify(row.first, row.second, row.least), row.kind);
    }
}

TEST(DatagramGuard, AcceptsNoBytes) {
    const std::uint8_t one = 0x80;
    EXPECT_EQ(classifyDatagram(nullptr, 0), DatagramKind::kUnknown);
    EXPECT_EQ(classifyDatagram(&one, 1), DatagramKind::kUnknown);
}

// What passes as RTP is what RFC 3550 calls version 2, long enough, and never an RTCP type.
TEST(DatagramGuard, LetsOnlyRtpThrough) {
    SeededRandom random(20);
    SCOPED_TRACE(random.describe());
    for (int i = 0; i < 20000; ++i) {
        const std::vector<std::uint8_t> datagram = random.bytes(random.between(1, 30));
        if (classifyDatagram(datagram.data(), datagram.size()) == DatagramKind::kRtp) {
            ASSERT_GE(datagram.size(), 12u);
            EXPECT_EQ(datagram[0] >> 6, 2);
            EXPECT_FALSE(datagram[1] >= 192 && datagram[1] <= 223);
        }
    }
}

}  // namespace
}  // namespace talrtp::kit
