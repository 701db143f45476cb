// The plain model by itself, against cases worked out by hand.

#include "model/PlainCodec.h"
#include "model/ReceiveModel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace talrtp {
namespace model {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint8_t kMedia = 98;
constexpr std::uint8_t kFec = 111;
const Bytes kUnitA = {0x65, 0xa1, 0xa2};

Bytes rtp(std::uint8_t type, std::uint16_t seq, std::uint8_t timestamp, const Bytes& payload) {
    Bytes out = {0x80,
                 type,
                 static_cast<unsigned char>(seq >> 8),
                 static_cast<unsigned char>(seq),
                 0,
                 0,
                 0,
                 timestamp,
                 0xde,
                 0xad,
                 0xbe,
                 0xef};
    out.insert(out.end(), payload.begin(), payload.end());
    return out;
}

class ReceiveModelTest : public ::testing::Test {
protected:
    int input(const Bytes& datagram) {
        model.handOvers.clear();
        model.lines.clear();
        return model.inputReceivedData(datagram.data(), static_cast<int>(datagram.size()), now);
    }
    int media(std::uint16_t seq, const Bytes& payload) { return input(rtp(kMedia, seq, timestamp, payload)); }
    int fragment(std::uint16_t seq, std::uint8_t fuHeader, std::uint8_t data) {
        return media(seq, {0x7c, fuHeader, data});
    }

    std::vector<Bytes> delivered() const {
        std::vector<Bytes> payloads;
        for (const HandOver& handOver : model.handOvers) {
            payloads.push_back(handOver.payload);
        }
        return payloads;
    }
    std::vector<std::string> messages() const {
        std::vector<std::string> texts;
        for (const Line& line : model.lines) {
            texts.push_back(line.message);
        }
        return texts;
    }

