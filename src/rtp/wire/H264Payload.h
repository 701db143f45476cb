// The first bytes of an RTP payload that carries H.264 (RFC 6184, 5.6 to 5.8).

#ifndef TALRTP_SRC_WIRE_H264PAYLOAD_H
#define TALRTP_SRC_WIRE_H264PAYLOAD_H

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

}  // namespace talrtp

#endif  // TALRTP_SRC_WIRE_H264PAYLOAD_H
