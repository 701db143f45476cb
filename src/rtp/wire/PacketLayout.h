// Where the fields of an RTP packet lie: the one place that knows offsets, shifts and masks, for reading and
// for writing. First the RTP header, then the two FEC headers that open the payload of an FEC packet.
//
// RTP header, RFC 3550, 5.1 and 5.3.1:
//
//   byte   0                   1                   2                   3
//          0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1
//         +---+-+-+-------+-+-------------+-------------------------------+
//     0   | V |P|X|  CC   |M|     PT      |        sequence number        |
//         +---+-+-+-------+-+-------------+-------------------------------+
//     4   |                           timestamp                           |
//         +---------------------------------------------------------------+
//     8   |                             SSRC                              |
//         +---------------------------------------------------------------+
//    12   |                  CSRC list: CC entries of 4                   |
//         +-------------------------------+-------------------------------+
//  12+4CC |      extension profile        |   length in 32-bit words      |  only
//         +-------------------------------+-------------------------------+  when X
//  16+4CC |                 extension data: 4 * length                    |  is set
//         +---------------------------------------------------------------+
//         |    payload; with P set its last byte counts the padding       |

#ifndef TALRTP_SRC_WIRE_PACKETLAYOUT_H
#define TALRTP_SRC_WIRE_PACKETLAYOUT_H

#include "wire/ByteOrder.h"

