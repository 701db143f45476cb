// Undocumented liberties of a host: it changes a packet that it was lent, or brings packet classes of its
// own. Also the state that must not outlive a timestamp.

#include <malloc.h>

#include <functional>

#include "SessionFixture.h"

namespace talrtp {
namespace test {
namespace {

using testing::SizeIs;

// --- Lent packets --------------------------------------------------------------------------------------

class LentPacketTest : public SessionTest<SvcProbe> {
protected:
    // Hands large and small units over, in turns. The sink does `change` to the packet of each small one, and
    // every packet has the room that it reports.
    void expectRoomThough(const std::function<void(CTalRtpPacket&)>& change) {
        bool fits = true;
        sink.onPacket = [&](CTalRtpPacket* packet) {
            const std::size_t capacity = static_cast<std::size_t>(packet->get_buffer_size());
            fits &= malloc_usable_size(packet->get_buffer()) >= capacity + kSpareBytes;
            if (packet->get_payload_size() < 100) {
                change(*packet);
            }
        };
        for (int i = 0; i < 3; ++i) {
            seq = static_cast<unsigned short>(seq + 10);
            media(seq, fragment(kStart, pattern(20000, 1)));
            media(static_cast<unsigned short>(seq + 1), fragment(kEnd, pattern(20000, 2)));
            media(static_cast<unsigned short>(seq + 2), join({{0x41}, pattern(39, 3)}));
        }
        EXPECT_TRUE(fits);
        EXPECT_THAT(sink.handovers, SizeIs(6));
        sink.handovers.clear();
    }

    unsigned short seq = 0;
    static constexpr std::size_t kSpareBytes = 88;  // beyond the capacity of every packet
};

// The bytes of hand-overs are used again: a sink that makes the packet grow leaves different ones there.
TEST_F(LentPacketTest, LargeUnitFitsItsHandOverAfterASinkHasMadeASmallOneGrow) {
    Bytes element = {0x10, 0xaa};
    expectRoomThough([&](CTalRtpPacket& packet) {
        EXPECT_TRUE(packet.add_onebyte_extension_element(1, element.data(), 2));
    });
}

TEST_F(LentPacketTest, LargeUnitFitsItsHandOverAfterASinkHasAssignedToASmallOne) {
    for (const int change : {-20, 0, 20}) {
        expectRoomThough([&](CTalRtpPacket& packet) {
            packet = CTalRtpPacket(packet.get_buffer_size() + change);
            packet.set_version(2);
        });
    }
}

// The insertion brings the packet back to the capacity that it was lent with, in the same place, but not to
// the memory that was there.
TEST_F(LentPacketTest, LargeUnitFitsItsHandOverAfterASinkHasReplacedASmallOneAndMadeItGrow) {
    Bytes element = {0x10, 0xaa};
    expectRoomThough([&](CTalRtpPacket& packet) {
        const int capacity = packet.get_buffer_size();
        CTalRtpPacket other(capacity - 8);  // the extension takes 8 bytes
        other.set_version(2);
        other.set_payload_size(capacity - 8 - 12);
        packet = other;
        EXPECT_TRUE(packet.add_onebyte_extension_element(1, element.data(), 2));
        EXPECT_EQ(packet.get_buffer_size(), capacity);
    });
}

// --- Packet classes of a host --------------------------------------------------------------------------

// A class with a header of its own, four bytes after those of its base.
template <typename Packet>
class WideHeader : public Packet {
public:
    using Packet::Packet;

    int get_header_size() const override { return 16; }
};

// FEC packets into used ones, in which no byte is 0, and into new ones. Every byte of the capacity is the
// same.
class UsedFecPacketTest : public SessionTest<SvcProbe> {
protected:
    UsedFecPacketTest() {
        for (int i = 0; i < 2; ++i) {
            Bytes unit = pattern(static_cast<std::size_t>(20 + 10 * i), 1);
            session.CreateSinglePacket(kTimestamp, static_cast<int>(unit.size()), unit.data(), &media[i]);
        }
    }

