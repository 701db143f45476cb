// A sender's requests to the allocator in the steady state: none.

#include <talrtp/kit/Sender.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Bytes.h"
#include "MallocCounter.h"

namespace talrtp::kit {
namespace {

using test::Bytes;

class SenderAllocationTest : public ::testing::TestWithParam<Fec> {
protected:
    void SetUp() override {
        if (test::kIsSanitized) {
            GTEST_SKIP() << test::kNothingIsCounted;
        }
    }
};

// Parameter sets in a STAP-A, a unit in fragments and one alone; then a picture of one packet, which waits
// for company.
TEST_P(SenderAllocationTest, SendingAsksForNothingOnceItIsWarm) {
    SenderOptions options;
    options.fec = GetParam();
    std::uint64_t bytes = 0;
    Sender sender(options, [&](const Datagram& datagram) { bytes += datagram.bytes.size(); });
    const std::vector<Bytes> large{Bytes(20, 0x67), Bytes(9, 0x68), Bytes(20000, 0x65), Bytes(1000, 0x41)};
    const std::vector<Bytes> small{Bytes(100, 0x41)};
    const auto sendAll = [&] {
        ASSERT_TRUE(sender.sendPicture(0, large));
        ASSERT_TRUE(sender.sendPicture(3000, small));
    };
    test::requests().isWatching = true;
    for (int i = 0; i < 10; ++i) {
        sendAll();
    }
    EXPECT_GT(test::requests().count, 20);  // a packet object and its bytes for each packet
    const std::uint64_t before = bytes;
    test::requests().count = 0;
    for (int i = 0; i < 100; ++i) {
        sendAll();
    }
    test::requests().isWatching = false;
    EXPECT_EQ(test::requests().count, 0);
    EXPECT_GE(bytes - before, 100u * 21129);
}

INSTANTIATE_TEST_SUITE_P(Schemes, SenderAllocationTest,
                         ::testing::Values(Fec::none(), Fec::xorParity(9), Fec::reedSolomon(10, 2)));

}  // namespace
}  // namespace talrtp::kit
