#include "model/PlainPacket.h"

#include <algorithm>

namespace talrtp {
namespace model {

namespace {

constexpr int kFixedHeaderSize = 12;
constexpr int kReceivedCapacity = 1300;

}  // namespace

PlainPacket PlainPacket::fromBytes(const unsigned char* data, int length, PacketKind kind) {
    PlainPacket packet;
    packet.bytes.assign(data, data + length);
    packet.kind = kind;
    packet.bufferSize = std::max(length, kReceivedCapacity);
    packet.packetSize = length;
    packet.payloadSize = length - packet.headerSize();
    return packet;
}

PlainPacket PlainPacket::ofCapacity(int bufferSize) {
    PlainPacket packet;
    packet.bytes.assign(1, 0x80);
    packet.bufferSize = bufferSize;
    return packet;
}

unsigned int PlainPacket::byteAt(int offset) const {
    return static_cast<std::size_t>(offset) < bytes.size() ? bytes[offset] : 0;
}

void PlainPacket::put(int offset, const Bytes& data) {
    const std::size_t end = offset + data.size();
    if (bytes.size() < end) {
        bytes.resize(end, 0);
    }
    std::copy(data.begin(), data.end(), bytes.begin() + offset);
}

void PlainPacket::putShort(int offset, unsigned int value) {
    put(offset, Bytes{static_cast<unsigned char>(value >> 8), static_cast<unsigned char>(value)});
}

void PlainPacket::putLong(int offset, unsigned int value) {
    putShort(offset, value >> 16);
    putShort(offset + 2, value & 0xffff);
}

int PlainPacket::headerSize() const {
    if (kind == PacketKind::kXorFec) {
        return kFixedHeaderSize;  // CC and X hold recovery values and say nothing of the packet itself
    }
    int size = kFixedHeaderSize + 4 * contribCount();
    if (extensionFlag()) {
        const unsigned int words = shortAt(size + 2);
        size += static_cast<int>((4 * words + 4) % 65536);
    }
    return size;
}

Refusal PlainPacket::refusal() const {
    if (version() != 2) {
        return Refusal::kVersion;
    }
    if (payloadType() >= 72 && payloadType() <= 76) {
        return Refusal::kReservedType;
    }
    if (packetSize < headerSize()) {
        return Refusal::kShorterThanHeader;
    }
    if (!padFlag()) {
        return Refusal::kNone;
    }
    const int padding = static_cast<int>(byteAt(packetSize - 1));
    if (padding > packetSize - headerSize()) {
        return Refusal::kPaddingTooLong;
    }
    return padding == 0 ? Refusal::kPaddingZero : Refusal::kNone;
}

unsigned int PlainPacket::payloadByte(int offset) const {
    return offset < payloadSize ? byteAt(headerSize() + offset) : 0;
}

Bytes PlainPacket::payload(int offset, int count) const {
    Bytes result;
    result.reserve(static_cast<std::size_t>(std::max(count, 0)));
    const int header = headerSize();
    for (int i = 0; i < count; ++i) {
        result.push_back(static_cast<unsigned char>(byteAt(header + offset + i)));
    }
    return result;
}

void PlainPacket::setPayloadSize(int size) {
    payloadSize = size;
    packetSize = headerSize() + size;
}

Bytes PlainPacket::head(int count) const {
    Bytes result(bytes.begin(), bytes.begin() + std::min<std::size_t>(count, bytes.size()));
    result.resize(count, 0);
    return result;
}

}  // namespace model
}  // namespace talrtp
