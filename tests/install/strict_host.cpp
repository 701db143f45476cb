// A host that asks for every warning of clang++: it uses each constant of the public headers and implements
// both sinks, so that what a header defines is free of complaints where it is used.

#include <talrtp/talrtp.h>

namespace {

unsigned int sumOfConstants() {
    return talrtp::PACKET_TYPE_PLAIN + talrtp::PACKET_TYPE_UNITS + talrtp::RTP_FEC_XOR + talrtp::RTP_FEC_RS +
           static_cast<unsigned int>(talrtp::MAX_PACKET_SIZE);
}

class CSessionSink final : public talrtp::ITalRTPSessionSink {
public:
    ~CSessionSink() override;
    void OnReceivedRTPPacket(talrtp::CTalRtpPacket* packet) override;
};

CSessionSink::~CSessionSink() {}
void CSessionSink::OnReceivedRTPPacket(talrtp::CTalRtpPacket* packet) {
    packet->set_packet_type(talrtp::PACKET_TYPE_UNITS);
}

class CRtcpSink final : public talrtp::ITalRTCPStackSink {
public:
    ~CRtcpSink() override;
    void OnRtcpPacket(unsigned char* packet, int length) override;
};

CRtcpSink::~CRtcpSink() {}
void CRtcpSink::OnRtcpPacket(unsigned char* packet, int length) {
    packet[length - 1] = 0;
}

}  // namespace

int main() {
    CSessionSink sessionSink;
    CRtcpSink rtcpSink;
    talrtp::CTalRtpPacket packet(1500);
    sessionSink.OnReceivedRTPPacket(&packet);
    rtcpSink.OnRtcpPacket(packet.get_buffer(), 12);
    return sumOfConstants() == 1602 ? 0 : 1;
}
