// The work of a session for one datagram, counted in its own steps over lists, the index and FEC groups, does
// not grow with what was received before. Each test feeds one of the worst patterns and bounds the steps.

#include <gtest/gtest.h>
#include <talrtp/talrtp.h>

#include <algorithm>
#include <vector>

#include "TalRtpSessionRules.h"

namespace talrtp {

namespace {

constexpr unsigned char kMediaType = 98;
constexpr unsigned char kFecType = 111;
constexpr unsigned int kNumbers = 65536;

// The cost limit of one datagram, whatever is held: a few look-ups, and searches in ordered maps of up to
// 65536 entries.
constexpr _uint64_t kPerDatagram = 80;

struct CountingSink : ITalRTPSessionSink {
    void OnReceivedRTPPacket(CTalRtpPacket* packet) override {
        ++count;
        bytes += static_cast<unsigned int>(packet->get_payload_size());
    }
    unsigned int count = 0;
    unsigned long bytes = 0;
};

// Opens the lists of any session.
struct Member : CMMRTPSession4SVC {
    using CMMRTPSession4SVC::m_fecPacketList;
    using CMMRTPSession4SVC::m_mediaPacketList;
    using CMMRTPSession4SVC::m_tsInfoList;
};

class StepBudgetTest : public testing::Test {
protected:
    StepBudgetTest() { session.SetFecType(RTP_FEC_XOR); }

    std::size_t mediaCount() const { return (session.*&Member::m_mediaPacketList).size(); }
    std::size_t fecCount() const { return (session.*&Member::m_fecPacketList).size(); }
    std::size_t timestampCount() const { return (session.*&Member::m_tsInfoList).size(); }

    // Feeds one datagram and returns its steps.
    _uint64_t input(std::vector<unsigned char> datagram, unsigned long now = 0) {
        const _uint64_t before = CSessionAccess::index(session).meter.steps;
        EXPECT_EQ(0, session.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), now));
        const _uint64_t steps = CSessionAccess::index(session).meter.steps - before;
        total += steps;
        most = std::max(most, steps);
        return steps;
    }

    static std::vector<unsigned char> header(unsigned char type, unsigned int seq, unsigned int timestamp) {
        return {
            0x80,
            type,
            static_cast<unsigned char>(seq >> 8),
            static_cast<unsigned char>(seq),
            static_cast<unsigned char>(timestamp >> 24),
            static_cast<unsigned char>(timestamp >> 16),
            static_cast<unsigned char>(timestamp >> 8),
            static_cast<unsigned char>(timestamp),
            0,
            0,
            0,
            1,
        };
    }

    // A fragment with its FU header: 0x80 start, 0x40 end.
    static std::vector<unsigned char> fragment(unsigned int seq, unsigned char startAndEnd,
                                               unsigned int timestamp = 0) {
        std::vector<unsigned char> datagram = header(kMediaType, seq, timestamp);
        datagram.insert(datagram.end(), {0x7c, static_cast<unsigned char>(0x05 | startAndEnd), 0xaa});
        return datagram;
    }

    static std::vector<unsigned char> single(unsigned int seq, unsigned int timestamp) {
        std::vector<unsigned char> datagram = header(kMediaType, seq, timestamp);
        datagram.insert(datagram.end(), {0x65, 0xaa, 0xbb});
        return datagram;
    }

    // An XOR FEC packet whose recovery fields and body fit packets made by `single`: two of them, from `base`
    // on.
    static std::vector<unsigned char> fecOverTwo(unsigned int seq, unsigned int base,
                                                 unsigned int timestamp) {
        std::vector<unsigned char> datagram = header(kFecType, seq, timestamp);
        datagram.insert(datagram.end(),
                        {
                            static_cast<unsigned char>(base >> 8), static_cast<unsigned char>(base), 0,
                            0,              // SN base | length recovery
                            0, 0xc0, 0, 0,  // PT recovery | mask
                            0, 0, 0, 0,     // TS recovery
                            0, 0, 0,        // parity
                        });
        return datagram;
    }

