// The NAL units that an RTP payload carries. RFC 6184, 5.

#ifndef TALRTP_HOST_INSPECT_H264PAYLOAD_H
#define TALRTP_HOST_INSPECT_H264PAYLOAD_H

#include <talrtp/kit/Demux.h>
#include <talrtp/kit/NalUnit.h>

#include <cstddef>
#include <cstdint>

namespace talrtp::host::inspect {

enum class PayloadKind { kUnit, kAggregate, kFragment, kNone };

struct H264Payload {
    PayloadKind kind = PayloadKind::kNone;  // kNone: no H.264 by its form
    bool isFirstFragment = false;
    std::uint8_t unitType = 0;  // of a unit, or of the unit that a fragment is part of
};

// Calls `onUnit(type)` for each unit of a STAP-A. Returns whether sizes and units fill the payload; the last
// one may be cut when the capture cut the packet.
template <typename OnUnit>
bool forEachAggregated(kit::BytesView payload, bool isCut, OnUnit onUnit) {
    std::size_t position = 1;
    while (position + 2 < payload.size()) {
        const std::size_t size = kit::readBig16(payload, position);
        position += 2;
        if (size == 0 || (!isCut && size > payload.size() - position)) {
            return false;
        }
        onUnit(static_cast<std::uint8_t>(payload[position] & kit::kNalTypeMask));
        position += size;
    }
    return position > 1 && (isCut || position == payload.size());
}

inline H264Payload readFragment(kit::BytesView payload) {
    const bool isFirst = (payload[1] & 0x80) != 0;
    const bool isLast = (payload[1] & 0x40) != 0;
    const bool isReservedSet = (payload[1] & 0x20) != 0;
    const std::uint8_t type = payload[1] & kit::kNalTypeMask;
    if ((isFirst && isLast) || isReservedSet || type == 0 || type > kit::kNalLastSingle) {
        return {};
    }
    return {PayloadKind::kFragment, isFirst, type};
}

inline H264Payload readH264(kit::BytesView payload, bool isCut) {
    constexpr std::uint8_t kForbiddenBit = 0x80;
    if (payload.empty() || (payload[0] & kForbiddenBit) != 0) {
        return {};
    }
    const std::uint8_t type = payload[0] & kit::kNalTypeMask;
    if (type >= 1 && type <= kit::kNalLastSingle) {
        return {PayloadKind::kUnit, false, type};
    }
    if (type == kit::kNalFuA && payload.size() >= 2) {
        return readFragment(payload);
    }
    const bool isWhole = type == kit::kNalStapA && forEachAggregated(payload, isCut, [](std::uint8_t) {});
    return {isWhole ? PayloadKind::kAggregate : PayloadKind::kNone, false, 0};
}

}  // namespace talrtp::host::inspect

#endif  // TALRTP_HOST_INSPECT_H264PAYLOAD_H
