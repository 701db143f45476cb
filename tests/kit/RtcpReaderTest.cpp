// Bytes to records: each vector, whole and cut, damaged datagrams, round trips, and what other programs send.

#include "KitRtcpRandom.h"
#include "KitRtcpVectors.h"

#include <talrtp/TalRtcpStack.h>
#include <talrtp/kit/RtcpReader.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace talrtp::kit::test {
namespace {

Bytes joined(const std::vector<Bytes>& parts) {
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

TEST(RtcpReaderTest, EachVectorIsReadAsItsRecord) {
    for (const RtcpVector& vector : rtcpVectors()) {
        SCOPED_TRACE(vector.name);
        const ReadPackets read = readAll(vector.form, vector.bytes);
        EXPECT_EQ("", read.result.error);
        ASSERT_EQ(1u, read.packets.size());
        EXPECT_TRUE(vector.record == read.packets[0]);
        EXPECT_EQ(1u, read.result.packets);
        EXPECT_EQ(0u, read.result.unknown);
    }
}

TEST(RtcpReaderTest, EachVectorIsRefusedAtEveryShorterLength) {
    for (const RtcpVector& vector : rtcpVectors()) {
        const bool isFeedbackData =
            std::holds_alternative<App>(vector.record) || std::holds_alternative<Feedback>(vector.record);
        for (std::size_t size = 0; size < vector.bytes.size(); ++size) {
            SCOPED_TRACE(vector.name + ", " + std::to_string(size) + " bytes");
            const ReadPackets read = readAll(
                vector.form, Bytes(vector.bytes.begin(), vector.bytes.begin() + static_cast<int>(size)));
            // A native packet may lack the bytes that fill up its last word.
            const bool mayLack = vector.form == Form::kNative && vector.bytes.size() - size < 4;
            if (mayLack && (isFeedbackData || read.result)) {
                EXPECT_TRUE(isFeedbackData || vector.record == read.packets.at(0));
                continue;
            }
            EXPECT_NE("", read.result.error);
            EXPECT_EQ(0u, read.packets.size());
            EXPECT_EQ(0u, read.result.packets);
        }
    }
}

TEST(RtcpReaderTest, ACompoundIsReadInOrder) {
    for (const Form form : {Form::kRfc3550, Form::kNative}) {
        Bytes datagram;
        std::vector<Packet> expected;
        for (const RtcpVector& vector : rtcpVectors()) {
            if (vector.form == form) {
                datagram.insert(datagram.end(), vector.bytes.begin(), vector.bytes.end());
                expected.push_back(vector.record);
            }
        }
        const ReadPackets read = readAll(form, datagram);
        EXPECT_EQ("", read.result.error);
        EXPECT_TRUE(expected == read.packets);
        EXPECT_EQ(expected.size(), read.result.packets);
        EXPECT_FALSE(read.result.isReducedSize);
    }
}

TEST(RtcpReaderTest, AVisitorTakesTheRecordsThatItWants) {
    RtcpWriter writer(Form::kRfc3550);
    writer.add(ReceiverReport{7, {}, {}});
    writer.addCname(7, "me");
    writer.add(Pli{7, 8});
    int plis = 0;
    std::string cname;
    const RtcpReadResult result =
        RtcpReader(Form::kRfc3550)
            .read(writer.bytes(), RtcpVisitor{[&](const Pli&) { ++plis; },
                                              [&](const SourceDescription& description) {
                                                  cname = description.chunks.at(0).items.at(0).text;
                                              }});
    EXPECT_TRUE(result);
    EXPECT_EQ(3u, result.packets);
    EXPECT_EQ(1, plis);
    EXPECT_EQ("me", cname);
}

TEST(RtcpReaderTest, AnUnknownTypeIsSkippedAndCounted) {
    const Bytes report{0x80, 0xc9, 0x00, 0x01, 0x11, 0x22, 0x33, 0x44};
    const Bytes extended{0x83, 207, 0x00, 0x02, 1, 2, 3, 4, 5, 6, 7, 8};  // XR, RFC 3611
    const ReadPackets read = readAll(Form::kRfc3550, joined({report, extended, report}));
    EXPECT_EQ("", read.result.error);
    EXPECT_EQ(3u, read.result.packets);
    EXPECT_EQ(1u, read.result.unknown);
    EXPECT_TRUE(Packet(UnknownPacket{207, 3, {1, 2, 3, 4, 5, 6, 7, 8}}) == read.packets.at(1));
}

// RFC 5761, 4: types from 192 to 223 are RTCP. The records are of types 200 to 206.
TEST(RtcpReaderTest, TypesAtTheEndsOfTheRangeAreUnknownPackets) {
    for (const std::uint8_t type : {192, 199, 207, 223}) {
        const ReadPackets read = readAll(Form::kRfc3550, {0x80, type, 0x00, 0x00});
        EXPECT_EQ("", read.result.error) << int{type};
        EXPECT_EQ(1u, read.result.unknown) << int{type};
        EXPECT_TRUE(Packet(UnknownPacket{type, 0, {}}) == read.packets.at(0)) << int{type};
    }
}

// The format 4 is that of an FIR in payload feedback only.
TEST(RtcpReaderTest, TransportFeedbackOfAnotherFormatKeepsItsBytes) {
    const ReadPackets read =
        readAll(Form::kRfc3550, {0x84, 0xcd, 0x00, 0x04, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3, 7, 0, 0, 0});
    EXPECT_EQ("", read.result.error);
    EXPECT_TRUE(Packet(Feedback{205, 4, 1, 2, {0, 0, 0, 3, 7, 0, 0, 0}}) == read.packets.at(0));
}

TEST(RtcpReaderTest, ReducedSizeIsAcceptedAndReported) {
    const ReadPackets read =
        readAll(Form::kRfc3550, {0x81, 0xce, 0x00, 0x02, 0x11, 0x22, 0x33, 0x44, 0x99, 0xaa, 0xbb, 0xcc});
    EXPECT_TRUE(read.result);
    EXPECT_TRUE(read.result.isReducedSize);
    EXPECT_FALSE(readAll(Form::kRfc3550, {0x80, 0xc9, 0x00, 0x01, 1, 2, 3, 4}).result.isReducedSize);
}

TEST(RtcpReaderTest, CumulativeLossKeepsItsSignAtBothEnds) {
    for (const auto& [high, expected] :
         {std::pair<std::uint8_t, std::int32_t>{0x7f, 0x7fff00}, {0x80, -0x800000}}) {
        Bytes bytes(32);
        bytes[0] = 0x81;
        bytes[1] = 0xc9;
        bytes[3] = 7;
        bytes[13] = high;
        bytes[14] = high == 0x7f ? 0xff : 0;
        const ReadPackets read = readAll(Form::kRfc3550, bytes);
        EXPECT_EQ(expected, std::get<ReceiverReport>(read.packets.at(0)).blocks.at(0).cumulativeLost);
    }
}

// ---- the checks of RFC 3550, A.2: nothing of such a datagram is handed over

struct Damaged {
    Bytes bytes;
    std::string error;
};

void expectErrors(Form form, const std::vector<Damaged>& datagrams) {
    for (const Damaged& datagram : datagrams) {
        const ReadPackets read = readAll(form, datagram.bytes);
        EXPECT_EQ(datagram.error, read.result.error);
        EXPECT_FALSE(read.result);
        EXPECT_TRUE(read.packets.empty());
    }
}

TEST(RtcpReaderTest, ADatagramThatIsNoRtcpYieldsNothing) {
    const Bytes report{0x80, 0xc9, 0x00, 0x01, 1, 2, 3, 4};
    expectErrors(
        Form::kRfc3550,
        {
            {{}, "the datagram is empty"},
            {{0x80, 0xc9, 0x00}, "packet 1 at byte 0: 3 bytes hold no header"},
            {{0x40, 0xc9, 0x00, 0x01, 1, 2, 3, 4}, "packet 1 at byte 0: its version is 1, not 2"},
            {{0xc0, 0xc9, 0x00, 0x01, 1, 2, 3, 4}, "packet 1 at byte 0: its version is 3, not 2"},
            {{0x80, 0x62, 0x00, 0x01, 1, 2, 3, 4}, "packet 1 at byte 0: type 98 is not one of RTCP"},
            {{0x80, 191, 0x00, 0x01, 1, 2, 3, 4}, "packet 1 at byte 0: type 191 is not one of RTCP"},
            {{0x80, 224, 0x00, 0x01, 1, 2, 3, 4}, "packet 1 at byte 0: type 224 is not one of RTCP"},
            {{0x80, 0xc9, 0x00, 0x02, 1, 2, 3, 4}, "packet 1 at byte 0: it declares 12 bytes and 8 are left"},
            {joined({report, {0x01, 0xca, 0x00, 0x00}}), "packet 2 at byte 8: its version is 0, not 2"},
            {joined({report, {0x80, 156, 0x00, 0x00}}), "packet 2 at byte 8: type 156 is not one of RTCP"},
            {joined({report, {0x80}}), "packet 2 at byte 8: 1 bytes hold no header"},
            {joined({report, {0x80, 0xca, 0xff, 0xff}}),
             "packet 2 at byte 8: it declares 262144 bytes and 4 are left"},
        });
    expectErrors(Form::kNative, {{{0x80, 0xc9, 0x00, 0x00}, "packet 1 at byte 0: its length field is 0"},
                                 {joined({{0x80, 0xc9, 0x00, 0x02, 1, 2, 3, 4}, {0x80, 0xca, 0x00, 0x00}}),
                                  "packet 2 at byte 8: its length field is 0"}});
}

TEST(RtcpReaderTest, PaddingIsTakenOffTheLastPacket) {
    const Bytes padded{0xa1, 0xce, 0x00, 0x04, 0x11, 0x22, 0x33, 0x44, 0x99, 0xaa,
                       0xbb, 0xcc, 0,    0,    0,    0,    0,    0,    0,    8};
    const ReadPackets read = readAll(Form::kRfc3550, padded);
    EXPECT_EQ("", read.result.error);
    EXPECT_TRUE(Packet(Pli{0x11223344, 0x99aabbcc}) == read.packets.at(0));
}

TEST(RtcpReaderTest, WrongPaddingYieldsNothing) {
    const Bytes report{0xa0, 0xc9, 0x00, 0x02, 1, 2, 3, 4, 0, 0, 0, 4};
    expectErrors(
        Form::kRfc3550,
        {
            {joined({report, report}), "packet 1 at byte 0: it has padding and is not the last packet"},
            {{0xa0, 0xc9, 0x00, 0x02, 1, 2, 3, 4, 0, 0, 0, 0},
             "packet 1 at byte 0: 0 bytes of padding in 12 bytes"},
            {{0xa0, 0xc9, 0x00, 0x02, 1, 2, 3, 4, 0, 0, 0, 3},
             "packet 1 at byte 0: 3 bytes of padding in 12 bytes"},
            {{0xa0, 0xc9, 0x00, 0x02, 1, 2, 3, 4, 0, 0, 0, 6},
             "packet 1 at byte 0: 6 bytes of padding in 12 bytes"},
            {{0xa0, 0xc9, 0x00, 0x02, 1, 2, 3, 4, 0, 0, 0, 12},
             "packet 1 at byte 0: 12 bytes of padding in 12 bytes"},
            {{0xa0, 0xc9, 0x00, 0x00}, "packet 1 at byte 0: 0 bytes of padding in 4 bytes"},
            {{0xa0, 0xc9, 0x00, 0x02, 1, 2, 3, 4, 0, 0, 0, 8},
             "packet 1 at byte 0: type 201, it ends before its last field"},
        });
}

// ---- packets whose contents do not fit their size: those before them are handed over

TEST(RtcpReaderTest, APacketWhoseContentsDoNotFitEndsTheRead) {
    const Bytes report{0x80, 0xc9, 0x00, 0x01, 1, 2, 3, 4};
    const std::string isShort = "it ends before its last field";
    const std::vector<Damaged> packets = {
        {{0x81, 0xc9, 0x00, 0x01, 1, 2, 3, 4}, "type 201, " + isShort},  // counts a block and has none
        {{0x80, 0xc8, 0x00, 0x01, 1, 2, 3, 4}, "type 200, " + isShort},  // no sender info
        {{0x81, 0xca, 0x00, 0x02, 1, 2, 3, 4, 1, 2, 'a', 'b'},
         "type 202, " + isShort},  // no end of the chunk
        {{0x81, 0xca, 0x00, 0x02, 1, 2, 3, 4, 1, 9, 'a', 'b'}, "type 202, " + isShort},  // text runs out
        {{0x82, 0xca, 0x00, 0x02, 1, 2, 3, 4, 1, 1, 'a', 0}, "type 202, " + isShort},    // counts two chunks
        {{0x82, 0xcb, 0x00, 0x01, 1, 2, 3, 4}, "type 203, " + isShort},
        {{0x81, 0xcb, 0x00, 0x02, 1, 2, 3, 4, 4, 'a', 'b', 'c'}, "type 203, " + isShort},  // reason runs out
        {{0x80, 0xcc, 0x00, 0x01, 1, 2, 3, 4}, "type 204, " + isShort},
        {{0x81, 0xcd, 0x00, 0x01, 1, 2, 3, 4}, "type 205, " + isShort},
        {{0x81, 0xcd, 0x00, 0x02, 1, 2, 3, 4, 5, 6, 7, 8}, "type 205, a NACK without an entry"},
        {{0x81, 0xce, 0x00, 0x03, 1, 2, 3, 4, 5, 6, 7, 8, 0, 0, 0, 0},
         "type 206, a PLI with 4 bytes of control information"},
        {{0x84, 0xce, 0x00, 0x03, 1, 2, 3, 4, 5, 6, 7, 8, 0, 0, 0, 0},
         "type 206, a FIR with 4 bytes of entries"},
        {{0x84, 0xce, 0x00, 0x02, 1, 2, 3, 4, 5, 6, 7, 8}, "type 206, a FIR with 0 bytes of entries"},
    };
    for (const Damaged& packet : packets) {
        const ReadPackets read = readAll(Form::kRfc3550, joined({report, packet.bytes, report}));
        EXPECT_EQ("packet 2 at byte 8: " + packet.error, read.result.error);
        EXPECT_EQ(1u, read.result.packets);
        EXPECT_EQ(1u, read.packets.size());
    }
}

TEST(RtcpReaderTest, ANativeItemWithoutItsLastFillBytesIsRead) {
    // 15 bytes, as the library's builder returns them: the length field says 4 words.
    const Bytes cut{0x81, 0xca, 0x00, 0x04, 0x11, 0x22, 0x33, 0x44, 0x01, 0x05, 0x68, 0x65, 0x6c, 0x6c, 0x6f};
    const ReadPackets read = readAll(Form::kNative, cut);
    EXPECT_EQ("", read.result.error);
    EXPECT_TRUE(Packet(SourceDescription{{{0x11223344, {{kSdesCname, "hello"}}}}}) == read.packets.at(0));
    const Bytes withoutLetter(cut.begin(), cut.end() - 1);
    EXPECT_EQ("packet 1 at byte 0: type 202, it ends before its last field",
              readAll(Form::kNative, withoutLetter).result.error);
}

// The library's builders leave the last word of these unfilled, and of no other packet.
TEST(RtcpReaderTest, OnlyNativePacketsOfSomeTypesMayEndEarly) {
    for (std::uint8_t type = 200; type <= 207; ++type) {
        SCOPED_TRACE(int{type});
        // 8 words, of which the last byte is lacking.
        Bytes packet{0x80, type, 0x00, 0x08};
        packet.resize(31);
        const bool mayEndEarly = type == 202 || (type >= 204 && type <= 206);
        EXPECT_EQ(mayEndEarly ? "" : "packet 1 at byte 0: it declares 32 bytes and 31 are left",
                  readAll(Form::kNative, packet).result.error);
        packet[3] = 0x07;  // as many bytes in that form
        EXPECT_EQ("packet 1 at byte 0: it declares 32 bytes and 31 are left",
                  readAll(Form::kRfc3550, packet).result.error);
    }
}

TEST(RtcpReaderTest, TheNativeFormHasNeitherPaddingNorAReason) {
    const ReadPackets report = readAll(Form::kNative, {0xa0, 0xc9, 0x00, 0x02, 1, 2, 3, 4});
    EXPECT_EQ("", report.result.error);
    EXPECT_TRUE(Packet(ReceiverReport{0x01020304, {}, {}}) == report.packets.at(0));
    const ReadPackets bye = readAll(Form::kNative, {0x81, 0xcb, 0x00, 0x03, 1, 2, 3, 4, 3, 'e', 'n', 'd'});
    EXPECT_EQ("", bye.result.error);
    EXPECT_TRUE(Packet(Bye{{0x01020304}, std::nullopt}) == bye.packets.at(0));
}

// ---- round trips

TEST(RtcpReaderTest, WhatIsWrittenIsReadInBothForms) {
    for (const Form form : {Form::kRfc3550, Form::kNative}) {
        RandomRecords random(form, 4711);
        for (int round = 0; round < 3000; ++round) {
            const std::vector<Packet> packets = random.compound();
            RtcpWriter writer(form);
            for (const Packet& packet : packets) {
                ASSERT_TRUE(addTo(writer, packet)) << writer.error();
            }
            const ReadPackets read = readAll(form, bytesOf(writer));
            ASSERT_EQ("", read.result.error) << "round " << round;
            ASSERT_TRUE(packets == read.packets) << "round " << round;
        }
    }
}

TEST(RtcpReaderTest, DamagedCompoundsAreReadWithoutHarm) {
    for (const Form form : {Form::kRfc3550, Form::kNative}) {
        RandomRecords random(form, 99);
        std::size_t refused = 0;
        for (int round = 0; round < 3000; ++round) {
            RtcpWriter writer(form);
            for (const Packet& packet : random.compound()) {
                addTo(writer, packet);
            }
            Bytes bytes = bytesOf(writer);
            for (std::size_t changes = 1 + random.upTo(3); changes > 0; --changes) {
                bytes[random.upTo(bytes.size() - 1)] = random.byte();
            }
            bytes.resize(bytes.size() - random.upTo(3));
            const ReadPackets read = readAll(form, bytes);
            EXPECT_EQ(read.packets.size(), read.result.packets);
            refused += read.result ? 0 : 1;
        }
        EXPECT_GT(refused, 1000u);
    }
}

// ---- the library's stack reads what the kit writes in the native form

class CountingSink : public ITalRTCPStackSink {
public:
    void OnRtcpPacket(unsigned char* packet, int length) override {
        EXPECT_TRUE(m_stack.IsValidRtcpPacket(packet, length));
        RtcpReader(Form::kNative).read({packet, static_cast<std::size_t>(length)}, [&](const auto& record) {
            packets.emplace_back(record);
        });
    }
    std::vector<Packet> packets;

private:
    CTalRTCPStack m_stack;
};

TEST(RtcpReaderTest, TheLibraryCutsANativeCompoundIntoTheSamePackets) {
    RandomRecords random(Form::kNative, 31);
    CTalRTCPStack stack;
    for (int round = 0; round < 1000; ++round) {
        const std::vector<Packet> packets = random.compound();
        RtcpWriter writer(Form::kNative);
        for (const Packet& packet : packets) {
            addTo(writer, packet);
        }
        Bytes bytes = bytesOf(writer);
        CountingSink sink;
        ASSERT_EQ(0, stack.InputReceivedRtcpData(&sink, bytes.data(), static_cast<int>(bytes.size())));
        ASSERT_TRUE(packets == sink.packets) << "round " << round;
    }
}

// ---- what other programs send

// Captured from ffmpeg 5.1, after 666 packets with 659,327 bytes of payload.
Bytes ffmpegReport() {
    // clang-format off
    return {
        0x80, 0xc8, 0x00, 0x06,
        0x7f, 0xb7, 0x75, 0xe1,
        0xee, 0xac, 0xb7, 0xdc,
        0xda, 0x9f, 0xbe, 0x76,
        0xad, 0xba, 0xca, 0xf5,
        0x00, 0x00, 0x02, 0x9a,
        0x00, 0x0a, 0x0f, 0x7f,
    };
    // clang-format on
}

// Captured from the rtpbin of GStreamer 1.22 at the end of a stream: SR, SDES and BYE.
Bytes gstreamerCompound() {
    // clang-format off
    return {
        0x80, 0xc8, 0x00, 0x06,
        0xd2, 0x6d, 0x74, 0xa5,
        0xee, 0xac, 0xb7, 0xdf,
        0x3d, 0x22, 0x20, 0xbc,
        0x93, 0x08, 0xeb, 0x7a,
        0x00, 0x00, 0x06, 0xa5,
        0x00, 0x18, 0x57, 0xd6,
        0x81, 0xca, 0x00, 0x0c,
        0xd2, 0x6d, 0x74, 0xa5,
        0x01, 0x1c, 0x75, 0x73,
        0x65, 0x72, 0x31, 0x37,
        0x35, 0x39, 0x31, 0x34,
        0x34, 0x36, 0x38, 0x31,
        0x40, 0x68, 0x6f, 0x73,
        0x74, 0x2d, 0x32, 0x32,
        0x33, 0x64, 0x31, 0x33,
        0x31, 0x38, 0x06, 0x09,
        0x47, 0x53, 0x74, 0x72,
        0x65, 0x61, 0x6d, 0x65,
        0x72, 0x00, 0x00, 0x00,
        0x81, 0xcb, 0x00, 0x01,
        0xd2, 0x6d, 0x74, 0xa5,
    };
    // clang-format on
}

TEST(RtcpReaderTest, AReportOfFfmpegHasItsTrueCounts) {
    const ReadPackets read = readAll(Form::kRfc3550, ffmpegReport());
    EXPECT_EQ("", read.result.error);
    ASSERT_EQ(1u, read.packets.size());
    EXPECT_TRUE(Packet(SenderReport{0x7fb775e1, 0xeeacb7dcda9fbe76, 0xadbacaf5, 666, 659327, {}, {}}) ==
                read.packets[0]);
}

TEST(RtcpReaderTest, ACompoundOfGStreamerHasItsTrueCounts) {
    const std::uint32_t ssrc = 0xd26d74a5;
    const ReadPackets read = readAll(Form::kRfc3550, gstreamerCompound());
    EXPECT_EQ("", read.result.error);
    const std::vector<Packet> expected = {
        SenderReport{ssrc, 0xeeacb7df3d2220bc, 0x9308eb7a, 1701, 1595350, {}, {}},
        SourceDescription{{{ssrc, {{kSdesCname, "user1759144681@host-223d1318"}, {kSdesTool, "GStreamer"}}}}},
        Bye{{ssrc}, std::nullopt},
    };
    EXPECT_TRUE(expected == read.packets);
}

// ---- the wrong form

// The judgement of the library's stack on the packets of a datagram: whether each is valid, how many blocks
// it counts, and whether it has a sender info.
class JudgingSink : public ITalRTCPStackSink {
public:
    struct Judgement {
        bool isValid;
        unsigned int type;
        unsigned int ssrc;
        unsigned int blocks;
        std::int64_t senderInfo;
    };
    void OnRtcpPacket(unsigned char* packet, int length) override {
        _SenderInfo info;
        judgements.push_back(
            {m_stack.IsValidRtcpPacket(packet, length), m_stack.GetRtcpPacketType(packet, length),
             m_stack.GetRtcpPacketSsrc(packet, length), m_stack.GetReportBlockCount(packet, length),
             m_stack.GetReportSenderInfo(packet, length, &info)});
    }
    std::vector<Judgement> judgements;

private:
    CTalRTCPStack m_stack;
};

TEST(RtcpReaderTest, TheLibraryTakesAForeignReportForAValidOneWithZeroCounts) {
    const Bytes receiverReport{0x80, 0xc9, 0x00, 0x01, 0x11, 0x22, 0x33, 0x44};
    for (const Bytes& foreign : {ffmpegReport(), gstreamerCompound(), receiverReport}) {
        Bytes bytes = foreign;
        JudgingSink sink;
        CTalRTCPStack().InputReceivedRtcpData(&sink, bytes.data(), static_cast<int>(bytes.size()));
        ASSERT_FALSE(sink.judgements.empty());
        const JudgingSink::Judgement& first = sink.judgements.front();
        EXPECT_TRUE(first.isValid);
        EXPECT_EQ(bytes[1], first.type);
        EXPECT_EQ(
            bytes[1] == 201 ? 0u : bytes[4] * 0x1000000u + bytes[5] * 0x10000u + bytes[6] * 0x100u + bytes[7],
            first.ssrc);
        EXPECT_EQ(0u, first.blocks);
        EXPECT_EQ(-1, first.senderInfo);
    }
}

// Not one in a hundred passes: the last word of a NACK can look like a header.
TEST(RtcpReaderTest, RandomCompoundsReadInTheOtherFormRarelyPass) {
    for (const Form form : {Form::kRfc3550, Form::kNative}) {
        const Form other = form == Form::kNative ? Form::kRfc3550 : Form::kNative;
        RandomRecords random(form, 60);
        int passed = 0;
        for (int round = 0; round < 3000; ++round) {
            RtcpWriter writer(form);
            for (const Packet& packet : random.compound()) {
                addTo(writer, packet);
            }
            passed += readAll(other, bytesOf(writer)).result ? 1 : 0;
        }
        EXPECT_LT(passed, 30);
    }
}

TEST(RtcpReaderTest, AForeignReportInTheNativeFormYieldsNothing) {
    for (const Bytes& foreign : {ffmpegReport(), gstreamerCompound()}) {
        const ReadPackets read = readAll(Form::kNative, foreign);
        EXPECT_EQ("packet 2 at byte 24: its version is 0, not 2", read.result.error);
        EXPECT_EQ(0u, read.packets.size());
    }
}

TEST(RtcpReaderTest, EachVectorReadInTheOtherFormIsRefused) {
    for (const RtcpVector& vector : rtcpVectors()) {
        SCOPED_TRACE(vector.name);
        const Form other = vector.form == Form::kNative ? Form::kRfc3550 : Form::kNative;
        const ReadPackets read = readAll(other, vector.bytes);
        EXPECT_FALSE(read.result);
        EXPECT_EQ(0u, read.packets.size());
    }
}

}  // namespace
}  // namespace talrtp::kit::test
