// Records to bytes: each vector, what is refused, and the native form held against the library's own stack.

#include "KitRtcpRandom.h"
#include "KitRtcpVectors.h"

#include <talrtp/TalRtcpStack.h>
#include <talrtp/kit/RtcpWriter.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace talrtp::kit::test {
namespace {

TEST(RtcpWriterTest, EachVectorIsWrittenByteForByte) {
    for (const RtcpVector& vector : rtcpVectors()) {
        SCOPED_TRACE(vector.name);
        RtcpWriter writer(vector.form);
        EXPECT_TRUE(addTo(writer, vector.record));
        EXPECT_EQ(vector.bytes, bytesOf(writer));
        EXPECT_EQ("", writer.error());
    }
}

TEST(RtcpWriterTest, PacketsAreAppendedInTheOrderOfTheCalls) {
    for (const Form form : {Form::kRfc3550, Form::kNative}) {
        RtcpWriter writer(form);
        Bytes expected;
        for (const RtcpVector& vector : rtcpVectors()) {
            if (vector.form == form) {
                ASSERT_TRUE(addTo(writer, vector.record));
                expected.insert(expected.end(), vector.bytes.begin(), vector.bytes.end());
            }
        }
        EXPECT_EQ(expected, bytesOf(writer));
        writer.clear();
        EXPECT_TRUE(writer.bytes().empty());
    }
}

TEST(RtcpWriterTest, DataOfOddLengthIsFilledUpWithZeros) {
    RtcpWriter writer(Form::kRfc3550);
    ASSERT_TRUE(writer.add(App{0, 1, {{'a', 'b', 'c', 'd'}}, {9, 8, 7, 6, 5}}));
    EXPECT_EQ((Bytes{0x80, 204, 0, 4, 0, 0, 0, 1, 'a', 'b', 'c', 'd', 9, 8, 7, 6, 5, 0, 0, 0}),
              bytesOf(writer));
    writer.clear();
    ASSERT_TRUE(writer.add(Feedback{205, 15, 1, 2, {9}}));
    EXPECT_EQ((Bytes{0x8f, 205, 0, 3, 0, 0, 0, 1, 0, 0, 0, 2, 9, 0, 0, 0}), bytesOf(writer));
}

TEST(RtcpWriterTest, AGoodbyeOfTheNativeFormLosesItsReason) {
    RtcpWriter writer(Form::kNative);
    EXPECT_TRUE(writer.addBye(0x11223344, "hello"));
    EXPECT_EQ((Bytes{0x81, 0xcb, 0x00, 0x02, 0x11, 0x22, 0x33, 0x44}), bytesOf(writer));
}

TEST(RtcpWriterTest, AnEmptyReasonIsNotWritten) {
    RtcpWriter writer(Form::kRfc3550);
    EXPECT_TRUE(writer.addBye(0x11223344));
    EXPECT_EQ((Bytes{0x81, 0xcb, 0x00, 0x01, 0x11, 0x22, 0x33, 0x44}), bytesOf(writer));
}

TEST(RtcpWriterTest, ANackOfANumberOutOfOrderOpensAnEntry) {
    const std::vector<std::pair<std::vector<std::uint16_t>, Bytes>> lists = {
        {{5, 4}, {0, 5, 0, 0, 0, 4, 0, 0}},
        {{5, 7, 6}, {0, 5, 0, 2, 0, 6, 0, 0}},
        {{5, 5}, {0, 5, 0, 0, 0, 5, 0, 0}}};
    for (const auto& [lost, entries] : lists) {
        RtcpWriter writer(Form::kRfc3550);
        ASSERT_TRUE(writer.add(Nack{1, 2, lost}));
        Bytes expected{0x81, 205, 0, 4, 0, 0, 0, 1, 0, 0, 0, 2};
        expected.insert(expected.end(), entries.begin(), entries.end());
        EXPECT_EQ(expected, bytesOf(writer));
    }
}

// ---- refusals

class RtcpRefusalTest : public ::testing::Test {
protected:
    // A refused packet leaves those before it alone.
    template <typename Record>
    void expectRefused(Form form, const Record& record, const std::string& error) {
        RtcpWriter writer(form);
        writer.add(Pli{1, 2});
        const Bytes before = bytesOf(writer);
        EXPECT_FALSE(writer.add(record));
        EXPECT_EQ(error, writer.error());
        EXPECT_EQ(before, bytesOf(writer));
        writer.clear();
        EXPECT_EQ("", writer.error());
    }
};

TEST_F(RtcpRefusalTest, NamesTheCountThatIsTooLarge) {
    const std::vector<ReportBlock> blocks(32);
    expectRefused(Form::kRfc3550, SenderReport{1, 2, 3, 4, 5, blocks, {}},
                  "sender report: 32 report blocks, at most 31 fit a packet");
    expectRefused(Form::kNative, ReceiverReport{1, blocks, {}},
                  "receiver report: 32 report blocks, at most 31 fit a packet");
    expectRefused(Form::kRfc3550, Bye{std::vector<std::uint32_t>(32), std::nullopt},
                  "goodbye: 32 sources, at most 31 fit a packet");
    expectRefused(Form::kRfc3550, SourceDescription{std::vector<SdesChunk>(32)},
                  "source description: 32 chunks, at most 31 fit a packet");
    expectRefused(Form::kNative, SourceDescription{{{1, std::vector<SdesItem>(32)}}},
                  "source description: 32 items, at most 31 fit a packet");
    RtcpWriter writer(Form::kRfc3550);
    EXPECT_TRUE(writer.add(ReceiverReport{1, std::vector<ReportBlock>(31), {}}));
}

TEST_F(RtcpRefusalTest, NamesTheTextThatIsTooLong) {
    const std::string tooLong(256, 'x');
    expectRefused(Form::kRfc3550, SourceDescription{{{1, {{kSdesCname, tooLong}}}}},
                  "source description: a text of 256 bytes, at most 255 fit an item");
    expectRefused(Form::kRfc3550, Bye{{1}, tooLong}, "goodbye: a reason of 256 bytes, at most 255 fit");
    RtcpWriter writer(Form::kRfc3550);
    EXPECT_TRUE(writer.addCname(1, std::string(255, 'x')));
    EXPECT_TRUE(writer.addBye(1, std::string(255, 'x')));
}

TEST_F(RtcpRefusalTest, NamesTheLossBeyond24Bits) {
    ReportBlock block;
    block.cumulativeLost = 0x800000;
    expectRefused(Form::kRfc3550, ReceiverReport{1, {block}, {}},
                  "receiver report: cumulative loss 8388608 does not fit 24 bits");
    block.cumulativeLost = -0x800001;
    expectRefused(Form::kNative, SenderReport{1, 2, 3, 4, 5, {block}, {}},
                  "sender report: cumulative loss -8388609 does not fit 24 bits");
    RtcpWriter writer(Form::kRfc3550);
    block.cumulativeLost = -0x800000;
    EXPECT_TRUE(writer.add(ReceiverReport{1, {block}, {}}));
    block.cumulativeLost = 0x7fffff;
    EXPECT_TRUE(writer.add(ReceiverReport{1, {block}, {}}));
}

TEST_F(RtcpRefusalTest, NamesTheValueThatHasNoPlace) {
    expectRefused(Form::kRfc3550, App{32, 1, {{'a', 'b', 'c', 'd'}}, {}},
                  "application packet: subtype 32 is above 31");
    expectRefused(Form::kRfc3550, Feedback{205, 32, 1, 2, {}}, "feedback: format 32 is above 31");
    expectRefused(Form::kRfc3550, Feedback{204, 15, 1, 2, {}},
                  "feedback: packet type 204 is neither 205 nor 206");
    expectRefused(Form::kRfc3550, SourceDescription{{{1, {{0, "x"}}}}},
                  "source description: an item of type 0 would end its chunk");
    expectRefused(Form::kNative, SourceDescription{{{1, {}}}},
                  "source description: a source without items has no native form");
    expectRefused(Form::kRfc3550, Nack{1, 2, {}}, "NACK: no sequence number is asked for");
    expectRefused(Form::kRfc3550, Fir{1, 2, {}}, "FIR: no source is asked");
}

TEST_F(RtcpRefusalTest, NamesTheSizeBeyondADatagram) {
    expectRefused(Form::kRfc3550, App{0, 1, {{'a', 'b', 'c', 'd'}}, Bytes(65536)},
                  "a compound of 65560 bytes does not fit a datagram");
}

TEST_F(RtcpRefusalTest, KeepsTheFirstReason) {
    RtcpWriter writer(Form::kRfc3550);
    EXPECT_FALSE(writer.add(Fir{1, 2, {}}));
    EXPECT_FALSE(writer.add(Nack{1, 2, {}}));
    EXPECT_EQ("FIR: no source is asked", writer.error());
}

// ---- the native form is the form of the library's own stack

_ReportBlock libraryBlock(const ReportBlock& block) {
    return {block.ssrc,
            block.fractionLost,
            static_cast<unsigned int>(block.cumulativeLost) & 0xffffff,
            block.extendedHighest,
            block.jitter,
            block.lastSenderReport,
            block.delaySinceSenderReport};
}

std::vector<_ReportBlock> libraryBlocks(const std::vector<ReportBlock>& blocks) {
    std::vector<_ReportBlock> result;
    for (const ReportBlock& block : blocks) {
        result.push_back(libraryBlock(block));
    }
    result.emplace_back();  // not counted: the stack refuses a null pointer, even for no block
    return result;
}

// The packet that the library's stack builds of a record, filled up to a whole word with zeros.
class LibraryBuilder {
public:
    Bytes operator()(const SenderReport& report) {
        _SenderInfo info{static_cast<unsigned int>(report.ntp >> 32), static_cast<unsigned int>(report.ntp),
                         report.rtpTimestamp, report.packetCount, report.octetCount};
        std::vector<_ReportBlock> blocks = libraryBlocks(report.blocks);
        return finish(m_stack.CreateSenderReportPacket(
            report.ssrc, &info, blocks.data(), static_cast<int>(report.blocks.size()), m_buffer, m_length));
    }
    Bytes operator()(const ReceiverReport& report) {
        std::vector<_ReportBlock> blocks = libraryBlocks(report.blocks);
        return finish(m_stack.CreateReceiverReportPacket(
            report.ssrc, blocks.data(), static_cast<int>(report.blocks.size()), m_buffer, m_length));
    }
    Bytes operator()(const SourceDescription& description) {
        _SdesItem item{};
        const SdesItem& source = description.chunks.at(0).items.at(0);
        item.ssrc = description.chunks[0].ssrc;
        item.type = source.type;
        item.length = static_cast<unsigned char>(source.text.size());
        std::memcpy(item.data, source.text.data(), source.text.size());
        return finish(m_stack.CreateSdesPacket(&item, 1, m_buffer, m_length));
    }
    Bytes operator()(const Bye& bye) {
        std::vector<unsigned int> ssrcs(bye.ssrcs.begin(), bye.ssrcs.end());
        ssrcs.push_back(0);
        return finish(
            m_stack.CreateByePacket(ssrcs.data(), static_cast<int>(bye.ssrcs.size()), m_buffer, m_length));
    }
    Bytes operator()(const App& app) {
        std::array<unsigned char, 4> name{};
        std::memcpy(name.data(), app.name.data(), name.size());
        Bytes data = app.data;
        data.push_back(0);
        return finish(m_stack.CreateAppPacket(app.ssrc, app.subtype, name.data(), data.data(),
                                              static_cast<int>(app.data.size()), m_buffer, m_length));
    }
    // The 16 numbers after each entry's own are worked out from the list anew.
    Bytes operator()(const Nack& nack) {
        Bytes control;
        for (std::size_t i = 0; i < nack.lost.size();) {
            const std::uint16_t first = nack.lost[i];
            unsigned int mask = 0;
            for (++i; i < nack.lost.size() && static_cast<std::uint16_t>(nack.lost[i] - first) <= 16; ++i) {
                mask += 1U << (static_cast<std::uint16_t>(nack.lost[i] - first) - 1U);
            }
            for (const unsigned int value : {first / 256U, first % 256U, mask / 256, mask % 256}) {
                control.push_back(static_cast<std::uint8_t>(value));
            }
        }
        return feedback({kRtcpTransportFeedback, 1, nack.senderSsrc, nack.mediaSsrc, control});
    }
    Bytes operator()(const Pli& pli) {
        return feedback({kRtcpPayloadFeedback, 1, pli.senderSsrc, pli.mediaSsrc, {}});
    }
    Bytes operator()(const Fir& fir) {
        Bytes control;
        for (const FirEntry& entry : fir.entries) {
            unsigned char ssrc[4];
            m_stack.SetSyncSource(entry.ssrc, ssrc);
            control.insert(control.end(), ssrc, ssrc + 4);
            control.insert(control.end(), {entry.sequence, 0, 0, 0});
        }
        return feedback({kRtcpPayloadFeedback, 4, fir.senderSsrc, fir.mediaSsrc, control});
    }
    Bytes operator()(const Feedback& packet) { return feedback(packet); }
    Bytes operator()(const UnknownPacket&) { return {}; }

private:
    static constexpr int kRoom = 70000;

