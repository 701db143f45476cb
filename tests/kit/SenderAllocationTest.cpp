// A sender's requests to the allocator in the steady state: none. The program puts functions of its own in
// front of the allocator's, under which the library's operator new ends too. A sanitizer has functions of its
// own there, so nothing is counted under one.

#include <talrtp/kit/Sender.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TALRTP_COUNTS_ALLOCATIONS 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define TALRTP_COUNTS_ALLOCATIONS 0
#else
#define TALRTP_COUNTS_ALLOCATIONS 1
#endif
#else
#define TALRTP_COUNTS_ALLOCATIONS 1
#endif

namespace {

int s_requests = 0;

}  // namespace

#if TALRTP_COUNTS_ALLOCATIONS
extern "C" {

// The allocator of the C library under its other names.
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);

void* malloc(std::size_t size) {
    ++s_requests;
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
    ++s_requests;
    return __libc_calloc(count, size);
}

void* realloc(void* memory, std::size_t size) {
    ++s_requests;
    return __libc_realloc(memory, size);
}

}  // extern "C"
#endif

namespace talrtp::kit {
namespace {

using Bytes = std::vector<std::uint8_t>;

class SenderAllocationTest : public ::testing::TestWithParam<Fec> {
protected:
    void SetUp() override {
        if (!TALRTP_COUNTS_ALLOCATIONS) {
            GTEST_SKIP() << "a sanitizer stands in front of the allocator";
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
    s_requests = 0;
    for (int i = 0; i < 10; ++i) {
        sendAll();
    }
    EXPECT_GT(s_requests, 20);  // a packet object and its bytes for each packet
    const std::uint64_t before = bytes;
    s_requests = 0;
    for (int i = 0; i < 100; ++i) {
        sendAll();
    }
    const int requests = s_requests;
    EXPECT_EQ(requests, 0);
    EXPECT_GE(bytes - before, 100u * 21129);
}

INSTANTIATE_TEST_SUITE_P(Schemes, SenderAllocationTest,
                         ::testing::Values(Fec::none(), Fec::xorParity(9), Fec::reedSolomon(10, 2)));

}  // namespace
}  // namespace talrtp::kit
