// The facts that play-out needs of one media packet, read from its RTP header and the first bytes of its
// payload (RFC 3550, 5.1; RFC 6184, 5.6 to 5.8).

#ifndef TALRTP_KIT_PACKETHEAD_H
#define TALRTP_KIT_PACKETHEAD_H

#include <talrtp/kit/BytesView.h>
#include <talrtp/kit/Demux.h>
#include <talrtp/kit/NalUnit.h>

#include <cstddef>
#include <cstdint>

namespace talrtp::kit {

// The structure of a payload (RFC 6184, 5.2).
enum class PayloadKind : std::uint8_t {
    kSingle,     // one NAL unit
    kAggregate,  // STAP-A
    kFuStart,    // FU-A: the first fragment of a unit
    kFuMiddle,   // FU-A: neither the first nor the last
    kFuEnd,      // FU-A: the last
    kEmpty,      // no payload, or padding only
    kUnknown,    // of a type that no session hands over
};

// The facts of one media packet that play-out needs.
struct PacketHead {
    std::uint16_t sequence = 0;              // sequence number
    std::uint32_t timestamp = 0;             // RTP timestamp
    std::uint32_t ssrc = 0;                  // synchronization source
    bool hasMarker = false;                  // the last packet of a picture has it
    PayloadKind kind = PayloadKind::kEmpty;  // read from the first bytes
    std::uint8_t padding = 0;                // bytes of RTP padding at the end of the payload
    std::uint16_t unitCount = 0;             // NAL units that begin in this packet
    bool isSound = true;                     // the units of an aggregation packet fill it exactly
    std::uint8_t firstUnitType = 0;  // NAL unit type of the first unit; 0 in a fragment that is not the first
    bool isFirstSlice = false;       // the first unit is a slice that begins at the first macroblock
};

// Tells whether a packet of that kind carries on a unit that an earlier packet began.
inline bool continuesUnit(PayloadKind kind) {
    return kind == PayloadKind::kFuMiddle || kind == PayloadKind::kFuEnd;
}

// Tells whether the unit of a packet of that kind goes on in the next packet.
inline bool leavesUnitOpen(PayloadKind kind) {
    return kind == PayloadKind::kFuStart || kind == PayloadKind::kFuMiddle;
}

// Reads the head of one packet; its steps share the payload.
class PacketHeadReader {
public:
    // `packet`: passed `isValidRtp`.
    static PacketHead read(BytesView packet) {
        PacketHead head;
        head.hasMarker = (packet[1] & 0x80U) != 0;
        head.sequence = readBig16(packet, 2);
        head.timestamp = readBig32(packet, 4);
        head.ssrc = readBig32(packet, 8);
        const bool isPadded = (packet[0] & 0x20U) != 0;
        head.padding = isPadded ? packet[packet.size() - 1] : std::uint8_t{0};
        const std::size_t headerSize = rtpHeaderSize(packet);
        readPayload(packet.subview(headerSize, packet.size() - headerSize - head.padding), head);
        return head;
    }

private:
    static void readPayload(BytesView payload, PacketHead& head) {
        if (payload.empty()) {
            return;
        }
        const int type = nalType(payload);
        if (type >= 1 && type <= kNalLastSingle) {
            head.kind = PayloadKind::kSingle;
            readFirstUnit(type, payload.subview(1), head);
        } else if (type == kNalStapA) {
            head.kind = PayloadKind::kAggregate;
            readAggregate(payload.subview(1), head);
        } else if (type == kNalFuA) {
            readFragment(payload, head);
        } else {
            head.kind = PayloadKind::kUnknown;
        }
    }

    // `rest`: the unit without its header byte.
    static void readFirstUnit(int type, BytesView rest, PacketHead& head) {
        head.unitCount = 1;
        head.firstUnitType = static_cast<std::uint8_t>(type);
        // first_mb_in_slice opens the slice header, and a number of 0 is one set bit.
        const bool isSlice = type == kNalSlice || type == kNalIdrSlice;
        head.isFirstSlice = isSlice && !rest.empty() && (rest[0] & 0x80U) != 0;
    }

    // `rest`: sizes of 16 bits, each followed by its unit.
    static void readAggregate(BytesView rest, PacketHead& head) {
        std::uint16_t count = 0;
        while (rest.size() > 2) {
            const std::size_t size = readBig16(rest, 0);
            if (count == 0) {
                readFirstUnit(nalType(rest.subview(2)), rest.subview(3), head);
            }
            ++count;
            if (size == 0 || size > rest.size() - 2) {
                break;
            }
            rest = rest.subview(2 + size);
        }
        head.unitCount = count;
        head.isSound = count > 0 && rest.empty();
    }

    static void readFragment(BytesView payload, PacketHead& head) {
        const unsigned int fuHeader = payload.size() > 1 ? payload[1] : 0U;
        const bool isStart = (fuHeader & 0x80U) != 0;
        const bool isEnd = (fuHeader & 0x40U) != 0;
        head.kind = isStart ? (isEnd ? PayloadKind::kSingle : PayloadKind::kFuStart)
                            : (isEnd ? PayloadKind::kFuEnd : PayloadKind::kFuMiddle);
        if (isStart) {
            readFirstUnit(static_cast<int>(fuHeader & kNalTypeMask), payload.subview(2), head);
        }
    }
};

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_PACKETHEAD_H
