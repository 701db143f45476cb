// The stream that the rows about receiving are fed with, and the session that takes it.

#ifndef TALRTP_BENCH_RECEIVESTREAM_H
#define TALRTP_BENCH_RECEIVESTREAM_H

#include <benchmark/benchmark.h>
#include <talrtp/talrtp.h>

#include <cstring>
#include <memory>
#include <vector>

namespace talrtp {
namespace bench {

constexpr int kPacketSize = 1200;
constexpr int kHeaderSize = 12;
constexpr int kNumbers = 65536;
constexpr unsigned long kWindow = 5000;  // milliseconds until a timestamp ages out

struct CountingSink : ITalRTPSessionSink {
    void OnReceivedRTPPacket(CTalRtpPacket* packet) override {
        bytes += packet->get_payload_size();
        benchmark::DoNotOptimize(packet->get_buffer()[packet->get_packet_size() - 1]);
    }
    long bytes = 0;
};

struct DestroySession {
    void operator()(ITalRTPSession* session) const { TalDestroyRTPSession(session); }
};
using Session = std::unique_ptr<ITalRTPSession, DestroySession>;

inline Session makeSession(ITalRTPSessionSink* sink, unsigned long fecType) {
    ITalRTPSession* session = nullptr;
    TalCreateRTPSession(&session, sink, 0x1234, 2);
    session->SetFecType(fecType);
    return Session(session);
}

inline std::vector<unsigned char> makeUnit(int size) {
    std::vector<unsigned char> unit(static_cast<std::size_t>(size));
    for (std::size_t i = 0; i < unit.size(); ++i) {
        unit[i] = static_cast<unsigned char>(i * 131 + 7);
    }
    unit[0] = 0x65;
    return unit;
}

inline void writeHeader(unsigned char* packet, unsigned int seq, unsigned int timestamp) {
    packet[0] = 0x80;
    packet[1] = 98;
    const unsigned short seq16 = __builtin_bswap16(static_cast<unsigned short>(seq));
    const unsigned int ts32 = __builtin_bswap32(timestamp);
    const unsigned int ssrc = __builtin_bswap32(0x1234);
    std::memcpy(packet + 2, &seq16, 2);
    std::memcpy(packet + 4, &ts32, 4);
    std::memcpy(packet + 8, &ssrc, 4);
}

// The datagrams of an endless stream of units of `unitPackets` packets, at a pace that keeps `kept` packets
// held.
class Stream {
public:
    Stream(int unitPackets, int kept)
        : m_unitPackets(unitPackets),
          m_kept(static_cast<unsigned long>(kept)),
          m_datagram(makeUnit(kPacketSize)) {}

    // Makes the next datagram and moves the clock to its arrival.
    unsigned char* next() {
        const bool isFirst = m_position == 0;
        const bool isLast = m_position == m_unitPackets - 1;
        writeHeader(m_datagram.data(), m_seq, m_timestamp);
        unsigned char* const payload = m_datagram.data() + kHeaderSize;
        payload[0] = m_unitPackets == 1 ? 0x65 : 0x7c;
        payload[1] = static_cast<unsigned char>(0x05 | (isFirst ? 0x80 : 0) | (isLast ? 0x40 : 0));
        m_now = m_count++ * kWindow / m_kept;
        ++m_seq;
        m_position = isLast ? 0 : m_position + 1;
        m_timestamp += isLast ? 3000 : 0;
        return m_datagram.data();
    }

    unsigned long now() const { return m_now; }
    bool isUnitEnd() const { return m_position == 0; }

private:
    int m_unitPackets;
    unsigned long m_kept;
    std::vector<unsigned char> m_datagram;
    int m_position = 0;
    unsigned int m_seq = 0;
    unsigned int m_timestamp = 0;
    unsigned long m_count = 0;
    unsigned long m_now = 0;
};

// A session that keeps `kept` packets of such a stream.
class SessionReceiver {
public:
    SessionReceiver(int unitPackets, int kept)
        : m_session(makeSession(&m_sink, RTP_FEC_XOR)), m_stream(unitPackets, kept) {}

    void feed() {
        unsigned char* const datagram = m_stream.next();
        m_session->InputReceivedData(datagram, kPacketSize, m_stream.now());
    }
    long bytes() const { return m_sink.bytes; }

private:
    CountingSink m_sink;
    Session m_session;
    Stream m_stream;
};

// One packet an iteration. Before the first one the session is full, and every sequence number was used.
inline void receive(benchmark::State& state) {
    const int kept = static_cast<int>(state.range(1));
    SessionReceiver receiver(static_cast<int>(state.range(0)), kept);
    for (int i = 0; i < kept + kNumbers; ++i) {
        receiver.feed();
    }
    for (auto _ : state) {
        receiver.feed();
    }
    benchmark::DoNotOptimize(receiver.bytes());
}

inline void receiveShapes(benchmark::internal::Benchmark* row) {
    for (const int unitPackets : {1, 10, 84, 1000, 4000}) {
        for (const int kept : {1000, 10000, 60000}) {
            row->Args({unitPackets, kept});
        }
    }
    row->ArgNames({"unit", "kept"});
}

}  // namespace bench
}  // namespace talrtp

#endif  // TALRTP_BENCH_RECEIVESTREAM_H
