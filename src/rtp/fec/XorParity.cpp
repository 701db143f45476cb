#include "fec/XorParity.h"

#include <cstddef>

#include "kernels/XorKernel.h"

namespace talrtp {

// XORs the first `count` bodies into the parity.
void CXorParity::flush(int count) {
    if (!m_isBegun) {
        xorMany(m_area, m_bodies, m_sizes, count, m_areaSize);
        m_isBegun = true;
        return;
    }
    for (int i = 0; i < count; ++i) {
        if (m_sizes[i] > 0) {
            xorBlocks(m_area, m_area, m_bodies[i], static_cast<std::size_t>(m_sizes[i]));
        }
    }
}

void CXorParity::finish(unsigned char* packet) {
    flush(m_count);
    unsigned char header[sizeof m_fields.header];
    std::memcpy(header, &m_fields.header, sizeof header);
    constexpr unsigned char kFlags = kPaddingMask | kExtensionMask | kContribCountMask;
    packet[kFlagsOffset] |= header[kFlagsOffset] & kFlags;
    packet[kMarkerAndTypeOffset] |= header[kMarkerAndTypeOffset] & kMarkerMask;
    unsigned char* const fecHeader = packet + kFixedHeaderSize;
    storeBig16(fecHeader + kFecBaseOffset, m_baseSeq);
    storeBig16(fecHeader + kFecLengthOffset, static_cast<std::uint16_t>(m_fields.length));
    storeBig32(fecHeader + kFecMaskWordOffset, readPayloadType(header) << kFecMaskBits | m_fields.mask);
    storeBig32(fecHeader + kFecTimestampOffset, readTimestamp(header));
}

}  // namespace talrtp
