// What a host reads off a NAL unit without decoding it (ITU-T H.264, 7.3.1 and 7.3.3): its type, and whether
// it is the first slice of a picture.

#ifndef TALRTP_HOST_KIT_NALUNIT_H
#define TALRTP_HOST_KIT_NALUNIT_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace talrtp::kit {

// The bytes of one NAL unit, header byte first, without start code.
using NalUnit = std::vector<std::uint8_t>;

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
};

constexpr std::uint8_t kNalTypeMask = 0x1f;
constexpr std::uint8_t kFirstSliceDataBit = 0x80;

// Slices of types 14, 20 and 21 have three more header bytes (ITU-T H.264, 7.3.1).
constexpr std::size_t kNalHeaderSize = 1;
constexpr std::size_t kExtendedNalHeaderSize = 4;

// The type of a unit; 0 for an empty one.
inline int nalType(const NalUnit& unit) {
    return unit.empty() ? 0 : unit[0] & kNalTypeMask;
}

// Tells whether RTP can carry the unit as it is: types 0 and 24 to 31 mean something else there.
inline bool isCarriedByRtp(const NalUnit& unit) {
    return nalType(unit) >= kNalSlice && nalType(unit) <= kNalLastSingle;
}

// Tells whether the unit holds coded samples of the base layer that begin with a slice header.
inline bool isBaseSlice(int type) {
    return type == kNalSlice || type == kNalPartitionA || type == kNalIdrSlice;
}

inline bool isLayerSlice(int type) {
    return type == kNalScalableSlice || type == kNalDepthSlice;
}

// Tells whether a slice begins with macroblock 0. `first_mb_in_slice` is the first field of a slice header,
// an Exp-Golomb number: it is 0 exactly when its first bit is set.
inline bool startsAtFirstMacroblock(const NalUnit& slice) {
    const std::size_t header = isLayerSlice(nalType(slice)) ? kExtendedNalHeaderSize : kNalHeaderSize;
    return slice.size() > header && (slice[header] & kFirstSliceDataBit) != 0;
}

}  // namespace talrtp::kit

#endif  // TALRTP_HOST_KIT_NALUNIT_H
