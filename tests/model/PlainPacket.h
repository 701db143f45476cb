// An RTP packet of the plain model: its bytes, its recorded sizes and its kind, with every field read where
// it lies on the wire. A byte beyond those received or written reads as 0.

#ifndef TALRTP_TESTS_MODEL_PLAINPACKET_H
#define TALRTP_TESTS_MODEL_PLAINPACKET_H

#include <cstddef>
#include <string>
#include <vector>

#include "Bytes.h"

namespace talrtp {
namespace model {

using test::Bytes;

enum class PacketKind { kMedia, kXorFec, kRsFec };

// Why a received packet is refused; the lines that go with it are the model's business.
enum class Refusal { kNone, kVersion, kReservedType, kShorterThanHeader, kPaddingTooLong, kPaddingZero };

struct PlainPacket {
    Bytes bytes;  // from the first byte of the buffer; what is missing at the end is zero
    int packetSize = 0;
    int payloadSize = 0;
    int bufferSize = 0;
    unsigned int packetType = 1;
    PacketKind kind = PacketKind::kMedia;

    // A packet made from `length` bytes of the network or the codec.
    static PlainPacket fromBytes(const unsigned char* data, int length, PacketKind kind);
    // A packet with nothing in it but version 2.
    static PlainPacket ofCapacity(int bufferSize);

    unsigned int byteAt(int offset) const;
    unsigned int shortAt(int offset) const { return byteAt(offset) << 8 | byteAt(offset + 1); }
    unsigned int longAt(int offset) const { return shortAt(offset) << 16 | shortAt(offset + 2); }
    void put(int offset, const Bytes& data);
    void putShort(int offset, unsigned int value);
    void putLong(int offset, unsigned int value);

    // RTP header (RFC 3550, 5.1).
    unsigned int version() const { return byteAt(0) >> 6; }
    bool padFlag() const { return (byteAt(0) & 0x20) != 0; }
    bool extensionFlag() const { return (byteAt(0) & 0x10) != 0; }
    int contribCount() const { return static_cast<int>(byteAt(0) & 0x0f); }
    bool markerFlag() const { return (byteAt(1) & 0x80) != 0; }
    unsigned int payloadType() const { return byteAt(1) & 0x7f; }
    unsigned short sequence() const { return static_cast<unsigned short>(shortAt(2)); }
    unsigned int timestamp() const { return longAt(4); }
    unsigned int syncSource() const { return longAt(8); }
    int headerSize() const;
    Refusal refusal() const;

    // Payload, by offset from its first byte; a byte beyond its end reads as 0.
    unsigned int payloadByte(int offset) const;
    unsigned int payloadShort(int offset) const { return payloadByte(offset) << 8 | payloadByte(offset + 1); }
    // `count` payload bytes from `offset` on; none for a negative count.
    Bytes payload(int offset, int count) const;
    void putPayload(int offset, const Bytes& data) { put(headerSize() + offset, data); }
    void setPayloadSize(int size);

    // The first `count` bytes of the buffer.
    Bytes head(int count) const;
};

}  // namespace model
}  // namespace talrtp

#endif  // TALRTP_TESTS_MODEL_PLAINPACKET_H