    // One over the packets of a mask, whose first bit of 24 stands for packet `base`. Its length never fits.
    static std::vector<unsigned char> fecWithMask(unsigned int seq, unsigned int base, unsigned int mask) {
        std::vector<unsigned char> datagram = fecOverTwo(seq, base, 1);
        datagram[12 + 2] = 0xff;
        datagram[12 + 5] = static_cast<unsigned char>(mask >> 16);
        datagram[12 + 6] = static_cast<unsigned char>(mask >> 8);
        datagram[12 + 7] = static_cast<unsigned char>(mask);
        return datagram;
    }

    CountingSink sink;
    CMMRTPSession4SVC session{&sink, 1};
    _uint64_t total = 0;
    _uint64_t most = 0;
};

constexpr unsigned int kFragments = 4000;

unsigned char boundsOf(unsigned int i) {
    return i == 0 ? 0x80 : i == kFragments - 1 ? 0x40 : 0;
}

TEST_F(StepBudgetTest, FragmentsInOrderCostTheirOwnWorkAndOneWalkAtTheEnd) {
    for (unsigned int i = 0; i < kFragments - 1; ++i) {
        ASSERT_LE(input(fragment(i, boundsOf(i))), kPerDatagram) << i;
    }
    EXPECT_LE(input(fragment(kFragments - 1, boundsOf(kFragments - 1))), 2 * kFragments + kPerDatagram);
    EXPECT_EQ(1u, sink.count);
    EXPECT_EQ(5u + kFragments, sink.bytes);
}

TEST_F(StepBudgetTest, FragmentsInReverseCostTheirOwnWorkAndOneWalkAtTheEnd) {
    for (unsigned int i = kFragments - 1; i > 0; --i) {
        ASSERT_LE(input(fragment(i, boundsOf(i))), kPerDatagram) << i;
    }
    EXPECT_LE(input(fragment(0, boundsOf(0))), 2 * kFragments + kPerDatagram);
    EXPECT_EQ(1u, sink.count);
}

TEST_F(StepBudgetTest, FragmentsWithoutAStartCostTheSameHoweverManyAreHeld) {
    for (unsigned int i = 0; i < kNumbers; ++i) {
        ASSERT_LE(input(fragment(i, 0)), kPerDatagram) << i;
    }
    EXPECT_EQ(kNumbers, mediaCount());
    EXPECT_EQ(0u, sink.count);
}

TEST_F(StepBudgetTest, OneTimestampForEachPacketCostsTheSameHoweverManyAreHeld) {
    for (unsigned int i = 0; i < 3 * kNumbers; ++i) {
        ASSERT_LE(input(single(i % kNumbers, i * 3000), i / 8), kPerDatagram) << i;  // 40000 in 5000 ms
    }
    EXPECT_NEAR(40000, static_cast<double>(timestampCount()), 20);
    EXPECT_EQ(3 * kNumbers, sink.count);
}

TEST_F(StepBudgetTest, TimestampsInReverseCostTheSameHoweverManyAreHeld) {
    for (unsigned int i = kNumbers; i-- > 0;) {
        ASSERT_LE(input(single(i, i * 3000)), kPerDatagram) << i;
    }
    EXPECT_EQ(kNumbers, timestampCount());
}

TEST_F(StepBudgetTest, FecPacketsThatEachWaitForTwoCostNothingUntilOneOfThemComes) {
    constexpr unsigned int kFecTimestamp = 1;
    for (unsigned int i = 0; i < kNumbers; ++i) {
        ASSERT_LE(input(fecOverTwo(i, i, kFecTimestamp)), kPerDatagram) << i;
    }
    ASSERT_EQ(kNumbers, fecCount());
    // Packet 0 lets FEC 0 rebuild packet 1 and FEC 65535 rebuild packet 65535. Each of these completes the
    // next group, so one datagram rebuilds everything; its cost is a bound for each rebuilt packet.
    EXPECT_LE(input(single(0, 0)), kNumbers * kPerDatagram);
    EXPECT_EQ(kNumbers, mediaCount());
    EXPECT_EQ(0u, fecCount());
}

