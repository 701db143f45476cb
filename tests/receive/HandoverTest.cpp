// The buffer that hand-overs share, and the packet that a hand-over lends.

#include "receive/Handover.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "wire/PacketLayout.h"

namespace talrtp {
namespace test {
namespace {

constexpr std::size_t kLarge = 100000;
constexpr std::size_t kSmall = 8 * 1024;  // never freed for its age
constexpr _uint64_t kKeptFor = 5000;

class HandoverBufferTest : public testing::Test {
protected:
    // Makes a hand-over of `size` bytes. Returns how many it got: all of the buffer that was kept.
    std::size_t lend(std::size_t size) {
        std::size_t got = size;
        unsigned char* const bytes = buffer.take(got);
        std::memset(bytes, 1, got);
        buffer.give(bytes, got);
        return got;
    }

    CHandoverBuffer buffer;
};

TEST_F(HandoverBufferTest, BytesAreKeptForTheNextHandover) {
    EXPECT_EQ(lend(1000), 1000u);
    EXPECT_EQ(lend(10), 1000u);
    EXPECT_EQ(lend(1001), 1001u);
    EXPECT_EQ(lend(1000), 1001u);
}

TEST_F(HandoverBufferTest, HandoverInsideAnotherHasBytesOfItsOwn) {
    std::size_t outerSize = 100;
    unsigned char* const outer = buffer.take(outerSize);
    std::size_t innerSize = 50;
    unsigned char* const inner = buffer.take(innerSize);
    EXPECT_NE(inner, outer);
    EXPECT_EQ(innerSize, 50u);
    buffer.give(inner, innerSize);
    buffer.give(outer, outerSize);
    EXPECT_EQ(lend(1), 100u);
}

TEST_F(HandoverBufferTest, LargeBytesAreFreedWhenNobodyNeedsAQuarterOfThem) {
    lend(kLarge);
    buffer.age(1000, kKeptFor);
    EXPECT_EQ(lend(kLarge / 4), kLarge);  // no more than a quarter
    buffer.age(6000, kKeptFor);
    EXPECT_EQ(lend(1), kLarge);
    buffer.age(6001, kKeptFor);
    EXPECT_EQ(lend(1), 1u);
}

TEST_F(HandoverBufferTest, LargeBytesStayWhileMoreThanAQuarterIsNeeded) {
    lend(kLarge);
    for (_uint64_t now = 1000; now < 100000; now += 6000) {
        buffer.age(now, kKeptFor);
        EXPECT_EQ(lend(kLarge / 4 + 1), kLarge) << now;
    }
}

TEST_F(HandoverBufferTest, SmallBytesStayForGood) {
    lend(kSmall);
    buffer.age(1000, kKeptFor);
    buffer.age(100000, kKeptFor);
    buffer.age(200000, kKeptFor);
    EXPECT_EQ(lend(1), kSmall);
}

class HandoverTest : public testing::Test {
protected:
    HandoverTest() : received(200) {
        received.set_sequence_number(7);
        received.set_timestamp(9000);
        received.set_payload_size(3);
    }

    CHandoverBuffer buffer;
    CTalRtpPacket received;
};

TEST_F(HandoverTest, PacketHasTheReceivedHeaderAndRoomForItsPayload) {
    CHandover handover(buffer, received, kFixedHeaderSize, 500);
    ASSERT_TRUE(handover.isReady());
    CTalRtpPacket& packet = handover.packet();
    EXPECT_EQ(std::memcmp(packet.get_buffer(), received.get_buffer(), kFixedHeaderSize), 0);
    EXPECT_EQ(packet.get_buffer_size(), kFixedHeaderSize + 500);
}

TEST_F(HandoverTest, CapacityIsThatOfTheCallerIfItIsMore) {
    CHandover handover(buffer, received, 1000, 500);
    EXPECT_EQ(handover.packet().get_buffer_size(), 1000);
}

TEST_F(HandoverTest, EverythingAfterThePayloadIsZeroed) {
    {
        CHandover earlier(buffer, received, 300, 100);
        std::memset(earlier.packet().get_buffer(), 0xff, 300);
    }
    CHandover handover(buffer, received, 200, 100);
    CTalRtpPacket& packet = handover.packet();
    packet.set_payload_size(100);
    std::memset(packet.get_payload_ptr(), 0x11, 100);
    handover.zeroBehind(100);
    EXPECT_EQ(packet.get_payload_ptr()[99], 0x11);
    const unsigned char* const end = packet.get_payload_ptr() + 100;
    EXPECT_TRUE(std::all_of(end, static_cast<const unsigned char*>(packet.get_buffer()) + 200 + kSpareSize,
                            [](unsigned char byte) { return byte == 0; }));
}

// The sink may replace the packet's bytes. Those that it left are kept, and no more of them are believed to
// be there than the packet says.
TEST_F(HandoverTest, BufferThatTheSinkReplacedIsKept) {
    {
        CHandover handover(buffer, received, 1000, 500);
        std::vector<unsigned char> bytes(5000, 0x80);
        handover.packet().from_buffer(bytes.data(), static_cast<int>(bytes.size()));
    }
    std::size_t size = 1;
    unsigned char* const bytes = buffer.take(size);
    EXPECT_EQ(size, 5000u);
    std::memset(bytes, 1, size);
    buffer.give(bytes, size);
}

}  // namespace
}  // namespace test
}  // namespace talrtp
