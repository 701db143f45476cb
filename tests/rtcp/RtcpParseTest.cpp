// Reading RTCP packets: validity, every getter, the field readers, and the cut of a datagram into packets.

#include "RtcpReading.h"
#include "RtcpVectors.h"
#include "TraceCatcher.h"

#include <talrtp/TalRtcpStack.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <typeinfo>

namespace talrtp {
namespace test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const char kBehindBlock[] = "5b5b5b5b 5b 5b5b5b 5b5b5b5b 5b5b5b5b 5b5b5b5b 5b5b5b5b; ";
const char kFirstBlock[] = "a1a2a3a4 40 010203 00051234 00000077 e3e48000 00018000; ";
const char kSecondBlock[] = "b1b2b3b4 ff fffffe fedcba98 10203040 50607080 90a0b0c0; ";
const char kInfo[] = "e1e2e3e4 80000001 00015f90 00000102 00030405";

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes firstOf(const Bytes& bytes, int count) {
    return Bytes(bytes.begin(), bytes.begin() + count);
}

// A packet that declares no length is valid however short it is: the way to see what readers make of a cut.
Bytes declaringNothing(Bytes bytes) {
    bytes[2] = bytes[3] = 0;
    return bytes;
}

// The bytes that a host passes on: the length field counts whole words, so the packet is filled up to one.
Bytes filledUp(Bytes bytes) {
    bytes.resize((bytes.size() + 3) / 4 * 4, 0);
    return bytes;
}

struct ReadVector {
    std::string name;
    Bytes bytes;
    Reading reading;
};

std::vector<ReadVector> readVectors() {
    return {
        {"SR",
         senderReport(),
         {{"valid", "1"},
          {"type", "200"},
          {"ssrc", "11223344"},
          {"block count", "1"},
          {"sender info", kInfo},
          {"blocks", std::string(kFirstBlock) + kBehindBlock}}},
        {"SR without blocks",
         senderReportWithoutBlocks(),
         {{"valid", "1"},
          {"type", "200"},
          {"ssrc", "11223344"},
          {"sender info", kInfo},
          {"blocks", kBehindBlock}}},
        {"RR",
         receiverReport(),
         {{"valid", "1"},
          {"type", "201"},
          {"ssrc", "11223344"},
          {"block count", "2"},
          {"blocks", std::string(kFirstBlock) + kSecondBlock + kBehindBlock}}},
        {"RR without blocks",
         emptyReceiverReport(),
         {{"valid", "1"}, {"type", "201"}, {"ssrc", "11223344"}, {"blocks", kBehindBlock}}},
        {"SDES",
         sdes(),
         {{"valid", "1"},
          {"type", "202"},
          {"item count", "2"},
          {"items", "11223344 01 6140622e6364; 55667788 02 7879; "}}},
        {"SDES of odd length",
         filledUp(sdesOfOddLength()),
         {{"valid", "1"}, {"type", "202"}, {"item count", "1"}, {"items", "11223344 01 68656c6c6f; "}}},
        // Kept: the second item is looked for on the next word, 3 bytes after where the builder put it.
        {"SDES off the words",
         sdesOffTheWords(),
         {{"valid", "1"},
          {"type", "202"},
          {"item count", "2"},
          {"items", "11223344 01 616263; 8802017a 00 ; "}}},
        {"BYE",
         bye(),
         {{"valid", "1"},
          {"type", "203"},
          {"source count", "3"},
          {"sources", "11223344; 55667788; 99aabbcc; "}}},
        {"APP",
         app(),
         {{"valid", "1"},
          {"type", "204"},
          {"ssrc", "11223344"},
          {"APP subtype", "21"},
          {"name", "54455354"},
          {"data", "at 12, 8: d1d2d3d4d5d6d7d8"}}},
        {"APP of odd length",
         filledUp(appOfOddLength()),
         {{"valid", "1"},
          {"type", "204"},
          {"ssrc", "11223344"},
          {"APP subtype", "21"},
          {"name", "54455354"},
          {"data", "at 12, 8: d1d2d3d4d5000000"}}},
        {"RTPFB",
         rtpFeedback(),
         {{"valid", "1"},
          {"type", "205"},
          {"ssrc", "11223344"},
          {"RTPFB type", "1"},
          {"feedback sources", "11223344 99aabbcc"},
          {"FCI", "at 12, 4: 12348001"}}},
        {"PSFB",
         payloadFeedback(),
         {{"valid", "1"},
          {"type", "206"},
          {"ssrc", "11223344"},
          {"PSFB type", "4"},
          {"feedback sources", "11223344 99aabbcc"},
          {"FCI", "at 12, 8: c1c2c3c407c5c6c7"}}},
        {"PSFB without FCI",
         payloadFeedbackWithoutFci(),
         {{"valid", "1"},
          {"type", "206"},
          {"ssrc", "11223344"},
          {"PSFB type", "1"},
          {"feedback sources", "11223344 99aabbcc"},
          {"FCI", "at 12, 0: "}}},
    };
}

class RtcpParseTest : public ::testing::Test {
protected:
    CTalRTCPStack stack;
};

// ---- every packet type, by the table of vectors

TEST_F(RtcpParseTest, EachVectorReadsAsWrittenByHand) {
    for (const ReadVector& vector : readVectors()) {
        SCOPED_TRACE(vector.name);
        EXPECT_EQ(vector.reading, readAll(stack, vector.bytes));
    }
}

TEST_F(RtcpParseTest, EachVectorIsInvalidForEveryGetterAtEveryShorterLength) {
    for (const ReadVector& vector : readVectors()) {
        for (int len = 0; len < static_cast<int>(vector.bytes.size()); ++len) {
            SCOPED_TRACE(vector.name + ", length " + std::to_string(len));
            const Reading reading = readAll(stack, firstOf(vector.bytes, len));
            // With 2 or 3 bytes the length field itself is cut to 0, which passes.
            EXPECT_EQ(len == 2 || len == 3 ? "1" : "", reading.count("valid") ? reading.at("valid") : "");
            EXPECT_EQ(expectedReading(firstOf(vector.bytes, len)), reading);
        }
    }
}

TEST_F(RtcpParseTest, EachVectorThatDeclaresNothingReadsZerosBeyondItsEndAtEveryLength) {
    for (const ReadVector& vector : readVectors()) {
        const Bytes bytes = declaringNothing(vector.bytes);
        for (int len = 2; len <= static_cast<int>(bytes.size()); ++len) {
            SCOPED_TRACE(vector.name + ", length " + std::to_string(len));
            EXPECT_EQ(expectedReading(firstOf(bytes, len)), readAll(stack, firstOf(bytes, len)));
        }
    }
}

// The same in a buffer that goes on: bytes beyond the length must not show in the result.
TEST_F(RtcpParseTest, BytesBeyondTheLengthAreNotRead) {
    Bytes bytes = declaringNothing(app());
    unsigned char name[4];
    EXPECT_EQ(0x11223300U, stack.GetRtcpPacketSsrc(bytes.data(), 7));
    EXPECT_EQ(0U, stack.GetRtcpPacketSsrc(bytes.data(), 4));
    EXPECT_EQ(0, stack.GetAppName(bytes.data(), 10, name));
    EXPECT_THAT(name, ElementsAre('T', 'E', 0, 0));
    bytes = declaringNothing(rtpFeedback());
    unsigned int sender = 1, media = 1;
    EXPECT_EQ(0, stack.GetFBSsrc(bytes.data(), 9, sender, media));
    EXPECT_EQ(0x11223344U, sender);
    EXPECT_EQ(0x99000000U, media);
}

TEST_F(RtcpParseTest, NoTraceLineIsGivenAndTheMaskIsNotAsked) {
    TraceCatcher trace(2);
    for (const ReadVector& vector : readVectors()) {
        readAll(stack, vector.bytes);
        readAll(stack, firstOf(vector.bytes, 1));
    }
    EXPECT_THAT(trace.lines(), IsEmpty());
    EXPECT_EQ(0, trace.maskCalls());
}

// ---- validity

TEST_F(RtcpParseTest, NullAndEmptyPacketsAreInvalid) {
    Bytes packet = emptyReceiverReport();
    EXPECT_FALSE(stack.IsValidRtcpPacket(nullptr, 8));
    EXPECT_FALSE(stack.IsValidRtcpPacket(packet.data(), 0));
    EXPECT_FALSE(stack.IsValidRtcpPacket(packet.data(), -1));
    EXPECT_FALSE(stack.IsValidRtcpPacket(packet.data(), INT_MIN));
    EXPECT_TRUE(stack.IsValidRtcpPacket(packet.data(), 8));
    EXPECT_TRUE(stack.IsValidRtcpPacket(packet.data(), INT_MAX));
}

TEST_F(RtcpParseTest, OnlyVersion2IsValidWhateverPaddingAndCountSay) {
    for (int first = 0; first < 256; ++first) {
        Bytes packet = emptyReceiverReport();
        packet[0] = static_cast<unsigned char>(first);
        EXPECT_EQ(first >= 0x80 && first <= 0xbf, stack.IsValidRtcpPacket(packet.data(), 8)) << first;
    }
}

TEST_F(RtcpParseTest, OnlyTypes200To206AreValid) {
    for (int type = 0; type < 256; ++type) {
        Bytes packet = emptyReceiverReport();
        packet[1] = static_cast<unsigned char>(type);
        const bool isKnown = type >= 200 && type <= 206;
        EXPECT_EQ(isKnown, stack.IsValidRtcpPacket(packet.data(), 8)) << type;
        EXPECT_EQ(isKnown ? static_cast<unsigned int>(type) : 0U, stack.GetRtcpPacketType(packet.data(), 8));
    }
}

TEST_F(RtcpParseTest, DeclaredLengthMayNotExceedTheGivenOne) {
    Bytes packet = emptyReceiverReport();
    EXPECT_FALSE(stack.IsValidRtcpPacket(packet.data(), 7));
    EXPECT_TRUE(stack.IsValidRtcpPacket(packet.data(), 8));
    EXPECT_TRUE(stack.IsValidRtcpPacket(packet.data(), 9));
    packet[2] = 0xff;
    packet[3] = 0xff;
    EXPECT_FALSE(stack.IsValidRtcpPacket(packet.data(), 262139));
    EXPECT_TRUE(stack.IsValidRtcpPacket(packet.data(), 262140));
}

// Kept: a packet of no words at all passes.
TEST_F(RtcpParseTest, LengthFieldOfZeroIsValid) {
    Bytes packet = declaringNothing(emptyReceiverReport());
    EXPECT_TRUE(stack.IsValidRtcpPacket(packet.data(), 4));
    EXPECT_TRUE(stack.IsValidRtcpPacket(packet.data(), 8));
}

TEST_F(RtcpParseTest, MissingBytesOfAHeaderCountAsZero) {
    EXPECT_TRUE(readAll(stack, {0x80}).empty());  // type 0
    EXPECT_EQ("200", readAll(stack, {0x80, 0xc8})["type"]);
    EXPECT_EQ("200", readAll(stack, {0x80, 0xc8, 0x00})["type"]);
    EXPECT_TRUE(readAll(stack, {0x80, 0xc8, 0x01}).empty());  // 256 words
    Bytes behind = {0x80, 0xc8, 0xff, 0xff};
    EXPECT_TRUE(stack.IsValidRtcpPacket(behind.data(), 2));
    EXPECT_FALSE(stack.IsValidRtcpPacket(behind.data(), 3));
}

// ---- reports

TEST_F(RtcpParseTest, SenderReportOf28BytesYieldsOneBlockFromBeyondItsEnd) {
    Bytes packet = senderReportWithoutBlocks() + Bytes(24, 0x01);
    _ReportBlock blocks[4] = {};
    int count = 4;
    EXPECT_EQ(0, stack.GetReportBlock(packet.data(), 28, blocks, count));
    EXPECT_EQ(1, count);
    EXPECT_EQ(0x01010101U, blocks[0].ssrc);
    EXPECT_EQ(0x01010101U, blocks[0].delaySinceLastSR);
    EXPECT_EQ(0U, blocks[1].ssrc);
}

TEST_F(RtcpParseTest, BlockThatBeginsBeyondTheFirstByteAfterThePacketIsNotRead) {
    Bytes packet = declaringNothing(senderReportWithoutBlocks());
    _ReportBlock blocks[4] = {};
    int count = 4;
    EXPECT_EQ(0, stack.GetReportBlock(packet.data(), 27, blocks, count));
    EXPECT_EQ(0, count);
    packet = declaringNothing(emptyReceiverReport());
    count = 4;
    EXPECT_EQ(0, stack.GetReportBlock(packet.data(), 7, blocks, count));
    EXPECT_EQ(0, count);
}

// Kept: a block is read in full as soon as it begins within the packet.
TEST_F(RtcpParseTest, LastBlockIsReadInFullAtEveryLengthThatHoldsItsStart) {
    const Bytes packet = declaringNothing(receiverReport());
    for (int len = 8; len < 56; ++len) {
        ExactBuffer buffer(packet);
        _ReportBlock blocks[4] = {};
        int count = len < 32 ? 4 : 2;
        EXPECT_EQ(0, stack.GetReportBlock(buffer.data(), len, blocks, count));
        EXPECT_EQ(len < 32 ? 1 : 2, count) << len;
        EXPECT_EQ(kFirstBlock, print(blocks[0])) << len;
        EXPECT_EQ(len < 32 ? 0U : 0xb1b2b3b4U, blocks[1].ssrc) << len;
    }
}

TEST_F(RtcpParseTest, BlocksAreReadUpToTheOfferedNumberWhateverTheHeaderCounts) {
    Bytes packet = receiverReport();
    packet[0] = 0x80;
    for (int offered = 1; offered <= 2; ++offered) {
        ExactBuffer buffer(packet);
        _ReportBlock blocks[3] = {};
        int count = offered;
        EXPECT_EQ(0, stack.GetReportBlock(buffer.data(), 56, blocks, count));
        EXPECT_EQ(offered, count);
        EXPECT_EQ(0U, blocks[offered].ssrc);
    }
}

TEST_F(RtcpParseTest, NothingOfferedIsNothingRead) {
    Bytes report = receiverReport(), description = sdes(), goodbye = bye();
    _ReportBlock blocks[1] = {};
    _SdesItem items[1] = {};
    unsigned int ssrcs[1] = {};
    for (int offered : {0, -1, INT_MIN}) {
        int count = offered;
        EXPECT_EQ(0, stack.GetReportBlock(report.data(), 56, blocks, count));
        EXPECT_EQ(0, count);
        count = offered;
        EXPECT_EQ(0, stack.GetSdesItem(description.data(), 24, items, count));
        EXPECT_EQ(0, count);
        count = offered;
        EXPECT_EQ(0, stack.GetByeSsrc(goodbye.data(), 16, ssrcs, count));
        EXPECT_EQ(0, count);
    }
    EXPECT_EQ(0U, blocks[0].ssrc);
    EXPECT_EQ(0U, items[0].ssrc);
    EXPECT_EQ(0U, ssrcs[0]);
}

TEST_F(RtcpParseTest, NullOutputsAreRefused) {
    Bytes report = senderReport(), application = app(), description = sdes(), goodbye = bye();
    int count = 4;
    EXPECT_EQ(-1, stack.GetReportBlock(report.data(), 52, nullptr, count));
    EXPECT_EQ(-1, stack.GetReportSenderInfo(report.data(), 52, nullptr));
    EXPECT_EQ(-1, stack.GetAppName(application.data(), 20, nullptr));
    EXPECT_EQ(-1, stack.GetSdesItem(description.data(), 24, nullptr, count));
    EXPECT_EQ(-1, stack.GetByeSsrc(goodbye.data(), 16, nullptr, count));
    EXPECT_EQ(4, count);
    count = 0;
    EXPECT_EQ(-1, stack.GetReportBlock(report.data(), 52, nullptr, count));
    EXPECT_EQ(0, stack.GetSdesItem(description.data(), 24, nullptr, count));
    EXPECT_EQ(0, stack.GetByeSsrc(goodbye.data(), 16, nullptr, count));
}

TEST_F(RtcpParseTest, SenderInfoNeeds28Bytes) {
    Bytes packet = declaringNothing(senderReportWithoutBlocks());
    _SenderInfo info = {};
    EXPECT_EQ(-1, stack.GetReportSenderInfo(packet.data(), 27, &info));
    EXPECT_EQ(0U, info.ntpTimestampMsw);
    EXPECT_EQ(0, stack.GetReportSenderInfo(packet.data(), 28, &info));
    EXPECT_EQ(kInfo, print(info));
}

TEST_F(RtcpParseTest, ExtensionIsWhatFollowsTheCountedBlocks) {
    Bytes packet = receiverReport();
    packet[0] = 0x81;
    packet[3] = 8;
    unsigned char* extension = nullptr;
    int length = -77;
    EXPECT_EQ(-1, stack.GetReportExtension(packet.data(), 32, extension, length));
    EXPECT_EQ(nullptr, extension);
    EXPECT_EQ(-77, length);
    EXPECT_EQ(0, stack.GetReportExtension(packet.data(), 33, extension, length));
    EXPECT_EQ(1, length);
    EXPECT_EQ(0, stack.GetReportExtension(packet.data(), 40, extension, length));
    EXPECT_EQ(packet.data() + 32, extension);
    EXPECT_EQ(8, length);
    packet = senderReport();
    packet[0] = 0x80;
    EXPECT_EQ(0, stack.GetReportExtension(packet.data(), 52, extension, length));
    EXPECT_EQ(packet.data() + 28, extension);
    EXPECT_EQ(24, length);
}

// ---- SDES and BYE

TEST_F(RtcpParseTest, HeaderAloneHoldsNoItemAndNoSource) {
    Bytes description = declaringNothing(sdes()), goodbye = declaringNothing(bye());
    _SdesItem items[2];
    unsigned int ssrcs[2] = {};
    int count = 2;
    EXPECT_EQ(0, stack.GetSdesItem(description.data(), 4, items, count));
    EXPECT_EQ(0, count);
    count = 2;
    EXPECT_EQ(0, stack.GetByeSsrc(goodbye.data(), 4, ssrcs, count));
    EXPECT_EQ(0, count);
    count = 2;
    EXPECT_EQ(0, stack.GetSdesItem(description.data(), 5, items, count));
    EXPECT_EQ(1, count);
    EXPECT_EQ(0x11000000U, items[0].ssrc);
    EXPECT_EQ(0, items[0].length);
    count = 2;
    EXPECT_EQ(0, stack.GetByeSsrc(goodbye.data(), 5, ssrcs, count));
    EXPECT_EQ(1, count);
    EXPECT_EQ(0x11000000U, ssrcs[0]);
}

TEST_F(RtcpParseTest, TextThatRunsPastThePacketEndsInZerosAndCounts) {
    Bytes packet = filledUp(sdesOfOddLength());
    packet[9] = 255;
    ExactBuffer buffer(packet);
    _SdesItem items[2];
    std::memset(static_cast<void*>(items), 0xcc, sizeof(items));
    int count = 2;
    EXPECT_EQ(0, stack.GetSdesItem(buffer.data(), 16, items, count));
    EXPECT_EQ(1, count);
    EXPECT_EQ(255, items[0].length);
    EXPECT_THAT(Bytes(items[0].data, items[0].data + 6), ElementsAre('h', 'e', 'l', 'l', 'o', 0));
    EXPECT_THAT(Bytes(items[0].data + 6, items[0].data + 255), Each(0));
    EXPECT_EQ(0xcc, items[0].data[255]);
    EXPECT_EQ(0xccccccccU, items[1].ssrc);
}

TEST_F(RtcpParseTest, ItemsAndSourcesAreReadUpToTheOfferedNumber) {
    Bytes description = sdes(), goodbye = bye();
    _SdesItem items[2] = {};
    unsigned int ssrcs[3] = {};
    int count = 1;
    EXPECT_EQ(0, stack.GetSdesItem(description.data(), 24, items, count));
    EXPECT_EQ(1, count);
    EXPECT_EQ(0U, items[1].ssrc);
    count = 2;
    EXPECT_EQ(0, stack.GetByeSsrc(goodbye.data(), 16, ssrcs, count));
    EXPECT_EQ(2, count);
    EXPECT_EQ(0U, ssrcs[2]);
}

// Kept: the header's count is not asked.
TEST_F(RtcpParseTest, ItemsAndSourcesAreReadUpToTheLengthWhateverTheHeaderCounts) {
    Bytes description = sdes(), goodbye = bye();
    description[0] = goodbye[0] = 0x80;
    EXPECT_EQ("11223344 01 6140622e6364; 55667788 02 7879; ", readAll(stack, description)["items"]);
    EXPECT_EQ("11223344; 55667788; 99aabbcc; ", readAll(stack, goodbye)["sources"]);
}

// ---- APP and feedback

// Kept: nobody checks that the 12 bytes before the data are there.
TEST_F(RtcpParseTest, DataLengthIsNegativeBelow12Bytes) {
    Bytes application = declaringNothing(app()), feedback = declaringNothing(rtpFeedback());
    unsigned char* data = nullptr;
    int length = 0;
    EXPECT_EQ(0, stack.GetAppData(application.data(), 2, data, length));
    EXPECT_EQ(application.data() + 12, data);
    EXPECT_EQ(-10, length);
    EXPECT_EQ(0, stack.GetFBFCIData(feedback.data(), 11, data, length));
    EXPECT_EQ(feedback.data() + 12, data);
    EXPECT_EQ(-1, length);
}

// ---- overriding the validity

class JudgingStack : public CTalRTCPStack {
public:
    explicit JudgingStack(bool verdict) : m_verdict(verdict) {}
    bool IsValidRtcpPacket(unsigned char* buf, int len) override {
        ++m_calls;
        m_buf = buf;
        m_len = len;
        return m_verdict;
    }
    bool m_verdict;
    int m_calls = 0;
    unsigned char* m_buf = nullptr;
    int m_len = 0;
};

TEST(RtcpOverrideTest, PacketThatAnOverrideRefusesFailsInEveryGetter) {
    JudgingStack stack(false);
    for (const ReadVector& vector : readVectors()) {
        SCOPED_TRACE(vector.name);
        EXPECT_TRUE(readAll(stack, vector.bytes).empty());
    }
}

TEST(RtcpOverrideTest, PacketThatAnOverrideAcceptsIsReadByEveryGetter) {
    JudgingStack stack(true);
    for (const ReadVector& vector : readVectors()) {
        SCOPED_TRACE(vector.name);
        Bytes version1 = vector.bytes;
        version1[0] = static_cast<unsigned char>(version1[0] ^ 0xc0);
        EXPECT_EQ(vector.reading, readAll(stack, version1));
    }
}

TEST(RtcpOverrideTest, EveryGetterAsksOnceWithItsOwnArguments) {
    JudgingStack stack(true);
    Bytes packet = app();
    unsigned char* const buf = packet.data();
    const int len = 20;
    _ReportBlock block;
    _SenderInfo info;
    _SdesItem item;
    unsigned int ssrc, media;
    unsigned char name[4];
    unsigned char* data;
    int count = 1;
    const std::function<void()> getters[] = {
        [&] { stack.GetRtcpPacketType(buf, len); },
        [&] { stack.GetRtcpPacketSsrc(buf, len); },
        [&] { stack.GetReportBlockCount(buf, len); },
        [&] { stack.GetReportBlock(buf, len, &block, count); },
        [&] { stack.GetReportSenderInfo(buf, len, &info); },
        [&] { stack.GetReportExtension(buf, len, data, count); },
        [&] { stack.GetSdesItemCount(buf, len); },
        [&] { stack.GetSdesItem(buf, len, &item, count); },
        [&] { stack.GetByeSsrcCount(buf, len); },
        [&] { stack.GetByeSsrc(buf, len, &ssrc, count); },
        [&] { stack.GetAppSubType(buf, len); },
        [&] { stack.GetAppName(buf, len, name); },
        [&] { stack.GetAppData(buf, len, data, count); },
        [&] { stack.GetRTPFBSubType(buf, len); },
        [&] { stack.GetPSFBSubType(buf, len); },
        [&] { stack.GetFBSsrc(buf, len, ssrc, media); },
        [&] { stack.GetFBFCIData(buf, len, data, count); },
    };
    for (std::size_t i = 0; i < sizeof(getters) / sizeof(getters[0]); ++i) {
        SCOPED_TRACE(i);
        stack.m_calls = 0;
        stack.m_buf = nullptr;
        stack.m_len = 0;
        getters[i]();
        EXPECT_EQ(1, stack.m_calls);
        EXPECT_EQ(buf, stack.m_buf);
        EXPECT_EQ(len, stack.m_len);
    }
}

// ---- field readers

TEST(RtcpFieldReaderTest, HeaderFieldsAreReadBitByBit) {
    CTalRTCPStack stack;
    unsigned char buf[] = {0x5a, 0xcb, 0x12, 0x34};
    EXPECT_EQ(1, stack.GetVersion(buf));
    EXPECT_EQ(0, stack.GetPaddingFlag(buf));
    EXPECT_EQ(26, stack.GetPayloadCount(buf));
    EXPECT_EQ(26, stack.GetSubType(buf));
    EXPECT_EQ(203, stack.GetPayloadType(buf));
    EXPECT_EQ(0x1234, stack.GetPacketLength(buf));
    EXPECT_EQ(0x5acb1234U, stack.GetSyncSource(buf));
    buf[0] = 0xe5;
    EXPECT_EQ(3, stack.GetVersion(buf));
    EXPECT_EQ(1, stack.GetPaddingFlag(buf));
    EXPECT_EQ(5, stack.GetPayloadCount(buf));
    EXPECT_EQ(5, stack.GetSubType(buf));
}

TEST(RtcpFieldReaderTest, RecordsAreReadInFullAndCounted) {
    CTalRTCPStack stack;
    Bytes report = senderReport();
    _SenderInfo info;
    _ReportBlock block;
    EXPECT_EQ(20, stack.GetSenderInfo(report.data() + 8, &info));
    EXPECT_EQ(kInfo, print(info));
    EXPECT_EQ(24, stack.GetReportBlock(report.data() + 28, &block));
    EXPECT_EQ(kFirstBlock, print(block));
}

TEST(RtcpFieldReaderTest, SdesItemStepsToTheNextWord) {
    CTalRTCPStack stack;
    const struct {
        int length, step;
    } cases[] = {{0, 8},  {1, 8},     {2, 8},     {3, 12},    {6, 12},
                 {7, 16}, {250, 256}, {251, 260}, {254, 260}, {255, 264}};
    for (const auto& one : cases) {
        SCOPED_TRACE(one.length);
        Bytes bytes = {0x11, 0x22, 0x33, 0x44, 9, static_cast<unsigned char>(one.length)};
        bytes.resize(static_cast<std::size_t>(6 + one.length), 't');
        ExactBuffer buffer(bytes);
        _SdesItem item = sdesItem(0, 0, "");
        EXPECT_EQ(one.step, stack.GetSdesItem(buffer.data(), &item));
        EXPECT_EQ(kSsrc, item.ssrc);
        EXPECT_EQ(9, item.type);
        EXPECT_EQ(one.length, item.length);
        EXPECT_THAT(Bytes(item.data, item.data + one.length), Each('t'));
        EXPECT_EQ(0xdd, item.data[one.length]);
    }
}

TEST(RtcpFieldReaderTest, NullPointersYieldZeroAndLeaveTheRecordAlone) {
    CTalRTCPStack stack;
    EXPECT_EQ(0, stack.GetVersion(nullptr));
    EXPECT_EQ(0, stack.GetPaddingFlag(nullptr));
    EXPECT_EQ(0, stack.GetPayloadCount(nullptr));
    EXPECT_EQ(0, stack.GetSubType(nullptr));
    EXPECT_EQ(0, stack.GetPayloadType(nullptr));
    EXPECT_EQ(0U, stack.GetSyncSource(nullptr));
    EXPECT_EQ(0, stack.GetPacketLength(nullptr));
    _SenderInfo info = senderInfo();
    _ReportBlock block = firstBlock();
    _SdesItem item = sdesItem(kSsrc, 1, "hello");
    EXPECT_EQ(0, stack.GetSenderInfo(nullptr, &info));
    EXPECT_EQ(0, stack.GetReportBlock(nullptr, &block));
    EXPECT_EQ(0, stack.GetSdesItem(nullptr, &item));
    EXPECT_EQ(kInfo, print(info));
    EXPECT_EQ(kFirstBlock, print(block));
    EXPECT_EQ(kSsrc, item.ssrc);
    Bytes report = senderReport();
    EXPECT_EQ(0, stack.GetSenderInfo(report.data() + 8, nullptr));
    EXPECT_EQ(0, stack.GetReportBlock(report.data() + 28, nullptr));
    EXPECT_EQ(0, stack.GetSdesItem(report.data(), nullptr));
}

// ---- datagrams

class RtcpDatagramTest : public ::testing::Test {
protected:
    std::int64_t input(const Bytes& datagram) {
        ExactBuffer buffer(datagram);
        return stack.InputReceivedRtcpData(&sink, buffer.data(), buffer.size());
    }