    ReceiveModel model{true, 7, SessionKind::kSvc};
    std::uint64_t now = 1000;
    std::uint8_t timestamp = 16;
};

TEST_F(ReceiveModelTest, SingleUnitIsHandedOverAfterAStartCode) {
    EXPECT_EQ(media(5, kUnitA), 0);
    EXPECT_THAT(delivered(), ElementsAre(Bytes{0, 0, 0, 1, 0x65, 0xa1, 0xa2}));
    EXPECT_EQ(model.handOvers[0].header, rtp(kMedia, 5, 16, {}));
    EXPECT_EQ(model.handOvers[0].packetType, 0U);
    EXPECT_EQ(model.handOvers[0].bufferSize, 19);  // 15 received bytes and the start code
    EXPECT_EQ(model.counters.deliveredBytes, 7U);
    EXPECT_TRUE(model.timestamps.at(16).dataInfoMap.at(5).delivered);
}

TEST_F(ReceiveModelTest, DuplicateIsCountedOnceAsValid) {
    media(5, kUnitA);
    EXPECT_EQ(media(5, kUnitA), 0);
    EXPECT_THAT(delivered(), IsEmpty());
    EXPECT_EQ(model.counters.receivedMedia, 2U);
    EXPECT_EQ(model.counters.validMedia, 1U);
}

TEST_F(ReceiveModelTest, AggregatedUnitsShareADeclaredSizeThatGrows) {
    media(5, {0x78, 0, 2, 0x41, 0x42, 0, 1, 0x61});
    EXPECT_THAT(delivered(),
                ElementsAre(Bytes{0, 0, 0, 1, 0x41, 0x42}, Bytes{0, 0, 0, 1, 0x61, 0x42, 0, 0, 0, 0, 0}));
    EXPECT_EQ(model.handOvers[0].bufferSize, 23);  // 8 + 12 - 1 + 2 * (7 / 3)
    EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(ReceiveModelTest, AggregationOfTwoPayloadBytesIsTooSmallForAUnit) {
    media(5, {0x78, 0});
    EXPECT_THAT(delivered(), IsEmpty());
    EXPECT_THAT(messages(),
                ElementsAre("CMMRTPSession4SVC::splitAUPacketEx payload size is smaller than unit "
                            "min bytes, Seq = 5, unitCount = 1, payloadSize = 1"));
}

TEST_F(ReceiveModelTest, ForcedAggregationOfItsHeaderByteAloneIsAnEmptyWholePacket) {
    media(5, {0x78});
    EXPECT_EQ(model.forceHandover(16), 0);
    EXPECT_THAT(delivered(), ElementsAre(Bytes()));
    EXPECT_EQ(model.handOvers[0].packetType, 0U);
}

TEST_F(ReceiveModelTest, FragmentsAreJoinedWhenTheLastGapCloses) {
    fragment(10, 0x85, 1);
    fragment(12, 0x45, 3);
    EXPECT_THAT(delivered(), IsEmpty());
    EXPECT_EQ(model.timestamps.at(16).dataInfoMap.at(10).packetCount, 1);
    fragment(11, 0x05, 2);
    EXPECT_THAT(delivered(), ElementsAre(Bytes{0, 0, 0, 1, 0x65, 1, 2, 3}));
    EXPECT_EQ(model.handOvers[0].packetType, 0U);
    EXPECT_EQ(model.handOvers[0].bufferSize, 12 + 5 + 3);
}

TEST_F(ReceiveModelTest, RunAcrossTheWrapAroundIsJoined) {
    fragment(65535, 0x85, 1);
    fragment(0, 0x45, 2);
    EXPECT_THAT(delivered(), ElementsAre(Bytes{0, 0, 0, 1, 0x65, 1, 2}));
}

TEST_F(ReceiveModelTest, ForcedHandOverGivesTheContiguousPartOnce) {
    fragment(10, 0x85, 1);
    fragment(11, 0x05, 2);
    fragment(13, 0x45, 4);
    EXPECT_EQ(model.forceHandover(16), 0);
    EXPECT_THAT(delivered(), ElementsAre(Bytes{0, 0, 0, 1, 0x65, 1, 2}));
    EXPECT_EQ(model.handOvers[0].packetType, 1U);
    EXPECT_EQ(model.forceHandover(16), 1);
}

TEST_F(ReceiveModelTest, StrayMiddleFragmentHandsTheUnitBeforeItOverAgain) {
    media(5, kUnitA);
    fragment(6, 0x05, 9);
    EXPECT_THAT(delivered(), ElementsAre(Bytes{0, 0, 0, 1, 0x61, 0xa2}));  // 0x65 & 0xe0 | 0xa1 & 0x1f
}

TEST_F(ReceiveModelTest, RecordIsKeptAt5000MillisecondsAndDroppedAt5001) {
    media(5, kUnitA);
    timestamp = 17;
    now = 6000;
    media(6, kUnitA);
    EXPECT_EQ(model.timestamps.count(16), 1U);
    now = 6001;
    media(7, kUnitA);
    EXPECT_EQ(model.timestamps.count(16), 0U);
    EXPECT_EQ(model.mediaPackets.count(5), 0U);
}

TEST_F(ReceiveModelTest, ClockThatStepsBackAgesEveryOtherRecordOut) {
    media(5, kUnitA);
    timestamp = 17;
    now = 999;
    media(6, kUnitA);
    EXPECT_EQ(model.timestamps.size(), 1U);
}

TEST_F(ReceiveModelTest, ForcedUnitWithoutItsStartPacketIsReported) {
    fragment(10, 0x85, 1);
    timestamp = 17;
    now = 6000;
    fragment(11, 0x05, 2);
    now = 6001;
    fragment(12, 0x05, 3);
    model.lines.clear();
    EXPECT_EQ(model.forceHandover(17), 0);
    EXPECT_THAT(messages(),
                ElementsAre("CMMRTPSession4SVC::forceHandoverPacket invalid parameter: packet = 0xP"));
}

TEST_F(ReceiveModelTest, ReservedTypeWithMarkerGivesThreeLines) {
    EXPECT_EQ(input(rtp(200, 5, 16, {})), -1);
    EXPECT_THAT(messages(),
                ElementsAre("CTalRtpPacket::validate, payload type is reserved, payload-type = 72, seq 5, "
                            "marker-flag = 1",
                            "CTalRtpPacket::validate, RTCP packet is on RTP port?",
                            "CMMRTPSessionBase::InputReceivedData check data validate failed, data = 0xP, "
                            "dataLen = 12"));
}

TEST_F(ReceiveModelTest, ElevenBytesAreRefusedBeforeAnythingIsRead) {
    const Bytes tooShort(11, 0);
    EXPECT_EQ(input(tooShort), -1);
    EXPECT_EQ(model.counters.receivedBytes, 11U);
    EXPECT_EQ(messages().size(), 1U);
}

// Two packets of 15 and 14 bytes: the parity of their bodies, of their lengths 3 and 2, and of the rest.
Bytes xorFecOverFiveAndSix() {
    return rtp(kFec, 1, 16,
               {0x00, 0x05, 0x00, 0x01,  // base 5 | length 3 ^ 2
                0x00, 0xc0, 0x00, 0x00,  // payload type 98 ^ 98 | mask: the first two
                0x00, 0x00, 0x00, 0x00,  // timestamp 16 ^ 16
                0x65 ^ 0x41, 0xa1 ^ 0xb1, 0xa2});
}

TEST_F(ReceiveModelTest, XorRebuildsTheOneThatIsMissing) {
    model.setFecType(0);
    input(xorFecOverFiveAndSix());
    EXPECT_EQ(model.fecPackets.size(), 1U);
    media(6, {0x41, 0xb1});
    EXPECT_THAT(delivered(), ElementsAre(Bytes{0, 0, 0, 1, 0x41, 0xb1}, Bytes{0, 0, 0, 1, 0x65, 0xa1, 0xa2}));
    EXPECT_EQ(model.handOvers[1].header[1], 0x01);  // the payload type takes in the packet type of the other
    EXPECT_THAT(messages(), ElementsAre("CMMRTPSessionBase::recoverPacketWithXORFEC recoveredSeq = 5, "
                                        "recoveredTS = 16, sourceID = 7"));
    EXPECT_THAT(model.fecPackets, IsEmpty());
    EXPECT_THAT(model.timestamps.at(16).fecSeqList, IsEmpty());
    EXPECT_EQ(model.counters.recoveredBytes, 15U);  // 27 received bytes of FEC without its 12
}

TEST_F(ReceiveModelTest, FecPacketOfTheOtherKindHasNothingMoreToGive) {
    model.setFecType(0);
    input(xorFecOverFiveAndSix());
    model.setFecType(1);
    media(6, {0x41, 0xb1});
    EXPECT_EQ(delivered().size(), 1U);
    EXPECT_THAT(model.fecPackets, IsEmpty());
}

// With one source block every parity block is that block itself.
TEST_F(ReceiveModelTest, ReedSolomonOverOnePacketIsThePacket) {
    const Bytes lost = rtp(kMedia, 5, 16, kUnitA);
    Bytes payload = {0x00, 0x05, 0x0f, 0x00, 0, 1, 1, 0};  // base 5 | length 0x0f00 | index, m, k
    payload.insert(payload.end(), lost.begin(), lost.end());
    EXPECT_EQ(input(rtp(kFec, 1, 16, payload)), 0);
    EXPECT_THAT(delivered(), IsEmpty());  // no block is that long
    payload[2] = 0x00;
    payload[3] = 0x0f;
    EXPECT_EQ(input(rtp(kFec, 2, 16, payload)), 0);
    EXPECT_THAT(delivered(), ElementsAre(Bytes{0, 0, 0, 1, 0x65, 0xa1, 0xa2}));
    EXPECT_EQ(model.counters.recoveredBytes, 1300U);
}

TEST(PlainCodecTest, FieldIsThatOfThePolynomial11d) {
    EXPECT_EQ(gfMultiply(2, 0x80), 0x1d);
    EXPECT_EQ(gfInverse(2), 0x8e);
}

// Points 0 and 1 give the square (1 0 | 1 1), its own inverse; the row of alpha, (1 2), becomes (3 2).
TEST(PlainCodecTest, TwoOfThreeByHand) {
    EXPECT_THAT(codeMatrix(2, 3), ElementsAre(Bytes{1, 0}, Bytes{0, 1}, Bytes{3, 2}));
}

TEST(PlainCodecTest, RebuildsOutOfAnyK) {
    const Bytes first = {1, 2, 3};
    const Bytes second = {4, 5, 6};
    const Bytes parity = {3 * 1 ^ 2 * 4, 6 ^ 2 * 5, 5 ^ 2 * 6};  // 3 * 2 and 3 * 3 are 6 and 5 in the field
    EXPECT_THAT(rebuildBlocks(2, 3, {1, 2}, {second, parity}, {0}, 3), ElementsAre(first));
    EXPECT_THAT(rebuildBlocks(2, 3, {0, 2}, {first, parity}, {1}, 3), ElementsAre(second));
}

}  // namespace
}  // namespace model
}  // namespace talrtp
