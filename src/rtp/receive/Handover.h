// The temporary packets that a session lends to the sink. They share one buffer, so that a hand-over costs no
// allocation.

#ifndef TALRTP_SRC_RECEIVE_HANDOVER_H
#define TALRTP_SRC_RECEIVE_HANDOVER_H

#include <talrtp/TalRtpDefs.h>
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

    // **Returns owned** at least `size` bytes from malloc, or null; `size` becomes their number.
    unsigned char* take(std::size_t& size);
    // **Takes** them back.
    void give(unsigned char* bytes, std::size_t size);
    // Frees the bytes, if they are many, when no hand-over since `now - keptFor` needed as much as a quarter.
    void age(_uint64_t now, _uint64_t keptFor) {
        if (m_size > kAlwaysKept) {
            ageLarge(now, keptFor);
        }
    }

private:
    static constexpr std::size_t kAlwaysKept = 8 * 1024;

    void ageLarge(_uint64_t now, _uint64_t keptFor);

    unsigned char* m_bytes = nullptr;
    std::size_t m_size = 0;
    bool m_isNeeded = false;  // a quarter of it, since it was last asked
    _uint64_t m_neededAt = 0;
};

// A packet with the RTP header of a received one and room for a new payload.
class CHandover {
public:
    // The packet reports `capacity` as its buffer size, unless the header and `payloadSize` need more: a
    // header whose extension length wraps to nothing reads as longer by the extension's own header, once
    // copied.
    CHandover(CHandoverBuffer& lender, const CTalRtpPacket& received, int capacity, int payloadSize);
    ~CHandover();
    CHandover(const CHandover&) = delete;
    CHandover& operator=(const CHandover&) = delete;

    // False when there is no memory for it: then nothing else may be asked of it.
    bool isReady() const { return m_isReady; }
    CTalRtpPacket& packet() { return m_packet; }
    // Zeroes everything after the first `payloadSize` bytes of payload, as in a new packet.
    void zeroBehind(int payloadSize);

private:
    CHandoverBuffer& m_lender;
    std::size_t m_size;
    CTalRtpPacket m_packet;
    const bool m_isReady;
    const unsigned int m_replacedBefore;  // buffers of packets, on this thread
};

}  // namespace talrtp

#endif  // TALRTP_SRC_RECEIVE_HANDOVER_H
