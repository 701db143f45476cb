// In a warm session a received datagram allocates the packet object and its bytes only, and a record for a
// new timestamp and for a new unit. The program puts functions of its own in front of the allocator's, which
// the library's operator new calls in the end too. A sanitizer has functions of its own there, so nothing is
// counted under one.

#include <gtest/gtest.h>
#include <malloc.h>
#include <talrtp/RsFec.h>
#include <talrtp/TalRtpPacket.h>
#include <talrtp/TalRtpSession.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "MallocCounter.h"
#include "SessionFixture.h"

namespace talrtp {
namespace test {
namespace {

Requests& s_requests = requests();

class CountingSink : public ITalRTPSessionSink {
public:
    void OnReceivedRTPPacket(CTalRtpPacket*) override { ++handovers; }

    int handovers = 0;
};

// Pictures of ten packets, one every 10 ms: two single NAL units, an aggregation packet, a run of six
// fragments and a last single NAL unit. kHeldPictures are held at a time.
class AllocationTest : public ::testing::Test {
protected:
    static constexpr int kPictureSize = 10;
    static constexpr int kHeldPictures = 500;

    void SetUp() override {
        if (kIsSanitized) {
            GTEST_SKIP() << kNothingIsCounted;
        }
        // Until as many pictures are held as ever will be, in either order of arrival. The numbers that come
        // then are all new.
        for (int i = 0; i < 2 * kHeldPictures; ++i) {
            receivePicture(i % 2 == 0);
        }
        m_isMeasuring = true;
        sink.handovers = 0;
    }

    void receivePicture(bool isSwapped) {
        std::vector<Bytes> datagrams = makePicture();
        if (isSwapped) {
            std::swap(datagrams[5], datagrams[6]);  // two fragments
        }
        for (Bytes& datagram : datagrams) {
            receive(datagram);
        }
        m_now += 10;
        m_timestamp += 900;
        m_seq = static_cast<unsigned short>(m_seq + kPictureSize);
    }

    std::vector<Bytes> makePicture() const {
        std::vector<Bytes> payloads = {unitOf(1), join({{0x41}, pattern(1200, 1)}),
                                       aggregation({unitOf(2), unitOf(3), unitOf(4)})};
        payloads.push_back(fragment(kStart, pattern(1200, 2)));
        for (unsigned int i = 0; i < 4; ++i) {
            payloads.push_back(fragment(kMiddle, pattern(1200, 3 + i)));
        }
        payloads.push_back(fragment(kEnd, pattern(700, 7)));
        payloads.push_back(unitOf(5));
        std::vector<Bytes> datagrams;
        for (std::size_t i = 0; i < payloads.size(); ++i) {
            datagrams.push_back(rtp(static_cast<unsigned short>(m_seq + i), m_timestamp, payloads[i]));
        }
        return datagrams;
    }

    void receive(Bytes& datagram) {
        watch([&] { session.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), m_now); });
        if (!m_isMeasuring) {
            return;
        }
        SCOPED_TRACE("sequence number " + std::to_string(datagram[2] << 8 | datagram[3]));
        std::vector<std::size_t> records;
        if ((datagram[2] << 8 | datagram[3]) == m_seq) {
            records.push_back(sizeof(stTalRtpTSInfo));
        }
        const bool isFragment = (datagram[12] & 0x1f) == 28;
        if (!isFragment || (datagram[13] & kStart) != 0) {
            records.push_back(sizeof(stTalRtpDataInfo));
        }
        ASSERT_EQ(s_requests.count, 2 + static_cast<int>(records.size()));
        EXPECT_EQ(s_requests.sizes[0], sizeof(CTalRtpPacket));
        EXPECT_GE(s_requests.sizes[1], datagram.size());
        for (std::size_t i = 0; i < records.size(); ++i) {
            EXPECT_EQ(s_requests.sizes[2 + i], records[i]);
        }
    }

    template <typename Call>
    static void watch(Call call) {
        s_requests.count = 0;
        s_requests.isWatching = true;
        call();
        s_requests.isWatching = false;
    }

