// Tells what a datagram on a media port is, and whether a session would accept it, before a session sees it.
// RTP shares its port with RTCP (RFC 5761), STUN, TURN, ZRTP and DTLS (RFC 7983, which replaces RFC 5764,
// 5.1.2).

#ifndef TALRTP_KIT_DEMUX_H
#define TALRTP_KIT_DEMUX_H

#include <talrtp/kit/BytesView.h>

#include <cstddef>
#include <cstdint>

namespace talrtp::kit {

// The protocol of a datagram.
enum class DatagramKind {
    kRtp,      // for a `Receiver` or a session
    kRtcp,     // for an RTCP stack
    kStun,     // for ICE
    kZrtp,     // for key agreement
    kDtls,     // for key agreement
    kTurn,     // for a TURN client: channel data
    kUnknown,  // for nobody
};

// The size of the fixed RTP header.
constexpr std::size_t kMinRtpSize = 12;

// Classifies a datagram by the first byte (RFC 7983, 7) and RTP from RTCP by the second (RFC 5761, 4): RTCP
// packet types are 192 to 223, which is where RTP would have a marker bit and payload types 64 to 95. A
// datagram too short for its own fixed header is kUnknown. Any bytes are safe, none too.
inline DatagramKind classify(BytesView datagram) {
    constexpr std::size_t kMinRtcp = 4;
    constexpr std::size_t kMinStun = 20;
    constexpr std::size_t kMinDtls = 13;
    constexpr std::size_t kMinTurn = 4;
    if (datagram.size() < 2) {
        return DatagramKind::kUnknown;
    }
    const unsigned int first = datagram[0];
    const unsigned int second = datagram[1];
    const auto orUnknown = [&datagram](DatagramKind kind, std::size_t minimum) {
        return datagram.size() >= minimum ? kind : DatagramKind::kUnknown;
    };
    if (first <= 3) {
        return orUnknown(DatagramKind::kStun, kMinStun);
    }
    if (first >= 16 && first <= 19) {
        return orUnknown(DatagramKind::kZrtp, kMinRtpSize);
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
    return orUnknown(DatagramKind::kRtp, kMinRtpSize);
}

// The 16 bits of `bytes` in network order at `position`; those beyond the end count as 0.
inline std::uint16_t readBig16(BytesView bytes, std::size_t position) {
    const unsigned int high = position < bytes.size() ? bytes[position] : 0U;
    const unsigned int low = position + 1 < bytes.size() ? bytes[position + 1] : 0U;
    return static_cast<std::uint16_t>(high << 8 | low);
}

// The same for the 32 bits of `bytes` at `position`.
inline std::uint32_t readBig32(BytesView bytes, std::size_t position) {
    const std::uint32_t high = readBig16(bytes, position);
    return high << 16 | readBig16(bytes, position + 2);
}

// Returns the size of an RTP packet's header as a session computes it: 12 bytes, the contributing sources,
// and the extension, whose part is 16 bits wide. `packet` has at least `kMinRtpSize` bytes.
inline std::size_t rtpHeaderSize(BytesView packet) {
    const std::size_t listEnd = kMinRtpSize + std::size_t{4} * (packet[0] & 0x0fU);
    if ((packet[0] & 0x10U) == 0) {
        return listEnd;
    }
    const unsigned int words = readBig16(packet, listEnd + 2);
    return listEnd + static_cast<std::uint16_t>(4 * words + 4);
}

// Tells whether a session accepts the datagram. A session leaks the packet object of each one of 12 bytes or
// more that it refuses (see docs/hosts.md), so ask before. `isXorFec`: the payload type is that of FEC
// packets and the session reads them as XOR FEC, whose header has 12 bytes whatever its first byte says
// (RFC 2733, 4.1). Any bytes are safe. Allocates nothing.
inline bool isValidRtp(BytesView datagram, bool isXorFec) {
    constexpr unsigned int kVersion = 2;
    if (datagram.size() < kMinRtpSize || datagram[0] >> 6 != kVersion) {
        return false;
    }
    const unsigned int payloadType = datagram[1] & 0x7fU;
    if (payloadType >= 72 && payloadType <= 76) {  // RTCP types 200 to 204 lie here (RFC 3550, A.1)
        return false;
    }
    const std::size_t headerSize = isXorFec ? kMinRtpSize : rtpHeaderSize(datagram);
    if (datagram.size() < headerSize) {
        return false;
    }
    const bool isPadded = (datagram[0] & 0x20U) != 0;
    const std::size_t padding = datagram[datagram.size() - 1];
    return !isPadded || (padding != 0 && padding <= datagram.size() - headerSize);
}

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_DEMUX_H