    template <typename Packet, typename Make>
    void expectNoTrace(Make make) {
        PacketArray<Packet> used(2, 100);
        PacketArray<Packet> fresh(2, 100);
        for (int i = 0; i < 2; ++i) {
            used[i].set_payload_size(70);
            used[i].set_packet_type(5);
            std::fill_n(used[i].get_buffer(), 100, static_cast<unsigned char>(0xee));
        }
        session.m_fecSequenceNumber = 7;
        EXPECT_EQ(make(used), 0);
        session.m_fecSequenceNumber = 7;
        EXPECT_EQ(make(fresh), 0);
        for (int i = 0; i < 2; ++i) {
            SCOPED_TRACE("packet " + std::to_string(i));
            EXPECT_EQ(used[i].get_packet_size(), fresh[i].get_packet_size());
            EXPECT_EQ(used[i].get_payload_size(), fresh[i].get_payload_size());
            EXPECT_EQ(used[i].get_packet_type(), fresh[i].get_packet_type());
            EXPECT_EQ(Bytes(used[i].get_buffer(), used[i].get_buffer() + 100),
                      Bytes(fresh[i].get_buffer(), fresh[i].get_buffer() + 100));
        }
    }
    template <typename Packet>
    void expectNoTraceOfRs() {
        session.SetFecType(RTP_FEC_RS);
        expectNoTrace<Packet>([&](Packet* into) { return session.CreateRsFecPackets(media, 2, into, 2); });
    }
    template <typename Packet>
    void expectNoTraceOfXor() {
        session.SetFecType(RTP_FEC_XOR);
        expectNoTrace<Packet>([&](Packet* into) {
            return session.CreateXorFecPackets(media, 2, 1, &into[0]) +
                   session.CreateXorFecPackets(media, 2, 3, &into[1]);
        });
    }

    PacketArray<CTalRtpPacket> media{2, 100};
};

TEST_F(UsedFecPacketTest, ReedSolomonParityHidesWhatWasThere) {
    expectNoTraceOfRs<CTalRtpPacket>();
    expectNoTraceOfRs<WideHeader<CTalRtpPacket>>();
}

TEST_F(UsedFecPacketTest, XorParityHidesWhatWasThere) {
    expectNoTraceOfXor<CRTPFECPacket>();
    expectNoTraceOfXor<WideHeader<CRTPFECPacket>>();
}

// --- Records that aged out -----------------------------------------------------------------------------

class AgedRecordTest : public SessionTest<SvcProbe> {};

TEST_F(AgedRecordTest, TimestampThatWasUsedLastIsMadeAnew) {
    at(1000);
    media(1);
    at(6001);
    receive(rtp(2, kTimestamp, unitOf(2), 97));  // of no known type, but it tells the time
    session.checkAllLists();
    EXPECT_EQ(session.tsInfo(kTimestamp), nullptr);
    media(3);
    ASSERT_NE(session.tsInfo(kTimestamp), nullptr);
    EXPECT_EQ(session.tsInfo(kTimestamp)->createTime, 6001u);
    EXPECT_THAT(session.tsInfo(kTimestamp)->mediaSeqList, testing::ElementsAre(3));
    EXPECT_NE(session.unitInfo(kTimestamp, 3), nullptr);
}

// A unit is found across timestamps, so the record that ages out need not be that of the start packet.
TEST_F(AgedRecordTest, UnitOfAStartPacketThatStaysIsMadeAnew) {
    at(1000);
    picture(1);
    media(10);
    picture(2);
    media(11, fragment(kMiddle, {0x22}));
    ASSERT_NE(session.unitInfo(2, 10), nullptr);
    at(5000);
    picture(1);
    media(50);
    at(6001);
    media(51);
    ASSERT_EQ(session.tsInfo(2), nullptr);
    ASSERT_NE(session.getMediaPacketBySeq(10), nullptr);
    picture(3);
    media(11, fragment(kMiddle, {0x33}));
    EXPECT_NE(session.unitInfo(3, 10), nullptr);
}

}  // namespace
}  // namespace test
}  // namespace talrtp
