#include "inspect/Frame.h"

#include <talrtp/kit/Demux.h>

#include <algorithm>
#include <optional>

namespace talrtp::host::inspect {

namespace {

using kit::BytesView;
using kit::readBig16;

constexpr std::uint16_t kTypeIpv4 = 0x0800;
constexpr std::uint16_t kTypeIpv6 = 0x86dd;

constexpr std::uint8_t kProtocolUdp = 17;

// Extension headers of IPv6 (RFC 8200, 4).
constexpr std::uint8_t kHopByHop = 0;
constexpr std::uint8_t kRouting = 43;
constexpr std::uint8_t kFragment = 44;
constexpr std::uint8_t kDestinationOptions = 60;

constexpr std::size_t kUdpHeader = 8;
constexpr std::size_t kIpv4Header = 20;
constexpr std::size_t kIpv6Header = 40;
constexpr std::size_t kVlanTag = 4;

Frame ofKind(FrameKind kind) {
    Frame frame;
    frame.kind = kind;
    return frame;
}

Frame readUdp(BytesView bytes, Frame frame) {
    if (bytes.size() < kUdpHeader || readBig16(bytes, 4) < kUdpHeader) {
        return ofKind(FrameKind::kMalformed);
    }
    frame.kind = FrameKind::kUdp;
    frame.datagram.from.port = readBig16(bytes, 0);
    frame.datagram.to.port = readBig16(bytes, 2);
    frame.datagram.size = readBig16(bytes, 4) - kUdpHeader;
    frame.datagram.bytes = bytes.subview(kUdpHeader, frame.datagram.size);
    return frame;
}

void copyAddress(BytesView bytes, Endpoint& endpoint) {
    std::copy(bytes.begin(), bytes.end(), endpoint.address.begin());
}

// RFC 791, 3.1. The total length is checked and not used: the length in the UDP header leaves out the padding
// of a short Ethernet frame as well. A network card that cuts large packets itself leaves a total of 0.
Frame readIpv4(BytesView bytes) {
    constexpr std::uint16_t kMoreFragmentsAndOffset = 0x3fff;
    const std::size_t header = static_cast<std::size_t>(bytes[0] & 0x0f) * 4;
    if (header < kIpv4Header || bytes.size() < header) {
        return ofKind(FrameKind::kMalformed);
    }
    const std::size_t total = readBig16(bytes, 2);
    if (total != 0 && total < header) {
        return ofKind(FrameKind::kMalformed);
    }
    if ((readBig16(bytes, 6) & kMoreFragmentsAndOffset) != 0) {
        return ofKind(FrameKind::kFragment);
    }
    if (bytes[9] != kProtocolUdp) {
        return ofKind(FrameKind::kOther);
    }
    Frame frame;
    copyAddress(bytes.subview(12, 4), frame.datagram.from);
    copyAddress(bytes.subview(16, 4), frame.datagram.to);
    return readUdp(bytes.subview(header), frame);
}

bool isExtension(std::uint8_t type) {
    return type == kHopByHop || type == kRouting || type == kFragment || type == kDestinationOptions;
}

// RFC 8200, 3 and 4. A fragment header over a whole packet (RFC 6946) hides no part of it.
Frame readIpv6(BytesView bytes) {
    constexpr std::uint16_t kOffsetAndMoreFragments = 0xfff9;
    Frame frame;
    frame.datagram.from.isIpv6 = frame.datagram.to.isIpv6 = true;
    copyAddress(bytes.subview(8, 16), frame.datagram.from);
    copyAddress(bytes.subview(24, 16), frame.datagram.to);
    std::uint8_t type = bytes[6];
    const std::size_t length = readBig16(bytes, 4);
    BytesView rest = bytes.subview(kIpv6Header, length == 0 ? BytesView::npos : length);
    while (isExtension(type)) {
        const std::size_t size =
            type == kFragment || rest.size() < 2 ? 8 : 8 + static_cast<std::size_t>(rest[1]) * 8;
        if (rest.size() < size) {
            return ofKind(FrameKind::kMalformed);
        }
        if (type == kFragment && (readBig16(rest, 2) & kOffsetAndMoreFragments) != 0) {
            return ofKind(FrameKind::kFragment);
        }
        type = rest[0];
        rest = rest.subview(size);
    }
    return type == kProtocolUdp ? readUdp(rest, frame) : ofKind(FrameKind::kOther);
}

// The version field is enough to tell the two apart, on links whose own type field is lost or ambiguous too.
Frame readIp(BytesView bytes) {
    const int version = bytes.empty() ? 0 : bytes[0] >> 4;
    if (version != 4 && version != 6) {
        return ofKind(bytes.empty() ? FrameKind::kMalformed : FrameKind::kOther);
    }
    if (bytes.size() < (version == 4 ? kIpv4Header : kIpv6Header)) {
        return ofKind(FrameKind::kMalformed);
    }
    return version == 4 ? readIpv4(bytes) : readIpv6(bytes);
}

Frame readTyped(std::uint16_t type, BytesView rest) {
    return type == kTypeIpv4 || type == kTypeIpv6 ? readIp(rest) : ofKind(FrameKind::kOther);
}

// The type is the last field of the link's header, or of the last VLAN tag after it.
Frame readEthernet(BytesView bytes) {
    constexpr std::size_t kTypeOffset = 12;
    std::size_t header = kTypeOffset + 2;
    const auto isTagged = [&] {
        const std::uint16_t type = readBig16(bytes, header - 2);
        return type == 0x8100 || type == 0x88a8 || type == 0x9100;
    };
    while (bytes.size() >= header && isTagged()) {
        header += kVlanTag;
    }
    return bytes.size() < header ? ofKind(FrameKind::kMalformed)
                                 : readTyped(readBig16(bytes, header - 2), bytes.subview(header));
}

Frame readWithTypeAt(BytesView bytes, std::size_t typeOffset, std::size_t header) {
    return bytes.size() < header ? ofKind(FrameKind::kMalformed)
                                 : readTyped(readBig16(bytes, typeOffset), bytes.subview(header));
}

}  // namespace

Frame readFrame(LinkLayer link, BytesView bytes) {
    switch (link) {
        case LinkLayer::kEthernet:
            return readEthernet(bytes);
        case LinkLayer::kCooked:
            return readWithTypeAt(bytes, 14, 16);
        case LinkLayer::kCooked2:
            return readWithTypeAt(bytes, 0, 20);
        case LinkLayer::kNull:
            return readIp(bytes.subview(4));  // the address family differs from system to system
        case LinkLayer::kRaw:
            break;
    }
    return readIp(bytes);
}

}  // namespace talrtp::host::inspect
