// How a `Sender` makes its packets.

#ifndef TALRTP_KIT_SENDEROPTIONS_H
#define TALRTP_KIT_SENDEROPTIONS_H

#include <talrtp/TalRtpDefs.h>
#include <talrtp/kit/Fec.h>

#include <cstdint>
#include <optional>
#include <string>

namespace talrtp::kit {

// The size of an RTP header without CSRCs and extension.
constexpr int kRtpHeaderSize = 12;
constexpr int kFuHeaderSize = 2;  // FU indicator and FU header (RFC 6184, 5.8)

// The smallest media packet for which packets can be planned: a fragment then carries two bytes of its unit.
constexpr int kMinMediaPacket = kRtpHeaderSize + kFuHeaderSize + 2;

constexpr int kMaxMtu = 65507;  // bytes of payload that a UDP datagram holds over IPv4

// Bytes by which an FEC packet exceeds the longest media packet that it protects: an XOR packet repeats all
// but the RTP header after two headers of its own, a Reed-Solomon packet holds a whole packet after 20 bytes.
constexpr int kXorFecExcess = 12;
constexpr int kReedSolomonFecExcess = 20;  // likewise of a Reed-Solomon packet
// The largest media packet of a Reed-Solomon group.
constexpr int kMaxReedSolomonBlock = MAX_PACKET_SIZE;

// Returns how many bytes an FEC packet of the scheme can be longer than the longest media packet.
constexpr int fecExcess(FecScheme scheme) {
    return scheme == FecScheme::kXor           ? kXorFecExcess
           : scheme == FecScheme::kReedSolomon ? kReedSolomonFecExcess
                                               : 0;
}

// Returns the largest media packet for which neither it nor an FEC packet of `scheme` over it exceeds `mtu`
// bytes. The codec takes blocks of at most `kMaxReedSolomonBlock` bytes, and a block is a whole media packet.
// The result can be below `kMinMediaPacket`, for which no plan is made.
inline int maxMediaPacket(int mtu, FecScheme scheme) {
    const int room = mtu - fecExcess(scheme);
    const bool isTooLongForCodec = scheme == FecScheme::kReedSolomon && room > kMaxReedSolomonBlock;
    return isTooLongForCodec ? kMaxReedSolomonBlock : room;
}

// The options of a `Sender`.
struct SenderOptions {
    std::uint32_t ssrc = 0;             // of media and FEC packets
    int mtu = 1200;                     // largest RTP packet in bytes, FEC packets included
    Fec fec;                            // none unless set
    bool aggregate = true;              // small units of a picture share a STAP-A
    unsigned int payloadType = 98;      // of media packets
    unsigned int fecPayloadType = 111;  // of FEC packets

    // The numbers to begin with; random unless set, as RFC 3550, 5.1 wants it.
    std::optional<std::uint16_t> firstSequence;
    std::optional<std::uint16_t> firstFecSequence;  // likewise, of FEC packets

    // Returns an empty string, or what is wrong with which value.
    std::string check() const {
        std::string problem = fec.check();
        if (problem.empty()) {
            problem = checkMtu();
        }
        return problem.empty() ? checkPayloadTypes(payloadType, fecPayloadType) : problem;
    }

    // The rule for both ends: `media` and `fecType` are two different 7-bit numbers, none of which would read
    // as RTCP (RFC 5761, 4).
    static std::string checkPayloadTypes(unsigned int media, unsigned int fecType) {
        for (const unsigned int type : {media, fecType}) {
            if (type > 127) {
                return "a payload type is 0 to 127, not " + std::to_string(type);
            }
            if (type >= 64 && type <= 95) {
                return "payload type " + std::to_string(type) +
                       " would read as RTCP: take one outside 64 to 95";
            }
        }
        if (media == fecType) {
            return "media and FEC need different payload types, not " + std::to_string(media) + " for both";
        }
        return {};
    }

private:
    std::string checkMtu() const {
        const int least = kMinMediaPacket + fecExcess(fec.scheme);
        if (mtu < least || mtu > kMaxMtu) {
            return "an MTU is " + std::to_string(least) + " to " + std::to_string(kMaxMtu) +
                   " bytes with this FEC, not " + std::to_string(mtu);
        }
        return {};
    }
};

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_SENDEROPTIONS_H
