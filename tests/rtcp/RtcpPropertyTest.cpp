// RTCP under random input: what the builder writes the reader reads back, and every reader agrees with a
// second opinion on any bytes, at any length. The seeds are fixed and named by a failing test.

#include "RtcpReading.h"
#include "RtcpVectors.h"
#include "SeededRandom.h"
#include "TraceCatcher.h"

#include <talrtp/TalRtcpStack.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace talrtp {
namespace test {
namespace {

using ::testing::Each;

constexpr unsigned int kSeeds = 1000;
constexpr unsigned char kUntouched = 0xee;

class Random : public SeededRandom {
public:
    using SeededRandom::SeededRandom;

    // A number from `low` to `high`, both included.
    int number(int low, int high) {
        return low + static_cast<int>(between(0, static_cast<unsigned int>(high - low)));
    }
    unsigned int word() { return between(0, 0xffffffff); }
    unsigned char byte() { return static_cast<unsigned char>(between(0, 0xff)); }
    _ReportBlock block() {
        _ReportBlock block;
        block.ssrc = word();
        block.fractionLost = byte();
        block.cumulativeLost = word() % 0x1000000U;
        block.extendedHighestSeq = word();
        block.jitter = word();
        block.lastSR = word();
        block.delaySinceLastSR = word();
        return block;
    }
    std::vector<_ReportBlock> blocks(int count) {
        std::vector<_ReportBlock> blocks;
        for (int i = 0; i < count; ++i) {
            blocks.push_back(block());
        }
        return blocks;
    }
    // Bytes that look like a packet more often than not, so that readers get past the first checks.
    Bytes packet(int maxSize) {
        Bytes bytes = this->bytes(between(0, static_cast<unsigned int>(maxSize)));
        const unsigned char header[] = {static_cast<unsigned char>(0x80 | number(0, 31)),
                                        static_cast<unsigned char>(number(199, 207)), 0,
                                        static_cast<unsigned char>(number(0, maxSize / 4))};
        for (std::size_t i = 0; i < bytes.size() && i < sizeof(header); ++i) {
            if (!oneIn(16)) {
                bytes[i] = header[i];
            }
        }
        return bytes;
    }
};

class RtcpPropertyTest : public ::testing::Test {
protected:
    template <class Story>
    void forEachSeed(Story story) {
        for (unsigned int seed = 1; seed <= kSeeds && !HasFailure(); ++seed) {
            SCOPED_TRACE("seed " + std::to_string(seed));
            Random random(seed);
            story(random);
        }
    }

    // The packet that a build returns, filled up to a word as the reader wants it.
    template <class Call>
    Bytes built(int room, Call call) {
        Bytes buf(static_cast<std::size_t>(room), 0);
        int len = room;
        EXPECT_EQ(0, call(buf.data(), len));
        buf.resize(static_cast<std::size_t>((len + 3) / 4 * 4), 0);
        return buf;
    }