TEST_F(StepBudgetTest, MediaThatNoFecPacketWaitsForCostsTheSameHoweverManyWait) {
    for (unsigned int i = 0; i < 32768; i += 2) {
        input(fecOverTwo(i, i, 1));
    }
    ASSERT_EQ(16384u, fecCount());
    for (unsigned int i = 32768; i < 40000; ++i) {
        ASSERT_LE(input(single(i, i)), kPerDatagram) << i;
    }
    EXPECT_EQ(16384u, fecCount());
}

TEST_F(StepBudgetTest, FecPacketsAreDroppedOneByOneFromAFullTimestampAtAFixedCost) {
    for (unsigned int i = 0; i < 32768; ++i) {
        input(fecOverTwo(i, 2 * i, 1));
    }
    ASSERT_EQ(32768u, fecCount());
    // From the last noted to the first, which a walk over the timestamp's list would find late.
    for (unsigned int i = 32768; i-- > 0;) {
        ASSERT_LE(input(single(2 * i, 0)), 2 * kPerDatagram) << i;
        ASSERT_EQ(i, fecCount());
    }
}

TEST_F(StepBudgetTest, AChainInWhichEachRebuiltPacketCompletesTheNextCostsAFixedShareForEach) {
    constexpr unsigned int kChain = 10000;
    for (unsigned int i = 0; i < kChain; ++i) {
        input(fecOverTwo(i, i, 1));
    }
    EXPECT_LE(input(single(0, 0)), kChain * kPerDatagram);
    EXPECT_EQ(kChain + 1, mediaCount());
}

constexpr unsigned int kMaskBits = 24;

TEST_F(StepBudgetTest, AllArrivalsInOneWindowTogetherCostABoundForEachFecPacket) {
    constexpr unsigned int kPackets = 20000;
    for (unsigned int i = 0; i < kPackets; ++i) {
        input(fecWithMask(i, 100, 0xff0000 | i | 1));
    }
    total = 0;
    for (unsigned int i = 0; i < kMaskBits; ++i) {
        input(single(100 + i, 0));
    }
    EXPECT_LE(total, kPackets * 4 * kMaskBits);
    EXPECT_EQ(0u, fecCount());
}

// The groups over a media base form a tree of up to 65536, balanced by chance. This is twice its usual depth.
constexpr _uint64_t kXorTree = 80;

// All protect packets 0 to 7 of the window, and each others of the 16 after these.
TEST_F(StepBudgetTest, AnArrivalMeetsNoFecPacketThatLacksTwoPacketsLikeAllOthers) {
    for (const bool isDescending : {false, true}) {
        CMMRTPSession4SVC receiver(&sink, 1);
        receiver.SetFecType(RTP_FEC_XOR);
        const auto feed = [&](std::vector<unsigned char> datagram) {
            const _uint64_t before = CSessionAccess::index(receiver).meter.steps;
            receiver.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), 0);
            return CSessionAccess::index(receiver).meter.steps - before;
        };
        for (unsigned int i = 0; i < kNumbers; ++i) {
            ASSERT_LE(feed(fecWithMask(i, 100, 0xff0000 | i)), kPerDatagram + kXorTree) << i;
        }
        ASSERT_EQ(kNumbers, (receiver.*&Member::m_fecPacketList).size());
        for (unsigned int i = 0; i < (isDescending ? 22 : 6); ++i) {
            ASSERT_LE(feed(single(isDescending ? 123 - i : 100 + i, 0)), kPerDatagram) << i;
        }
        EXPECT_EQ(kNumbers, (receiver.*&Member::m_fecPacketList).size());
    }
}

