// Building RTCP packets: bytes, lengths and refusals of every Create operation and of the field writers.

#include "RtcpVectors.h"
#include "TraceCatcher.h"

#include <talrtp/TalRtcpStack.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstddef>

namespace talrtp {
namespace test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr unsigned char kUntouched = 0xee;

// The outcome of a build: result, length, and the whole buffer.
struct Built {
    std::int64_t result;
    int len;
    Bytes buffer;

    Bytes written() const { return Bytes(buffer.begin(), buffer.begin() + len); }
    Bytes behind() const { return Bytes(buffer.begin() + len, buffer.end()); }
};

class RtcpBuildTest : public ::testing::Test {
protected:
    // Offers a buffer of `room` bytes as one of `capacity` bytes.
    template <class Call>
    Built build(int room, int capacity, Call call) {
        Built built{0, capacity, Bytes(static_cast<std::size_t>(room), kUntouched)};
        built.result = call(built.buffer.data(), built.len);
        return built;
    }

    template <class Call>
    Built build(int capacity, Call call) {
        return build(capacity, capacity, call);
    }

    // A refusal that says nothing about the size that is needed.
    template <class Call>
    void expectRefusedWithLenUntouched(int capacity, Call call) {
        const Built built = build(1024, capacity, call);
        EXPECT_EQ(-1, built.result);
        EXPECT_EQ(capacity, built.len);
        EXPECT_THAT(built.buffer, Each(kUntouched));
    }

