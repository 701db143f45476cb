// Addresses as users write them, and batches of datagrams over the loopback interface.

#include "Bytes.h"
#include "net/Address.h"
#include "net/DatagramQueue.h"
#include "net/DatagramReader.h"
#include "net/Socket.h"
#include "recv/ReadingPace.h"
#include "recv/SourceGuard.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace {

using namespace talrtp;
using namespace talrtp::host;
using namespace std::chrono_literals;

using talrtp::test::Bytes;

Endpoint loopback(std::uint16_t port) {
    return {asio::ip::address_v4::loopback(), port};
}

Bytes datagram(std::size_t size, std::uint8_t first) {
    Bytes bytes(size, first);
    return bytes;
}

TEST(Pace, RestsNoLongerThanAStreamOf1GbitNeedsToFillHalfASocket) {
    EXPECT_EQ(CReadingPace(250).rest(), 1us);
    EXPECT_EQ(CReadingPace(212992).rest(), 851us);  // what Linux gives unasked
    EXPECT_EQ(CReadingPace(250 * 3999).rest(), 3999us);
    EXPECT_EQ(CReadingPace(250 * 4000).rest(), 4ms);
    EXPECT_EQ(CReadingPace(1 << 24).rest(), 4ms);
    EXPECT_EQ(CReadingPace(0).rest(), 0us);
}

TEST(Pace, RestsWhileDatagramsAreLessThanAQuarterOfAMillisecondApart) {
    EXPECT_TRUE(CReadingPace::isRestDue(249us, 1));
    EXPECT_FALSE(CReadingPace::isRestDue(250us, 1));
    EXPECT_TRUE(CReadingPace::isRestDue(3999us, 16));
    EXPECT_FALSE(CReadingPace::isRestDue(4ms, 16));
    EXPECT_FALSE(CReadingPace::isRestDue(0us, 0));
}

TEST(Pace, ReadsAStreamThatFillsARoundWithoutARest) {
    EXPECT_TRUE(CReadingPace::isRestDue(1ms, 127));
    EXPECT_FALSE(CReadingPace::isRestDue(1ms, 128));
}

TEST(Address, TakesAPortAHostAndAnIpv6AddressInBrackets) {
    const struct {
        const char* text;
        const char* host;
        std::uint16_t port;
    } rows[] = {
        {"5004", "", 5004},
        {"1", "", 1},
        {"65535", "", 65535},
        {"127.0.0.1:5004", "127.0.0.1", 5004},
        {"example.org:80", "example.org", 80},
        {"[::1]:5004", "::1", 5004},
        {"[fe80::1%eth0]:5004", "fe80::1%eth0", 5004},
    };
    for (const auto& row : rows) {
        const std::optional<HostAndPort> parsed = parseAddress(row.text);
        ASSERT_TRUE(parsed) << row.text;
        EXPECT_EQ(row.host, parsed->host) << row.text;
        EXPECT_EQ(row.port, parsed->port) << row.text;
    }
}

TEST(Address, RefusesWhatIsNone) {
    for (const char* text : {"", ":", "0", "65536", "100000", "-1", "5004x", "host", "host:", ":5004",
                             "::1:5004", "[::1]", "[::1]5004", "[]:5004", "host:0", "host:65536"}) {
        EXPECT_FALSE(parseAddress(text)) << text;
    }
}

TEST(Address, IsDescribedAsItIsWritten) {
    EXPECT_EQ("127.0.0.1:5004", describe(loopback(5004)));
    EXPECT_EQ("[::1]:5004", describe(Endpoint(asio::ip::address_v6::loopback(), 5004)));
    EXPECT_EQ("127.0.0.1:5004", describe(Endpoint(asio::ip::make_address("::ffff:127.0.0.1"), 5004)));
}

class Batches : public testing::Test {
protected:
    Batches() : m_reader(openReceiver(m_io, loopback(0), {})), m_queue(openSender(m_io, local(), {})) {}

    Endpoint local() { return m_reader.socket().local_endpoint(); }

    // Reads until `count` datagrams arrived, or nothing arrives for a while.
    std::vector<Bytes> receive(std::size_t count) {
        std::vector<Bytes> arrived;
        const auto end = std::chrono::steady_clock::now() + 10s;
        while (arrived.size() < count && std::chrono::steady_clock::now() < end) {
            m_reader.read([&](kit::BytesView bytes, const Endpoint& from) {
                EXPECT_EQ(m_queue.socket().local_endpoint(), from);
                arrived.emplace_back(bytes.begin(), bytes.end());
            });
        }
        return arrived;
    }

    asio::io_context m_io;
    CDatagramReader m_reader;
    CDatagramQueue m_queue;
};

TEST_F(Batches, KeepTheBoundariesAndTheOrderOfDatagrams) {
    // Runs of equal size, one with a shorter end, single ones, and one of a single byte.
    std::vector<Bytes> sent;
    for (const std::size_t size : {1000, 1000, 1000, 400, 400, 1200, 1, 1200, 1200, 1200, 1199, 1200}) {
        sent.push_back(datagram(size, static_cast<std::uint8_t>(sent.size())));
        m_queue.push(sent.back());
    }
    m_queue.releaseAll();
    EXPECT_TRUE(m_queue.flush());
    EXPECT_EQ(0u, m_queue.size());
    EXPECT_EQ(sent, receive(sent.size()));
    EXPECT_EQ(sent.size(), m_queue.counts().datagrams);
    EXPECT_EQ(0u, m_queue.counts().failed);
}