TEST_F(StepBudgetTest, AMediaPacketThatMakesAllFecPacketsReadyCostsAFixedShareForEach) {
    for (unsigned int i = 0; i < kNumbers; ++i) {
        input(fecWithMask(i, 100, 0xff0000 | i));
    }
    for (unsigned int i = 23; i > 1; --i) {
        input(single(100 + i, 0));
    }
    ASSERT_EQ(kNumbers, fecCount());
    // A try looks at the packets of its mask. Marking, and dropping, takes a few steps.
    EXPECT_LE(input(single(100, 0)), kNumbers * (kMaskBits + 8));
    EXPECT_EQ(0u, fecCount());
}

TEST_F(StepBudgetTest, FecPacketsOverTheSamePacketsWaitAsOne) {
    for (unsigned int i = 0; i < kNumbers; ++i) {
        ASSERT_LE(input(fecWithMask(i, 100, 0xffffff)), kPerDatagram) << i;
    }
    for (unsigned int i = 0; i < kMaskBits - 2; ++i) {
        ASSERT_LE(input(single(100 + i, 0)), kPerDatagram) << i;
    }
    ASSERT_EQ(kNumbers, fecCount());
    // One step to mark each, one for its try beside the look at its packets, two to find its timestamp.
    EXPECT_LE(input(single(122, 0)), kNumbers * (kMaskBits + 4) + kPerDatagram);
    EXPECT_EQ(0u, fecCount());
}

TEST_F(StepBudgetTest, AClockThatStepsBackCostsOneSearchAndNotOneForEachPacket) {
    for (unsigned int i = 0; i < 10000; ++i) {
        input(fecOverTwo(i, 20000 + 2 * i, i), 1000000);
    }
    // FEC packets alone age nothing out, so all timestamps stay while these come from before them.
    input(fecOverTwo(10000, 50000, 10000), 999000);
    for (unsigned int i = 10001; i < 20000; ++i) {
        ASSERT_LE(input(fecOverTwo(i, 40001 + i, i), 999000), kPerDatagram) << i;
    }
}

// --- Reed-Solomon ---

class RsStepBudgetTest : public StepBudgetTest {
protected:
    RsStepBudgetTest() { session.SetFecType(RTP_FEC_RS); }

    // Garbage that claims to be parity packet `index` of `m` over `k` packets from `base` on.
    static std::vector<unsigned char> parity(unsigned int seq, unsigned int base, unsigned int k,
                                             unsigned int m, unsigned int index, std::size_t blockSize) {
        std::vector<unsigned char> datagram = header(kFecType, seq % kNumbers, 0);
        datagram.insert(datagram.end(), {
                                            static_cast<unsigned char>(base >> 8),
                                            static_cast<unsigned char>(base),
                                            0x05,
                                            static_cast<unsigned char>(seq * 37),
                                            static_cast<unsigned char>(index),
                                            static_cast<unsigned char>(m),
                                            static_cast<unsigned char>(k),
                                            0,
                                        });
        for (std::size_t i = 0; i < blockSize; ++i) {
            datagram.push_back(static_cast<unsigned char>(i * seq + (i * i >> 3) + 1));
        }
        return datagram;
    }

    // Feeds one datagram and returns the bytes that it had multiplied.
    _uint64_t productsOf(const std::vector<unsigned char>& datagram) {
        const _uint64_t before = CSessionAccess::index(session).meter.products;
        input(datagram);
        return CSessionAccess::index(session).meter.products - before;
    }
};

constexpr std::size_t kBlockSize = 1500;

// The five bytes that tell a right packet from garbage, of as many missing packets as a group can have.
constexpr _uint64_t kProbe = 128 * 128 * 5;

