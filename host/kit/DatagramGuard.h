// Tells what a datagram on a media port is, before a session sees it. RTP shares its port with RTCP
// (RFC 5761), STUN, TURN, ZRTP and DTLS (RFC 7983, which replaces RFC 5764, 5.1.2).

#ifndef TALRTP_HOST_KIT_DATAGRAMGUARD_H
#define TALRTP_HOST_KIT_DATAGRAMGUARD_H

#include <cstddef>
#include <cstdint>

namespace talrtp::kit {

enum class DatagramKind {
    kRtp,      // for InputReceivedData
    kRtcp,     // for an RTCP stack
    kStun,     // for ICE
    kZrtp,     // for key agreement
    kDtls,     // for key agreement
    kTurn,     // for a TURN client: channel data
    kUnknown,  // for nobody
};

// Classifies `size` bytes by the first byte (RFC 7983, 7) and RTP from RTCP by the second (RFC 5761, 4): RTCP
// packet types are 192 to 223, which is where RTP would have a marker bit and payload types 64 to 95. What is
// too short for its own fixed header is kUnknown. Any bytes are safe; null is allowed when `size` is 0.
inline DatagramKind classifyDatagram(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t kMinRtcp = 4;
    constexpr std::size_t kMinRtp = 12;
    constexpr std::size_t kMinStun = 20;
    constexpr std::size_t kMinDtls = 13;
    constexpr std::size_t kMinTurn = 4;
    if (size < 2) {
        return DatagramKind::kUnknown;
    }
    const unsigned int first = data[0];
    const unsigned int second = data[1];
    const auto orUnknown = [size](DatagramKind kind, std::size_t minimum) {
        return size >= minimum ? kind : DatagramKind::kUnknown;
    };
    if (first <= 3) {
        return orUnknown(DatagramKind::kStun, kMinStun);
    }
    if (first >= 16 && first <= 19) {
        return orUnknown(DatagramKind::kZrtp, kMinRtp);
    }
    if (first >= 20 && first <= 63) {
        return orUnknown(DatagramKind::kDtls, kMinDtls);
    }
    if (first >= 64 && first <= 79) {
        return orUnknown(DatagramKind::kTurn, kMinTurn);
    }
    if (first < 128 || first > 191) {
        return DatagramKind::kUnknown;
    }
    if (second >= 192 && second <= 223) {
        return orUnknown(DatagramKind::kRtcp, kMinRtcp);
    }
    return orUnknown(DatagramKind::kRtp, kMinRtp);
}

}  // namespace talrtp::kit

#endif  // TALRTP_HOST_KIT_DATAGRAMGUARD_H