    CountingSink sink;
    CMMRTPSession4SVC session{&sink, kSourceId};
    unsigned long m_now = 1000;
    unsigned int m_timestamp = kTimestamp;
    unsigned short m_seq = 0;
    bool m_isMeasuring = false;
};

// 3 single units, 3 aggregated ones and 1 in fragments.
constexpr int kPictureUnits = 7;

TEST_F(AllocationTest, DatagramInOrderAsksForThePacketItsBytesAndNewRecords) {
    for (int i = 0; i < 1000; ++i) {
        receivePicture(false);
    }
    EXPECT_EQ(sink.handovers, 1000 * kPictureUnits);
}

TEST_F(AllocationTest, SwappedFragmentsAskForNoMore) {
    for (int i = 0; i < 1000; ++i) {
        receivePicture(true);
    }
    EXPECT_EQ(sink.handovers, 1000 * kPictureUnits);
}

TEST_F(AllocationTest, ForcedHandoverAsksForNothing) {
    std::vector<Bytes> datagrams = makePicture();
    m_isMeasuring = false;
    for (int i = 3; i < 6; ++i) {  // the first half of the run
        receive(datagrams[static_cast<std::size_t>(i)]);
    }
    int result = -1;
    watch([&] { result = session.ForceHandover(m_timestamp); });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(sink.handovers, 1);
    EXPECT_EQ(s_requests.count, 0);
}

// Up to 16 missing blocks are rebuilt by equations on the stack, without the whole decoding matrix.
TEST_F(AllocationTest, DecodingOfMissingBlocksAsksForNothing) {
    constexpr int kSources = 20;
    constexpr int kParity = 16;
    constexpr int kSize = 100;
    rs_param_* const model = CRsFec::CreateRsModel(kSources, kSources + kParity);
    ASSERT_NE(model, nullptr);
    unsigned char bytes[kSources + kParity][kSize];
    unsigned char* blocks[kSources + kParity];
    for (int i = 0; i < kSources + kParity; ++i) {
        std::copy_n(pattern(kSize, static_cast<unsigned int>(i)).begin(), kSize, bytes[i]);
        blocks[i] = bytes[i];
    }
    CRsFec::Encode(model, blocks, kSize, blocks + kSources);
    for (const int lostCount : {1, 2, kParity}) {
        int index[kSources];
        int lost[kParity];
        unsigned char* received[kSources];
        for (int i = 0; i < kSources; ++i) {
            index[i] = i < lostCount ? kSources + i : i;
            received[i] = blocks[index[i]];
        }
        unsigned char rebuilt[kParity][kSize];
        unsigned char* out[kParity];
        for (int i = 0; i < lostCount; ++i) {
            lost[i] = i;
            out[i] = rebuilt[i];
        }
        int result = -1;
        watch([&] { result = CRsFec::Decode(model, received, kSize, index, out, lost, lostCount); });
        EXPECT_EQ(result, 0);
        EXPECT_EQ(s_requests.count, 0) << lostCount;
        EXPECT_EQ(std::memcmp(rebuilt[lostCount - 1], bytes[lostCount - 1], kSize), 0);
    }
    CRsFec::DeleteRsModel(model);
}

// Each of these FEC packets waits for 128 of 256 packets, so it watches 129 numbers.
TEST_F(AllocationTest, FecPacketsThatWaitAskForNoBlockThatGrowsWithTheirNumber) {
    constexpr std::size_t kLargestBlock = 64 * 1024;
    RsFecFields fields;
    fields.timestamp = m_timestamp;
    fields.base = 20000;
    fields.count = 128;
    fields.mediaCount = 128;
    fields.parity = pattern(100, 1);
    for (unsigned short seq = 0; seq < 2000; ++seq) {
        fields.seq = seq;
        Bytes datagram = fields.bytes();
        watch([&] { session.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), m_now); });
        for (int i = 0; i < s_requests.count; ++i) {
            ASSERT_LE(s_requests.sizes[i], kLargestBlock) << "FEC packet " << seq;
        }
    }
}

