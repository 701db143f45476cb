// The parts of an RTP packet in a captured datagram. RFC 3550, 5.1 and 5.3.1.

#ifndef TALRTP_HOST_INSPECT_RTPVIEW_H
#define TALRTP_HOST_INSPECT_RTPVIEW_H

#include "inspect/Frame.h"

#include <talrtp/kit/Demux.h>

#include <optional>

namespace talrtp::host::inspect {

struct RtpView {
    bool hasMarker = false;
    std::uint8_t payloadType = 0;
    std::uint16_t sequence = 0;
    std::uint32_t timestamp = 0;
    std::uint32_t ssrc = 0;
    kit::BytesView afterHeader;             // all bytes after the fixed header: of an FEC packet, the payload
    std::optional<kit::BytesView> payload;  // none when CSRCs, extension or padding do not fit
};

constexpr std::size_t kRtpFixedHeader = 12;

// Tells whether the datagram claims the version of RTP and RTCP.
inline bool hasRtpVersion(kit::BytesView bytes) {
    return bytes.size() >= 2 && bytes[0] >> 6 == 2;
}

// Tells RTCP from RTP on one port by the packet type. RFC 5761, 4.
inline bool looksLikeRtcp(kit::BytesView bytes) {
    return hasRtpVersion(bytes) && bytes[1] >= 192 && bytes[1] <= 223;
}

// Returns the payload, without the padding as far as the capture shows how long that is.
inline std::optional<kit::BytesView> rtpPayload(const Datagram& datagram) {
    const kit::BytesView bytes = datagram.bytes;
    constexpr std::uint8_t kPadding = 0x20;
    constexpr std::uint8_t kExtension = 0x10;
    std::size_t header = kRtpFixedHeader + static_cast<std::size_t>(bytes[0] & 0x0f) * 4;
    if ((bytes[0] & kExtension) != 0) {
        if (bytes.size() < header + 4) {
            return std::nullopt;
        }
        header += 4 + static_cast<std::size_t>(kit::readBig16(bytes, header + 2)) * 4;
    }
    if (bytes.size() < header) {
        return std::nullopt;
    }
    std::size_t padding = 0;
    if ((bytes[0] & kPadding) != 0 && !datagram.isCut()) {
        padding = bytes[bytes.size() - 1];
        if (padding == 0 || padding > bytes.size() - header) {
            return std::nullopt;
        }
    }
    return bytes.subview(header, bytes.size() - header - padding);
}

// Returns nothing for a datagram that is no RTP packet by its first bytes.
inline std::optional<RtpView> readRtp(const Datagram& datagram) {
    const kit::BytesView bytes = datagram.bytes;
    if (bytes.size() < kRtpFixedHeader || !hasRtpVersion(bytes) || looksLikeRtcp(bytes)) {
        return std::nullopt;
    }
    RtpView view;
    view.hasMarker = (bytes[1] & 0x80) != 0;
    view.payloadType = bytes[1] & 0x7f;
    view.sequence = kit::readBig16(bytes, 2);
    view.timestamp = kit::readBig32(bytes, 4);
    view.ssrc = kit::readBig32(bytes, 8);
    view.afterHeader = bytes.subview(kRtpFixedHeader);
    view.payload = rtpPayload(datagram);
    return view;
}

}  // namespace talrtp::host::inspect

#endif  // TALRTP_HOST_INSPECT_RTPVIEW_H
