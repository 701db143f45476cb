// The facts that play-out reads from a packet, in bytes laid out by hand (RFC 3550, 5.1; RFC 6184, 5.6
// to 5.8).

#include "RtpPackets.h"

#include <talrtp/kit/PacketHead.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace talrtp::kit {
namespace {

using test::Bytes;

PacketHead readHead(const Bytes& packet) {
    return PacketHeadReader::read(packet);
}

// The head of a packet with a plain header.
PacketHead headOf(const Bytes& payload) {
    return readHead(test::rtp({}, payload));
}

void expectKind(PayloadKind kind, unsigned int unitCount, const PacketHead& head) {
    EXPECT_EQ(static_cast<int>(kind), static_cast<int>(head.kind));
    EXPECT_EQ(unitCount, head.unitCount);
}

void expectFirstUnit(unsigned int type, bool isFirstSlice, const PacketHead& head) {
    EXPECT_EQ(type, head.firstUnitType);
    EXPECT_EQ(isFirstSlice, head.isFirstSlice);
}

TEST(PacketHeadTest, ReadsTheFixedHeader) {
    // clang-format off
    const PacketHead head = readHead({
        0x80, 0xe2, 0x12, 0x34,  // V=2 P=0 X=0 CC=0 | M=1 PT=98 | sequence number 0x1234
        0x89, 0xab, 0xcd, 0xef,  // timestamp
        0xde, 0xad, 0xbe, 0xef,  // SSRC
        0x65, 0x88,              // IDR slice, first_mb_in_slice = 0
    });
    // clang-format on
    EXPECT_TRUE(head.hasMarker);
    EXPECT_EQ(0x1234, head.sequence);
    EXPECT_EQ(0x89abcdefu, head.timestamp);
    EXPECT_EQ(0xdeadbeefu, head.ssrc);
    EXPECT_EQ(0, head.padding);
    EXPECT_TRUE(head.isSound);
    expectKind(PayloadKind::kSingle, 1, head);
    expectFirstUnit(5, true, head);
}

TEST(PacketHeadTest, ThePayloadTypeIsNoMarker) {
    EXPECT_FALSE(readHead(test::rtp({}, {0x65})).hasMarker);
    test::RtpFields fields;
    fields.type = 0x7f;
    EXPECT_FALSE(readHead(test::rtp(fields, {0x65})).hasMarker);
}

TEST(PacketHeadTest, FindsThePayloadAfterSourcesAndExtension) {
    // clang-format off
    const PacketHead head = readHead({
        0x92, 0x62, 0x00, 0x01,  // V=2 P=0 X=1 CC=2
        0x00, 0x00, 0x00, 0x02,  // timestamp
        0x00, 0x00, 0x00, 0x03,  // SSRC
        0x65, 0x65, 0x65, 0x65,  // first CSRC
        0x65, 0x65, 0x65, 0x65,  // second CSRC
        0xbe, 0xde, 0x00, 0x01,  // extension of one word
        0x65, 0x65, 0x65, 0x65,
        0x67, 0x80,              // sequence parameter set
    });
    // clang-format on
    expectKind(PayloadKind::kSingle, 1, head);
    expectFirstUnit(7, false, head);
}

TEST(PacketHeadTest, PaddingIsNoPayload) {
    // clang-format off
    const Bytes padded = {
        0xa0, 0x62, 0x00, 0x01,  // V=2 P=1
        0x00, 0x00, 0x00, 0x02,
        0x00, 0x00, 0x00, 0x03,
        0x18, 0x00, 0x01, 0x06,  // STAP-A of one unit of 1 byte
        0x00, 0x00, 0x03,        // 3 bytes of padding
    };
    // clang-format on
    const PacketHead head = readHead(padded);
    EXPECT_EQ(3, head.padding);
    EXPECT_TRUE(head.isSound);
    expectKind(PayloadKind::kAggregate, 1, head);

    Bytes plain = padded;
    plain[0] = 0x80;
    EXPECT_EQ(0, readHead(plain).padding);
    EXPECT_FALSE(readHead(plain).isSound);

    Bytes paddingOnly = padded;
    paddingOnly.back() = 7;
    EXPECT_EQ(7, readHead(paddingOnly).padding);
    expectKind(PayloadKind::kEmpty, 0, readHead(paddingOnly));
}

TEST(PacketHeadTest, APacketWithoutPayloadIsEmpty) {
    const PacketHead head = headOf({});
    expectKind(PayloadKind::kEmpty, 0, head);
    expectFirstUnit(0, false, head);
    EXPECT_TRUE(head.isSound);
}

// Each of the 32 types, whatever the importance (nal_ref_idc) says.
TEST(PacketHeadTest, TheTypeDecidesTheKind) {
    for (unsigned int type = 0; type < 32; ++type) {
        SCOPED_TRACE(type);
        for (const unsigned int importance : {0x00U, 0x60U}) {
            const PacketHead head = headOf({static_cast<std::uint8_t>(importance | type), 0x00});
            if (type >= 1 && type <= 23) {
                expectKind(PayloadKind::kSingle, 1, head);
                EXPECT_EQ(type, head.firstUnitType);
            } else if (type == 24) {
                expectKind(PayloadKind::kAggregate, 0, head);
            } else if (type == 28) {
                expectKind(PayloadKind::kFuMiddle, 0, head);
            } else {
                expectKind(PayloadKind::kUnknown, 0, head);
                EXPECT_EQ(0, head.firstUnitType);
            }
        }
    }
}

TEST(PacketHeadTest, OnlyASliceFromMacroblockZeroIsAFirstSlice) {
    expectFirstUnit(1, true, headOf({0x41, 0x80}));
    expectFirstUnit(1, false, headOf({0x41, 0x7f}));
    expectFirstUnit(5, true, headOf({0x65, 0xff}));
    expectFirstUnit(5, false, headOf({0x65, 0x40}));
    expectFirstUnit(5, false, headOf({0x65}));
    for (const std::uint8_t type : {2, 3, 4, 6, 7, 8, 9, 20}) {
        expectFirstUnit(type, false, headOf({type, 0x80}));
    }
}

TEST(PacketHeadTest, AnAggregationPacketTellsOfItsFirstUnit) {
    // clang-format off
    const PacketHead head = headOf({
        0x78,
        0x00, 0x02, 0x41, 0x80,        // first slice
        0x00, 0x03, 0x67, 0x01, 0x02,  // sequence parameter set
        0x00, 0x01, 0x09,              // delimiter
    });
    // clang-format on
    expectKind(PayloadKind::kAggregate, 3, head);
    expectFirstUnit(1, true, head);
    EXPECT_TRUE(head.isSound);
}

TEST(PacketHeadTest, TheSizesOfAnAggregationPacketHaveSixteenBits) {
    Bytes payload = {0x78, 0x01, 0x02};
    payload.resize(3 + 0x102, 0x67);
    EXPECT_TRUE(headOf(payload).isSound);
    payload.push_back(0);
    EXPECT_FALSE(headOf(payload).isSound);
}

struct BrokenAggregate {
    std::string name;
    Bytes payload;
    unsigned int unitCount;
    unsigned int firstType;
};

TEST(PacketHeadTest, AnAggregationPacketWhoseSizesDoNotAddUpIsUnsound) {
    const std::vector<BrokenAggregate> table = {
        {"no unit", {0x78}, 0, 0},
        {"half a size", {0x78, 0x00}, 0, 0},
        {"a size only", {0x78, 0x00, 0x01}, 0, 0},
        {"one byte too few", {0x78, 0x00, 0x03, 0x67, 0x01}, 1, 7},
        {"one byte too many", {0x78, 0x00, 0x02, 0x67, 0x01, 0x00}, 1, 7},
        {"a size after the last unit", {0x78, 0x00, 0x01, 0x67, 0x00, 0x01}, 1, 7},
        {"a second unit cut", {0x78, 0x00, 0x01, 0x67, 0x00, 0x02, 0x68}, 2, 7},
        {"a unit of no bytes", {0x78, 0x00, 0x00, 0x67}, 1, 7},
        {"no bytes, then a unit", {0x78, 0x00, 0x00, 0x00, 0x01, 0x68}, 1, 0},
    };
    for (const BrokenAggregate& row : table) {
        SCOPED_TRACE(row.name);
        const PacketHead head = headOf(row.payload);
        expectKind(PayloadKind::kAggregate, row.unitCount, head);
        EXPECT_EQ(row.firstType, head.firstUnitType);
        EXPECT_FALSE(head.isSound);
    }
}

TEST(PacketHeadTest, AFragmentTellsItsPlace) {
    expectKind(PayloadKind::kFuStart, 1, headOf({0x7c, 0x85, 0x88}));
    expectKind(PayloadKind::kFuMiddle, 0, headOf({0x7c, 0x05, 0x88}));
    expectKind(PayloadKind::kFuEnd, 0, headOf({0x7c, 0x45, 0x88}));
    expectKind(PayloadKind::kSingle, 1, headOf({0x7c, 0xc5, 0x88}));  // a whole unit in one fragment
    expectKind(PayloadKind::kFuMiddle, 0, headOf({0x7c}));            // without its own header
}

TEST(PacketHeadTest, OnlyTheFirstFragmentHasTheTypeOfItsUnit) {
    expectFirstUnit(5, true, headOf({0x7c, 0x85, 0x88}));
    expectFirstUnit(1, false, headOf({0x7c, 0x81, 0x7f}));
    expectFirstUnit(5, true, headOf({0x7c, 0xc5, 0x88}));
    expectFirstUnit(5, true, headOf({0x7c, 0xa5, 0x88}));  // with the reserved bit
    expectFirstUnit(5, false, headOf({0x7c, 0x85}));
    expectFirstUnit(0, false, headOf({0x7c, 0x05, 0x88}));
    expectFirstUnit(0, false, headOf({0x7c, 0x45, 0x88}));
}

TEST(PacketHeadTest, FragmentsCarryUnitsOnAndLeaveThemOpen) {
    struct {
        PayloadKind kind;
        bool isContinuing;
        bool isOpen;
    } const table[] = {
        {PayloadKind::kSingle, false, false},  {PayloadKind::kAggregate, false, false},
        {PayloadKind::kFuStart, false, true},  {PayloadKind::kFuMiddle, true, true},
        {PayloadKind::kFuEnd, true, false},    {PayloadKind::kEmpty, false, false},
        {PayloadKind::kUnknown, false, false},
    };
    for (const auto& row : table) {
        EXPECT_EQ(row.isContinuing, continuesUnit(row.kind)) << static_cast<int>(row.kind);
        EXPECT_EQ(row.isOpen, leavesUnitOpen(row.kind)) << static_cast<int>(row.kind);
    }
}

}  // namespace
}  // namespace talrtp::kit
