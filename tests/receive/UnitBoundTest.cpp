// Units near the largest size of a hand-over, in a build in which that is 20,000 bytes and not 2^31 - 1.

#include "SessionFixture.h"

namespace talrtp {
namespace test {
namespace {

// A hand-over has 12 bytes of header, room for the 4 of an extension, and 88 spare ones.
constexpr std::size_t kLargestUnit = TALRTP_LARGEST_HANDOVER - 12 - 4 - 88;
constexpr std::size_t kStartCodeAndHeader = 4 + 1;

class UnitBoundTest : public SessionTest<SvcProbe> {
protected:
    // Receives a unit of that size, with its start code, in fragments.
    void receiveUnit(unsigned short seq, std::size_t size) {
        const Bytes data = pattern(size - kStartCodeAndHeader, 3);
        media(seq, fragment(kStart, slice(data, 0, 7000)));
        media(static_cast<unsigned short>(seq + 1), fragment(kMiddle, slice(data, 7000, 14000)));
        media(static_cast<unsigned short>(seq + 2), fragment(kEnd, slice(data, 14000)));
    }
};

TEST_F(UnitBoundTest, LargestUnitIsHandedOver) {
    receiveUnit(10, kLargestUnit);
    ASSERT_EQ(sink.handovers.size(), 1u);
    EXPECT_EQ(sink.handovers[0].payload.size(), kLargestUnit);
    EXPECT_EQ(slice(sink.handovers[0].payload, kStartCodeAndHeader),
              pattern(kLargestUnit - kStartCodeAndHeader, 3));
}

TEST_F(UnitBoundTest, LargerUnitIsNeverHandedOver) {
    receiveUnit(10, kLargestUnit + 1);
    EXPECT_EQ(session.ForceHandover(kTimestamp), 0);
    expectHandovers({});
    expectLines({});
    media(20);
    expectDelivered({20});
}

TEST_F(UnitBoundTest, LongerHeaderLeavesLessRoom) {
    for (const std::size_t excess : {0u, 1u}) {
        const Bytes data = pattern(kLargestUnit - 4 + excess - kStartCodeAndHeader, 3);
        const unsigned short seq = static_cast<unsigned short>(10 + 10 * excess);
        Bytes start =
            rtp(seq, kTimestamp, join({{0x01, 0x02, 0x03, 0x04}, fragment(kStart, slice(data, 0, 9000))}));
        start[0] = 0x81;  // one CSRC of 4 bytes
        receive(start);
        media(static_cast<unsigned short>(seq + 1), fragment(kEnd, slice(data, 9000)));
        EXPECT_EQ(sink.handovers.size(), 1 - excess);
        sink.handovers.clear();
    }
}

}  // namespace
}  // namespace test
}  // namespace talrtp
