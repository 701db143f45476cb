// Packets and datagrams written field by field, so that no test believes what the library wrote.

#ifndef TALRTP_TESTS_DATAGRAMS_H
#define TALRTP_TESTS_DATAGRAMS_H

#include <vector>

#include "Bytes.h"

namespace talrtp {
namespace test {

constexpr unsigned int kPeerId = 0x11223344;  // SSRC of what the sessions under test receive
constexpr unsigned char kMediaType = 98;
constexpr unsigned char kFecType = 111;
constexpr unsigned int kTimestamp = 90000;

// An RTP datagram (RFC 3550, 5.1) without padding, extension or CSRCs; the marker bit is clear.
inline Bytes rtp(unsigned short seq, unsigned int timestamp, const Bytes& payload,
                 unsigned char payloadType = kMediaType) {
    return join({{0x80, payloadType}, word16(seq), word32(timestamp), word32(kPeerId), payload});
}

// A small single NAL unit that tells its packet's number.
inline Bytes unitOf(unsigned short seq) {
    return join({{0x41}, word16(seq), {0xa5}});
}

// A NAL unit as the sink gets it.
inline Bytes inByteStream(const Bytes& unit) {
    return join({{0x00, 0x00, 0x00, 0x01}, unit});
}

// A STAP-A payload (RFC 6184, 5.7.1) with the header 0x78: NRI 3, type 24.
inline Bytes aggregation(const std::vector<Bytes>& units) {
    Bytes result = {0x78};
    for (const Bytes& unit : units) {
        result = join({result, word16(static_cast<unsigned int>(unit.size())), unit});
    }
    return result;
}

constexpr unsigned char kStart = 0x80;
constexpr unsigned char kMiddle = 0x00;
constexpr unsigned char kEnd = 0x40;

// A FU-A payload (RFC 6184, 5.8) of a NAL unit with the header 0x65: NRI 3, type 5.
inline Bytes fragment(unsigned char flags, const Bytes& data) {
    return join({{0x7c, static_cast<unsigned char>(flags | 5)}, data});
}

// The fields of an XOR FEC datagram. Those that are not set are 0.
struct XorFec {
    unsigned short seq = 0;
    unsigned int timestamp = kTimestamp;
    unsigned char recoveredBits = 0;  // P, X and CC in the places of byte 0
    bool marker = false;
    unsigned short base = 0;
    unsigned short length = 0;
    unsigned char payloadType = 0;
    unsigned int mask = 0;
    unsigned int recoveredTimestamp = 0;
    Bytes parity;

    Bytes bytes() const {
        return join({{static_cast<unsigned char>(0x80 | recoveredBits),
                      static_cast<unsigned char>(kFecType | (marker ? 0x80 : 0))},
                     word16(seq),
                     word32(timestamp),
                     word32(kPeerId),
                     word16(base),
                     word16(length),
                     {payloadType, static_cast<unsigned char>(mask >> 16)},
                     word16(mask & 0xffff),
                     word32(recoveredTimestamp),
                     parity});
    }
};

// The fields of a Reed-Solomon FEC datagram.
struct RsFecFields {
    unsigned short seq = 0;
    unsigned int timestamp = kTimestamp;
    unsigned short base = 0;
    unsigned short length = 0;
    unsigned char index = 0;
    unsigned char count = 0;
    unsigned char mediaCount = 0;
    Bytes parity;

    Bytes bytes() const {
        return join({{0x80, kFecType},
                     word16(seq),
                     word32(timestamp),
                     word32(kPeerId),
                     word16(base),
                     word16(length),
                     {index, count, mediaCount, 0x00},
                     parity});
    }
};

}  // namespace test
}  // namespace talrtp

#endif  // TALRTP_TESTS_DATAGRAMS_H
