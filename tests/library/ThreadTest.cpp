// Sessions and free functions on several threads at the same time:
//
//   ThreadTest                    two seconds for each test
//   ThreadTest --seconds=60       longer
//
// ThreadSanitizer and AddressSanitizer see what the assertions here can't.

#include <gtest/gtest.h>
#include <talrtp/ITalRTCPStack.h>
#include <talrtp/ITalRTPSession.h>
#include <talrtp/RsFec.h>
#include <talrtp/TalRtpDefs.h>
#include <talrtp/TalRtpPacket.h>
#include <talrtp/TalTime.h>
#include <talrtp/kit/Sender.h>
#include <talrtp/kit/TraceToCallback.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "Bytes.h"
#include "HeapCounter.h"
#include "SeededRandom.h"

namespace talrtp {
namespace {

using test::Bytes;

constexpr unsigned int kThreads = 4;
constexpr std::size_t kStreams = 64;
constexpr std::size_t kStartCodeSize = 4;

std::chrono::seconds g_time{2};

// Runs `work(random)` again and again on each thread, until the time is over; on a slow machine longer, so
// that enough happens.
void onThreads(const std::function<void(test::SeededRandom&)>& work) {
    const auto end = std::chrono::steady_clock::now() + g_time;
    std::vector<std::thread> threads;
    for (unsigned int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&work, end, i] {
            test::SeededRandom random(20261122 + i);
            constexpr int kLeastTurns = 300;
            for (int turn = 0; turn < kLeastTurns || std::chrono::steady_clock::now() < end; ++turn) {
                work(random);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

struct Counts {
    std::atomic<std::uint64_t> whole{0};
    std::atomic<std::uint64_t> wrong{0};
    std::atomic<std::uint64_t> lostPackets{0};
    std::atomic<std::uint64_t> streams{0};
    std::atomic<std::uint64_t> moves{0};
};

// A sender, a network that loses packets, and a receiver. One thread at a time may use it.
class Stream : public ITalRTPSessionSink {
public:
    Stream(test::SeededRandom& random, Counts& counts) : m_counts(counts) {
        const bool isXor = random.oneIn(2);
        kit::SenderOptions options;
        options.ssrc = random.between(1, 1000);
        options.fec = isXor ? kit::Fec::xorParity(3)
                            : kit::Fec::reedSolomon(static_cast<int>(random.between(2, 10)),
                                                    static_cast<int>(random.between(1, 4)));
        options.aggregate = false;  // so that a hand-over is one unit
        m_sender = std::make_unique<kit::Sender>(options, [this](const kit::Datagram& each) {
            m_sent.emplace_back(each.bytes.begin(), each.bytes.end());
        });
        TalCreateRTPSession(&m_receiver, this, 7, 2);
        m_receiver->SetFecType(isXor ? RTP_FEC_XOR : RTP_FEC_RS);
        ++m_counts.streams;
    }
    ~Stream() override { TalDestroyRTPSession(m_receiver); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    // One packet in ten is lost.
    void play(test::SeededRandom& random) {
        m_user = std::this_thread::get_id();
        m_units.clear();
        for (std::uint32_t i = random.between(1, 3); i > 0; --i) {
            m_units.push_back(random.nalUnit(0x41, random.between(20, 6000)));
        }
        m_timestamp += 3600;
        m_nowMs += 40;
        m_sender->sendPicture(m_timestamp, m_units);
        m_sender->flush();
        for (Bytes& datagram : m_sent) {
            if (random.oneIn(10)) {
                ++m_counts.lostPackets;
            } else {
                m_receiver->InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), m_nowMs);
            }
        }
        m_sent.clear();
    }

    void OnReceivedRTPPacket(CTalRtpPacket* packet) override {
        if (packet->get_packet_type() != 0) {
            return;  // cut
        }
        const unsigned char* const payload = packet->get_payload_ptr();
        const Bytes unit(payload + kStartCodeSize, payload + packet->get_payload_size());
        const bool isRight = std::find(m_units.begin(), m_units.end(), unit) != m_units.end();
        ++(isRight && m_user == std::this_thread::get_id() ? m_counts.whole : m_counts.wrong);
    }

    // Tells whether another thread used it last.
    bool isMoved() const { return m_user != std::this_thread::get_id(); }

private:
    Counts& m_counts;
    std::unique_ptr<kit::Sender> m_sender;
    ITalRTPSession* m_receiver = nullptr;
    std::vector<Bytes> m_sent;
    std::vector<Bytes> m_units;
    std::uint32_t m_timestamp = 0;
    unsigned long m_nowMs = 0;
    std::thread::id m_user;
};

TEST(Threads, SessionsAreMadeUsedMovedAndDestroyedOnAllOfThem) {
    Counts counts;
    std::atomic<std::uint64_t> lines{0};
    const auto begin = std::chrono::steady_clock::now();
    kit::setTrace(
        kit::TraceLevel::kInfo, [&lines](const kit::TraceLine&) { ++lines; }, 1000);
    std::array<std::atomic<Stream*>, kStreams> streams{};
    onThreads([&](test::SeededRandom& random) {
        std::atomic<Stream*>& place = streams[random.between(0, kStreams - 1)];
        std::unique_ptr<Stream> stream(place.exchange(nullptr));
        if (!stream) {
            stream = std::make_unique<Stream>(random, counts);
        } else if (stream->isMoved()) {
            ++counts.moves;
        }
        for (std::uint32_t i = random.between(1, 5); i > 0; --i) {
            stream->play(random);
        }
        kit::advanceTrace(std::chrono::steady_clock::now());
        if (!random.oneIn(8)) {
            // Another thread may have put one there meanwhile: that one ends.
            stream.reset(place.exchange(stream.release()));
        }
    });
    for (std::atomic<Stream*>& each : streams) {
        delete each.load();
    }
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
    const kit::TraceCounts traced = kit::traceCounts();
    kit::setTrace(kit::TraceLevel::kNone, {}, 0);
    EXPECT_EQ(counts.wrong, 0U);
    EXPECT_EQ(traced.passed, lines);
    EXPECT_GE(traced.passed, 1000U);
    // Those of one second at once, and 1000 more in each second that went by.
    EXPECT_LE(static_cast<double>(traced.passed), 1000 + 1000 * elapsed.count());
    EXPECT_GT(counts.streams, kStreams);
    EXPECT_GT(counts.moves, kStreams);
    EXPECT_GT(counts.lostPackets, kStreams);
    EXPECT_GT(counts.whole, 10 * kStreams);
}

// With users that come and go the cache is emptied all the time.
TEST(Threads, ModelsStayValidWhileAUserThatWasThereAtTheCallIs) {
    constexpr std::size_t kPairs = 6;
    const std::array<std::array<int, 2>, kPairs> pairs{
        {{{1, 2}}, {{2, 4}}, {{3, 4}}, {{10, 14}}, {{5, 255}}, {{40, 50}}}};
    std::array<Bytes, kPairs> matrices;
    for (std::size_t i = 0; i < kPairs; ++i) {
        rs_param_* const model = CRsFec::CreateRsModel(pairs[i][0], pairs[i][1]);
        matrices[i].assign(model->enc_matrix, model->enc_matrix + model->k * model->n);
        CRsFec::DeleteRsModel(model);
    }
    RsMapClear();
    const long before = test::heap().blocks;
    std::atomic<std::uint64_t> wrong{0};
    std::atomic<std::uint64_t> changed{0};
    std::atomic<std::uint64_t> first{0};
    onThreads([&](test::SeededRandom& random) {
        first += RsMapRetain() == 1 ? 1 : 0;
        for (std::uint32_t i = random.between(0, 4); i > 0; --i) {
            const std::size_t pair = random.between(0, kPairs - 1);
            rs_param_* const model = GetRsModel(pairs[pair][0], pairs[pair][1]);
            wrong +=
                std::memcmp(model->enc_matrix, matrices[pair].data(), matrices[pair].size()) != 0 ? 1 : 0;
            changed += GetRsModel(pairs[pair][0], pairs[pair][1]) != model ? 1 : 0;
        }
        RsMapRelease();
        std::this_thread::yield();
    });
    const long after = test::heap().blocks;
    EXPECT_EQ(wrong, 0U);
    EXPECT_EQ(changed, 0U);  // the same pointer as long as there is a user
    EXPECT_GT(first, 20U);   // the cache was emptied as often
    EXPECT_EQ(after, before);
    EXPECT_EQ(RsMapRetain(), 1U);
    RsMapRelease();
}

// Models that a host asks for without a user may go at any time. The cache itself survives it.
TEST(Threads, ModelsWithoutAUserDoNotSpoilThoseOfAUser) {
    RsMapClear();
    const long before = test::heap().blocks;
    std::atomic<std::uint64_t> wrong{0};
    std::atomic<unsigned int> nextThread{0};
    onThreads([&](test::SeededRandom& random) {
        thread_local const unsigned int number = nextThread++;
        const int k = static_cast<int>(random.between(1, 4));
        if (number % 2 == 0) {
            GetRsModel(k, 6);
            return;
        }
        RsMapRetain();
        const rs_param_* const model = GetRsModel(k, 6);
        wrong += model->k != k || GetRsModel(k, 6) != model ? 1 : 0;
        RsMapRelease();
    });
    RsMapClear();
    const long after = test::heap().blocks;
    EXPECT_EQ(wrong, 0U);
    EXPECT_EQ(after, before);
}

TEST(Threads, FreeFunctionsGiveTheSameOnEach) {
    std::atomic<std::uint64_t> wrong{0};
    onThreads([&](test::SeededRandom& random) {
        Bytes a = random.bytes(random.between(1, 3000));
        const Bytes b = random.bytes(a.size());
        Bytes sum(a.size());
        deployXorProcess(sum.data(), a.data(), const_cast<unsigned char*>(b.data()),
                         static_cast<int>(a.size()));
        for (std::size_t i = 0; i < a.size(); ++i) {
            wrong += sum[i] != (a[i] ^ b[i]) ? 1 : 0;
        }
        Bytes product(a.size());
        const std::uint8_t c = static_cast<std::uint8_t>(random.between(1, 255));
        gf_addmul(product.data(), a.data(), c, static_cast<int>(a.size()));
        for (std::size_t i = 0; i < a.size(); ++i) {
            wrong += product[i] != gf_mul_table[c][a[i]] ? 1 : 0;
        }
        wrong += random32() == 0 ? 1 : 0;
        wrong += _time_t::now() < _time_t(1, 0) ? 1 : 0;
        ITalRTCPStack* stack = nullptr;
        TalCreateRTCPStack(&stack);
        wrong += stack == nullptr ? 1 : 0;
        TalDestroyRTCPStack(stack);
    });
    EXPECT_EQ(wrong, 0U);
}

}  // namespace
}  // namespace talrtp

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    static const char kSeconds[] = "--seconds=";
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], kSeconds, sizeof kSeconds - 1) == 0) {
            talrtp::g_time = std::chrono::seconds(std::atoi(argv[i] + sizeof kSeconds - 1));
        }
    }
    return RUN_ALL_TESTS();
}