    CTalRTCPStack stack;
};

// ---- reading

TEST_F(RtcpPropertyTest, EveryGetterAgreesWithASecondOpinionOnAnyBytes) {
    int valid = 0;
    forEachSeed([&](Random& random) {
        const Bytes bytes = random.packet(random.oneIn(8) ? 600 : 72);
        const Reading reading = readAll(stack, bytes);
        EXPECT_EQ(expectedReading(bytes), reading) << hex(bytes.data(), static_cast<int>(bytes.size()));
        valid += reading.count("valid") != 0 ? 1 : 0;
    });
    EXPECT_GT(valid, static_cast<int>(kSeeds / 4)) << "too few packets got past the first checks";
}

std::int64_t expectedCut(const Bytes& datagram, std::vector<Bytes>& packets) {
    const reading::Received received(datagram);
    int at = 0;
    while (at < received.size()) {
        const int declared = 4 * (0x100 * received.byte(at + 2) + received.byte(at + 3));
        if (declared == 0) {
            return -2;
        }
        packets.push_back(received.stretch(at, declared));
        at += declared;
    }
    return datagram.empty() ? -1 : 0;
}

TEST_F(RtcpPropertyTest, DatagramsAreCutAsASecondOpinionCutsThem) {
    std::size_t cut = 0;
    forEachSeed([&](Random& random) {
        Bytes datagram;
        for (int i = random.number(0, 6); i > 0; --i) {
            Bytes packet = random.packet(40);
            if (packet.size() >= 4 && !random.oneIn(4)) {
                packet.resize(std::max<std::size_t>(4, packet.size() / 4 * 4));
                packet[2] = 0;
                packet[3] = static_cast<unsigned char>(packet.size() / 4);
            }
            datagram.insert(datagram.end(), packet.begin(), packet.end());
        }
        RecordingRtcpSink sink;
        std::vector<Bytes> expected;
        const std::int64_t expectedResult = expectedCut(datagram, expected);
        ExactBuffer buffer(datagram);
        EXPECT_EQ(expectedResult, stack.InputReceivedRtcpData(&sink, buffer.data(), buffer.size()));
        EXPECT_EQ(expected, sink.packets);
        cut += sink.packets.size();
    });
    EXPECT_GT(cut, std::size_t{kSeeds}) << "too few packets were cut";
}

// ---- building, read back

TEST_F(RtcpPropertyTest, ReportsReadBack) {
    forEachSeed([&](Random& random) {
        const int count = random.number(0, 31);
        std::vector<_ReportBlock> blocks = random.blocks(count + 1);
        _SenderInfo info = {random.word(), random.word(), random.word(), random.word(), random.word()};
        const unsigned int ssrc = random.word();
        const bool isSender = random.oneIn(2);
        Bytes packet = built(28 + 24 * 31, [&](unsigned char* buf, int& len) {
            return stack.CreateSenderReportPacket(ssrc, isSender ? &info : nullptr, blocks.data(), count, buf,
                                                  len);
        });
        const int len = static_cast<int>(packet.size());
        EXPECT_EQ((isSender ? 28 : 8) + 24 * count, len);
        EXPECT_EQ(isSender ? 200U : 201U, stack.GetRtcpPacketType(packet.data(), len));
        EXPECT_EQ(ssrc, stack.GetRtcpPacketSsrc(packet.data(), len));
        EXPECT_EQ(static_cast<unsigned int>(count), stack.GetReportBlockCount(packet.data(), len));
        _SenderInfo infoBack = {};
        EXPECT_EQ(isSender ? 0 : -1, stack.GetReportSenderInfo(packet.data(), len, &infoBack));
        EXPECT_EQ(print(isSender ? info : _SenderInfo{}), print(infoBack));
        std::vector<_ReportBlock> blocksBack(static_cast<std::size_t>(count) + 1);
        int countBack = count;
        EXPECT_EQ(0, stack.GetReportBlock(packet.data(), len, blocksBack.data(), countBack));
        ASSERT_EQ(count, countBack);
        for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
            EXPECT_EQ(print(blocks[i]), print(blocksBack[i]));
        }
    });
}

// Texts of 2, 6, 10 ... bytes end on a word, so every item is found; after any other text the next is not.
TEST_F(RtcpPropertyTest, ItemsThatEndOnAWordReadBackAndTheLastMayEndAnywhere) {
    forEachSeed([&](Random& random) {
        const int count = random.number(1, 31);
        std::vector<_SdesItem> items;
        for (int i = 0; i < count; ++i) {
            const int length = i + 1 < count ? 2 + 4 * random.number(0, 63) : random.number(0, 255);
            const Bytes text = random.bytes(length);
            items.push_back(sdesItem(random.word(), random.byte(), std::string(text.begin(), text.end())));
        }
        Bytes packet = built(4 + 264 * 31, [&](unsigned char* buf, int& len) {
            return stack.CreateSdesPacket(items.data(), count, buf, len);
        });
        std::vector<_SdesItem> back(static_cast<std::size_t>(count) + 1);
        int countBack = count + 1;
        EXPECT_EQ(0,
                  stack.GetSdesItem(packet.data(), static_cast<int>(packet.size()), back.data(), countBack));
        ASSERT_EQ(count, countBack);
        for (std::size_t i = 0; i < items.size(); ++i) {
            EXPECT_EQ(printItem(items[i].ssrc, items[i].type, items[i].data, items[i].length),
                      printItem(back[i].ssrc, back[i].type, back[i].data, back[i].length));
        }
    });
}

TEST_F(RtcpPropertyTest, GoodbyesReadBack) {
    forEachSeed([&](Random& random) {
        std::vector<unsigned int> ssrcs;
        const int count = random.number(1, 31);
        for (int i = 0; i < count; ++i) {
            ssrcs.push_back(random.word());
        }
        Bytes packet = built(4 + 4 * 31, [&](unsigned char* buf, int& len) {
            return stack.CreateByePacket(ssrcs.data(), count, buf, len);
        });
        std::vector<unsigned int> back(32);
        int countBack = 32;
        EXPECT_EQ(0,
                  stack.GetByeSsrc(packet.data(), static_cast<int>(packet.size()), back.data(), countBack));
        back.resize(static_cast<std::size_t>(countBack));
        EXPECT_EQ(ssrcs, back);
        EXPECT_EQ(static_cast<unsigned int>(count),
                  stack.GetByeSsrcCount(packet.data(), static_cast<int>(packet.size())));
    });
}

TEST_F(RtcpPropertyTest, AppAndFeedbackReadBackWithTheirDataFilledUp) {
    forEachSeed([&](Random& random) {
        const int type = random.number(204, 206);
        const unsigned char subtype = static_cast<unsigned char>(random.number(0, 31));
        const unsigned int ssrc = random.word(), media = random.word();
        const int dataLen = random.number(0, 200);
        Bytes data = random.bytes(dataLen + 1), name = random.bytes(4);
        Bytes packet = built(212, [&](unsigned char* buf, int& len) {
            return type == 204
                       ? stack.CreateAppPacket(ssrc, subtype, name.data(), data.data(), dataLen, buf, len)
                   : type == 205
                       ? stack.CreateRTPFBPacket(ssrc, media, subtype, data.data(), dataLen, buf, len)
                       : stack.CreatePSFBPacket(ssrc, media, subtype, data.data(), dataLen, buf, len);
        });
        data.resize(static_cast<std::size_t>(dataLen));
        data.resize(static_cast<std::size_t>((dataLen + 3) / 4 * 4), 0);
        Reading reading = readAll(stack, packet);
        const std::string stretch =
            "at 12, " + std::to_string(data.size()) + ": " + hex(data.data(), static_cast<int>(data.size()));
        EXPECT_EQ(std::to_string(type), reading["type"]);
        if (type == 204) {
            EXPECT_EQ(hex(name.data(), 4), reading["name"]);
            EXPECT_EQ(stretch, reading["data"]);
            EXPECT_EQ(subtype, stack.GetAppSubType(packet.data(), static_cast<int>(packet.size())));
        } else {
            EXPECT_EQ(hex(ssrc) + " " + hex(media), reading["feedback sources"]);
            EXPECT_EQ(stretch, reading["FCI"]);
            EXPECT_EQ(subtype == 0 ? "" : std::to_string(subtype),
                      reading[type == 205 ? "RTPFB type" : "PSFB type"]);
        }
    });
}

TEST_F(RtcpPropertyTest, CompoundOfFilledUpPacketsIsCutIntoThemAgain) {
    const std::vector<RtcpVector> vectors = rtcpVectors();
    forEachSeed([&](Random& random) {
        std::vector<Bytes> packets;
        int size = 0;
        for (int i = random.number(1, 8); i > 0; --i) {
            const RtcpVector& vector =
                vectors[static_cast<std::size_t>(random.number(0, static_cast<int>(vectors.size()) - 1))];
            packets.push_back(built(vector.neededCapacity, [&](unsigned char* buf, int& len) {
                return vector.build(stack, buf, len);
            }));
            size += static_cast<int>(packets.back().size());
        }
        std::vector<unsigned char*> starts;
        std::vector<int> lengths;
        for (Bytes& packet : packets) {
            starts.push_back(packet.data());
            lengths.push_back(static_cast<int>(packet.size()));
        }
        Bytes compound = built(size, [&](unsigned char* buf, int& len) {
            return stack.CreateCompoundPacket(starts.data(), lengths.data(), static_cast<int>(packets.size()),
                                              buf, len);
        });
        RecordingRtcpSink sink;
        EXPECT_EQ(0, stack.InputReceivedRtcpData(&sink, compound.data(), static_cast<int>(compound.size())));
        EXPECT_EQ(packets, sink.packets);
    });
}

// ---- room

TEST_F(RtcpPropertyTest, RefusedBuildsWriteNothingAndOthersStayWithinTheirLength) {
    const std::vector<RtcpVector> vectors = rtcpVectors();
    forEachSeed([&](Random& random) {
        const RtcpVector& vector =
            vectors[static_cast<std::size_t>(random.number(0, static_cast<int>(vectors.size()) - 1))];
        const int capacity = random.number(1, 2 * vector.neededCapacity);
        Bytes buf(static_cast<std::size_t>(capacity), kUntouched);
        ExactBuffer exact(buf);
        int len = capacity;
        const std::int64_t result = vector.build(stack, exact.data(), len);
        const Bytes after(exact.data(), exact.data() + capacity);
        if (capacity < vector.neededCapacity) {
            EXPECT_EQ(-1, result);
            EXPECT_EQ(vector.neededCapacity, len);
            EXPECT_THAT(after, Each(kUntouched));
        } else {
            EXPECT_EQ(0, result);
            ASSERT_EQ(static_cast<int>(vector.bytes.size()), len);
            EXPECT_EQ(vector.bytes, Bytes(after.begin(), after.begin() + len));
            EXPECT_THAT(Bytes(after.begin() + len, after.end()), Each(kUntouched));
        }
    });
}

// ---- fields

TEST_F(RtcpPropertyTest, FieldsOfByteZeroReadBackAndLeaveEachOtherAlone) {
    for (int before = 0; before < 256; ++before) {
        for (int value = 0; value < 256; ++value) {
            const unsigned char v = static_cast<unsigned char>(value);
            unsigned char buf[1] = {static_cast<unsigned char>(before)};
            stack.SetVersion(v, buf);
            ASSERT_EQ(value % 4 * 64 + before % 64, buf[0]);
            ASSERT_EQ(value % 4, stack.GetVersion(buf));
            buf[0] = static_cast<unsigned char>(before);
            stack.SetPayloadCount(v, buf);
            ASSERT_EQ(before / 32 * 32 + value % 32, buf[0]);
            ASSERT_EQ(value % 32, stack.GetPayloadCount(buf));
            buf[0] = static_cast<unsigned char>(before);
            stack.SetSubType(v, buf);
            ASSERT_EQ(before / 32 * 32 + value % 32, buf[0]);
            ASSERT_EQ(value % 32, stack.GetSubType(buf));
            buf[0] = static_cast<unsigned char>(before);
            stack.SetPaddingFlag(value % 2 != 0, buf);
            ASSERT_EQ(before / 64 * 64 + value % 2 * 32 + before % 32, buf[0]);
            ASSERT_EQ(value % 2, stack.GetPaddingFlag(buf));
        }
    }
}

TEST_F(RtcpPropertyTest, LengthFieldIsTheWordsOfTheWholePacketForEveryLength) {
    for (int length = 0; length <= 0xffff; ++length) {
        unsigned char buf[4] = {};
        stack.SetPacketLength(static_cast<unsigned short>(length), buf);
        const int words = length / 4 + (length % 4 != 0 ? 1 : 0);
        ASSERT_EQ(words, stack.GetPacketLength(buf));
    }
}

}  // namespace
}  // namespace test
}  // namespace talrtp
