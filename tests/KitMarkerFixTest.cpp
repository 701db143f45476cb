// The marker bit of a picture's packets, and the array that holds them.

#include "kit/MarkerFix.h"
#include "kit/PacketArray.h"

#include <gtest/gtest.h>

namespace talrtp::kit {
namespace {

TEST(MarkerFix, LeavesTheMarkerOnTheLastPacketAlone) {
    CPacketArray<CTalRtpPacket> packets(4, 100);
    for (std::size_t i = 0; i < packets.size(); ++i) {
        packets[i].set_payload_type(98);
        packets[i].set_marker_flag(i != 1);
    }
    markLastPacketOnly(packets.data(), packets.size());
    for (std::size_t i = 0; i < packets.size(); ++i) {
        EXPECT_EQ(packets[i].get_marker_flag(), i == 3) << i;
        EXPECT_EQ(packets[i].get_payload_type(), 98u);
    }
}

TEST(MarkerFix, SetsTheMarkerThatALastFragmentLacks) {
    CPacketArray<CTalRtpPacket> packets(1, 100);
    packets[0].set_marker_flag(false);
    markLastPacketOnly(packets.data(), 1);
    EXPECT_TRUE(packets[0].get_marker_flag());
}

TEST(PacketArray, HoldsPacketsOneBehindTheOtherWithTheRoomAskedFor) {
    CPacketArray<CTalRtpPacket> packets(3, 1234);
    ASSERT_EQ(packets.size(), 3u);
    EXPECT_EQ(&packets[2], packets.data() + 2);
    for (std::size_t i = 0; i < packets.size(); ++i) {
        EXPECT_EQ(packets[i].get_buffer_size(), 1234);
        EXPECT_EQ(packets[i].get_packet_size(), 0);
    }
}

TEST(PacketArray, MovesItsPackets) {
    CPacketArray<CTalRtpPacket> packets(2, 100);
    packets[1].set_sequence_number(4711);
    CPacketArray<CTalRtpPacket> moved(std::move(packets));
    CPacketArray<CTalRtpPacket> assigned;
    EXPECT_EQ(assigned.size(), 0u);
    assigned = std::move(moved);
    ASSERT_EQ(assigned.size(), 2u);
    EXPECT_EQ(assigned[1].get_sequence_number(), 4711);
}

}  // namespace
}  // namespace talrtp::kit
