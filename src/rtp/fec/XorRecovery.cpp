#include "fec/XorRecovery.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "kernels/XorKernel.h"

namespace talrtp {

CXorRecovery::CXorRecovery(const unsigned char* fecPacket, int bodyCapacity) : m_bodyCapacity(bodyCapacity) {
    const unsigned char* const fecHeader = fecPacket + kFixedHeaderSize;
    std::memcpy(m_header, fecPacket, sizeof m_header);
    std::memcpy(m_header + kTimestampOffset, fecHeader + kFecTimestampOffset, sizeof(std::uint32_t));
    m_payloadType = fecHeader[kFecExtensionAndTypeOffset] & kFecPayloadTypeMask;
    m_length = loadBig16(fecHeader + kFecLengthOffset);
}

EXorBody CXorRecovery::addMediaPacket(const stByteView& packet, unsigned int kind) {
    for (std::size_t i = 0; i < sizeof m_header; ++i) {
        m_header[i] = static_cast<unsigned char>(m_header[i] ^ packet.data[i]);
    }
    m_payloadType = static_cast<std::uint8_t>(m_payloadType ^ kind);
    m_length = static_cast<std::uint16_t>(m_length ^ packet.bodySize());
    return addBody(packet.data + kFixedHeaderSize, packet.bodySize());
}

EXorBody CXorRecovery::addBody(const unsigned char* body, int size) {
    m_bodies[m_bodyCount] = body;
    m_sizes[m_bodyCount++] = std::min(size, m_bodyCapacity);
    return size > m_bodyCapacity ? EXorBody::kCut : EXorBody::kWhole;
}

bool CXorRecovery::isPlausible() const {
    return m_length <= m_bodyCapacity && m_length + kFixedHeaderSize >= headerSize();
}

// The size that the packet's own header will state. The length of an extension lies in the bodies.
int CXorRecovery::headerSize() const {
    unsigned char header[kSpareSize] = {};
    header[kFlagsOffset] = m_header[kFlagsOffset];
    const int offset = extensionOffset(header) + kExtensionLengthOffset;
    header[offset] = bodyByte(offset - kFixedHeaderSize);
    header[offset + 1] = bodyByte(offset - kFixedHeaderSize + 1);
    return readHeaderSize(header);
}

unsigned char CXorRecovery::bodyByte(int offset) const {
    unsigned char byte = 0;
    for (int i = 0; i < m_bodyCount; ++i) {
        byte = static_cast<unsigned char>(byte ^ (offset < m_sizes[i] ? m_bodies[i][offset] : 0));
    }
    return byte;
}

void CXorRecovery::writeTo(unsigned char* packet, std::uint16_t seq, std::uint32_t ssrc) const {
    constexpr unsigned char kFlags = kPaddingMask | kExtensionMask | kContribCountMask;
    packet[kFlagsOffset] =
        static_cast<unsigned char>(kVersion << kVersionShift | (m_header[kFlagsOffset] & kFlags));
    packet[kMarkerAndTypeOffset] = m_header[kMarkerAndTypeOffset] & kMarkerMask;
    storeBig16(packet + kSequenceNumberOffset, seq);
    std::memcpy(packet + kTimestampOffset, m_header + kTimestampOffset, sizeof(std::uint32_t));
    storeBig32(packet + kSyncSourceOffset, ssrc);
    xorMany(packet + kFixedHeaderSize, m_bodies, m_sizes, m_bodyCount, m_bodyCapacity);
}

}  // namespace talrtp