    CTalRTCPStack stack;
    RecordingRtcpSink sink;
};

TEST_F(RtcpDatagramTest, CompoundIsCutByTheLengthFields) {
    const Bytes first = emptyReceiverReport();
    const Bytes second = {0x82, 0xcb, 0x00, 0x03, 0, 0, 0, 1, 0, 0, 0, 2};  // BYE for two sources
    ExactBuffer datagram(first + second);
    EXPECT_EQ(0, stack.InputReceivedRtcpData(&sink, datagram.data(), 20));
    EXPECT_THAT(sink.packets, ElementsAre(first, second));
    EXPECT_THAT(sink.starts, ElementsAre(datagram.data(), datagram.data() + 8));
}

TEST_F(RtcpDatagramTest, LengthFieldOfZeroEndsTheCutAfterThePacketsBefore) {
    EXPECT_EQ(-2, input(emptyReceiverReport() + declaringNothing(bye())));
    EXPECT_THAT(sink.packets, ElementsAre(emptyReceiverReport()));
    EXPECT_EQ(-2, input(declaringNothing(bye())));
    EXPECT_EQ(1U, sink.packets.size());
}

TEST_F(RtcpDatagramTest, NullAndEmptyInputsAreRefused) {
    Bytes datagram = bye();
    EXPECT_EQ(-1, stack.InputReceivedRtcpData(nullptr, datagram.data(), 16));
    EXPECT_EQ(-1, stack.InputReceivedRtcpData(&sink, nullptr, 16));
    EXPECT_EQ(-1, stack.InputReceivedRtcpData(&sink, datagram.data(), 0));
    EXPECT_EQ(-1, stack.InputReceivedRtcpData(&sink, datagram.data(), -1));
    EXPECT_THAT(sink.packets, IsEmpty());
}

// Kept: to refuse a packet is the sink's business.
TEST_F(RtcpDatagramTest, PacketsAreHandedOnWithoutALookAtVersionAndType) {
    const Bytes rubbish = {0x00, 0x00, 0x00, 0x01, 0xff, 0xff, 0x00, 0x02, 1, 2, 3, 4};
    EXPECT_EQ(0, input(rubbish));
    EXPECT_THAT(sink.packets, ElementsAre(firstOf(rubbish, 4), Bytes(rubbish.begin() + 4, rubbish.end())));
}

TEST_F(RtcpDatagramTest, BytesAfterAnExactFitAreNotRead) {
    Bytes datagram = bye() + declaringNothing(bye());
    EXPECT_EQ(0, stack.InputReceivedRtcpData(&sink, datagram.data(), 16));
    EXPECT_THAT(sink.packets, ElementsAre(bye()));
}

TEST_F(RtcpDatagramTest, EachVectorIsHandedOnInItsDeclaredLengthAtEveryShorterLength) {
    for (const ReadVector& vector : readVectors()) {
        for (int len = 4; len < static_cast<int>(vector.bytes.size()); ++len) {
            SCOPED_TRACE(vector.name + ", length " + std::to_string(len));
            Bytes expected = firstOf(vector.bytes, len);
            expected.resize(vector.bytes.size(), 0);
            sink.packets.clear();
            EXPECT_EQ(0, input(firstOf(vector.bytes, len)));
            EXPECT_THAT(sink.packets, ElementsAre(expected));
        }
    }
}

TEST_F(RtcpDatagramTest, CutPacketIsLentAsACopySoTheDatagramStays) {
    class Scribbler : public ITalRTCPStackSink {
    public:
        void OnRtcpPacket(unsigned char* packet, int length) override {
            std::memset(packet, 0x77, static_cast<std::size_t>(length));
        }
    };
    Scribbler scribbler;
    Bytes datagram = firstOf(bye(), 13);
    EXPECT_EQ(0, stack.InputReceivedRtcpData(&scribbler, datagram.data(), 13));
    EXPECT_EQ(firstOf(bye(), 13), datagram);
}

// The length was read before the call: a sink that scribbles over its packet does not change the cut.
TEST_F(RtcpDatagramTest, SinkMayOverwriteAPacketInTheDatagram) {
    class Eraser : public RecordingRtcpSink {
    public:
        void OnRtcpPacket(unsigned char* packet, int length) override {
            RecordingRtcpSink::OnRtcpPacket(packet, length);
            std::memset(packet, 0, static_cast<std::size_t>(length));
        }
    };
    Eraser eraser;
    Bytes datagram = emptyReceiverReport() + bye();
    EXPECT_EQ(0, stack.InputReceivedRtcpData(&eraser, datagram.data(), 24));
    EXPECT_THAT(eraser.packets, ElementsAre(emptyReceiverReport(), bye()));
}

TEST_F(RtcpDatagramTest, RemainderOfOneToThreeBytesLacksTheRestOfItsLengthField) {
    const Bytes first = emptyReceiverReport();
    for (const Bytes& rest : {Bytes{0x81}, Bytes{0x81, 0xcb}, Bytes{0x81, 0xcb, 0x00}}) {
        sink.packets.clear();
        EXPECT_EQ(-2, input(first + rest));
        EXPECT_THAT(sink.packets, ElementsAre(first));
    }
    sink.packets.clear();
    Bytes expected = {0x81, 0xcb, 0x01};
    expected.resize(1024, 0);
    EXPECT_EQ(0, input(first + Bytes{0x81, 0xcb, 0x01}));
    EXPECT_THAT(sink.packets, ElementsAre(first, expected));
}

TEST_F(RtcpDatagramTest, LongestDeclaredLengthIsHandedOn) {
    EXPECT_EQ(0, input({0x81, 0xcb, 0xff, 0xff, 0x99}));
    ASSERT_EQ(1U, sink.packets.size());
    ASSERT_EQ(262140U, sink.packets[0].size());
    EXPECT_EQ(0x99, sink.packets[0][4]);
    EXPECT_THAT(Bytes(sink.packets[0].begin() + 5, sink.packets[0].end()), Each(0));
}

// Kept: the reader counts all words of a packet, so what counts all but one comes out
// cut in the wrong places.
TEST_F(RtcpDatagramTest, DatagramOfAnRfc3550SenderIsNotUnderstood) {
    const Bytes foreign = {
        0x80, 0xc9, 0x00, 0x01,  // RR without blocks, one word after this one
        0x11, 0x22, 0x33, 0x44,  // SSRC; to this reader a packet of 0x3344 words
        0x82, 0xcb, 0x00, 0x02,  // BYE of two sources, two words after this one
        0x11, 0x22, 0x33, 0x44,  // SSRC 1
        0x55, 0x66, 0x77, 0x88,  // SSRC 2
    };
    EXPECT_EQ(0, input(foreign));
    ASSERT_EQ(2U, sink.packets.size());
    EXPECT_EQ(firstOf(foreign, 4), sink.packets[0]);
    EXPECT_EQ(52496U, sink.packets[1].size());
    EXPECT_FALSE(stack.IsValidRtcpPacket(sink.packets[1].data(), 52496));
}

// GetReportBlock reads a block past the end, so there is room for one after a copied packet too.
TEST_F(RtcpDatagramTest, BlockBeyondACutReportReadsAsZeros) {
    class BlockReader : public ITalRTCPStackSink {
    public:
        void OnRtcpPacket(unsigned char* packet, int length) override {
            CTalRTCPStack stack;
            count = 4;
            result = stack.GetReportBlock(packet, length, blocks, count);
        }
        _ReportBlock blocks[4] = {};
        int count = 0;
        std::int64_t result = -1;
    };
    BlockReader reader;
    reader.blocks[2] = firstBlock();
    ExactBuffer datagram(firstOf(receiverReport(), 33));
    EXPECT_EQ(0, stack.InputReceivedRtcpData(&reader, datagram.data(), 33));
    EXPECT_EQ(0, reader.result);
    EXPECT_EQ(3, reader.count);
    EXPECT_EQ(kFirstBlock, print(reader.blocks[0]));
    EXPECT_EQ(0xb1000000U, reader.blocks[1].ssrc);
    EXPECT_EQ("00000000 00 000000 00000000 00000000 00000000 00000000; ", print(reader.blocks[2]));
}

// ---- the virtual tables

// A sink as another compiler lays it out: a pointer to a table, and no class of ours behind it. The first two
// entries must never be called.
struct ForeignSink {
    const void* const* table;
    std::vector<int> lengths;

