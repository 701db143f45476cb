// A sink that keeps what it is handed.

#ifndef TALRTP_TESTS_RECORDINGSINK_H
#define TALRTP_TESTS_RECORDINGSINK_H

#include <talrtp/ITalRTPSession.h>
#include <talrtp/TalRtpPacket.h>

#include <functional>
#include <vector>

#include "Bytes.h"

namespace talrtp {
namespace test {

inline Bytes bytesOf(const CTalRtpPacket& packet) {
    return Bytes(packet.get_buffer(), packet.get_buffer() + packet.get_packet_size());
}

inline Bytes payloadOf(const CTalRtpPacket& packet) {
    return Bytes(packet.get_payload_ptr(), packet.get_payload_ptr() + packet.get_payload_size());
}

// One call of the sink, copied while the packet was lent.
struct Handover {
    unsigned short seq;
    unsigned int packetType;
    Bytes header;
    Bytes payload;
    int packetSize;
    int bufferSize;
    CTalRtpPacket* packet;  // only to be compared
};

class RecordingSink : public ITalRTPSessionSink {
public:
    void OnReceivedRTPPacket(CTalRtpPacket* packet) override {
        unsigned char* const buffer = packet->get_buffer();
        handovers.push_back({packet->get_sequence_number(), packet->get_packet_type(),
                             Bytes(buffer, buffer + packet->get_header_size()), payloadOf(*packet),
                             packet->get_packet_size(), packet->get_buffer_size(), packet});
        if (onPacket) {
            onPacket(packet);
        }
    }

    std::vector<Handover> handovers;
    std::function<void(CTalRtpPacket*)> onPacket;
};

}  // namespace test
}  // namespace talrtp

#endif  // TALRTP_TESTS_RECORDINGSINK_H
