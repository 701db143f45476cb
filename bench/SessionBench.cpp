// The cost of each packet for a host, beside floors written for the purpose that run in the same process:
//
//   packetizing: the header's stores, one copy of the payload, and zeroes for the rest of the buffer
//   XOR FEC:     one pass over the same packets at the widest vectors
//   receiving:   malloc, copy in, file by sequence number, one gather for each unit, free the oldest unit
//
// A row counts one packet an iteration, or one FEC packet in the XOR rows.

#include <benchmark/benchmark.h>
#include <talrtp/kit/PacketArray.h>
#include <talrtp/kit/Receiver.h>
#include <talrtp/talrtp.h>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "ReceiveStream.h"
#include "ReferenceXor.h"

namespace {

using namespace talrtp::bench;

using talrtp::CRTPFECPacket;
using talrtp::CTalRtpPacket;
using talrtp::ITalRTPSession;

constexpr int kCapacity = 1500;
constexpr int kFuHeaders = 2;
constexpr int kFecHeaderSize = 12;

// --- Packetizing ---

constexpr int kFragments = 10;

// The memory that the rows about sending read and write: the same for a row and its floor, taken at the start
// of the program, as a host makes its packets once.
struct SendingMemory {
    std::vector<unsigned char> unit = makeUnit(kFragments * (kPacketSize - kHeaderSize));
    talrtp::kit::PacketArray<CTalRtpPacket> packets{kFragments, kCapacity};
    CRTPFECPacket fec{kCapacity};
};
SendingMemory s_sending;

void packetizeSingle(benchmark::State& state) {
    const Session session = makeSession(nullptr, talrtp::RTP_FEC_XOR);
    for (auto _ : state) {
        session->CreateSinglePacket(90000, kPacketSize - kHeaderSize, s_sending.unit.data(),
                                    &s_sending.packets[0]);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(packetizeSingle);

void packetizeFragments(benchmark::State& state) {
    const Session session = makeSession(nullptr, talrtp::RTP_FEC_XOR);
    int left = 0;
    for (auto _ : state) {
        if (left == 0) {
            session->CreateFuaPackets(90000, kFragments * (kPacketSize - kHeaderSize - kFuHeaders),
                                      s_sending.unit.data(), kFragments, s_sending.packets.data());
            left = kFragments;
        }
        --left;
        benchmark::ClobberMemory();
    }
}
BENCHMARK(packetizeFragments);

// A header's stores, one copy, zeroes after it; over as many packets in turn as the row beside it has.
void packetizeFloor(benchmark::State& state) {
    int bytes = kPacketSize - kHeaderSize;
    benchmark::DoNotOptimize(bytes);  // a size known at build time makes other, slower code than a call
    const int turns = static_cast<int>(state.range(0));
    unsigned char* buffers[kFragments];
    for (int i = 0; i < kFragments; ++i) {
        buffers[i] = s_sending.packets[static_cast<std::size_t>(i)].get_buffer();
    }
    unsigned int seq = 0;
    int turn = 0;
    for (auto _ : state) {
        unsigned char* const packet = buffers[turn];
        writeHeader(packet, seq++, 90000);
        std::memcpy(packet + kHeaderSize, s_sending.unit.data() + turn * bytes,
                    static_cast<std::size_t>(bytes));
        std::memset(packet + kHeaderSize + bytes, 0,
                    static_cast<std::size_t>(kCapacity - kHeaderSize - bytes));
        turn = turn + 1 == turns ? 0 : turn + 1;
        benchmark::ClobberMemory();
    }
}
BENCHMARK(packetizeFloor)->Arg(1)->Arg(kFragments);

// --- XOR FEC ---

void xorFec(benchmark::State& state) {
    const Session session = makeSession(nullptr, talrtp::RTP_FEC_XOR);
    session->CreateFuaPackets(90000, kFragments * (kPacketSize - kHeaderSize - kFuHeaders),
                              s_sending.unit.data(), kFragments, s_sending.packets.data());
    for (auto _ : state) {
        session->CreateXorFecPackets(s_sending.packets.data(), kFragments, (1u << kFragments) - 1,
                                     &s_sending.fec);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(xorFec);

void xorFecFloor(benchmark::State& state) {
    const unsigned char* sources[kFragments];
    for (int i = 0; i < kFragments; ++i) {
        sources[i] = s_sending.packets[static_cast<std::size_t>(i)].get_buffer() + kHeaderSize;
    }
    unsigned char* const parity = s_sending.fec.get_buffer() + kHeaderSize + kFecHeaderSize;
    for (auto _ : state) {
        talrtp::bench::xorOnePass(parity, sources, kFragments, kPacketSize - kHeaderSize);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(xorFecFloor);

// --- Receiving ---

// One block for each packet, an array by sequence number, and a buffer in which each unit is gathered.
class FloorReceiver {
public:
    FloorReceiver(int unitPackets, int kept)
        : m_unitPackets(unitPackets),
          m_kept(kept),
          m_packetSize(kPacketSize),
          m_packets(kNumbers),
          m_gathered(static_cast<std::size_t>(unitPackets) * kPacketSize) {
        benchmark::DoNotOptimize(m_packetSize);  // a size known at build time makes other code than a call
    }
    ~FloorReceiver() {
        for (unsigned char* const packet : m_packets) {
            std::free(packet);
        }
    }

    void input(const unsigned char* datagram, bool isUnitEnd) {
        unsigned short seq;
        std::memcpy(&seq, datagram + 2, 2);
        seq = __builtin_bswap16(seq);
        unsigned char* const packet = static_cast<unsigned char*>(std::malloc(m_packetSize));
        std::memcpy(packet, datagram, m_packetSize);
        m_packets[seq] = packet;
        if (isUnitEnd) {
            gather(seq);
            drop(static_cast<unsigned short>(seq - m_kept));
        }
    }

private:
    // Frees the unit that ends with `last`, if there is one.
    void drop(unsigned short last) {
        for (int i = m_unitPackets - 1; i >= 0; --i) {
            unsigned char*& packet = m_packets[static_cast<unsigned short>(last - i)];
            std::free(packet);
            packet = nullptr;
        }
    }

    void gather(unsigned short last) {
        unsigned char* target = m_gathered.data();
        for (int i = m_unitPackets - 1; i >= 0; --i) {
            const unsigned char* const packet = m_packets[static_cast<unsigned short>(last - i)];
            std::memcpy(target, packet + kHeaderSize, m_packetSize - kHeaderSize);
            target += m_packetSize - kHeaderSize;
        }
        benchmark::DoNotOptimize(m_gathered.data());
        benchmark::ClobberMemory();
    }

    int m_unitPackets;
    int m_kept;
    std::size_t m_packetSize;
    std::vector<unsigned char*> m_packets;
    std::vector<unsigned char> m_gathered;
};

void receiveFloor(benchmark::State& state) {
    const int unitPackets = static_cast<int>(state.range(0));
    const int kept = static_cast<int>(state.range(1));
    // A session keeps whole timestamps, so at least the unit that is being received.
    FloorReceiver receiver(unitPackets, kept > unitPackets ? kept : unitPackets);
    Stream stream(unitPackets, kept);
    const auto feed = [&] {
        unsigned char* const datagram = stream.next();
        receiver.input(datagram, stream.isUnitEnd());
    };
    for (int i = 0; i < kept + kNumbers; ++i) {
        feed();
    }
    for (auto _ : state) {
        feed();
    }
}

BENCHMARK(receive)->Apply(receiveShapes);
BENCHMARK(receiveFloor)->Apply(receiveShapes);

// The kit on top: the same datagrams with a marker on the last one of each unit, so that it plays at once.
void kitReceive(benchmark::State& state) {
    const int kept = static_cast<int>(state.range(1));
    std::size_t bytes = 0;
    talrtp::kit::ReceiverOptions options;
    options.fec = talrtp::kit::FecScheme::kXor;
    talrtp::kit::Receiver receiver(options, [&](const talrtp::kit::Picture& picture) {
        bytes += picture.annexB().size();
        benchmark::DoNotOptimize(picture.annexB()[picture.annexB().size() - 1]);
    });
    Stream stream(static_cast<int>(state.range(0)), kept);
    const auto feed = [&] {
        unsigned char* const datagram = stream.next();
        constexpr unsigned char kMarker = 0x80;
        datagram[1] = static_cast<unsigned char>(datagram[1] | (stream.isUnitEnd() ? kMarker : 0));
        const auto now = talrtp::kit::TimePoint() + std::chrono::milliseconds(stream.now());
        receiver.push(talrtp::kit::BytesView(datagram, kPacketSize), now);
    };
    for (int i = 0; i < kept + kNumbers; ++i) {
        feed();
    }
    for (auto _ : state) {
        feed();
    }
    benchmark::DoNotOptimize(bytes);
}

void kitShapes(benchmark::internal::Benchmark* row) {
    for (const int unitPackets : {1, 10, 84}) {
        for (const int kept : {1000, 10000}) {
            row->Args({unitPackets, kept});
        }
    }
    row->ArgNames({"unit", "kept"});
}
BENCHMARK(kitReceive)->Apply(kitShapes);

// XOR FEC packets, `state.range(0)` of them, each of which waits for two media packets that never arrive.
class WaitingFec {
public:
    WaitingFec(ITalRTPSession& session, int count, unsigned long now) : m_session(session) {
        for (int i = 0; i < count; ++i) {
            feed(now);
        }
    }
    // Brings one more packet of the same timestamp, which keeps all of them from ageing out.
    void refresh(unsigned long now) {
        if (m_seq > 0) {
            feed(now);
        }
    }

private:
    void feed(unsigned long now) {
        CRTPFECPacket fec(kCapacity);
        fec.set_payload_type(111);
        fec.set_sequence_number(m_seq);
        fec.set_timestamp(1);
        fec.set_payload_size(1000);
        fec.set_fec_sequence_number_base(static_cast<unsigned short>(60000 + m_seq));
        fec.set_fec_mask(0xc00000);
        m_session.InputReceivedData(fec.get_buffer(), fec.get_packet_size(), now);
        ++m_seq;
    }

    ITalRTPSession& m_session;
    unsigned short m_seq = 0;
};

// The stream's numbers stay below those that the FEC packets wait for.
void receiveWithWaitingFec(benchmark::State& state) {
    constexpr int kKept = 10000;
    constexpr int kRefreshEvery = 5000;
    CountingSink sink;
    const Session session = makeSession(&sink, talrtp::RTP_FEC_XOR);
    Stream stream(10, kKept);
    const auto feed = [&] {
        unsigned char* const datagram = stream.next();
        session->InputReceivedData(datagram, kPacketSize, stream.now());
    };
    for (int i = 0; i < kKept; ++i) {
        feed();
    }
    WaitingFec waiting(*session, static_cast<int>(state.range(0)), stream.now());
    int untilRefresh = kRefreshEvery;
    for (auto _ : state) {
        if (--untilRefresh == 0) {
            waiting.refresh(stream.now());
            untilRefresh = kRefreshEvery;
        }
        feed();
    }
}
BENCHMARK(receiveWithWaitingFec)->ArgName("fec")->Arg(0)->Arg(255)->Iterations(45000);

// --- The cost of a session before it has work ---

void makeAndDestroySession(benchmark::State& state) {
    CountingSink sink;
    for (auto _ : state) {
        benchmark::DoNotOptimize(makeSession(&sink, talrtp::RTP_FEC_RS));
    }
}
BENCHMARK(makeAndDestroySession);

#ifdef __GLIBC__
// The bytes that the heap counts as in use, with the blocks in malloc's cache of small ones.
std::size_t heapBytes() {
    return mallinfo2().uordblks;
}

// The bytes of a thousand sessions that sent a unit, for each; and of those that keep ten packets, without
// the packets' own blocks.
void sessionBytes(benchmark::State& state, bool isReceiving) {
    constexpr std::size_t kSessions = 1000;
    constexpr int kKept = 10;
    CountingSink sink;
    std::vector<unsigned char> unit = makeUnit(100);
    talrtp::CTalRtpPacket packet(1500);
    double bytes = 0;
    for (auto _ : state) {
        std::vector<Session> sessions;
        sessions.reserve(kSessions);
        const std::size_t before = heapBytes();
        while (sessions.size() < kSessions) {
            sessions.push_back(makeSession(&sink, talrtp::RTP_FEC_RS));
            sessions.back()->CreateSinglePacket(1, static_cast<int>(unit.size()), unit.data(), &packet);
            Stream stream(1, kKept);
            for (int i = 0; isReceiving && i < kKept; ++i) {
                unsigned char* const datagram = stream.next();
                sessions.back()->InputReceivedData(datagram, 100, stream.now());
            }
        }
        bytes = static_cast<double>(heapBytes() - before) / kSessions;
        if (isReceiving) {
            std::vector<std::unique_ptr<talrtp::CTalRtpPacket>> packets;
            packets.reserve(kSessions);
            const std::size_t beforePackets = heapBytes();
            while (packets.size() < kSessions) {
                packets.push_back(std::make_unique<talrtp::CTalRtpPacket>(unit.data(), 100));
            }
            bytes -= kKept * static_cast<double>(heapBytes() - beforePackets) / kSessions;
        }
    }
    state.counters["bytes"] = bytes;
}
BENCHMARK_CAPTURE(sessionBytes, sending, false)->Iterations(3);
BENCHMARK_CAPTURE(sessionBytes, receiving, true)->Iterations(3);
#endif

}  // namespace