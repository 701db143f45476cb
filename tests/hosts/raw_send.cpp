// A host that sends one picture by the raw calls of a session: its parameter sets in one packet, its slice in
// fragments, and Reed-Solomon FEC over all of them. The "network" stores the datagrams.

#include <talrtp/ITalRTPSession.h>
#include <talrtp/TalRtpPacket.h>
#include <talrtp/kit/Marker.h>
#include <talrtp/kit/PacketArray.h>
#include <talrtp/kit/PackingPlan.h>

#include <cstddef>
#include <cstdio>
#include <vector>

using talrtp::CTalRtpPacket;
using talrtp::ITalRTPSession;
namespace kit = talrtp::kit;

namespace {

typedef std::vector<unsigned char> Bytes;

constexpr int kMtu = 1200;  // the largest RTP packet, FEC packets included
constexpr std::size_t kParityCount = 2;
constexpr unsigned int kSsrc = 0x11223344;
constexpr unsigned int kRtpVersion = 2;
constexpr unsigned int kMediaType = 96;
constexpr unsigned int kFecType = 97;

struct Network {
    void send(const unsigned char* bytes, int size) { datagrams.emplace_back(bytes, bytes + size); }

    std::vector<Bytes> datagrams;
};

void sendPicture(ITalRTPSession& session, Network& network, unsigned long timestamp, Bytes& sps, Bytes& pps,
                 Bytes& slice) {
    const int largest = kit::maxMediaPacket(kMtu, kit::FecScheme::kReedSolomon);
    const std::size_t fragments = kit::fragmentCount(slice.size(), largest);
    kit::PacketArray<CTalRtpPacket> media(1 + fragments, largest);
    kit::PacketArray<CTalRtpPacket> parity(kParityCount, kMtu);

    int sizes[] = {static_cast<int>(sps.size()), static_cast<int>(pps.size())};
    unsigned char* units[] = {sps.data(), pps.data()};
    session.CreateStapaPacket(timestamp, 2, sizes, units, &media[0]);
    session.CreateFuaPackets(timestamp, static_cast<int>(slice.size()), slice.data(),
                             static_cast<int>(fragments), &media[1]);
    kit::setMarkerOnLastPacket(media.data(), media.size());
    session.CreateRsFecPackets(media.data(), static_cast<int>(media.size()), parity.data(),
                               static_cast<int>(parity.size()));

    for (std::size_t i = 0; i < media.size(); ++i) {
        network.send(media[i].get_buffer(), media[i].get_packet_size());
    }
    for (std::size_t i = 0; i < parity.size(); ++i) {
        network.send(parity[i].get_buffer(), parity[i].get_packet_size());
    }
}

bool check(bool holds, const char* what) {
    if (!holds) {
        std::printf("%s is not as it should be\n", what);
    }
    return holds;
}

// The slice of 3000 bytes takes 3 fragments of 1000 bytes: the first leaves out the NAL header, each adds 14
// bytes of headers. A parity packet holds the longest media packet after 20 bytes.
bool isAsExpected(const Network& network) {
    const std::vector<int> sizes = {
        12 + 1 + 2 + 4 + 2 + 2, 14 + 999, 14 + 1000, 14 + 1000, 20 + 1014, 20 + 1014};
    if (!check(network.datagrams.size() == sizes.size(), "the number of datagrams")) {
        return false;
    }
    bool isRight = true;
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        const Bytes& datagram = network.datagrams[i];
        const bool isMarked = (datagram[1] & 0x80) != 0;
        const unsigned int type = datagram[1] & 0x7fu;
        const bool isMedia = i < sizes.size() - kParityCount;
        std::printf("%4zu bytes, payload type %u%s\n", datagram.size(), type, isMarked ? ", marker" : "");
        isRight &= check(static_cast<int>(datagram.size()) == sizes[i], "the size") &&
                   check(type == (isMedia ? kMediaType : kFecType), "the payload type") &&
                   check(isMarked == (i == 3), "the marker");
    }
    return isRight;
}

}  // namespace

int main() {
    Bytes sps = {0x67, 0x42, 0xc0, 0x1e};
    Bytes pps = {0x68, 0xce};
    Bytes slice(3000, 0x11);
    slice[0] = 0x65;
    Network network;

    ITalRTPSession* session = nullptr;
    TalCreateRTPSession(&session, nullptr, kSsrc, kRtpVersion);
    session->SetPayloadType(kMediaType, kFecType);
    sendPicture(*session, network, 90000, sps, pps, slice);
    TalDestroyRTPSession(session);

    return isAsExpected(network) ? 0 : 1;
}
