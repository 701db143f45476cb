// A session under a script of datagrams, losses, clock steps and forced hand-overs, driven by a fake host:
//
//   op 0  LENGTH(2)  BYTES    a datagram arrives
//   op 1  LENGTH(2)  BYTES    a datagram is lost
//   op 2  LENGTH(2)  BYTES    a datagram arrives twice
//   op 3  MILLISECONDS(2)     the clock runs on
//   op 4  MILLISECONDS(2)     the clock steps back
//   op 5                      the timestamp of the last datagram is forced out
//   op 6  TIMESTAMP(4)        that timestamp is forced out
//   op 7  MEDIA(1) FEC(1)     the payload types change
//   op 8  TYPE(1)             the FEC type changes
//
// Numbers are big-endian. An op is taken modulo 16, one above 8 is op 0, and what a script lacks at its end
// counts as 0.

#ifndef TALRTP_FUZZ_SESSIONSCRIPT_H
#define TALRTP_FUZZ_SESSIONSCRIPT_H

#include <talrtp/talrtp.h>

#include <algorithm>

#include "FuzzSupport.h"

namespace talrtp {
namespace fuzz {

// Reads every byte that is lent to it, and checks what holds for every hand-over.
class ReadingSink : public ITalRTPSessionSink {
public:
    void OnReceivedRTPPacket(CTalRtpPacket* packet) override {
        const int size = packet->get_packet_size();
        require(packet->get_payload_size() >= 0, "a hand-over has a payload");
        require(packet->get_header_size() + packet->get_payload_size() == size, "its sizes agree");
        require(size <= packet->get_buffer_size(), "it fits its buffer");
        require(packet->get_packet_type() <= 1, "its kind is 0 or 1");
        readFully(packet->get_buffer(), packet->get_buffer_size());
        const unsigned char* const payload = packet->get_payload_ptr();
        if (packet->get_payload_size() >= 4) {
            require(payload[0] == 0 && payload[1] == 0 && payload[2] == 0 && payload[3] == 1,
                    "it begins with a start code");
        }
    }
};

class SessionScript {
public:
    SessionScript(const unsigned char* script, std::size_t size, unsigned long fecType)
        : m_next(script), m_end(script + size) {
        TalCreateRTPSession(&m_session, &m_sink, 1, 2);
        m_session->SetFecType(fecType);
        m_fecType = fecType;
    }
    ~SessionScript() { TalDestroyRTPSession(m_session); }
    SessionScript(const SessionScript&) = delete;
    SessionScript& operator=(const SessionScript&) = delete;

    void run() {
        while (m_next < m_end) {
            step(number(1) & 0x0f);
        }
    }

private:
    void step(unsigned int op) {
        switch (op) {
            case 1:
                datagram();
                break;
            case 2: {
                const Bytes bytes = datagram();
                input(bytes);
                input(bytes);
                break;
            }
            case 3:
                m_now += number(2);
                break;
            case 4:
                m_now -= number(2);
                break;
            case 5:
                m_session->ForceHandover(m_lastTimestamp);
                break;
            case 6:
                m_session->ForceHandover(number(4));
                break;
            case 7: {
                const unsigned int media = number(1) & 0x7f;
                const unsigned int fec = number(1) & 0x7f;
                if (m_session->SetPayloadType(media, fec) == 0) {
                    m_fecPayloadType = fec;
                }
                break;
            }
            case 8:
                m_fecType = number(1) & 1;
                m_session->SetFecType(m_fecType);
                break;
            default:
                input(datagram());
        }
    }

    void input(const Bytes& bytes) {
        ExactBuffer datagram(bytes);
        if (datagram.size() >= 8) {
            m_lastTimestamp = CTalRtpPacket::get_timestamp(datagram.data());
        }
        // A datagram that validation refuses leaves its packet allocated, as documented. It is not fed, since
        // it would drown a real leak; PacketFuzzer covers validation.
        if (datagram.size() < 12 || isValid(datagram)) {
            m_session->InputReceivedData(datagram.data(), datagram.size(), m_now);
        }
    }

    bool isValid(ExactBuffer& datagram) const {
        const bool isXor = m_fecType == RTP_FEC_XOR && (datagram.data()[1] & 0x7f) == m_fecPayloadType;
        return isXor ? CRTPFECPacket(datagram.data(), datagram.size()).validate()
                     : CTalRtpPacket(datagram.data(), datagram.size()).validate();
    }

    Bytes datagram() {
        const std::size_t wanted = number(2);
        const std::size_t size = std::min(wanted, static_cast<std::size_t>(m_end - m_next));
        const Bytes bytes(m_next, m_next + size);
        m_next += size;
        return bytes;
    }

    unsigned int number(int bytes) {
        unsigned int value = 0;
        for (int i = 0; i < bytes; ++i) {
            value = value << 8 | (m_next < m_end ? *m_next++ : 0u);
        }
        return value;
    }

    const unsigned char* m_next;
    const unsigned char* m_end;
    ReadingSink m_sink;
    ITalRTPSession* m_session = nullptr;
    unsigned long m_fecType;
    unsigned int m_fecPayloadType = 111;
    unsigned int m_lastTimestamp = 0;
    unsigned long m_now = 1000000;
};

}  // namespace fuzz
}  // namespace talrtp

#endif  // TALRTP_FUZZ_SESSIONSCRIPT_H