// FEC packets that each wait for two numbers, one of them with the next, all moving on, and a media packet
// with each, which lets the oldest age out: what these have left serves the next ones.
TEST_F(AllocationTest, FecPacketsInNumbersThatMoveOnAskForThePacketItsBytesAndNewRecords) {
    CMMRTPSession4SVC warm(&sink, kSourceId);
    warm.SetFecType(RTP_FEC_XOR);
    XorFec fields;
    fields.mask = 0xc00000;
    fields.parity = pattern(100, 1);
    for (unsigned short i = 0; i < 10000; ++i) {
        fields.seq = i;
        fields.base = i;
        fields.timestamp += 900;
        m_now += 10;
        const unsigned short mediaSeq = static_cast<unsigned short>(30000 + i);
        for (Bytes datagram : {fields.bytes(), rtp(mediaSeq, fields.timestamp, unitOf(mediaSeq))}) {
            watch([&] { warm.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), m_now); });
            // The FEC packet is the first of its timestamp, the media packet is a unit.
            if (i >= 2 * kHeldPictures) {
                ASSERT_EQ(s_requests.count, 3) << "FEC packet " << i;
            }
        }
    }
}

// A thousand XOR FEC packets whose length never fits are tried, in vain, when a media packet leaves each one
// packet to rebuild.
TEST_F(AllocationTest, XorTriesInVainAskForNothing) {
    constexpr unsigned short kTries = 1000;
    CMMRTPSession4SVC warm(&sink, kSourceId);
    warm.SetFecType(RTP_FEC_XOR);
    const auto receiveBy = [&](Bytes datagram) {
        watch([&] { warm.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), m_now); });
    };
    receiveBy(rtp(1, kTimestamp, unitOf(1)));
    XorFec fields;
    fields.base = 100;
    fields.length = 0xffff;
    for (unsigned short i = 0; i < kTries; ++i) {
        fields.seq = i;
        fields.mask = 0xc00000;
        receiveBy(fields.bytes());
    }
    receiveBy(rtp(100, kTimestamp, unitOf(100)));
    EXPECT_EQ(s_requests.count, 3);  // with the record of its unit
}

// The memory of each FEC packet of a group of its own, beside its object and its bytes.
TEST_F(AllocationTest, FecPacketThatWaitsKeepsAtMost256BytesBesideItsOwn) {
    constexpr unsigned int kPackets = 20000;
    constexpr std::size_t kHeapHeader = 8;
    const std::size_t own =
        (sizeof(CTalRtpPacket) + kHeapHeader + 15) / 16 * 16 + (1300 + 88 + kHeapHeader + 15) / 16 * 16;
    for (const unsigned long type : {RTP_FEC_RS, RTP_FEC_XOR}) {
        CMMRTPSession4SVC waiting(&sink, kSourceId);
        waiting.SetFecType(type);
        RsFecFields rs;
        rs.count = 127;
        rs.mediaCount = 129;
        XorFec exclusiveOr;
        const std::size_t before = mallinfo2().uordblks;
        for (unsigned int i = 0; i < kPackets; ++i) {
            rs.seq = exclusiveOr.seq = static_cast<unsigned short>(i);
            rs.base = exclusiveOr.base = static_cast<unsigned short>(2 * i);
            exclusiveOr.mask = 0xffffff;
            Bytes datagram = type == RTP_FEC_RS ? rs.bytes() : exclusiveOr.bytes();
            waiting.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), m_now);
        }
        const std::size_t kept = mallinfo2().uordblks - before;
        EXPECT_GE(kept, kPackets * own) << type;
        EXPECT_LE(kept, kPackets * (own + 256)) << type;
    }
}

class MemoryGoesBackTest : public AllocationTest {
protected:
    static constexpr std::size_t kMayStay = 64 * 1024;

    static std::size_t inUse() {
        const struct mallinfo2 info = mallinfo2();
        return info.uordblks + info.hblkhd;
    }