    static void onRtcpPacket(ForeignSink* self, unsigned char*, int length) {
        self->lengths.push_back(length);
    }
};

TEST(RtcpVirtualTableTest, SinkIsCalledThroughItsThirdEntryAlone) {
    const void* const table[] = {
        nullptr,                     // offset to the top of the object
        &typeid(ITalRTCPStackSink),  // what sanitizers ask for
        nullptr,
        nullptr,
        reinterpret_cast<const void*>(&ForeignSink::onRtcpPacket),
    };
    ForeignSink sink{table + 2, {}};
    ITalRTCPStack* stack = nullptr;
    TalCreateRTCPStack(&stack);
    Bytes datagram = emptyReceiverReport() + firstOf(bye(), 12);
    EXPECT_EQ(0, callEntry<std::int64_t>(stack, 11, static_cast<void*>(&sink), datagram.data(), 20));
    EXPECT_THAT(sink.lengths, ElementsAre(8, 16));
    TalDestroyRTCPStack(stack);
}

TEST(RtcpVirtualTableTest, EntriesElevenToTwentyNineRead) {
    ITalRTCPStack* stack = nullptr;
    TalCreateRTCPStack(&stack);
    Bytes sr = senderReport(), rr = receiverReport(), description = sdes(), goodbye = bye(),
          application = app();
    Bytes rtpfb = rtpFeedback(), psfb = payloadFeedback();
    auto number = [&](int entry, Bytes& packet) {
        return callEntry<unsigned int>(stack, entry, packet.data(), static_cast<int>(packet.size()));
    };
    RecordingRtcpSink sink;
    EXPECT_EQ(0, callEntry<std::int64_t>(stack, 11, static_cast<ITalRTCPStackSink*>(&sink), sr.data(), 52));
    EXPECT_THAT(sink.packets, ElementsAre(sr));
    EXPECT_TRUE(callEntry<bool>(stack, 12, sr.data(), 52));
    EXPECT_FALSE(callEntry<bool>(stack, 12, sr.data(), 51));
    EXPECT_EQ(203U, number(13, goodbye));
    EXPECT_EQ(kSsrc, number(14, application));
    EXPECT_EQ(2U, number(15, rr));

    _ReportBlock blocks[2];
    int count = 2;
    EXPECT_EQ(0, callEntry<std::int64_t>(stack, 16, rr.data(), 56, &blocks[0], &count));
    EXPECT_EQ(2, count);
    EXPECT_EQ(kSecondBlock, print(blocks[1]));
    _SenderInfo info;
    EXPECT_EQ(0, callEntry<std::int64_t>(stack, 17, sr.data(), 52, &info));
    EXPECT_EQ(kInfo, print(info));
    unsigned char* stretch = nullptr;
    int length = 0;
    rr[0] = 0x81;
    EXPECT_EQ(0, callEntry<std::int64_t>(stack, 18, rr.data(), 56, &stretch, &length));
    EXPECT_EQ(rr.data() + 32, stretch);
    EXPECT_EQ(24, length);

    EXPECT_EQ(2U, number(19, description));
    _SdesItem items[2];
    count = 2;
    EXPECT_EQ(0, callEntry<std::int64_t>(stack, 20, description.data(), 24, &items[0], &count));
    EXPECT_EQ(2, count);
    EXPECT_EQ(0x55667788U, items[1].ssrc);
    EXPECT_EQ(3U, number(21, goodbye));
    unsigned int ssrcs[3];
    count = 3;
    EXPECT_EQ(0, callEntry<std::int64_t>(stack, 22, goodbye.data(), 16, &ssrcs[0], &count));
    EXPECT_THAT(ssrcs, ElementsAre(kSsrc, 0x55667788U, kMediaSsrc));

    EXPECT_EQ(21U, number(23, application));
    unsigned char name[4];
    EXPECT_EQ(0, callEntry<std::int64_t>(stack, 24, application.data(), 20, &name[0]));
    EXPECT_THAT(name, ElementsAre('T', 'E', 'S', 'T'));
    EXPECT_EQ(0, callEntry<std::int64_t>(stack, 25, application.data(), 20, &stretch, &length));
    EXPECT_EQ(application.data() + 12, stretch);
    EXPECT_EQ(8, length);

    EXPECT_EQ(1U, number(26, rtpfb));
    EXPECT_EQ(4U, number(27, psfb));
    unsigned int sender = 0, media = 0;
    EXPECT_EQ(0, callEntry<std::int64_t>(stack, 28, psfb.data(), 20, &sender, &media));
    EXPECT_EQ(kSsrc, sender);
    EXPECT_EQ(kMediaSsrc, media);
    EXPECT_EQ(0, callEntry<std::int64_t>(stack, 29, rtpfb.data(), 16, &stretch, &length));
    EXPECT_EQ(rtpfb.data() + 12, stretch);
    EXPECT_EQ(4, length);
    TalDestroyRTCPStack(stack);
}

}  // namespace
}  // namespace test
}  // namespace talrtp