TEST_F(Batches, CarryMoreThanOneMessageHolds) {
    std::vector<Bytes> sent;
    for (int i = 0; i < 700; ++i) {
        sent.push_back(datagram(1200, static_cast<std::uint8_t>(i)));
        m_queue.push(sent.back());
    }
    m_queue.releaseAll();
    EXPECT_TRUE(m_queue.flush());
    EXPECT_EQ(sent, receive(sent.size()));
}

TEST_F(Batches, TellWhetherMoreMayWait) {
    constexpr std::size_t kBatch = 32;
    for (std::size_t i = 0; i < kBatch + 1; ++i) {
        m_queue.push(datagram(i + 1, 1));  // each is longer than the last, so none are joined
    }
    m_queue.releaseAll();
    EXPECT_TRUE(m_queue.flush());
    std::size_t arrived = 0;
    const auto count = [&arrived](kit::BytesView, const Endpoint&) { ++arrived; };
    EXPECT_TRUE(m_reader.read(count));
    EXPECT_EQ(kBatch, arrived);
    EXPECT_FALSE(m_reader.read(count));
    EXPECT_EQ(kBatch + 1, arrived);
    EXPECT_FALSE(m_reader.read(count));
    EXPECT_EQ(kBatch + 1, arrived);
}

TEST_F(Batches, AreLentAfterWhatArrivedLater) {
    m_queue.push(datagram(10, 1));
    m_queue.releaseAll();
    EXPECT_TRUE(m_queue.flush());
    EXPECT_FALSE(m_reader.fetch());
    m_queue.push(datagram(20, 2));
    m_queue.releaseAll();
    EXPECT_TRUE(m_queue.flush());
    std::vector<Bytes> lent;
    const auto keep = [&lent](kit::BytesView bytes, const Endpoint&) {
        lent.emplace_back(bytes.begin(), bytes.end());
    };
    m_reader.lend(keep);
    EXPECT_EQ((std::vector<Bytes>{datagram(10, 1)}), lent);
    EXPECT_FALSE(m_reader.read(keep));
    EXPECT_EQ((std::vector<Bytes>{datagram(10, 1), datagram(20, 2)}), lent);
}

TEST_F(Batches, LeaveWhatWasNotReleased) {
    m_queue.push(datagram(10, 1));
    m_queue.push(datagram(10, 2));
    m_queue.push(datagram(10, 3));
    m_queue.release(2);
    EXPECT_TRUE(m_queue.flush());
    EXPECT_EQ(1u, m_queue.size());
    EXPECT_EQ((std::vector<Bytes>{datagram(10, 1), datagram(10, 2)}), receive(2));
    m_queue.release(1);
    EXPECT_TRUE(m_queue.flush());
    EXPECT_EQ((std::vector<Bytes>{datagram(10, 3)}), receive(1));
}

TEST_F(Batches, GoOnAfterADatagramThatIsTooLong) {
    m_queue.push(datagram(65508, 1));  // one byte more than UDP carries over IPv4
    m_queue.push(datagram(10, 2));
    m_queue.releaseAll();
    EXPECT_TRUE(m_queue.flush());
    EXPECT_EQ((std::vector<Bytes>{datagram(10, 2)}), receive(1));
    EXPECT_EQ(1u, m_queue.counts().failed);
    EXPECT_EQ(EMSGSIZE, m_queue.counts().lastError);
}

TEST_F(Batches, CountAnswersThatNobodyListens) {
    m_reader.socket().close();
    const auto end = std::chrono::steady_clock::now() + 10s;
    while (m_queue.counts().icmpErrors == 0 && std::chrono::steady_clock::now() < end) {
        m_queue.push(datagram(10, 1));
        m_queue.releaseAll();
        EXPECT_TRUE(m_queue.flush());
    }
    EXPECT_GT(m_queue.counts().icmpErrors, 0u);
    EXPECT_EQ(0u, m_queue.counts().failed);
}

class Guard : public testing::Test {
protected:
    bool admits(std::uint16_t port, std::chrono::milliseconds at) {
        return m_guard.admits(loopback(port), kit::TimePoint(at));
    }
    void confirm(std::uint16_t port, std::chrono::milliseconds at) {
        m_guard.confirm(loopback(port), kit::TimePoint(at));
    }

    CSourceGuard m_guard{2000ms};
};

TEST_F(Guard, HoldsAfterTwoPacketsInARow) {
    confirm(1, 0ms);
    EXPECT_TRUE(admits(2, 0ms));
    confirm(2, 0ms);
    EXPECT_TRUE(admits(1, 0ms));
    confirm(1, 1ms);
    EXPECT_FALSE(m_guard.held());
    confirm(1, 2ms);
    EXPECT_EQ(loopback(1), m_guard.held());
    EXPECT_FALSE(admits(2, 3ms));
    EXPECT_TRUE(admits(1, 3ms));
    EXPECT_EQ(1u, m_guard.refused());
}

TEST_F(Guard, LetsAnotherAddressInAfterSilence) {
    confirm(1, 0ms);
    confirm(1, 100ms);
    EXPECT_TRUE(admits(1, 500ms));
    EXPECT_FALSE(admits(2, 2500ms));
    EXPECT_TRUE(admits(2, 2501ms));
    EXPECT_FALSE(m_guard.held());
}

}  // namespace