TEST_F(RsStepBudgetTest, GarbageParityHasTheFirstBytesOfItsPacketsMultipliedOnly) {
    for (unsigned int i = 0; i < 127; ++i) {
        EXPECT_EQ(productsOf(parity(i, 1000, 128, 128, i, kBlockSize)), 0u);
    }
    for (int i = 0; i < 3; ++i) {
        const _uint64_t products = productsOf(parity(127, 1000, 128, 128, 127, kBlockSize));
        EXPECT_GT(products, 0u);
        EXPECT_LE(products, kProbe);
        EXPECT_EQ(127u, fecCount());
    }
    EXPECT_EQ(0u, mediaCount());
}

// The group has 127 of 128 shards, and as many members again whose index lies beyond its shards. These have
// lower numbers, so they are tried first, and each finds the shards untouched.
TEST_F(RsStepBudgetTest, MembersBeyondTheShardsOfTheirGroupCostAProbeEach) {
    constexpr unsigned int kMembers = 128;
    for (unsigned int i = 0; i < 127; ++i) {
        input(parity(kNumbers - kMembers + i, 1000, 128, 128, i, kBlockSize));
    }
    for (unsigned int i = 0; i < kMembers; ++i) {
        input(parity(kNumbers + i, 1000, 128, 128, kMembers + i, kBlockSize));
    }
    ASSERT_EQ(127 + kMembers, fecCount());
    const _uint64_t products = productsOf(single(1000, 0));
    EXPECT_GE(products, kMembers * 127 * 127 * 5);
    EXPECT_LE(products, (kMembers + 1) * kProbe);
    EXPECT_EQ(126u, fecCount());
}

TEST_F(RsStepBudgetTest, AMediaPacketThatMakesManyGroupsDecodableCostsAProbeEach) {
    constexpr unsigned int kGroups = 740;
    constexpr unsigned int kParity = 88;
    for (unsigned int i = 0; i < kGroups * kParity; ++i) {
        const unsigned int base = 1000 - i / kParity % (kParity + 1);
        input(parity(i, base, kParity + 1, kParity, i % kParity, kBlockSize));
    }
    ASSERT_EQ(kGroups * kParity, fecCount());
    EXPECT_LE(productsOf(single(1000, 0)), kGroups * kProbe);
    EXPECT_EQ(kGroups * (kParity - 1), fecCount());  // of each group the one that was tried is gone
}

// A right packet is decoded whole, and nothing else of the group is.
TEST_F(RsStepBudgetTest, ARebuiltPacketIsMultipliedOnce) {
    constexpr unsigned int kSize = 1000;
    std::vector<unsigned char> lost = single(1000, 7);
    lost.resize(kSize);
    std::vector<unsigned char> fec = parity(5, 1000, 1, 1, 0, 0);
    fec[14] = kSize >> 8;  // over one packet the parity is the packet
    fec[15] = kSize & 0xff;
    fec.insert(fec.end(), lost.begin(), lost.end());
    const _uint64_t products = productsOf(fec);
    EXPECT_GE(products, kSize);
    EXPECT_LE(products, kSize + 64 * 5);
    EXPECT_EQ(1u, mediaCount());
}

// A media packet is counted at up to 255 media bases, in a tree of groups at each.
constexpr _uint64_t kBases = 255;

// A tree of up to 65536 groups is balanced by chance; this is twice its usual depth, there and back, and
// more.
constexpr _uint64_t kTree = 200;

// Groups that may have an FEC packet: those of the FEC packets at most 255 numbers away.
constexpr _uint64_t kFecGroups = 511;

TEST_F(RsStepBudgetTest, MediaBehindManyGroupsOverOneWindowCostsOneTree) {
    for (unsigned int i = 0; i < kNumbers; ++i) {
        ASSERT_LE(input(parity(i, 1000, 200, 1, 0, 4)), kFecGroups + kTree) << i;
    }
    ASSERT_EQ(kNumbers, fecCount());
    for (unsigned int i = 0; i < 198; ++i) {
        ASSERT_LE(input(single(1000 + i, 0)), kTree) << i;
    }
    EXPECT_EQ(kNumbers, fecCount());
}

