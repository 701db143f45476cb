// From a captured frame to the UDP datagram in it.
//
// Reads Ethernet with VLAN tags, Linux cooked captures of both versions, null and loopback, and raw IP; then
// IPv4, or IPv6 with its extension headers; then UDP. Nothing is put together: a fragment is told from a
// datagram and left alone.

#ifndef TALRTP_HOST_INSPECT_FRAME_H
#define TALRTP_HOST_INSPECT_FRAME_H

#include <talrtp/kit/BytesView.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <tuple>

namespace talrtp::host::inspect {

// The header that a frame begins with.
enum class LinkLayer { kEthernet, kCooked, kCooked2, kNull, kRaw };

struct Endpoint {
    std::array<std::uint8_t, 16> address{};  // an IPv4 address fills the first four
    bool isIpv6 = false;
    std::uint16_t port = 0;

    friend bool operator<(const Endpoint& a, const Endpoint& b) {
        return std::tie(a.address, a.isIpv6, a.port) < std::tie(b.address, b.isIpv6, b.port);
    }
    friend bool operator==(const Endpoint& a, const Endpoint& b) { return !(a < b) && !(b < a); }
};

struct Datagram {
    Endpoint from;
    Endpoint to;
    kit::BytesView bytes;  // as much of the payload as was captured
    std::size_t size = 0;  // of the payload on the wire

    bool isCut() const { return bytes.size() < size; }
};

enum class FrameKind {
    kUdp,
    kFragment,   // part of an IP packet
    kOther,      // another protocol
    kMalformed,  // ends within a header, or a header contradicts itself
};

struct Frame {
    FrameKind kind = FrameKind::kOther;
    Datagram datagram;  // of a kUdp frame; borrows the frame's bytes
};

Frame readFrame(LinkLayer link, kit::BytesView bytes);

}  // namespace talrtp::host::inspect

#endif  // TALRTP_HOST_INSPECT_FRAME_H
