// The temporary packets that a session lends to the sink. Their bytes come from one buffer that is used again
// and again, so that a hand-over costs no allocation.

#ifndef TALRTP_SRC_TALRTPHANDOVER_H
#define TALRTP_SRC_TALRTPHANDOVER_H

#include <talrtp/TalRtpPacket.h>

#include <cstddef>

namespace talrtp {

// Memory for one hand-over at a time. A hand-over that begins inside another one gets memory of its own.
class CHandoverBuffer {
public:
    CHandoverBuffer() = default;
    ~CHandoverBuffer();
    CHandoverBuffer(const CHandoverBuffer&) = delete;
    CHandoverBuffer& operator=(const CHandoverBuffer&) = delete;

    // **Returns** at least `size` bytes from malloc; `size` becomes what they are.
    unsigned char* take(std::size_t& size);
    // **Takes** them back.
    void give(unsigned char* bytes, std::size_t size);

private:
    unsigned char* m_bytes = nullptr;
    std::size_t m_size = 0;
};

// A packet with the RTP header of a received one and room for a new payload.
class CHandover {
public:
    // `capacity` is what the packet reports as its buffer size, unless the header and `payloadSize` need
    // more: a header whose extension length wraps to nothing reads as longer by the extension's own header,
    // once copied.
    CHandover(CHandoverBuffer& lender, const CTalRtpPacket& received, int capacity, int payloadSize);
    ~CHandover();
    CHandover(const CHandover&) = delete;
    CHandover& operator=(const CHandover&) = delete;

    CTalRtpPacket& packet() { return m_packet; }
    // Zeroes what lies behind the first `payloadSize` bytes of payload, as a new packet has it.
    void zeroBehind(int payloadSize);

private:
    CHandoverBuffer& m_lender;
    std::size_t m_size;
    CTalRtpPacket m_packet;
    const unsigned char* m_lentBytes;
    int m_lentCapacity;
};

}  // namespace talrtp

#endif  // TALRTP_SRC_TALRTPHANDOVER_H