    // The heap keeps a few freed blocks of each size for each thread and counts them as in use. A session
    // that went through the same before leaves those caches full, so that they count on neither side.
    template <typename Flood>
    void fillCachesOfTheHeap(Flood flood) {
        CMMRTPSession4SVC earlier(&sink, kSourceId);
        flood(earlier);
    }

    // Lets everything age out, with a packet of its own.
    void ageOut(CMMRTPSession4SVC& of, unsigned long now) {
        Bytes last = rtp(40000, 0xffffffff, unitOf(1));
        of.InputReceivedData(last.data(), static_cast<int>(last.size()), now);
    }
};

TEST_F(MemoryGoesBackTest, AfterWaitingFecPacketsAgedOut) {
    for (const unsigned long type : {RTP_FEC_RS, RTP_FEC_XOR}) {
        const auto flood = [&](CMMRTPSession4SVC& session) {
            session.SetFecType(type);
            RsFecFields rs;
            rs.count = 127;
            rs.mediaCount = 129;
            XorFec exclusiveOr;
            exclusiveOr.mask = 0xffffff;
            for (unsigned int i = 0; i < 65536; ++i) {
                rs.seq = exclusiveOr.seq = static_cast<unsigned short>(i);
                rs.base = exclusiveOr.base = static_cast<unsigned short>(2 * i);
                rs.timestamp = exclusiveOr.timestamp = i / 8;
                Bytes datagram = type == RTP_FEC_RS ? rs.bytes() : exclusiveOr.bytes();
                session.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), 1000);
            }
        };
        fillCachesOfTheHeap(flood);
        CMMRTPSession4SVC flooded(&sink, kSourceId);
        const std::size_t before = inUse();
        flood(flooded);
        ASSERT_GT(inUse(), before + 65536 * 1500);
        ageOut(flooded, 7000);
        EXPECT_LE(inUse(), before + kMayStay) << type;
    }
}

TEST_F(MemoryGoesBackTest, AfterAFullListOfMediaAgedOut) {
    const auto flood = [](CMMRTPSession4SVC& session) {
        for (unsigned int i = 0; i < 65535; ++i) {
            Bytes datagram = rtp(static_cast<unsigned short>(i), i, fragment(kMiddle, {1}));
            session.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), 1000);
        }
    };
    fillCachesOfTheHeap(flood);
    CMMRTPSession4SVC flooded(&sink, kSourceId);
    const std::size_t before = inUse();
    flood(flooded);
    ASSERT_GT(inUse(), before + 65535 * 1500);
    Bytes last = rtp(65535, 0xffffffff, unitOf(1));
    flooded.InputReceivedData(last.data(), static_cast<int>(last.size()), 7000);
    EXPECT_LE(inUse(), before + kMayStay);
}

TEST_F(MemoryGoesBackTest, AfterALargeUnitAgedOut) {
    CMMRTPSession4SVC receiver(&sink, kSourceId);
    const std::size_t before = inUse();
    constexpr unsigned short kFragments = 100;
    constexpr std::size_t kData = 60000;
    const auto receiveUnit = [&](unsigned short first, unsigned long at) {
        for (unsigned short i = 0; i < kFragments; ++i) {
            const unsigned char flags = i == 0 ? kStart : i + 1 == kFragments ? kEnd : kMiddle;
            Bytes datagram =
                rtp(static_cast<unsigned short>(first + i), first, fragment(flags, Bytes(kData, 7)));
            receiver.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), at);
        }
    };
    sink.handovers = 0;
    receiveUnit(100, 1000);
    receiveUnit(300, 5000);
    ASSERT_EQ(sink.handovers, 2);
    ageOut(receiver, 9000);  // the first unit is gone, and the buffer was needed a moment ago
    ASSERT_GT(inUse(), before + 2 * kFragments * kData - kFragments * kData / 2);
    ageOut(receiver, 11000);
    Bytes later = rtp(40001, 4712, unitOf(2));
    receiver.InputReceivedData(later.data(), static_cast<int>(later.size()), 16500);
    EXPECT_LE(inUse(), before + kMayStay);
}

}  // namespace
}  // namespace test
}  // namespace talrtp