namespace talrtp {

constexpr int kFlagsOffset = 0;
constexpr int kMarkerAndTypeOffset = 1;
constexpr int kSequenceNumberOffset = 2;
constexpr int kTimestampOffset = 4;
constexpr int kSyncSourceOffset = 8;
constexpr int kFixedHeaderSize = 12;

constexpr int kVersionShift = 6;
constexpr unsigned int kVersionMask = 0x03;  // after the shift
constexpr unsigned int kVersion = 2;
constexpr unsigned char kPaddingMask = 0x20;
constexpr unsigned char kExtensionMask = 0x10;
constexpr unsigned char kContribCountMask = 0x0f;
constexpr unsigned char kMarkerMask = 0x80;
constexpr unsigned char kPayloadTypeMask = 0x7f;

constexpr int kContribSourceSize = 4;
constexpr int kMaxContribSources = 15;

// The extension, counted from its own start after the CSRC list.
constexpr int kExtensionProfileOffset = 0;
constexpr int kExtensionLengthOffset = 2;
constexpr int kExtensionHeaderSize = 4;
constexpr int kWordSize = 4;

// XOR FEC header, RFC 2733, 3.3, counted from the start of the payload, which is always byte 12 of the
// packet:
//
//   byte   0                   1                   2                   3
//          0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1
//         +-------------------------------+-------------------------------+
//     0   |            SN base            |        length recovery        |
//         +-+-------------+---------------+-------------------------------+
//     4   |E| PT recovery |                     mask                      |
//         +-+-------------+-----------------------------------------------+
//     8   |                          TS recovery                          |
//         +---------------------------------------------------------------+
//    12   |                            parity                             |
constexpr int kFecBaseOffset = 0;
constexpr int kFecLengthOffset = 2;
constexpr int kFecExtensionAndTypeOffset = 4;
constexpr int kFecMaskWordOffset = 4;  // the mask is the low bits of the word that E and PT recovery open
constexpr int kFecTimestampOffset = 8;
constexpr int kFecHeaderSize = 12;

constexpr unsigned char kFecExtensionMask = 0x80;
constexpr unsigned char kFecPayloadTypeMask = 0x7f;
constexpr unsigned int kFecMaskBits = 24;  // how many packets the mask covers
constexpr unsigned int kFecMaskMask = (1u << kFecMaskBits) - 1;
constexpr unsigned int kFecFirstPacketMask = 1u
                                             << (kFecMaskBits - 1);  // of the packet with the number SN base

// Reed-Solomon FEC header, counted from the start of the payload:
//
//   byte   0                   1                   2                   3
//          0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1
//         +-------------------------------+-------------------------------+
//     0   |            SN base            |        recover length         |
//         +---------------+---------------+---------------+---------------+
//     4   |     index     |     count     |     mask      |   reserved    |
//         +---------------+---------------+---------------+---------------+
//     8   |                         parity block                          |
constexpr int kRsBaseOffset = 0;
constexpr int kRsLengthOffset = 2;
constexpr int kRsIndexOffset = 4;
constexpr int kRsCountOffset = 5;
constexpr int kRsMaskOffset = 6;
constexpr int kRsHeaderSize = 8;

// The bytes after the recorded capacity of every packet buffer: the longest fixed part that is read without
// a length check. They read as zero, and so do as many bytes directly after a received packet. So accessors
// need no length: header fields that a forged packet claims beyond its end are 0.
constexpr int kSpareSize =
    kFixedHeaderSize + kMaxContribSources * kContribSourceSize + kExtensionHeaderSize + kFecHeaderSize;
static_assert(kSpareSize == 88, "documented in TalRtpPacket.h");

// The smallest capacity of a packet that is made from bytes or from another packet.
constexpr int kMinCopyCapacity = 1300;

inline bool readFlag(const unsigned char* field, unsigned char mask) {
    return (*field & mask) != 0;
}
inline void writeFlag(unsigned char* field, unsigned char mask, bool flag) {
    *field = static_cast<unsigned char>(flag ? *field | mask : *field & ~mask);
}

inline unsigned int readVersion(const unsigned char* packet) {
    return packet[kFlagsOffset] >> kVersionShift;
}
inline bool readPadFlag(const unsigned char* packet) {
    return readFlag(packet + kFlagsOffset, kPaddingMask);
}
inline bool readExtensionFlag(const unsigned char* packet) {
    return readFlag(packet + kFlagsOffset, kExtensionMask);
}
inline int readContribCount(const unsigned char* packet) {
    return packet[kFlagsOffset] & kContribCountMask;
}
inline bool readMarkerFlag(const unsigned char* packet) {
    return readFlag(packet + kMarkerAndTypeOffset, kMarkerMask);
}
inline unsigned int readPayloadType(const unsigned char* packet) {
    return packet[kMarkerAndTypeOffset] & kPayloadTypeMask;
}
inline std::uint16_t readSequenceNumber(const unsigned char* packet) {
    return loadBig16(packet + kSequenceNumberOffset);
}
inline std::uint32_t readTimestamp(const unsigned char* packet) {
    return loadBig32(packet + kTimestampOffset);
}
inline std::uint32_t readSyncSource(const unsigned char* packet) {
    return loadBig32(packet + kSyncSourceOffset);
}

// Where the extension starts when there is one, and otherwise the payload: after the CSRC list.
inline int extensionOffset(const unsigned char* packet) {
    return kFixedHeaderSize + kContribSourceSize * readContribCount(packet);
}
inline std::uint16_t readExtensionProfile(const unsigned char* packet) {
    return loadBig16(packet + extensionOffset(packet) + kExtensionProfileOffset);
}
// The bytes of extension data that the extension's header claims, without that header.
inline int readExtensionSize(const unsigned char* packet) {
    return kWordSize * loadBig16(packet + extensionOffset(packet) + kExtensionLengthOffset);
}

// Compatibility: the extension's part of the header size is 16 bits wide, so 16383 words add 0 bytes. Hosts
// and peers compute it so; every offset after the header depends on it.
inline int readHeaderSize(const unsigned char* packet) {
    const int listEnd = extensionOffset(packet);
    if (!readExtensionFlag(packet)) {
        return listEnd;
    }
    return listEnd + static_cast<std::uint16_t>(readExtensionSize(packet) + kExtensionHeaderSize);
}

}  // namespace talrtp

#endif  // TALRTP_SRC_WIRE_PACKETLAYOUT_H
