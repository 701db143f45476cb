// One media packet rebuilt from an XOR FEC packet and the other packets that it protects (RFC 2733, 7).
//
// The XOR of the headers yields the packet's length and header size. The bodies are XORed only when these
// fit, so most forged parity is refused before.

#ifndef TALRTP_SRC_FEC_XORRECOVERY_H
#define TALRTP_SRC_FEC_XORRECOVERY_H

#include <cstdint>

#include "fec/ByteView.h"

namespace talrtp {

enum class EXorBody {
    kWhole,
    kCut,  // there is no room for its end, which does not count
};

class CXorRecovery {
public:
    // Begins with the recovery fields of the FEC packet at `fecPacket`, RTP header included. `bodyCapacity`:
    // the room for the packet after its fixed header, at least 0.
    CXorRecovery(const unsigned char* fecPacket, int bodyCapacity);

    // Add the parity, and then the other packets, 24 at most; all are **borrowed** as long as this lives.
    EXorBody addParity(const stByteView& parity) { return addBody(parity.data, parity.size); }
    // `kind` takes the place of the packet's payload type.
    EXorBody addMediaPacket(const stByteView& packet, unsigned int kind);

    // Tells whether there is room for the rebuilt packet, and in the packet for its own header.
    bool isPlausible() const;
    int payloadSize() const { return m_length + kFixedHeaderSize - headerSize(); }
    std::uint8_t payloadType() const { return m_payloadType; }

    // Writes the packet, which is plausible, over the whole room. Its payload type is the caller's to write.
    void writeTo(unsigned char* packet, std::uint16_t seq, std::uint32_t ssrc) const;

private:
    static constexpr int kMaxBodies = kFecMaskBits + 1;

    EXorBody addBody(const unsigned char* body, int size);
    int headerSize() const;
    unsigned char bodyByte(int offset) const;

    int m_bodyCapacity;
    // Flags, marker bit and timestamp, where a header has them. The sequence numbers between them mean
    // nothing.
    unsigned char m_header[kSyncSourceOffset];
    std::uint8_t m_payloadType;
    std::uint16_t m_length;
    int m_bodyCount = 0;
    const unsigned char* m_bodies[kMaxBodies];
    int m_sizes[kMaxBodies];
};

}  // namespace talrtp

#endif  // TALRTP_SRC_FEC_XORRECOVERY_H
