// The choice of FEC groups.

#include <talrtp/TalRtpFecPacket.h>
#include <talrtp/kit/FecGrouping.h>
#include <talrtp/kit/PacketArray.h>
#include <talrtp/kit/SessionHandle.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <vector>

namespace talrtp::kit {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

FecGrouping xorGroups(int maxMedia) {
    return FecGrouping(Fec::xorParity(maxMedia));
}

FecGrouping rsGroups(int maxMedia, int parity) {
    return FecGrouping(Fec::reedSolomon(maxMedia, parity));
}

TEST(FecGrouping, WithoutFecThereAreNoGroups) {
    EXPECT_THAT(FecGrouping(Fec::none()).cut(10), IsEmpty());
    EXPECT_FALSE(FecGrouping(Fec::none()).isTooFew(1));
}

TEST(FecGrouping, CutsReedSolomonGroupsEvenly) {
    EXPECT_THAT(rsGroups(10, 2).cut(10), ElementsAre(10));
    EXPECT_THAT(rsGroups(10, 2).cut(11), ElementsAre(6, 5));
    EXPECT_THAT(rsGroups(10, 2).cut(25), ElementsAre(9, 8, 8));
    EXPECT_THAT(rsGroups(10, 2).cut(0), IsEmpty());
}

TEST(FecGrouping, CutsXorGroupsOfOddSizes) {
    EXPECT_THAT(xorGroups(9).cut(9), ElementsAre(9));
    EXPECT_THAT(xorGroups(9).cut(10), ElementsAre(5, 5));
    EXPECT_THAT(xorGroups(9).cut(12), ElementsAre(7, 5));
    EXPECT_THAT(xorGroups(9).cut(2), ElementsAre(1, 1));
    EXPECT_THAT(xorGroups(3).cut(7), ElementsAre(3, 3, 1));
}

TEST(FecGrouping, AnEvenXorLimitCountsAsTheOddOneBelow) {
    EXPECT_EQ(xorGroups(10).limit(), 9u);
    EXPECT_EQ(xorGroups(24).limit(), 23u);
    EXPECT_EQ(xorGroups(23).limit(), 23u);
    EXPECT_EQ(rsGroups(10, 2).limit(), 10u);
}

TEST(FecGrouping, PicturesOfOneOrTwoPacketsWaitForTheNext) {
    EXPECT_TRUE(xorGroups(9).isTooFew(2));
    EXPECT_FALSE(xorGroups(9).isTooFew(3));
    EXPECT_TRUE(rsGroups(10, 2).isTooFew(1));
    EXPECT_FALSE(rsGroups(10, 2).isTooFew(3));
}

TEST(FecGrouping, SmallGroupsWaitOnlyForWhatTheyHold) {
    EXPECT_FALSE(xorGroups(1).isTooFew(1));
    EXPECT_FALSE(xorGroups(2).isTooFew(1));
    EXPECT_TRUE(rsGroups(2, 1).isTooFew(1));
    EXPECT_FALSE(rsGroups(2, 1).isTooFew(2));
}

TEST(FecGrouping, OverwritesTheSizesItIsGiven) {
    std::vector<std::size_t> sizes{7, 7, 7};
    rsGroups(10, 2).cut(11, sizes);
    EXPECT_THAT(sizes, ElementsAre(6, 5));
    FecGrouping(Fec::none()).cut(11, sizes);
    EXPECT_THAT(sizes, IsEmpty());
}

// Every run, every limit: the sizes add up, keep the limit, are odd for XOR and differ by at most one step.
TEST(FecGrouping, EveryCutKeepsItsLimits) {
    for (int group = 1; group <= 40; ++group) {
        for (std::size_t count = 1; count <= 300; ++count) {
            for (const FecScheme scheme : {FecScheme::kXor, FecScheme::kReedSolomon}) {
                if (scheme == FecScheme::kXor && group > kMaxXorGroup) {
                    continue;
                }
                const std::vector<std::size_t> sizes = FecGrouping(Fec{scheme, group, 1}).cut(count);
                ASSERT_FALSE(sizes.empty());
                ASSERT_EQ(std::accumulate(sizes.begin(), sizes.end(), std::size_t{0}), count);
                const auto range = std::minmax_element(sizes.begin(), sizes.end());
                ASSERT_GE(*range.first, 1u);
                ASSERT_LE(*range.second, static_cast<std::size_t>(group));
                ASSERT_LE(*range.second - *range.first, scheme == FecScheme::kXor ? 2u : 1u);
                for (const std::size_t size : sizes) {
                    ASSERT_TRUE(scheme != FecScheme::kXor || size % 2 == 1);
                }
            }
        }
    }
}

// Notes the payload type of the one packet that is rebuilt.
class PayloadTypeSink : public ITalRTPSessionSink {
public:
    void OnReceivedRTPPacket(CTalRtpPacket* packet) override { types.push_back(packet->get_payload_type()); }

    std::vector<unsigned int> types;
};

// The reason for odd XOR groups: over an even one the rebuilt packet has payload type 1, whatever it was.
TEST(FecGrouping, XorRebuildsThePayloadTypeInOddGroupsOnly) {
    for (int count = 1; count <= 8; ++count) {
        SessionHandle sending(nullptr, 1);
        sending->SetFecType(RTP_FEC_XOR);
        PayloadTypeSink sink;
        SessionHandle receiving(&sink, 1);
        receiving->SetFecType(RTP_FEC_XOR);
        PacketArray<CTalRtpPacket> packets(static_cast<std::size_t>(count), 100);
        std::vector<std::uint8_t> unit(50, 0x41);
        for (std::size_t i = 0; i < packets.size(); ++i) {
            sending->CreateSinglePacket(9000, static_cast<int>(unit.size()), unit.data(), &packets[i]);
        }
        CRTPFECPacket fec(200);
        ASSERT_EQ(sending->CreateXorFecPackets(packets.data(), count, 0xffffffff, &fec), 0);
        for (std::size_t i = 1; i < packets.size(); ++i) {
            receiving->InputReceivedData(packets[i].get_buffer(), packets[i].get_packet_size(), 0);
        }
        sink.types.clear();
        receiving->InputReceivedData(fec.get_buffer(), fec.get_packet_size(), 0);
        EXPECT_EQ(sink.types, std::vector<unsigned int>{count % 2 == 1 ? 98U : 1U}) << count;
    }
}

}  // namespace
}  // namespace talrtp::kit