TEST_F(RsStepBudgetTest, MediaBehindGroupsOfEveryBaseAndLengthCostsATreeForEachBase) {
    for (unsigned int i = 0; i < kNumbers; ++i) {
        input(parity(i, 1000 + i % 256, 150 + i / 256 % 105, 1, 0, 4));
    }
    ASSERT_EQ(kNumbers, fecCount());
    for (unsigned int i = 0; i < 140; ++i) {
        ASSERT_LE(input(single(1255 - i, 0)), kBases * 20) << i;
    }
    EXPECT_EQ(kNumbers, fecCount());
}

TEST_F(RsStepBudgetTest, FecPacketIsCountedInTheGroupsAroundItOnly) {
    for (unsigned int i = 0; i < kNumbers; ++i) {
        ASSERT_LE(input(parity(i, 2 * i, 129, 127, 0, 0)), 127 * 3 + kTree) << i;
    }
    EXPECT_EQ(kNumbers, fecCount());
}

// A group in a large tree is counted where it is: those above it hear of it only when it lacks the least.
TEST_F(RsStepBudgetTest, FecPacketIsCountedInTheGroupsOfOneTreeWithoutASearchForEach) {
    for (unsigned int i = 0; i < kNumbers; ++i) {
        ASSERT_LE(input(parity(i, 1000, 129, 127, 0, 0)), 127 * 3 + kTree) << i;
    }
    EXPECT_EQ(kNumbers, fecCount());
}

TEST_F(RsStepBudgetTest, FecPacketLooksAtNoGroupThatIsTooShortForIt) {
    for (unsigned int i = 0; i < kNumbers; ++i) {
        ASSERT_LE(input(parity(i, 2 * i, 129, 1 + i % 10, 0, 0)), 10 + kPerDatagram) << i;
    }
    EXPECT_EQ(kNumbers, fecCount());
}

// One try of a group that lacks a shard makes the whole group wait again.
TEST_F(RsStepBudgetTest, AGroupThatLostAShardToItsTryIsNotTriedForEachMember) {
    constexpr unsigned int kGroups = 300;
    constexpr unsigned int kParity = 88;
    for (unsigned int i = 0; i < kGroups * kParity; ++i) {
        const unsigned int base = 1000 - i / kParity % (kParity + 1);
        input(parity(i, base, kParity + 1, kParity, i % kParity, 100));
    }
    // The try of the first member looks at each shard. Marking, and unmarking, takes a step for each member.
    constexpr unsigned int kTry = 2 * kParity + 1;
    EXPECT_LE(input(single(1000, 0)), kGroups * (kTry + 4 * kParity + kTree));
}

// Media that comes, ages out and comes again in the windows of many groups: what left is counted back once.
TEST_F(RsStepBudgetTest, MediaThatAgesOutAndComesAgainCostsNoLookAtEveryGroup) {
    constexpr unsigned int kGroups = 20000;
    unsigned int other = 40000;
    const auto refresh = [&](unsigned long now) {  // keeps the groups' timestamp from ageing out
        input(single(other++, 0), now);
    };
    for (unsigned int i = 0; i < kGroups; ++i) {
        input(parity(i, 1000, 200, 1, 0, 4));
    }
    unsigned long now = 0;
    for (unsigned int round = 0; round < 3; ++round) {
        for (unsigned int i = 0; i < 150; ++i) {
            ASSERT_LE(input(single(1000 + (round * 50 + i) % 200, 1), now), kTree * 150) << i;
        }
        for (const unsigned long later : {2000u, 4000u, 6000u}) {
            refresh(now + later);
        }
        now += 6000;
        ASSERT_EQ(other - 40000, mediaCount());
        ASSERT_EQ(kGroups, fecCount());
    }
}

}  // namespace
}  // namespace talrtp
