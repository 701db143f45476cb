// The head of a NAL unit, as far as a host reads it without decoding (ITU-T H.264, 7.3.1 and 7.3.3): its
// type, whether RTP can carry it, and whether it is the first slice of a picture.
//
// A unit is its bytes without start code, header byte first. Every function takes any bytes, none included.

#ifndef TALRTP_KIT_NALUNIT_H
#define TALRTP_KIT_NALUNIT_H

#include <talrtp/kit/BytesView.h>

#include <cstddef>
#include <cstdint>

namespace talrtp::kit {

// NAL unit types by which a host acts (ITU-T H.264, table 7-1).
enum NalType : int {
    kNalSlice = 1,
    kNalPartitionA = 2,
    kNalPartitionB = 3,
    kNalPartitionC = 4,
    kNalIdrSlice = 5,
    kNalSei = 6,
    kNalSps = 7,
    kNalPps = 8,
    kNalDelimiter = 9,
    kNalEndOfSequence = 10,
    kNalEndOfStream = 11,
    kNalFiller = 12,
    kNalPrefix = 14,
    kNalSubsetSps = 15,
    kNalLastReservedDelimiter = 18,
    kNalScalableSlice = 20,
    kNalDepthSlice = 21,
    kNalLastSingle = 23,  // 24 and above mark packets, not units (RFC 6184, 5.2)
    kNalStapA = 24,
    kNalFuA = 28,
};

// The bits of the header byte that hold the type.
constexpr unsigned int kNalTypeMask = 0x1f;
// The header is one byte.
constexpr std::size_t kNalHeaderSize = 1;

// Returns the type of a unit, 0 for an empty one.
constexpr int nalType(BytesView unit) {
    return unit.empty() ? 0 : static_cast<int>(unit[0] & kNalTypeMask);
}

// Returns why RTP cannot carry the unit as it is, or null when it can (RFC 6184, 5.2). The text is static.
constexpr const char* whyNotCarried(BytesView unit) {
    if (unit.empty()) {
        return "it is empty";
    }
    if (unit.data() == nullptr) {
        return "its pointer is null";
    }
    const int type = nalType(unit);
    if (type == 0) {
        return "type 0 is not used in RTP";
    }
    return type > kNalLastSingle ? "types 24 to 31 mark packets in RTP, not units" : nullptr;
}

// Tells whether RTP can carry the unit.
constexpr bool isCarriedByRtp(BytesView unit) {
    return whyNotCarried(unit) == nullptr;
}

// Tells whether units of the type begin with a slice header and belong to the base layer.
constexpr bool isBaseSlice(int type) {
    return type == kNalSlice || type == kNalPartitionA || type == kNalIdrSlice;
}

// Tells whether units of the type are slices of another layer or view.
constexpr bool isLayerSlice(int type) {
    return type == kNalScalableSlice || type == kNalDepthSlice;
}

// Returns the number of bytes before a slice header. Layer slices have three more header bytes, those of 3D
// video two (ITU-T H.264, 7.3.1). `unit` is not empty.
constexpr std::size_t nalHeaderSize(BytesView unit) {
    constexpr unsigned int kDepthExtensionBit = 0x80;
    const int type = nalType(unit);
    if (!isLayerSlice(type) && type != kNalPrefix) {
        return kNalHeaderSize;
    }
    const bool isDepth = type == kNalDepthSlice && unit.size() > 1 && (unit[1] & kDepthExtensionBit) != 0;
    return kNalHeaderSize + (isDepth ? 2 : 3);
}

// Tells whether a slice begins with macroblock 0. `first_mb_in_slice` is the first field of a slice header,
// an Exp-Golomb number: it is 0 exactly when its first bit is set.
constexpr bool startsAtFirstMacroblock(BytesView slice) {
    constexpr unsigned int kFirstBit = 0x80;
    if (slice.empty()) {
        return false;
    }
    const std::size_t header = nalHeaderSize(slice);
    return slice.size() > header && (slice[header] & kFirstBit) != 0;
}

// Returns a number that grows with the layer of a layer slice: dependency_id and quality_id (ITU-T H.264,
// G.7.3.1.1), or the view_id of multiview video (H.7.3.1.1). 0 when the header is cut.
constexpr int layerOf(BytesView slice) {
    constexpr unsigned int kScalableBit = 0x80;
    constexpr unsigned int kLayerMask = 0x7f;
    if (slice.size() < 4) {
        return 0;
    }
    const unsigned int view =
        static_cast<unsigned int>(slice[2]) << 2 | static_cast<unsigned int>(slice[3]) >> 6;
    const bool isScalable = (slice[1] & kScalableBit) != 0;
    return static_cast<int>(isScalable ? slice[2] & kLayerMask : view);
}

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_NALUNIT_H