    CTalRTCPStack stack;
    _SenderInfo info = senderInfo();
    _ReportBlock block = firstBlock();
    _SdesItem item = sdesItem(kSsrc, 1, "hello");
    unsigned int ssrc = kSsrc;
    unsigned char name[4] = {'T', 'E', 'S', 'T'};
    unsigned char data[4] = {1, 2, 3, 4};
};

// ---- every packet type, by the table of vectors

TEST_F(RtcpBuildTest, EachVectorIsBuiltByteForByte) {
    for (const RtcpVector& vector : rtcpVectors()) {
        SCOPED_TRACE(vector.name);
        const Built built = build(vector.neededCapacity, [&](unsigned char* buf, int& len) {
            return vector.build(stack, buf, len);
        });
        EXPECT_EQ(0, built.result);
        ASSERT_EQ(static_cast<int>(vector.bytes.size()), built.len);
        EXPECT_EQ(vector.bytes, built.written());
        EXPECT_THAT(built.behind(), Each(kUntouched));
    }
}

TEST_F(RtcpBuildTest, EachVectorIsRefusedAtEveryShorterCapacityWithTheNeedInLen) {
    for (const RtcpVector& vector : rtcpVectors()) {
        for (int capacity = 1; capacity < vector.neededCapacity; ++capacity) {
            SCOPED_TRACE(vector.name + ", capacity " + std::to_string(capacity));
            const Built built = build(vector.neededCapacity, capacity, [&](unsigned char* buf, int& len) {
                return vector.build(stack, buf, len);
            });
            EXPECT_EQ(-1, built.result);
            EXPECT_EQ(vector.neededCapacity, built.len);
            EXPECT_THAT(built.buffer, Each(kUntouched));
        }
    }
}

TEST_F(RtcpBuildTest, EachVectorIsRefusedWithoutCapacityOrBuffer) {
    for (const RtcpVector& vector : rtcpVectors()) {
        SCOPED_TRACE(vector.name);
        auto call = [&](unsigned char* buf, int& len) { return vector.build(stack, buf, len); };
        expectRefusedWithLenUntouched(0, call);
        expectRefusedWithLenUntouched(-1, call);
        expectRefusedWithLenUntouched(INT_MIN, call);
        int len = 600;
        EXPECT_EQ(-1, vector.build(stack, nullptr, len));
        EXPECT_EQ(600, len);
    }
}

TEST_F(RtcpBuildTest, NoTraceLineIsGivenAndTheMaskIsNotAsked) {
    TraceCatcher trace(2);
    for (const RtcpVector& vector : rtcpVectors()) {
        build(600, [&](unsigned char* buf, int& len) { return vector.build(stack, buf, len); });
        build(600, 1, [&](unsigned char* buf, int& len) { return vector.build(stack, buf, len); });
    }
    EXPECT_THAT(trace.lines(), IsEmpty());
    EXPECT_EQ(0, trace.maskCalls());
}

// ---- reports

TEST_F(RtcpBuildTest, SenderReportWithoutSenderInfoIsTheReceiverReport) {
    _ReportBlock blocks[] = {firstBlock(), secondBlock()};
    const Built built = build(56, [&](unsigned char* buf, int& len) {
        return stack.CreateSenderReportPacket(kSsrc, nullptr, blocks, 2, buf, len);
    });
    EXPECT_EQ(0, built.result);
    EXPECT_EQ(receiverReport(), built.written());
}

TEST_F(RtcpBuildTest, SenderReportWithoutSenderInfoNeedsTheRoomOfAReceiverReport) {
    const Built built = build(31, [&](unsigned char* buf, int& len) {
        return stack.CreateSenderReportPacket(kSsrc, nullptr, &block, 1, buf, len);
    });
    EXPECT_EQ(-1, built.result);
    EXPECT_EQ(32, built.len);
}

TEST_F(RtcpBuildTest, SenderReportWithoutSenderInfoGoesThroughTheVirtualTable) {
    class Recorder : public CTalRTCPStack {
    public:
        std::int64_t CreateReceiverReportPacket(unsigned int ssrc, _ReportBlock* blocks, int count,
                                                unsigned char* buf, int& len) override {
            m_ssrc = ssrc;
            m_blocks = blocks;
            m_count = count;
            m_buf = buf;
            m_len = &len;
            return 77;
        }
        unsigned int m_ssrc = 0;
        _ReportBlock* m_blocks = nullptr;
        int m_count = 0;
        unsigned char* m_buf = nullptr;
        int* m_len = nullptr;
    };
    Recorder recorder;
    unsigned char buf[1];
    int len = -5;
    EXPECT_EQ(77, recorder.CreateSenderReportPacket(kSsrc, nullptr, &block, -3, buf, len));
    EXPECT_EQ(kSsrc, recorder.m_ssrc);
    EXPECT_EQ(&block, recorder.m_blocks);
    EXPECT_EQ(-3, recorder.m_count);
    EXPECT_EQ(buf, recorder.m_buf);
    EXPECT_EQ(&len, recorder.m_len);
    EXPECT_EQ(-5, len);
}

TEST_F(RtcpBuildTest, ReportsRefuseNullBlocksEvenWhenNoneIsSent) {
    expectRefusedWithLenUntouched(100, [&](unsigned char* buf, int& len) {
        return stack.CreateSenderReportPacket(kSsrc, &info, nullptr, 0, buf, len);
    });
    expectRefusedWithLenUntouched(100, [&](unsigned char* buf, int& len) {
        return stack.CreateReceiverReportPacket(kSsrc, nullptr, 0, buf, len);
    });
    expectRefusedWithLenUntouched(100, [&](unsigned char* buf, int& len) {
        return stack.CreateSenderReportPacket(kSsrc, nullptr, nullptr, 0, buf, len);
    });
}

// Kept: the header's count is taken modulo 32, the body is not.
TEST_F(RtcpBuildTest, CountOf31FitsAndCountOf33IsWrittenAs1WithAllEntries) {
    std::vector<_ReportBlock> blocks(33, firstBlock());
    const Built fits = build(28 + 24 * 31, [&](unsigned char* buf, int& len) {
        return stack.CreateSenderReportPacket(kSsrc, &info, blocks.data(), 31, buf, len);
    });
    EXPECT_EQ(0, fits.result);
    EXPECT_EQ(0x9f, fits.buffer[0]);
    const Built wraps = build(8 + 24 * 33, [&](unsigned char* buf, int& len) {
        return stack.CreateReceiverReportPacket(kSsrc, blocks.data(), 33, buf, len);
    });
    EXPECT_EQ(0, wraps.result);
    EXPECT_EQ(800, wraps.len);
    EXPECT_EQ(0x81, wraps.buffer[0]);
    EXPECT_EQ(0x00, wraps.buffer[2]);
    EXPECT_EQ(0xc8, wraps.buffer[3]);  // 200 words
    EXPECT_EQ(0x80, wraps.buffer[798]);
}

TEST_F(RtcpBuildTest, CountOf32IsWrittenAs0InEveryCountedPacket) {
    std::vector<_ReportBlock> blocks(32, firstBlock());
    std::vector<_SdesItem> items(32, sdesItem(kSsrc, 1, ""));
    std::vector<unsigned int> ssrcs(32, kSsrc);
    const Built sr = build(28 + 24 * 32, [&](unsigned char* buf, int& len) {
        return stack.CreateSenderReportPacket(kSsrc, &info, blocks.data(), 32, buf, len);
    });
    const Built sdesPacket = build(4 + 264 * 32, [&](unsigned char* buf, int& len) {
        return stack.CreateSdesPacket(items.data(), 32, buf, len);
    });
    const Built byePacket = build(4 + 4 * 32, [&](unsigned char* buf, int& len) {
        return stack.CreateByePacket(ssrcs.data(), 32, buf, len);
    });
    EXPECT_EQ(0x80, sr.buffer[0]);
    EXPECT_EQ(796, sr.len);
    EXPECT_EQ(0x80, sdesPacket.buffer[0]);
    EXPECT_EQ(4 + 6 * 32, sdesPacket.len);
    EXPECT_EQ(0x80, byePacket.buffer[0]);
    EXPECT_EQ(132, byePacket.len);
}

// ---- SDES

TEST_F(RtcpBuildTest, SdesRefusesNullItems) {
    expectRefusedWithLenUntouched(
        600, [&](unsigned char* buf, int& len) { return stack.CreateSdesPacket(nullptr, 0, buf, len); });
}

TEST_F(RtcpBuildTest, SdesOfOneShortTextNeeds268BytesAndWrites15) {
    const Built refused =
        build(267, [&](unsigned char* buf, int& len) { return stack.CreateSdesPacket(&item, 1, buf, len); });
    EXPECT_EQ(-1, refused.result);
    EXPECT_EQ(268, refused.len);
    const Built built =
        build(268, [&](unsigned char* buf, int& len) { return stack.CreateSdesPacket(&item, 1, buf, len); });
    EXPECT_EQ(0, built.result);
    EXPECT_EQ(15, built.len);
    EXPECT_EQ(4, built.buffer[3]);
    EXPECT_EQ(kUntouched, built.buffer[15]);  // kept: the rest of the last word is not written
}

TEST_F(RtcpBuildTest, SdesWithoutItemsIsAHeader) {
    const Built built =
        build(4, [&](unsigned char* buf, int& len) { return stack.CreateSdesPacket(&item, 0, buf, len); });
    EXPECT_EQ(0, built.result);
    EXPECT_THAT(built.written(), ElementsAre(0x80, 0xca, 0x00, 0x01));
}

TEST_F(RtcpBuildTest, SdesTakesTheLongestText) {
    _SdesItem longest = sdesItem(kSsrc, 7, std::string(255, 'n'));
    const Built built = build(
        268, [&](unsigned char* buf, int& len) { return stack.CreateSdesPacket(&longest, 1, buf, len); });
    EXPECT_EQ(0, built.result);
    EXPECT_EQ(265, built.len);
    EXPECT_EQ(67, built.buffer[3]);
    EXPECT_EQ('n', built.buffer[264]);
    EXPECT_EQ(kUntouched, built.buffer[265]);
}

// ---- BYE, APP, feedback

TEST_F(RtcpBuildTest, ByeRefusesNullSources) {
    expectRefusedWithLenUntouched(
        100, [&](unsigned char* buf, int& len) { return stack.CreateByePacket(nullptr, 0, buf, len); });
}

TEST_F(RtcpBuildTest, ByeWithoutSourcesIsAHeader) {
    const Built built =
        build(4, [&](unsigned char* buf, int& len) { return stack.CreateByePacket(&ssrc, 0, buf, len); });
    EXPECT_EQ(0, built.result);
    EXPECT_THAT(built.written(), ElementsAre(0x80, 0xcb, 0x00, 0x01));
}

TEST_F(RtcpBuildTest, AppRefusesNullNameAndNullData) {
    expectRefusedWithLenUntouched(100, [&](unsigned char* buf, int& len) {
        return stack.CreateAppPacket(kSsrc, 0, nullptr, data, 4, buf, len);
    });
    expectRefusedWithLenUntouched(100, [&](unsigned char* buf, int& len) {
        return stack.CreateAppPacket(kSsrc, 0, name, nullptr, 0, buf, len);
    });
}

TEST_F(RtcpBuildTest, AppLeavesTheTailOfItsLastWordAlone) {
    const Built built = build(20, [&](unsigned char* buf, int& len) {
        unsigned char five[] = {1, 2, 3, 4, 5};
        return stack.CreateAppPacket(kSsrc, 0, name, five, 5, buf, len);
    });
    EXPECT_EQ(0, built.result);
    EXPECT_EQ(17, built.len);
    EXPECT_EQ(5, built.buffer[3]);
    EXPECT_THAT(built.behind(), ElementsAre(kUntouched, kUntouched, kUntouched));
}

TEST_F(RtcpBuildTest, SubtypeAndFeedbackTypeLoseTheirUpperBits) {
    const Built appPacket = build(16, [&](unsigned char* buf, int& len) {
        return stack.CreateAppPacket(kSsrc, 0xe1, name, data, 4, buf, len);
    });
    const Built rtpfb = build(16, [&](unsigned char* buf, int& len) {
        return stack.CreateRTPFBPacket(kSsrc, kMediaSsrc, 0xe2, data, 4, buf, len);
    });
    const Built psfb = build(16, [&](unsigned char* buf, int& len) {
        return stack.CreatePSFBPacket(kSsrc, kMediaSsrc, 0x3f, data, 4, buf, len);
    });
    EXPECT_EQ(0x81, appPacket.buffer[0]);
    EXPECT_EQ(0x82, rtpfb.buffer[0]);
    EXPECT_EQ(0x9f, psfb.buffer[0]);
}

TEST_F(RtcpBuildTest, FeedbackWithNullFciDeclaresItsRoomAndLeavesItAlone) {
    const Built rtpfb = build(17, [&](unsigned char* buf, int& len) {
        return stack.CreateRTPFBPacket(kSsrc, kMediaSsrc, 1, nullptr, 5, buf, len);
    });
    EXPECT_EQ(0, rtpfb.result);
    EXPECT_EQ(17, rtpfb.len);
    EXPECT_EQ(5, rtpfb.buffer[3]);
    EXPECT_THAT(Bytes(rtpfb.buffer.begin() + 12, rtpfb.buffer.end()), Each(kUntouched));
    const Built psfb = build(16, [&](unsigned char* buf, int& len) {
        return stack.CreatePSFBPacket(kSsrc, kMediaSsrc, 1, nullptr, 4, buf, len);
    });
    EXPECT_EQ(0, psfb.result);
    EXPECT_EQ(16, psfb.len);
    EXPECT_THAT(Bytes(psfb.buffer.begin() + 12, psfb.buffer.end()), Each(kUntouched));
}

// ---- compound packets

class RtcpCompoundTest : public RtcpBuildTest {
protected:
    Built compound(int capacity, std::vector<unsigned char*> packets, std::vector<int> lengths) {
        return build(64, capacity, [&](unsigned char* buf, int& len) {
            return stack.CreateCompoundPacket(packets.data(), lengths.data(),
                                              static_cast<int>(lengths.size()), buf, len);
        });
    }

