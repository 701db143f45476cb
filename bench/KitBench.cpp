// The cost of the kit's front door beside the session's raw calls, for the same pictures. Both pass every
// packet to a function that reads its last byte, as a socket would be called. A row counts one picture an
// iteration.

#include <benchmark/benchmark.h>
#include <talrtp/kit/Sender.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace {

using talrtp::CTalRtpPacket;
using talrtp::kit::BytesView;
using talrtp::kit::Datagram;
using talrtp::kit::Fec;
using talrtp::kit::FecScheme;

constexpr int kMtu = 1200;
constexpr std::size_t kGroup = 10;
constexpr int kParity = 2;

Fec fecOf(int scheme) {
    switch (static_cast<FecScheme>(scheme)) {
        case FecScheme::kXor:
            return Fec::xorParity(kGroup - 1);
        case FecScheme::kReedSolomon:
            return Fec::reedSolomon(kGroup, kParity);
        case FecScheme::kNone:
            break;
    }
    return Fec::none();
}

// One unit that fills `packets` packets.
std::vector<std::uint8_t> makeUnit(std::size_t packets, int maxPacket) {
    const std::size_t room = static_cast<std::size_t>(maxPacket) - 12 - (packets > 1 ? 2 : 0);
    std::vector<std::uint8_t> unit(packets * room);
    for (std::size_t i = 0; i < unit.size(); ++i) {
        unit[i] = static_cast<std::uint8_t>(i * 131 + 7);
    }
    unit[0] = 0x65;
    return unit;
}

void send(const std::uint8_t* bytes, std::size_t size) {
    benchmark::DoNotOptimize(bytes[size - 1]);
}

// The calls that a host without the kit makes, the least of them: memory is ready, sizes are known.
class RawSender {
public:
    RawSender(const Fec& fec, std::size_t packets, int maxPacket)
        : m_fec(fec),
          m_session(nullptr, 1),
          m_packets(packets, maxPacket),
          m_parity(kParity, kMtu),
          m_xorPacket(kMtu) {
        m_session->SetFecType(fec.scheme == FecScheme::kXor ? talrtp::RTP_FEC_XOR : talrtp::RTP_FEC_RS);
        talrtp::kit::FecGrouping(fec).cut(packets, m_groups);
    }

    void sendPicture(std::uint32_t timestamp, const std::vector<std::uint8_t>& unit) {
        unsigned char* const bytes = const_cast<unsigned char*>(unit.data());
        if (m_packets.size() == 1) {
            m_session->CreateSinglePacket(timestamp, static_cast<int>(unit.size()), bytes, m_packets.data());
        } else {
            m_session->CreateFuaPackets(timestamp, static_cast<int>(unit.size()), bytes,
                                        static_cast<int>(m_packets.size()), m_packets.data());
        }
        std::size_t next = 0;
        for (const std::size_t size : m_groups) {
            for (std::size_t i = 0; i < size; ++i) {
                pass(m_packets[next++]);
            }
            protect(m_packets.data() + (next - size), static_cast<int>(size));
        }
        for (; next < m_packets.size(); ++next) {
            pass(m_packets[next]);
        }
    }

private:
    static void pass(const CTalRtpPacket& packet) {
        send(packet.get_buffer(), static_cast<std::size_t>(packet.get_packet_size()));
    }

    void protect(CTalRtpPacket* packets, int count) {
        if (m_fec.scheme == FecScheme::kXor) {
            m_session->CreateXorFecPackets(packets, count, 0xffffffff, &m_xorPacket);
            pass(m_xorPacket);
            return;
        }
        m_session->CreateRsFecPackets(packets, count, m_parity.data(), kParity);
        for (std::size_t i = 0; i < m_parity.size(); ++i) {
            pass(m_parity[i]);
        }
    }

    Fec m_fec;
    talrtp::kit::SessionHandle m_session;
    talrtp::kit::PacketArray<CTalRtpPacket> m_packets;
    talrtp::kit::PacketArray<CTalRtpPacket> m_parity;
    talrtp::CRTPFECPacket m_xorPacket;
    std::vector<std::size_t> m_groups;
};

void sendRaw(benchmark::State& state) {
    const Fec fec = fecOf(static_cast<int>(state.range(0)));
    const std::size_t packets = static_cast<std::size_t>(state.range(1));
    const int maxPacket = talrtp::kit::maxMediaPacket(kMtu, fec.scheme);
    const std::vector<std::uint8_t> unit = makeUnit(packets, maxPacket);
    RawSender sender(fec, packets, maxPacket);
    std::uint32_t timestamp = 0;
    for (auto _ : state) {
        sender.sendPicture(timestamp += 3000, unit);
        benchmark::ClobberMemory();
    }
}

void sendKit(benchmark::State& state) {
    talrtp::kit::SenderOptions options;
    options.mtu = kMtu;
    options.fec = fecOf(static_cast<int>(state.range(0)));
    const std::size_t packets = static_cast<std::size_t>(state.range(1));
    const std::vector<std::uint8_t> unit =
        makeUnit(packets, talrtp::kit::maxMediaPacket(kMtu, options.fec.scheme));
    talrtp::kit::Sender sender(
        options, [](const Datagram& datagram) { send(datagram.bytes.data(), datagram.bytes.size()); });
    std::uint32_t timestamp = 0;
    for (auto _ : state) {
        sender.sendPicture(timestamp += 3000, {BytesView(unit)});
        benchmark::ClobberMemory();
    }
}

// Pictures of one, ten and 84 packets without FEC; of 10 and 84 with both kinds.
void shapes(benchmark::internal::Benchmark* row) {
    for (const int scheme : {0, 1, 2}) {
        for (const int packets : {1, 10, 84}) {
            if (scheme == 0 || packets > 1) {
                row->Args({scheme, packets});
            }
        }
    }
    row->ArgNames({"fec", "packets"});
}
BENCHMARK(sendRaw)->Apply(shapes);
BENCHMARK(sendKit)->Apply(shapes);

}  // namespace
