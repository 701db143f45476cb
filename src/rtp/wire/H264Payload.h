// The first bytes of an RTP payload that carries H.264 (RFC 6184, 5.6 to 5.8).

#ifndef TALRTP_SRC_WIRE_H264PAYLOAD_H
#define TALRTP_SRC_WIRE_H264PAYLOAD_H

#include <talrtp/TalRtpPacket.h>

#include <cstring>

#include "ByteOrder.h"

namespace talrtp {

constexpr unsigned char kForbiddenAndNriMask = 0xe0;
constexpr unsigned char kNriMask = 0x60;
constexpr unsigned char kUnitTypeMask = 0x1f;

constexpr unsigned int kLastSingleType = 23;
constexpr unsigned int kStapAType = 24;
constexpr unsigned int kFuAType = 28;

constexpr int kStapAHeaderSize = 1;
constexpr int kUnitSizeSize = 2;
constexpr int kMinAggregatedUnit = kUnitSizeSize + 1;

constexpr int kFuHeaderOffset = 1;
constexpr int kFuHeadersSize = 2;  // FU indicator and FU header
constexpr unsigned char kFuStartMask = 0x80;
constexpr unsigned char kFuEndMask = 0x40;

inline bool isSingleUnit(unsigned int type) {
    return type >= 1 && type <= kLastSingleType;
}

// The content of a payload.
enum class PayloadKind { kUnit, kAggregate, kFragment, kUnknown };

// The facts in the first bytes of a payload.
struct stPayloadHead {
    stPayloadHead(const unsigned char* payload, int size)
        : type(size > 0 ? payload[0] & kUnitTypeMask : 0),
          fuHeader(type == kFuAType && size > kFuHeaderOffset ? payload[kFuHeaderOffset] : 0) {}
    explicit stPayloadHead(const CTalRtpPacket& packet)
        : stPayloadHead(packet.get_payload_ptr(), packet.get_payload_size()) {}

    PayloadKind kind() const {
        return isSingleUnit(type)   ? PayloadKind::kUnit
               : type == kFuAType   ? PayloadKind::kFragment
               : type == kStapAType ? PayloadKind::kAggregate
                                    : PayloadKind::kUnknown;
    }
    bool isFragment() const { return type == kFuAType; }
    bool isUnfragmented() const { return isSingleUnit(type) || type == kStapAType; }
    bool starts() const { return isUnfragmented() || (fuHeader & kFuStartMask) != 0; }
    bool ends() const { return isUnfragmented() || (fuHeader & kFuEndMask) != 0; }

    unsigned int type;       // 0 of an empty payload
    unsigned char fuHeader;  // 0 unless it is a fragment
};

// Copies `size` bytes, none for 0 or less; returns the end of the copy.
inline unsigned char* appendBytes(unsigned char* target, const unsigned char* source, int size) {
    if (size <= 0) {
        return target;
    }
    std::memcpy(target, source, static_cast<std::size_t>(size));
    return target + size;
}

// A unit cut into three fragments. Its header byte H travels as the NRI bits of each FU indicator and as the
// type of each FU header, so the first piece leaves it out:
//
//   unit        H aaaaaaa bbbbbbbb cccccc
//   piece       |   1    |   2    |  3   |
//   payload 1   [indicator][S 0 type] aaaaaaa
//   payload 2   [indicator][0 0 type] bbbbbbbb
//   payload 3   [indicator][0 E type] cccccc

// The payload that piece `index`, from 1, of `size` bytes makes.
inline int fragmentPayloadSize(int index, int size) {
    return size + kFuHeadersSize - (index == 1 ? 1 : 0);
}

// Writes piece `index`, from 1, of `count`. `nalHeader` keeps the unit's header from the first on.
inline void writeFragment(unsigned char* payload, int index, int count, int size, const unsigned char* data,
                          _uint8_t& nalHeader) {
    unsigned int edges = index == count ? kFuEndMask : 0;
    if (index == 1) {
        edges |= kFuStartMask;
        nalHeader = *data++;
        --size;
    }
    const unsigned int indicator = (nalHeader & kForbiddenAndNriMask) + kFuAType;
    const unsigned int header = edges | (nalHeader & kUnitTypeMask);
    storeBig16(payload, static_cast<_uint16_t>(indicator << 8 | header));
    appendBytes(payload + kFuHeadersSize, data, size);
}

}  // namespace talrtp

#endif  // TALRTP_SRC_WIRE_H264PAYLOAD_H
