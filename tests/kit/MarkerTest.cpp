// The marker bit of a picture's packets, and the array that holds them.

#include <talrtp/kit/Marker.h>
#include <talrtp/kit/PacketArray.h>

#include <gtest/gtest.h>

namespace talrtp::kit {
namespace {

TEST(Marker, StaysOnTheLastPacketOnly) {
    PacketArray<CTalRtpPacket> packets(4, 100);
    for (std::size_t i = 0; i < packets.size(); ++i) {
        packets[i].set_payload_type(98);
        packets[i].set_marker_flag(i != 1);
    }
    setMarkerOnLastPacket(packets.data(), packets.size());
    for (std::size_t i = 0; i < packets.size(); ++i) {
        EXPECT_EQ(packets[i].get_marker_flag(), i == 3) << i;
        EXPECT_EQ(packets[i].get_payload_type(), 98u);
    }
}

TEST(Marker, SetsTheMarkerThatALastFragmentLacks) {
    PacketArray<CTalRtpPacket> packets(1, 100);
    packets[0].set_marker_flag(false);
    setMarkerOnLastPacket(packets.data(), 1);
    EXPECT_TRUE(packets[0].get_marker_flag());
}

TEST(PacketArray, HoldsPacketsOneAfterTheOtherWithTheRoomAskedFor) {
    PacketArray<CTalRtpPacket> packets(3, 1234);
    ASSERT_EQ(packets.size(), 3u);
    EXPECT_EQ(&packets[2], packets.data() + 2);
    for (std::size_t i = 0; i < packets.size(); ++i) {
        EXPECT_EQ(packets[i].get_buffer_size(), 1234);
        EXPECT_EQ(packets[i].get_packet_size(), 0);
    }
}

TEST(Marker, NoPacketsNeedNone) {
    setMarkerOnLastPacket(nullptr, 0);
    PacketArray<CTalRtpPacket> packets(1, 100);
    packets[0].set_marker_flag(true);
    setMarkerOnLastPacket(packets.data(), 0);
    EXPECT_TRUE(packets[0].get_marker_flag());
}

TEST(PacketArray, HoldsNothingUnlessAsked) {
    PacketArray<CTalRtpPacket> packets(0, 100);
    EXPECT_EQ(packets.data(), nullptr);
    EXPECT_EQ(packets.size(), 0u);
}

TEST(PacketArray, MovesItsPackets) {
    PacketArray<CTalRtpPacket> packets(2, 100);
    packets[1].set_sequence_number(4711);
    PacketArray<CTalRtpPacket> moved(std::move(packets));
    PacketArray<CTalRtpPacket> assigned;
    EXPECT_EQ(assigned.size(), 0u);
    assigned = std::move(moved);
    ASSERT_EQ(assigned.size(), 2u);
    EXPECT_EQ(assigned[1].get_sequence_number(), 4711);
}

}  // namespace
}  // namespace talrtp::kit
