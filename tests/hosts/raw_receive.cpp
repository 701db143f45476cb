// A host that receives by the raw calls of a session: it keeps everything out that is not valid RTP, feeds
// the rest to the session, and writes the NAL units that come back as a byte stream. The "network" is a
// handful of datagrams: a picture whose fragments arrive out of order, a request of ICE, a packet with
// impossible padding, and a picture whose last fragment never arrives.

#include <talrtp/ITalRTPSession.h>
#include <talrtp/TalRtpPacket.h>
#include <talrtp/kit/Demux.h>
#include <talrtp/kit/StapUnitCutter.h>

#include <cstdio>
#include <vector>

using talrtp::CTalRtpPacket;
using talrtp::ITalRTPSession;
using talrtp::ITalRTPSessionSink;
namespace kit = talrtp::kit;

namespace {

typedef std::vector<unsigned char> Bytes;

constexpr unsigned int kRtpVersion = 2;
constexpr unsigned int kMediaType = 96;
constexpr unsigned int kFecType = 97;

class Receiver : public ITalRTPSessionSink {
public:
    Receiver() {
        TalCreateRTPSession(&m_session, this, 0, kRtpVersion);
        m_session->SetPayloadType(kMediaType, kFecType);
    }
    ~Receiver() override { TalDestroyRTPSession(m_session); }
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    // For every datagram of the port, after its sender was authenticated.
    void receive(Bytes datagram, unsigned long nowMs) {
        if (kit::classify(datagram) != kit::DatagramKind::kRtp ||
            !kit::isValidRtp(datagram, /*isXorFec=*/false)) {
            ++refused;
            return;
        }
        m_cutter.beginCall();
        m_session->InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), nowMs);
    }

    // Once for every picture, when it has to be decoded: cut units are handed over up to their first gap.
    void closePicture(unsigned int timestamp) {
        m_cutter.beginCall();
        m_session->ForceHandover(timestamp);
    }

    void OnReceivedRTPPacket(CTalRtpPacket* packet) override {
        const auto cut = m_cutter.cut(packet->get_timestamp(), packet->get_sequence_number(),
                                      static_cast<std::size_t>(packet->get_payload_size()));
        const unsigned char* units = packet->get_payload_ptr();
        stream.insert(stream.end(), units, units + cut.size);
        if (packet->get_packet_type() != 0) {
            ++cutUnits;
        }
    }

    Bytes stream;
    int cutUnits = 0;
    int refused = 0;

private:
    ITalRTPSession* m_session = nullptr;
    kit::StapUnitCutter m_cutter;
};

// An RTP packet of version 2, without marker, as a sender would make it.
Bytes rtp(unsigned char sequence, unsigned char timestamp, const Bytes& payload) {
    Bytes packet = {0x80, kMediaType, 0, sequence, 0, 0, 0, timestamp, 0x11, 0x22, 0x33, 0x44};
    packet.insert(packet.end(), payload.begin(), payload.end());
    return packet;
}

}  // namespace

int main() {
    const Bytes parameterSets = {0x78, 0, 4, 0x67, 0x42, 0xc0, 0x1e, 0, 2, 0x68, 0xce};  // STAP-A
    const Bytes stunRequest = {0x00, 0x01, 0, 0, 0x21, 0x12, 0xa4, 0x42, 1,  2,
                               3,    4,    5, 6, 7,    8,    9,    10,   11, 12};
    Bytes overPadded = rtp(12, 1, {0x7c, 0x05, 0xff, 9});  // counts 9 bytes of padding in a payload of 4
    overPadded[0] |= 0x20;                                 // P

    Receiver receiver;
    receiver.receive(rtp(10, 1, parameterSets), 0);
    receiver.receive(rtp(13, 1, {0x7c, 0x45, 0xd0, 0xd1}), 5);  // FU-A: the last fragment of an IDR slice,
    receiver.receive(rtp(11, 1, {0x7c, 0x85, 0xa0, 0xa1}), 6);  // the first
    receiver.receive(stunRequest, 7);
    receiver.receive(overPadded, 7);
    receiver.receive(rtp(12, 1, {0x7c, 0x05, 0xb0, 0xb1}), 8);  // and the one between
    receiver.closePicture(1);                                   // everything of it is out already
    receiver.receive(rtp(14, 2, {0x5c, 0x81, 0xe0, 0xe1}), 40);
    receiver.receive(rtp(15, 2, {0x5c, 0x01, 0xe2, 0xe3}), 41);  // number 16, its end, is lost
    receiver.closePicture(2);

    const Bytes expected = {
        0, 0, 0, 1, 0x67, 0x42, 0xc0, 0x1e,                    // sequence parameter set
        0, 0, 0, 1, 0x68, 0xce,                                // picture parameter set
        0, 0, 0, 1, 0x65, 0xa0, 0xa1, 0xb0, 0xb1, 0xd0, 0xd1,  // IDR slice
        0, 0, 0, 1, 0x41, 0xe0, 0xe1, 0xe2, 0xe3,              // slice, cut short
    };
    std::printf("%zu bytes came back, of %zu expected; %d unit cut, %d datagrams refused\n",
                receiver.stream.size(), expected.size(), receiver.cutUnits, receiver.refused);
    return receiver.stream == expected && receiver.cutUnits == 1 && receiver.refused == 2 ? 0 : 1;
}
