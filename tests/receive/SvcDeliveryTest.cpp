// Single NAL unit packets and aggregation packets (RFC 6184, 5.6 and 5.7.1) on their way to the sink.

#include <malloc.h>

#include <functional>

#include "SessionFixture.h"

namespace talrtp {
namespace test {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

class SvcDeliveryTest : public SessionTest<SvcProbe> {
protected:
    // Forces the stored packet out, as `ForceHandover` does with the start packet of an undelivered unit.
    void force(unsigned short seq) {
        sink.handovers.clear();
        trace.clear();
        session.forceHandoverPacket(session.getMediaPacketBySeq(seq));
    }

    static ExpectedLine belowMinimum(const std::string& operation, int seq, int unit, int left) {
        return warning("CMMRTPSession4SVC::" + operation +
                       " payload size is smaller than unit min bytes, Seq = " + std::to_string(seq) +
                       ", unitCount = " + std::to_string(unit) + ", payloadSize = " + std::to_string(left));
    }
    static ExpectedLine cutUnit(const std::string& operation, int seq, int unit, int size, int left) {
        return warning("CMMRTPSession4SVC::" + operation + " payload size is smaller than unit size, Seq = " +
                       std::to_string(seq) + ", unitCount = " + std::to_string(unit) +
                       ", unitSize = " + std::to_string(size) + ", payloadSize = " + std::to_string(left));
    }
};

// --- Dispatch ------------------------------------------------------------------------------------------

TEST_F(SvcDeliveryTest, TypesOneToTwentyThreeAreSingleUnits) {
    for (unsigned char type = 1; type <= 23; ++type) {
        const unsigned char header = static_cast<unsigned char>(0x60 | type);
        media(type, {header, 0xaa});
        expectHandovers({{type, inByteStream({header, 0xaa}), 0}});
    }
    expectLines({});
}

TEST_F(SvcDeliveryTest, UnknownTypesAreReportedStoredAndNeverDelivered) {
    for (const unsigned char type : {0, 25, 26, 27, 29, 30, 31}) {
        EXPECT_EQ(media(type, {static_cast<unsigned char>(0xe0 | type), 0xaa}), 0);
        expectLines({warning("CMMRTPSession4SVC::dealPacket payload type is unknown, type = " +
                             std::to_string(type))});
        EXPECT_NE(session.getMediaPacketBySeq(type), nullptr);
        force(type);
        expectLines({warning("CMMRTPSession4SVC::forceHandoverPacket payload type is unknown, type = " +
                             std::to_string(type))});
    }
    EXPECT_EQ(session.ForceHandover(kTimestamp), 1);  // none of them starts a unit
    expectDelivered({});
}

TEST_F(SvcDeliveryTest, ForceHandoverReportsAnUnknownTypeInThePlaceOfAStart) {
    at(1000);
    picture(1);
    media(10, fragment(kStart, {0x01}));
    at(5000);
    picture(2);
    media(11, fragment(kMiddle, {0x02}));  // its unit starts at 10
    at(6001);
    media(12, fragment(kMiddle, {0x03}));  // ages packet 10 out
    media(10, {0x1e, 0x00});               // another one, of type 30
    trace.clear();
    EXPECT_EQ(session.ForceHandover(2), 0);
    expectLines({warning("CMMRTPSession4SVC::forceHandoverPacket payload type is unknown, type = 30")});
    expectDelivered({});
}

TEST_F(SvcDeliveryTest, UnknownTypeIsSilentBelowWarningLevel) {
    trace.setMask(0);
    media(1, {0x00});
    expectLines({});
}

TEST_F(SvcDeliveryTest, NullPacketsAreErrorsOfTheirOperation) {
    session.dealPacket(nullptr);
    session.forceHandoverPacket(nullptr);
    session.deliveSinglePacket(nullptr);
    session.splitAUPacketEx(nullptr);
    session.splitAUPacket(nullptr);
    std::vector<ExpectedLine> expected;
    for (const char* const operation :
         {"dealPacket", "forceHandoverPacket", "deliveSinglePacket", "splitAUPacketEx", "splitAUPacket"}) {
        expected.push_back(
            error(std::string("CMMRTPSession4SVC::") + operation + " invalid parameter: packet = 0x0"));
    }
    expectLines(expected);
    expectDelivered({});
}

// --- Single NAL units ----------------------------------------------------------------------------------

TEST_F(SvcDeliveryTest, SingleUnitIsHandedOverAfterAStartCode) {
    // clang-format off
    Bytes datagram = {
        0x80, 0xe2, 0x12, 0x34,  // V=2 P=0 X=0 CC=0 | M=1 PT=98 | sequence number 0x1234
        0x00, 0x01, 0x5f, 0x90,  // timestamp 90000
        0x11, 0x22, 0x33, 0x44,  // SSRC
        0x65, 0x88, 0x84,        // NAL unit
    };
    const Bytes expected = {
        0x80, 0xe2, 0x12, 0x34,  // the received header
        0x00, 0x01, 0x5f, 0x90,
        0x11, 0x22, 0x33, 0x44,
        0x00, 0x00, 0x00, 0x01,  // start code
        0x65, 0x88, 0x84,        // NAL unit, header byte included
    };
    // clang-format on
    EXPECT_EQ(receive(datagram), 0);
    ASSERT_THAT(sink.handovers, SizeIs(1));
    const Handover& handover = sink.handovers[0];
    EXPECT_EQ(join({handover.header, handover.payload}), expected);
    EXPECT_EQ(handover.packetType, 0u);
    EXPECT_EQ(session.m_deliveredDataBytes, 7u);
    EXPECT_TRUE(session.unitInfo(kTimestamp, 0x1234)->delivered);
}

TEST_F(SvcDeliveryTest, StoredPacketIsNotWhatIsLent) {
    media(7);
    ASSERT_THAT(sink.handovers, SizeIs(1));
    EXPECT_NE(sink.handovers[0].packet, session.getMediaPacketBySeq(7));
    EXPECT_EQ(session.getMediaPacketBySeq(7)->get_packet_type(), 1u);
    EXPECT_EQ(bytesOf(*session.getMediaPacketBySeq(7)), rtp(7, kTimestamp, unitOf(7)));
}

TEST_F(SvcDeliveryTest, WholeHeaderIsCopiedWithCsrcsAndExtension) {
    // clang-format off
    const Bytes header = {
        0x92, 0x62, 0x00, 0x07,  // V=2 P=0 X=1 CC=2 | M=0 PT=98 | sequence number 7
        0x00, 0x01, 0x5f, 0x90,  // timestamp 90000
        0x11, 0x22, 0x33, 0x44,  // SSRC
        0x01, 0x02, 0x03, 0x04,  // CSRC 0
        0x05, 0x06, 0x07, 0x08,  // CSRC 1
        0xbe, 0xde, 0x00, 0x01,  // extension of 1 word
        0x10, 0xaa, 0x00, 0x00,
    };
    // clang-format on
    receive(join({header, {0x65, 0x01}}));
    ASSERT_THAT(sink.handovers, SizeIs(1));
    EXPECT_EQ(sink.handovers[0].header, header);
    EXPECT_EQ(sink.handovers[0].payload, inByteStream({0x65, 0x01}));
}

TEST_F(SvcDeliveryTest, PaddingIsHandedOverWithThePayloadWhichIsKept) {
    Bytes datagram = rtp(7, kTimestamp, {0x65, 0x01, 0x00, 0x02});
    datagram[0] = 0xa0;  // P=1: 2 bytes of padding
    receive(datagram);
    expectHandovers({{7, inByteStream({0x65, 0x01, 0x00, 0x02}), 0}});
}

TEST_F(SvcDeliveryTest, UnitOfOneByteIsHandedOver) {
    media(7, {0x09});
    expectHandovers({{7, {0x00, 0x00, 0x00, 0x01, 0x09}, 0}});
}

TEST_F(SvcDeliveryTest, ForcedSingleUnitIsHandedOverTheSameWay) {
    media(7);
    force(7);
    expectDelivered({7});
    expectLines({});
}

// --- Aggregation packets on arrival --------------------------------------------------------------------

TEST_F(SvcDeliveryTest, EachAggregatedUnitIsAHandOverAtTheStartOfAGrowingPayloadWhichIsKept) {
    media(9, aggregation({{0x67, 0xa1, 0xa2, 0xa3}, {0x68, 0xb1}, {0x65, 0xc1, 0xc2}}));
    // clang-format off
    expectHandovers({
        {9, {0x00, 0x00, 0x00, 0x01,  // start code
             0x67, 0xa1, 0xa2, 0xa3}, // first unit: 4 + 4 bytes
         0},
        {9, {0x00, 0x00, 0x00, 0x01,
             0x68, 0xb1, 0xa2, 0xa3,  // second unit, then what is left of the first
             0x00, 0x00, 0x00, 0x00,  // 8 + 2 + 4 bytes are declared
             0x00, 0x00},
         0},
        {9, {0x00, 0x00, 0x00, 0x01,
             0x65, 0xc1, 0xc2, 0xa3,  // third unit
             0x00, 0x00, 0x00, 0x00,  // 14 + 3 + 4
             0x00, 0x00, 0x00, 0x00,
             0x00, 0x00, 0x00, 0x00,
             0x00},
         0},
    });
    // clang-format on
    expectLines({});
    EXPECT_EQ(session.m_deliveredDataBytes, 8u + 14 + 21);
    EXPECT_TRUE(session.unitInfo(kTimestamp, 9)->delivered);
    EXPECT_EQ(session.ForceHandover(kTimestamp), 1);
}

TEST_F(SvcDeliveryTest, AggregationOfOneUnitIsOneHandOver) {
    media(9, aggregation({{0x67}}));  // 3 bytes after the header byte are enough
    expectHandovers({{9, {0x00, 0x00, 0x00, 0x01, 0x67}, 0}});
    expectLines({});
}

TEST_F(SvcDeliveryTest, AggregationHeaderIsCopiedFromTheReceivedPacket) {
    Bytes datagram = rtp(9, kTimestamp, join({{0xde, 0xad, 0xbe, 0xef}, aggregation({{0x67, 0x01}})}));
    datagram[0] = 0x81;  // one CSRC
    receive(datagram);
    ASSERT_THAT(sink.handovers, SizeIs(1));
    EXPECT_EQ(sink.handovers[0].header, slice(datagram, 0, 16));
    EXPECT_EQ(sink.handovers[0].payload, inByteStream({0x67, 0x01}));
}

TEST_F(SvcDeliveryTest, AggregationOfTheHeaderByteAloneIsSilentOnArrival) {
    media(9, {0x78});
    expectDelivered({});
    expectLines({});
}

TEST_F(SvcDeliveryTest, AggregationOfTwoOrThreeBytesHasNoRoomForAUnit) {
    media(9, {0x78, 0x00});
    expectLines({belowMinimum("splitAUPacketEx", 9, 1, 1)});
    media(10, {0x78, 0x00, 0x01});
    expectLines({belowMinimum("splitAUPacketEx", 10, 1, 2)});
    expectDelivered({});
}

TEST_F(SvcDeliveryTest, TrailingBytesAreReportedAfterTheWholeUnits) {
    media(9, join({aggregation({{0x67, 0xa1}}), {0xee}}));
    expectHandovers({{9, inByteStream({0x67, 0xa1}), 0}});
    expectLines({belowMinimum("splitAUPacketEx", 9, 2, 1)});
    media(10, join({aggregation({{0x67, 0xa1}, {0x68}}), {0xee, 0xee}}));
    EXPECT_THAT(sink.handovers, SizeIs(2));
    expectLines({belowMinimum("splitAUPacketEx", 10, 3, 2)});
}

TEST_F(SvcDeliveryTest, UnitThatRunsPastThePacketIsCutAndMarked) {
    media(9, {0x78, 0x00, 0x05, 0x67, 0xa1});
    expectHandovers({{9, inByteStream({0x67, 0xa1}), 1}});
    expectLines({cutUnit("splitAUPacketEx", 9, 1, 5, 2)});
}

TEST_F(SvcDeliveryTest, UnitThatJustFitsIsNotCut) {
    media(9, {0x78, 0x00, 0x02, 0x67, 0xa1});
    expectHandovers({{9, inByteStream({0x67, 0xa1}), 0}});
    expectLines({});
}

TEST_F(SvcDeliveryTest, CutUnitAfterAWholeOneKeepsTypeZeroOnArrivalWhichIsKept) {
    media(9, {0x78, 0x00, 0x01, 0x67, 0xff, 0xff, 0x68, 0xb1});
    // clang-format off
    expectHandovers({
        {9, {0x00, 0x00, 0x00, 0x01, 0x67}, 0},
        {9, {0x00, 0x00, 0x00, 0x01, 0x68, 0xb1, 0x00, 0x00, 0x00, 0x00, 0x00}, 0},  // 5 + 2 + 4 bytes
    });
    // clang-format on
    expectLines({cutUnit("splitAUPacketEx", 9, 2, 65535, 2)});
}

TEST_F(SvcDeliveryTest, FirstUnitIsMarkedBeforeLaterOnesAreHandedOver) {
    std::vector<bool> delivered;
    sink.onPacket = [&](CTalRtpPacket*) { delivered.push_back(session.unitInfo(kTimestamp, 9)->delivered); };
    media(9, aggregation({{0x67, 0xa1}, {0x68, 0xb1}}));
    EXPECT_THAT(delivered, testing::ElementsAre(true, true));
}

// --- Aggregation packets forced out --------------------------------------------------------------------

TEST_F(SvcDeliveryTest, ForcedAggregationIsOneHandOverOfAllUnits) {
    media(9, aggregation({{0x67, 0xa1, 0xa2, 0xa3}, {0x68, 0xb1}}));
    force(9);
    expectHandovers({{9, join({inByteStream({0x67, 0xa1, 0xa2, 0xa3}), inByteStream({0x68, 0xb1})}), 0}});
    expectLines({});
}

TEST_F(SvcDeliveryTest, ForcedAggregationOfTheHeaderByteAloneIsAnEmptyWholePacket) {
    media(9, {0x78});
    EXPECT_EQ(session.ForceHandover(kTimestamp), 0);
    expectHandovers({{9, {}, 0}});
    expectLines({});
    EXPECT_EQ(session.ForceHandover(kTimestamp), 1);
}

TEST_F(SvcDeliveryTest, ForcedAggregationWithoutRoomForAUnitIsAnEmptyWholePacketAndAWarning) {
    media(9, {0x78, 0x00});
    trace.clear();
    EXPECT_EQ(session.ForceHandover(kTimestamp), 0);
    expectHandovers({{9, {}, 0}});
    expectLines({belowMinimum("splitAUPacket", 9, 1, 1)});
}

TEST_F(SvcDeliveryTest, ForcedAggregationWithTrailingBytesIsWhole) {
    media(9, join({aggregation({{0x67, 0xa1}, {0x68}}), {0xee, 0xee}}));
    force(9);
    expectHandovers({{9, join({inByteStream({0x67, 0xa1}), inByteStream({0x68})}), 0}});
    expectLines({belowMinimum("splitAUPacket", 9, 3, 2)});
}

TEST_F(SvcDeliveryTest, ForcedAggregationWithACutUnitIsMarked) {
    media(9, {0x78, 0x00, 0x01, 0x67, 0x00, 0x09, 0x68, 0xb1});
    force(9);
    expectHandovers({{9, join({inByteStream({0x67}), inByteStream({0x68, 0xb1})}), 1}});
    expectLines({cutUnit("splitAUPacket", 9, 2, 9, 2)});
}

TEST_F(SvcDeliveryTest, SplittingWarningsNeedTheMaskAtOne) {
    trace.setMask(0);
    media(9, {0x78, 0x00});
    session.ForceHandover(kTimestamp);
    media(10, {0x78, 0x00, 0x05, 0x67});
    expectLines({});
}

// --- What the sending side makes -----------------------------------------------------------------------

TEST_F(SvcDeliveryTest, AggregationThatASessionMadeComesBackUnitByUnit) {
    SvcProbe sender(nullptr, kPeerId);
    Bytes units[] = {{0x67, 0x42, 0x00, 0x1e}, {0x68, 0xce}, {0x06, 0x05, 0x01}};
    unsigned char* buffers[] = {units[0].data(), units[1].data(), units[2].data()};
    int sizes[] = {4, 2, 3};
    CTalRtpPacket packet(100);
    ASSERT_EQ(sender.CreateStapaPacket(kTimestamp, 3, sizes, buffers, &packet), 0);
    receive(bytesOf(packet));
    ASSERT_THAT(sink.handovers, SizeIs(3));
    for (std::size_t i = 0; i < 3; ++i) {
        const Bytes expected = inByteStream(units[i]);
        EXPECT_EQ(slice(sink.handovers[i].payload, 0, expected.size()), expected);
    }
}

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

}  // namespace
}  // namespace test
}  // namespace talrtp
