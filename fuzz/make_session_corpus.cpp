// Makes the seeds of the session fuzzers from a real stream:
//
//   make_session_corpus STREAM.264 PREFIX FEC        FEC: xor or rs
//
// writes PREFIX-1, PREFIX-2, ...: scripts of a few pictures each, packed small, protected, with packets lost,
// doubled and late, and with pictures forced out.

#include <talrtp/kit/AnnexB.h>
#include <talrtp/kit/PacketArray.h>
#include <talrtp/talrtp.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace {

using talrtp::CRTPFECPacket;
using talrtp::CTalRtpPacket;
using talrtp::kit::BytesView;
using talrtp::kit::PacketArray;
using NalUnit = std::vector<unsigned char>;

constexpr int kScripts = 6;
constexpr int kUnitsPerScript = 12;
constexpr int kPieceSize = 160;
constexpr int kCapacity = 400;
constexpr std::size_t kMaxUnit = 1500;  // a longer unit is cut, so that a script stays short

class ScriptWriter {
public:
    explicit ScriptWriter(const std::string& path) : m_output(path, std::ios::binary) {}

    void datagram(unsigned int op, const CTalRtpPacket& packet) {
        put(op);
        put(static_cast<unsigned int>(packet.get_packet_size()) >> 8);
        put(static_cast<unsigned int>(packet.get_packet_size()));
        m_output.write(reinterpret_cast<const char*>(packet.get_buffer()), packet.get_packet_size());
    }
    void wait(unsigned int milliseconds) {
        put(3);
        put(milliseconds >> 8);
        put(milliseconds);
    }
    void forceLast() { put(5); }

private:
    void put(unsigned int byte) { m_output.put(static_cast<char>(byte)); }

    std::ofstream m_output;
};

class ScriptMaker {
public:
    ScriptMaker(unsigned long fecType, unsigned int seed) : m_fecType(fecType), m_random(seed) {
        TalCreateRTPSession(&m_session, nullptr, 1, 2);
        m_session->SetFecType(fecType);
    }
    ~ScriptMaker() { TalDestroyRTPSession(m_session); }
    ScriptMaker(const ScriptMaker&) = delete;
    ScriptMaker& operator=(const ScriptMaker&) = delete;

    void unit(NalUnit& unit, ScriptWriter& script) {
        const int size = static_cast<int>(std::min(unit.size(), kMaxUnit));
        const int count = (size + kPieceSize - 1) / kPieceSize;
        PacketArray<CTalRtpPacket> packets(static_cast<std::size_t>(count), kCapacity);
        m_session->CreateFuaPackets(m_timestamp, size, unit.data(), count, packets.data());
        for (std::size_t i = 0; i < packets.size(); ++i) {
            script.datagram(arrivalOf(), packets[i]);
        }
        protect(packets, script);
        if (m_random() % 3 == 0) {
            script.forceLast();
        }
        m_timestamp += 3000;
        script.wait(33);
    }

private:
    // Arrives, is lost, or arrives twice.
    unsigned int arrivalOf() {
        const unsigned int chance = m_random() % 8;
        return chance < 2 ? 1 : chance == 2 ? 2 : 0;
    }

    void protect(PacketArray<CTalRtpPacket>& packets, ScriptWriter& script) {
        const int count = static_cast<int>(packets.size());
        if (m_fecType == talrtp::RTP_FEC_XOR) {
            CRTPFECPacket fec(kCapacity);
            m_session->CreateXorFecPackets(packets.data(), count, 0xffffffff, &fec);
            script.datagram(0, fec);
            return;
        }
        PacketArray<CTalRtpPacket> fec(2, kCapacity);
        m_session->CreateRsFecPackets(packets.data(), count, fec.data(), 2);
        script.datagram(0, fec[0]);
        script.datagram(0, fec[1]);
    }

    unsigned long m_fecType;
    std::minstd_rand m_random;
    talrtp::ITalRTPSession* m_session = nullptr;
    unsigned int m_timestamp = 90000;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: make_session_corpus STREAM.264 PREFIX xor|rs\n");
        return 2;
    }
    std::ifstream stream(argv[1], std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    std::vector<NalUnit> units;
    talrtp::kit::forEachUnit(bytes, [&](BytesView unit) { units.emplace_back(unit.begin(), unit.end()); });
    ScriptMaker maker(std::strcmp(argv[3], "xor") == 0 ? talrtp::RTP_FEC_XOR : talrtp::RTP_FEC_RS, 1);
    std::size_t next = 0;
    for (int i = 1; i <= kScripts; ++i) {
        ScriptWriter script(std::string(argv[2]) + "-" + std::to_string(i));
        for (int j = 0; j < kUnitsPerScript && next < units.size(); ++j) {
            maker.unit(units[next++], script);
        }
    }
    return 0;
}
