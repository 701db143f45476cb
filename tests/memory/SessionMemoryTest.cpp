// How much of the heap a session has before it has much to do. A server makes a session for each of ten
// thousand users, of whom most send or receive little.

#include <gtest/gtest.h>
#include <malloc.h>
#include <talrtp/TalRtpSession.h>

#include <cstddef>
#include <cstdlib>
#include <memory>

#include "MallocCounter.h"
#include "SessionFixture.h"

namespace talrtp {
namespace test {
namespace {

struct NoSink : ITalRTPSessionSink {
    void OnReceivedRTPPacket(CTalRtpPacket*) override {}
};

class SessionMemoryTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (kIsSanitized) {
            GTEST_SKIP() << kNothingIsCounted;
        }
        // The streams of the C library have their buffers, and the model of the code is cached, from here on.
        m_other = makeSession();
        m_before = requests().bytesInUse;
    }

    static std::unique_ptr<CMMRTPSession4SVC> makeSession() {
        return std::make_unique<CMMRTPSession4SVC>(nullptr, 1u);
    }
    std::size_t bytes() const { return requests().bytesInUse - m_before; }

private:
    std::unique_ptr<CMMRTPSession4SVC> m_other;
    std::size_t m_before = 0;
};

TEST_F(SessionMemoryTest, SessionThatOnlySendsTakesTwoKilobytes) {
    const Bytes unit = pattern(3000, 1);
    CTalRtpPacket packets[3] = {CTalRtpPacket(1500), CTalRtpPacket(1500), CTalRtpPacket(1500)};
    CRTPFECPacket parity(1500);
    const std::size_t beforeSession = bytes();
    const std::unique_ptr<CMMRTPSession4SVC> session = makeSession();
    session->SetFecType(RTP_FEC_XOR);
    Bytes copy = unit;
    const std::size_t beforeSending = bytes();
    EXPECT_EQ(session->CreateFuaPackets(9000, 3000, copy.data(), 3, packets), 0);
    EXPECT_EQ(session->CreateXorFecPackets(packets, 3, 7, &parity), 0);
    EXPECT_EQ(bytes(), beforeSending);
    EXPECT_LE(beforeSending - beforeSession - malloc_usable_size(copy.data()) - 8, 2048u);
}

// Units of one packet take most: each has a record, and so has its timestamp.
TEST_F(SessionMemoryTest, SessionThatKeepsTenPacketsTakes24KilobytesBesideThem) {
    constexpr std::size_t kKept = 10;
    NoSink sink;
    const std::size_t beforePacket = bytes();
    Bytes datagram = rtp(1, 9000, pattern(1000, 1));
    const std::size_t datagramBytes = bytes() - beforePacket;
    std::unique_ptr<CTalRtpPacket> packet(
        new CTalRtpPacket(datagram.data(), static_cast<int>(datagram.size())));
    const std::size_t packetBytes = bytes() - beforePacket - datagramBytes;
    packet.reset();
    const std::size_t before = bytes();
    const std::unique_ptr<CMMRTPSession4SVC> session = std::make_unique<CMMRTPSession4SVC>(&sink, 1u);
    // Until numbers have wrapped around: a table that only grew would have all its pages.
    for (unsigned int i = 0; i < 70000; ++i) {
        datagram[2] = static_cast<unsigned char>(i >> 8);
        datagram[3] = static_cast<unsigned char>(i);
        datagram[6] = static_cast<unsigned char>(i >> 8);
        datagram[7] = static_cast<unsigned char>(i);
        datagram[12] = 0x65;
        // Every 501 ms, so that the tenth before it is 5010 ms old.
        ASSERT_EQ(session->InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), 501ul * i),
                  0);
        ASSERT_LE(bytes() - before, 24 * 1024 + kKept * packetBytes) << i;
    }
    ASSERT_GT(bytes() - before, kKept * packetBytes);
}

}  // namespace
}  // namespace test
}  // namespace talrtp