    Bytes feedback(const Feedback& packet) {
        Bytes control = packet.control;
        const int size = static_cast<int>(control.size());
        control.push_back(0);
        const auto create = packet.packetType == kRtcpTransportFeedback ? &CTalRTCPStack::CreateRTPFBPacket
                                                                        : &CTalRTCPStack::CreatePSFBPacket;
        return finish((m_stack.*create)(packet.senderSsrc, packet.mediaSsrc, packet.format, control.data(),
                                        size, m_buffer, m_length));
    }

    Bytes finish(std::int64_t result) {
        EXPECT_EQ(0, result);
        Bytes bytes(m_buffer, m_buffer + m_length);
        bytes.resize((bytes.size() + 3) / 4 * 4);
        m_length = kRoom;
        return bytes;
    }

    CTalRTCPStack m_stack;
    unsigned char m_buffer[kRoom];
    int m_length = kRoom;
};

// The stack builds neither extensions nor, word by word, descriptions of several items.
bool isBuiltByTheStack(const Packet& packet) {
    if (const auto* report = std::get_if<SenderReport>(&packet)) {
        return report->extension.empty();
    }
    if (const auto* report = std::get_if<ReceiverReport>(&packet)) {
        return report->extension.empty();
    }
    if (const auto* description = std::get_if<SourceDescription>(&packet)) {
        return description->chunks.size() == 1 && description->chunks[0].items.size() == 1;
    }
    return true;
}

TEST(RtcpWriterTest, TheNativeFormIsByteForByteThatOfTheLibrary) {
    RandomRecords random(Form::kNative, 20240607);
    LibraryBuilder library;
    std::vector<int> compared(std::variant_size_v<Packet>);
    for (int round = 0; round < 5000; ++round) {
        const Packet packet = random.packet();
        if (isBuiltByTheStack(packet)) {
            RtcpWriter writer(Form::kNative);
            ASSERT_TRUE(addTo(writer, packet)) << writer.error();
            ASSERT_EQ(std::visit(library, packet), bytesOf(writer)) << "round " << round;
            ++compared[packet.index()];
        }
    }
    compared.pop_back();  // unknown packets
    for (const int count : compared) {
        EXPECT_GT(count, 30);
    }
}

TEST(RtcpWriterTest, TheLibraryReadsEveryItemOfANativeDescription) {
    RandomRecords random(Form::kNative, 7);
    CTalRTCPStack stack;
    for (int round = 0; round < 500; ++round) {
        const SourceDescription description = random.description();
        RtcpWriter writer(Form::kNative);
        ASSERT_TRUE(writer.add(description));
        Bytes bytes = bytesOf(writer);
        const int length = static_cast<int>(bytes.size());
        std::vector<_SdesItem> items(32);
        int count = static_cast<int>(stack.GetSdesItemCount(bytes.data(), length));
        ASSERT_EQ(0, stack.GetSdesItem(bytes.data(), length, items.data(), count));
        std::size_t next = 0;
        for (const SdesChunk& chunk : description.chunks) {
            for (const SdesItem& item : chunk.items) {
                const _SdesItem& read = items[next++];
                EXPECT_EQ(chunk.ssrc, read.ssrc);
                EXPECT_EQ(item.type, read.type);
                EXPECT_EQ(item.text, std::string(read.data, read.data + read.length));
            }
        }
        EXPECT_EQ(static_cast<std::size_t>(count), next);
    }
}

}  // namespace
}  // namespace talrtp::kit::test
