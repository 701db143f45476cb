#include "Handover.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "wire/PacketAccess.h"

namespace talrtp {

CHandoverBuffer::~CHandoverBuffer() {
    std::free(m_bytes);
}

unsigned char* CHandoverBuffer::take(std::size_t& size) {
    constexpr std::size_t kShare = 4;
    m_isNeeded |= size > m_size / kShare;
    unsigned char* bytes = m_bytes;
    if (bytes == nullptr || m_size < size) {
        std::free(bytes);
        bytes = static_cast<unsigned char*>(std::malloc(size));
        m_size = bytes != nullptr ? size : 0;
    } else {
        size = m_size;
    }
    m_bytes = nullptr;
    return bytes;
}

void CHandoverBuffer::give(unsigned char* bytes, std::size_t size) {
    std::free(m_bytes);
    m_bytes = bytes;
    m_size = size;
}

void CHandoverBuffer::ageLarge(_uint64_t now, _uint64_t keptFor) {
    if (m_isNeeded) {
        m_isNeeded = false;
        m_neededAt = now;
    } else if (m_bytes != nullptr && now - m_neededAt > keptFor) {
        std::free(m_bytes);
        m_bytes = nullptr;
        m_size = 0;
    }
}

namespace {

std::size_t bytesFor(int capacity, int headerSize, int payloadSize) {
    return static_cast<std::size_t>(std::max(capacity, headerSize + kExtensionHeaderSize + payloadSize) +
                                    kSpareSize);
}

}  // namespace

CHandover::CHandover(CHandoverBuffer& lender, const CTalRtpPacket& received, int capacity, int payloadSize)
    : m_lender(lender),
      m_size(bytesFor(capacity, received.get_header_size(), payloadSize)),
      m_packet(CPacketAccess::adopt(lender.take(m_size), capacity)),
      m_isReady(m_packet.get_buffer() != nullptr),
      m_replacedBefore(CPacketAccess::replacedBuffers()) {
    if (!m_isReady) {
        return;
    }
    const std::size_t headerSize = static_cast<std::size_t>(received.get_header_size());
    std::memcpy(m_packet.get_buffer(), received.get_buffer(), headerSize);
    std::memset(m_packet.get_buffer() + headerSize, 0, kExtensionHeaderSize);
    CPacketAccess::growTo(m_packet, m_packet.get_header_size() + payloadSize);
}

CHandover::~CHandover() {
    if (!m_isReady) {
        return;
    }
    // The sink may have reallocated the buffer, possibly at the same address and to the same capacity. Only
    // the recorded capacity is known to be allocated then.
    if (CPacketAccess::replacedBuffers() != m_replacedBefore) {
        m_size = static_cast<std::size_t>(m_packet.get_buffer_size());
    }
    m_lender.give(CPacketAccess::disown(m_packet), m_size);
}

void CHandover::zeroBehind(int payloadSize) {
    unsigned char* const end = m_packet.get_payload_ptr() + payloadSize;
    unsigned char* const bufferEnd = m_packet.get_buffer() + m_packet.get_buffer_size() + kSpareSize;
    std::memset(end, 0, static_cast<std::size_t>(bufferEnd - end));
}

}  // namespace talrtp