    Bytes first = emptyReceiverReport();
    Bytes second = payloadFeedbackWithoutFci();
};

TEST_F(RtcpCompoundTest, PacketsGoBackToBackInArrayOrder) {
    const Built built = compound(20, {first.data(), second.data()}, {8, 12});
    EXPECT_EQ(0, built.result);
    EXPECT_EQ(20, built.len);
    Bytes expected = first;
    expected.insert(expected.end(), second.begin(), second.end());
    EXPECT_EQ(expected, built.written());
    EXPECT_THAT(built.behind(), Each(kUntouched));
}

TEST_F(RtcpCompoundTest, OneByteTooLittleLeavesTheNeedInLen) {
    for (int capacity = 1; capacity < 20; ++capacity) {
        SCOPED_TRACE(capacity);
        const Built built = compound(capacity, {first.data(), second.data()}, {8, 12});
        EXPECT_EQ(-1, built.result);
        EXPECT_EQ(20, built.len);
        EXPECT_THAT(built.buffer, Each(kUntouched));
    }
}

TEST_F(RtcpCompoundTest, PartsAreNeitherCheckedNorPadded) {
    Bytes rubbish = {0x01, 0x02, 0x03};
    const Built built = compound(64, {rubbish.data(), second.data(), rubbish.data()}, {3, 0, 2});
    EXPECT_EQ(0, built.result);
    EXPECT_THAT(built.written(), ElementsAre(0x01, 0x02, 0x03, 0x01, 0x02));
}

TEST_F(RtcpCompoundTest, FewerThanOnePacketIsEmptyAndSucceeds) {
    for (int count : {0, -1, INT_MIN}) {
        SCOPED_TRACE(count);
        const Built built = build(8, [&](unsigned char* buf, int& len) {
            return stack.CreateCompoundPacket(nullptr, nullptr, count, buf, len);
        });
        EXPECT_EQ(0, built.result);
        EXPECT_EQ(0, built.len);
        EXPECT_THAT(built.buffer, Each(kUntouched));
    }
}

TEST_F(RtcpCompoundTest, NullBufferAndNoCapacityAreRefused) {
    int len = 64;
    EXPECT_EQ(-1, stack.CreateCompoundPacket(nullptr, nullptr, 0, nullptr, len));
    EXPECT_EQ(64, len);
    for (int capacity : {0, -1}) {
        const Built built = compound(capacity, {first.data()}, {8});
        EXPECT_EQ(-1, built.result);
        EXPECT_EQ(capacity, built.len);
    }
}

TEST_F(RtcpCompoundTest, NegativeLengthIsRefusedWithLenUntouched) {
    for (int place = 0; place < 2; ++place) {
        std::vector<int> lengths = {8, 12};
        lengths[static_cast<std::size_t>(place)] = -1;
        const Built built = compound(40, {first.data(), second.data()}, lengths);
        EXPECT_EQ(-1, built.result);
        EXPECT_EQ(40, built.len);
        EXPECT_THAT(built.buffer, Each(kUntouched));
    }
}

TEST_F(RtcpCompoundTest, SumBeyondASigned32BitIntegerIsRefusedWithLenUntouched) {
    const Built beyond = compound(40, {first.data(), second.data()}, {INT_MAX, 1});
    EXPECT_EQ(-1, beyond.result);
    EXPECT_EQ(40, beyond.len);
    // The largest sum that still fits is an ordinary lack of room.
    const Built fits = compound(40, {first.data(), second.data()}, {INT_MAX - 1, 1});
    EXPECT_EQ(-1, fits.result);
    EXPECT_EQ(INT_MAX, fits.len);
}

TEST_F(RtcpCompoundTest, NullArraysAndNullPacketsAreRefusedWithLenUntouched) {
    int lengths[] = {8};
    unsigned char* packets[] = {first.data()};
    expectRefusedWithLenUntouched(40, [&](unsigned char* buf, int& len) {
        return stack.CreateCompoundPacket(nullptr, lengths, 1, buf, len);
    });
    expectRefusedWithLenUntouched(40, [&](unsigned char* buf, int& len) {
        return stack.CreateCompoundPacket(packets, nullptr, 1, buf, len);
    });
    packets[0] = nullptr;
    expectRefusedWithLenUntouched(40, [&](unsigned char* buf, int& len) {
        return stack.CreateCompoundPacket(packets, lengths, 1, buf, len);
    });
}

TEST_F(RtcpCompoundTest, NullPacketWithoutBytesTakesNoRoom) {
    const Built built = compound(8, {nullptr, first.data()}, {0, 8});
    EXPECT_EQ(0, built.result);
    EXPECT_EQ(first, built.written());
}

TEST_F(RtcpCompoundTest, FirstPacketMayAlreadyStandInTheBuffer) {
    Bytes buf(20, kUntouched);
    std::copy(first.begin(), first.end(), buf.begin());
    unsigned char* packets[] = {buf.data(), second.data()};
    int lengths[] = {8, 12};
    int len = 20;
    EXPECT_EQ(0, stack.CreateCompoundPacket(packets, lengths, 2, buf.data(), len));
    EXPECT_EQ(first, Bytes(buf.begin(), buf.begin() + 8));
    EXPECT_EQ(second, Bytes(buf.begin() + 8, buf.end()));
}

TEST_F(RtcpCompoundTest, PacketMayOverlapThePlaceItIsCopiedTo) {
    Bytes buf(24, kUntouched);
    std::copy(second.begin(), second.end(), buf.begin() + 4);
    unsigned char* packets[] = {buf.data() + 4};
    int lengths[] = {12};
    int len = 24;
    EXPECT_EQ(0, stack.CreateCompoundPacket(packets, lengths, 1, buf.data(), len));
    EXPECT_EQ(second, Bytes(buf.begin(), buf.begin() + 12));
}

// ---- forged counts and lengths

TEST_F(RtcpBuildTest, NegativeCountsAndLengthsAreRefusedWithLenUntouched) {
    for (int count : {-1, -2, INT_MIN}) {
        SCOPED_TRACE(count);
        expectRefusedWithLenUntouched(600, [&](unsigned char* buf, int& len) {
            return stack.CreateSenderReportPacket(kSsrc, &info, &block, count, buf, len);
        });
        expectRefusedWithLenUntouched(600, [&](unsigned char* buf, int& len) {
            return stack.CreateReceiverReportPacket(kSsrc, &block, count, buf, len);
        });
        expectRefusedWithLenUntouched(600, [&](unsigned char* buf, int& len) {
            return stack.CreateSdesPacket(&item, count, buf, len);
        });
        expectRefusedWithLenUntouched(
            600, [&](unsigned char* buf, int& len) { return stack.CreateByePacket(&ssrc, count, buf, len); });
        expectRefusedWithLenUntouched(600, [&](unsigned char* buf, int& len) {
            return stack.CreateAppPacket(kSsrc, 0, name, data, count, buf, len);
        });
        expectRefusedWithLenUntouched(600, [&](unsigned char* buf, int& len) {
            return stack.CreateRTPFBPacket(kSsrc, kMediaSsrc, 0, data, count, buf, len);
        });
        expectRefusedWithLenUntouched(600, [&](unsigned char* buf, int& len) {
            return stack.CreatePSFBPacket(kSsrc, kMediaSsrc, 0, nullptr, count, buf, len);
        });
    }
}

// The pairs are the last count whose size is a signed 32-bit integer and the first one whose size is not.
TEST_F(RtcpBuildTest, SizesBeyondASigned32BitIntegerAreRefusedWithLenUntouched) {
    struct Edge {
        const char* name;
        int lastCount;
        int lastSize;
        std::function<std::int64_t(int count, unsigned char* buf, int& len)> call;
    };
    const Edge edges[] = {
        {"SR", 89478484, 2147483644,
         [&](int count, unsigned char* buf, int& len) {
             return stack.CreateSenderReportPacket(kSsrc, &info, &block, count, buf, len);
         }},
        {"RR", 89478484, 2147483624,
         [&](int count, unsigned char* buf, int& len) {
             return stack.CreateReceiverReportPacket(kSsrc, &block, count, buf, len);
         }},
        {"SDES", 8134407, 2147483452,
         [&](int count, unsigned char* buf, int& len) {
             return stack.CreateSdesPacket(&item, count, buf, len);
         }},
        {"BYE", 536870910, 2147483644,
         [&](int count, unsigned char* buf, int& len) {
             return stack.CreateByePacket(&ssrc, count, buf, len);
         }},
        {"APP", INT_MAX - 12, INT_MAX,
         [&](int count, unsigned char* buf, int& len) {
             return stack.CreateAppPacket(kSsrc, 0, name, data, count, buf, len);
         }},
        {"RTPFB", INT_MAX - 12, INT_MAX,
         [&](int count, unsigned char* buf, int& len) {
             return stack.CreateRTPFBPacket(kSsrc, kMediaSsrc, 0, data, count, buf, len);
         }},
        {"PSFB", INT_MAX - 12, INT_MAX,
         [&](int count, unsigned char* buf, int& len) {
             return stack.CreatePSFBPacket(kSsrc, kMediaSsrc, 0, data, count, buf, len);
         }},
    };
    for (const Edge& edge : edges) {
        SCOPED_TRACE(edge.name);
        const Built fits =
            build(600, [&](unsigned char* buf, int& len) { return edge.call(edge.lastCount, buf, len); });
        EXPECT_EQ(-1, fits.result);
        EXPECT_EQ(edge.lastSize, fits.len);
        for (int count : {edge.lastCount + 1, INT_MAX}) {
            expectRefusedWithLenUntouched(
                600, [&](unsigned char* buf, int& len) { return edge.call(count, buf, len); });
        }
    }
}

// Kept: the length goes through a 16-bit writer, so a packet too long for a datagram declares the remainder.
TEST_F(RtcpBuildTest, LengthFieldOfAPacketBeyond65535BytesHoldsTheRemainder) {
    Bytes data65524(65524, 0x5a);
    const Built largest = build(65535, [&](unsigned char* buf, int& len) {
        return stack.CreateAppPacket(kSsrc, 0, name, data65524.data(), 65523, buf, len);
    });
    EXPECT_EQ(0, largest.result);
    EXPECT_EQ(0x40, largest.buffer[2]);
    EXPECT_EQ(0x00, largest.buffer[3]);
    const Built beyond = build(65536, [&](unsigned char* buf, int& len) {
        return stack.CreateAppPacket(kSsrc, 0, name, data65524.data(), 65524, buf, len);
    });
    EXPECT_EQ(0, beyond.result);
    EXPECT_EQ(65536, beyond.len);
    EXPECT_EQ(0x00, beyond.buffer[2]);
    EXPECT_EQ(0x00, beyond.buffer[3]);
}

// ---- field writers

TEST(RtcpFieldWriterTest, SetVersionKeepsTheOtherBitsAndDropsWhatDoesNotFit) {
    CTalRTCPStack stack;
    unsigned char buf[] = {0xff};
    stack.SetVersion(2, buf);
    EXPECT_EQ(0xbf, buf[0]);
    stack.SetVersion(0, buf);
    EXPECT_EQ(0x3f, buf[0]);
    stack.SetVersion(7, buf);  // 7 * 64 = 0x1c0
    EXPECT_EQ(0xff, buf[0]);
    buf[0] = 0x15;
    stack.SetVersion(6, buf);  // 6 * 64 = 0x180
    EXPECT_EQ(0x95, buf[0]);
}

TEST(RtcpFieldWriterTest, SetPaddingFlagTouchesItsBitAlone) {
    CTalRTCPStack stack;
    unsigned char buf[] = {0xdf};
    stack.SetPaddingFlag(true, buf);
    EXPECT_EQ(0xff, buf[0]);
    stack.SetPaddingFlag(false, buf);
    EXPECT_EQ(0xdf, buf[0]);
    buf[0] = 0;
    stack.SetPaddingFlag(true, buf);
    EXPECT_EQ(0x20, buf[0]);
    stack.SetPaddingFlag(false, buf);
    EXPECT_EQ(0x00, buf[0]);
}

TEST(RtcpFieldWriterTest, SetPayloadCountAndSetSubTypeTouchTheLowFiveBits) {
    CTalRTCPStack stack;
    unsigned char buf[] = {0xff};
    stack.SetPayloadCount(5, buf);
    EXPECT_EQ(0xe5, buf[0]);
    stack.SetSubType(10, buf);
    EXPECT_EQ(0xea, buf[0]);
    stack.SetPayloadCount(0x3f, buf);
    EXPECT_EQ(0xff, buf[0]);
    stack.SetSubType(0x20, buf);
    EXPECT_EQ(0xe0, buf[0]);
}

TEST(RtcpFieldWriterTest, SetPayloadTypeAndSetSyncSourceWriteTheirBytesAlone) {
    CTalRTCPStack stack;
    unsigned char buf[] = {0xee, 0xee, 0xee, 0xee, 0xee, 0xee};
    stack.SetPayloadType(200, buf);
    EXPECT_THAT(buf, ElementsAre(0xee, 200, 0xee, 0xee, 0xee, 0xee));
    stack.SetSyncSource(0x01020384, buf + 1);
    EXPECT_THAT(buf, ElementsAre(0xee, 0x01, 0x02, 0x03, 0x84, 0xee));
}

TEST(RtcpFieldWriterTest, SetPacketLengthRoundsUpToWordsOfTheWholePacket) {
    CTalRTCPStack stack;
    const struct {
        unsigned short bytes;
        unsigned char high, low;
    } cases[] = {{0, 0x00, 0x00},     {1, 0x00, 0x01},     {4, 0x00, 0x01},    {5, 0x00, 0x02},
                 {8, 0x00, 0x02},     {1021, 0x01, 0x00},  {1024, 0x01, 0x00}, {1025, 0x01, 0x01},
                 {65532, 0x3f, 0xff}, {65533, 0x40, 0x00}, {65535, 0x40, 0x00}};
    for (const auto& one : cases) {
        SCOPED_TRACE(one.bytes);
        unsigned char buf[] = {0xee, 0xee, 0xee, 0xee, 0xee};
        stack.SetPacketLength(one.bytes, buf);
        EXPECT_THAT(buf, ElementsAre(0xee, 0xee, one.high, one.low, 0xee));
    }
}

TEST(RtcpFieldWriterTest, RecordsAreWrittenInFullAndCounted) {
    CTalRTCPStack stack;
    const Bytes report = senderReport();
    Bytes buf(25, kUntouched);
    _SenderInfo info = senderInfo();
    EXPECT_EQ(20, stack.SetSenderInfo(&info, buf.data()));
    EXPECT_EQ(Bytes(report.begin() + 8, report.begin() + 28), Bytes(buf.begin(), buf.begin() + 20));
    EXPECT_EQ(kUntouched, buf[20]);
    _ReportBlock block = firstBlock();
    EXPECT_EQ(24, stack.SetReportBlock(&block, buf.data()));
    EXPECT_EQ(Bytes(report.begin() + 28, report.end()), Bytes(buf.begin(), buf.begin() + 24));
    EXPECT_EQ(kUntouched, buf[24]);
}

TEST(RtcpFieldWriterTest, SdesItemTakesSixBytesAndItsText) {
    CTalRTCPStack stack;
    Bytes buf(12, kUntouched);
    _SdesItem item = sdesItem(kSsrc, 8, "hello");
    EXPECT_EQ(11, stack.SetSdesItem(&item, buf.data()));
    EXPECT_THAT(buf, ElementsAre(0x11, 0x22, 0x33, 0x44, 8, 5, 'h', 'e', 'l', 'l', 'o', kUntouched));
    _SdesItem empty = sdesItem(kSsrc, 0, "");
    EXPECT_EQ(6, stack.SetSdesItem(&empty, buf.data()));
    EXPECT_THAT(buf, ElementsAre(0x11, 0x22, 0x33, 0x44, 0, 0, 'h', 'e', 'l', 'l', 'o', kUntouched));
}

TEST(RtcpFieldWriterTest, NullPointersWriteNothing) {
    CTalRTCPStack stack;
    stack.SetVersion(2, nullptr);
    stack.SetPaddingFlag(true, nullptr);
    stack.SetPayloadCount(1, nullptr);
    stack.SetSubType(1, nullptr);
    stack.SetPayloadType(200, nullptr);
    stack.SetSyncSource(1, nullptr);
    stack.SetPacketLength(4, nullptr);
    _SenderInfo info = senderInfo();
    _ReportBlock block = firstBlock();
    _SdesItem item = sdesItem(kSsrc, 1, "hello");
    EXPECT_EQ(0, stack.SetSenderInfo(&info, nullptr));
    EXPECT_EQ(0, stack.SetReportBlock(&block, nullptr));
    EXPECT_EQ(0, stack.SetSdesItem(&item, nullptr));
    Bytes buf(24, kUntouched);
    EXPECT_EQ(0, stack.SetSenderInfo(nullptr, buf.data()));
    EXPECT_EQ(0, stack.SetReportBlock(nullptr, buf.data()));
    EXPECT_EQ(0, stack.SetSdesItem(nullptr, buf.data()));
    EXPECT_THAT(buf, Each(kUntouched));
}

// ---- records, entry points and the virtual table

TEST(RtcpRecordTest, LayoutsAreBinaryInterface) {
    EXPECT_EQ(20U, sizeof(_SenderInfo));
    EXPECT_EQ(16U, offsetof(_SenderInfo, octetCount));
    EXPECT_EQ(24U, sizeof(_ReportBlock));
    EXPECT_EQ(8U, offsetof(_ReportBlock, extendedHighestSeq));
    EXPECT_EQ(20U, offsetof(_ReportBlock, delaySinceLastSR));
    EXPECT_EQ(264U, sizeof(_SdesItem));
    EXPECT_EQ(4U, offsetof(_SdesItem, type));
    EXPECT_EQ(5U, offsetof(_SdesItem, length));
    EXPECT_EQ(6U, offsetof(_SdesItem, data));
    EXPECT_EQ(sizeof(void*), sizeof(CTalRTCPStack));
}

TEST(RtcpRecordTest, FractionLostIsTheFirstByteOfItsWord) {
    const _ReportBlock block = firstBlock();
    unsigned char bytes[sizeof(block)];
    std::memcpy(bytes, &block, sizeof(block));
    // The other three are 0x010203 in the order of the machine.
    const unsigned int one = 1;
    const bool isLittleEndian = *reinterpret_cast<const unsigned char*>(&one) == 1;
    EXPECT_THAT(Bytes(bytes + 4, bytes + 8),
                isLittleEndian ? ElementsAre(0x40, 0x03, 0x02, 0x01) : ElementsAre(0x40, 0x01, 0x02, 0x03));
}

TEST(RtcpEntryPointTest, StackIsMadeAndDestroyed) {
    ITalRTCPStack* stack = nullptr;
    TalCreateRTCPStack(&stack);
    ASSERT_NE(nullptr, stack);
    EXPECT_NE(nullptr, dynamic_cast<CTalRTCPStack*>(stack));
    TalDestroyRTCPStack(stack);
    TalDestroyRTCPStack(nullptr);
}

TEST(RtcpEntryPointTest, DestructionGoesThroughTheVirtualTable) {
    class Noticed : public CTalRTCPStack {
    public:
        explicit Noticed(bool& gone) : m_gone(gone) {}
        ~Noticed() override { m_gone = true; }

    private:
        bool& m_gone;
    };
    bool gone = false;
    TalDestroyRTCPStack(new Noticed(gone));
    EXPECT_TRUE(gone);
}

// The second entry destroys and frees, as a host's compiler would call it.
TEST(RtcpVirtualTableTest, SecondEntryIsTheDeletingDestructor) {
    ITalRTCPStack* stack = nullptr;
    TalCreateRTCPStack(&stack);
    callEntry<void>(stack, 2);
}

TEST(RtcpVirtualTableTest, EntriesThreeToTenBuild) {
    ITalRTCPStack* stack = nullptr;
    TalCreateRTCPStack(&stack);
    Bytes buf(600, kUntouched);
    auto expectBuilt = [&](const Bytes& expected, std::int64_t result, int len) {
        EXPECT_EQ(0, result);
        ASSERT_EQ(static_cast<int>(expected.size()), len);
        EXPECT_EQ(expected, Bytes(buf.begin(), buf.begin() + len));
    };
    _SenderInfo info = senderInfo();
    _ReportBlock blocks[] = {firstBlock(), secondBlock()};
    _SdesItem items[] = {sdesItem(kSsrc, 1, "a@b.cd"), sdesItem(0x55667788, 2, "xy")};
    unsigned int ssrcs[] = {kSsrc, 0x55667788, kMediaSsrc};
    unsigned char name[] = {'T', 'E', 'S', 'T'};
    unsigned char data[] = {0xd1, 0xd2, 0xd3, 0xd4, 0xd5, 0xd6, 0xd7, 0xd8};
    unsigned char nack[] = {0x12, 0x34, 0x80, 0x01};
    unsigned char request[] = {0xc1, 0xc2, 0xc3, 0xc4, 0x07, 0xc5, 0xc6, 0xc7};
    const unsigned char subtype = 21, nackType = 1, requestType = 4;

    int len = 600;
    std::int64_t result = callEntry<std::int64_t>(stack, 3, kSsrc, &info, &blocks[0], 1, buf.data(), &len);
    expectBuilt(senderReport(), result, len);
    len = 600;
    result = callEntry<std::int64_t>(stack, 4, kSsrc, &blocks[0], 2, buf.data(), &len);
    expectBuilt(receiverReport(), result, len);
    len = 600;
    result = callEntry<std::int64_t>(stack, 5, &items[0], 2, buf.data(), &len);
    expectBuilt(sdes(), result, len);
    len = 600;
    result = callEntry<std::int64_t>(stack, 6, &ssrcs[0], 3, buf.data(), &len);
    expectBuilt(bye(), result, len);
    len = 600;
    result = callEntry<std::int64_t>(stack, 7, kSsrc, subtype, &name[0], &data[0], 8, buf.data(), &len);
    expectBuilt(app(), result, len);
    len = 600;
    result = callEntry<std::int64_t>(stack, 8, kSsrc, kMediaSsrc, nackType, &nack[0], 4, buf.data(), &len);
    expectBuilt(rtpFeedback(), result, len);
    len = 600;
    result =
        callEntry<std::int64_t>(stack, 9, kSsrc, kMediaSsrc, requestType, &request[0], 8, buf.data(), &len);
    expectBuilt(payloadFeedback(), result, len);
    len = 600;
    unsigned char* parts[] = {data, nack};
    int lengths[] = {8, 4};
    result = callEntry<std::int64_t>(stack, 10, &parts[0], &lengths[0], 2, buf.data(), &len);
    expectBuilt({0xd1, 0xd2, 0xd3, 0xd4, 0xd5, 0xd6, 0xd7, 0xd8, 0x12, 0x34, 0x80, 0x01}, result, len);
    TalDestroyRTCPStack(stack);
}

}  // namespace
}  // namespace test
}  // namespace talrtp
