// A warm kit receiver allocates nothing beyond what a session allocates for the same datagrams.

#include "HeapCounter.h"
#include "RtpPackets.h"

#include <talrtp/kit/Receiver.h>
#include <talrtp/kit/SessionHandle.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <vector>

namespace talrtp::kit {
namespace {

using test::atMs;
using test::Bytes;

constexpr std::size_t kPictures = 400;
constexpr std::size_t kPacketsPerPicture = 6;

// Pictures of a STAP-A and a slice in five fragments; `isShuffled` swaps the second packet and the fourth.
std::vector<Bytes> makeStream(std::uint16_t sequence, std::uint32_t timestamp, bool isShuffled) {
    std::vector<Bytes> datagrams;
    Bytes slice(3000, 0x55);
    slice[0] = 0x65;
    for (std::size_t i = 0; i < kPictures; ++i, timestamp += 3000) {
        datagrams.push_back(test::rtp({sequence++, timestamp}, test::stapA({{0x67, 1, 2, 3}, {0x68, 1, 2}})));
        const std::vector<Bytes> pieces = test::fragments(slice, kPacketsPerPicture - 1);
        for (std::size_t k = 0; k < pieces.size(); ++k) {
            datagrams.push_back(test::rtp({sequence++, timestamp, k + 1 == pieces.size()}, pieces[k]));
        }
        if (isShuffled) {
            std::swap(*(datagrams.end() - 5), *(datagrams.end() - 3));
        }
    }
    return datagrams;
}

// The allocations for the second half of the stream, a millisecond a packet, when everything is warm.
template <typename Push>
std::size_t countSecondHalf(const std::vector<Bytes>& datagrams, Push push) {
    std::size_t before = 0;
    for (std::size_t i = 0; i < datagrams.size(); ++i) {
        if (i == datagrams.size() / 2) {
            before = test::heap().calls;
        }
        push(datagrams[i], static_cast<int>(i) * 10);
    }
    return test::heap().calls - before;
}

class NullSink : public ITalRTPSessionSink {
public:
    void OnReceivedRTPPacket(CTalRtpPacket*) override { ++handovers; }
    std::size_t handovers = 0;
};

void expectNoMoreThanTheSession(bool isShuffled) {
    const std::vector<Bytes> datagrams = makeStream(65000, 4294000000U, isShuffled);
    NullSink sink;
    SessionHandle session(&sink, 0);
    const std::size_t raw = countSecondHalf(datagrams, [&](const Bytes& datagram, int ms) {
        Bytes& bytes = const_cast<Bytes&>(datagram);
        session->InputReceivedData(bytes.data(), static_cast<int>(bytes.size()),
                                   static_cast<unsigned long>(ms));
    });
    std::size_t played = 0;
    Receiver receiver(ReceiverOptions(), [&](const Picture&) { ++played; });
    const std::size_t kit =
        countSecondHalf(datagrams, [&](const Bytes& datagram, int ms) { receiver.push(datagram, atMs(ms)); });
    ASSERT_EQ(kPictures, played);
    ASSERT_EQ(3 * kPictures, sink.handovers);
    EXPECT_GT(raw, 0u);
    EXPECT_EQ(raw, kit);
}

TEST(ReceiverAllocationTest, AsksForNothingBeyondTheSessionInOrder) {
    expectNoMoreThanTheSession(false);
}

TEST(ReceiverAllocationTest, AsksForNothingBeyondTheSessionOutOfOrder) {
    expectNoMoreThanTheSession(true);
}

}  // namespace
}  // namespace talrtp::kit
