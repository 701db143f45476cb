// What the library's own code may do to a packet object beside the public operations, to save work that
// nobody could observe.

#ifndef TALRTP_SRC_TALRTPPACKETACCESS_H
#define TALRTP_SRC_TALRTPPACKETACCESS_H

#include <talrtp/TalRtpPacket.h>

#include <algorithm>
#include <cstring>

#include "TalRtpPacketLayout.h"

namespace talrtp {

class CPacketAccess {
public:
    // **Returns** a packet over `buffer`, from malloc, which it **takes**. The bytes are as the caller left
    // them.
    static CTalRtpPacket adopt(unsigned char* buffer, int capacity) {
        return CTalRtpPacket(buffer, capacity, CPacketAccess());
    }
    // **Returns** the packet's buffer and leaves it without one.
    static unsigned char* disown(CTalRtpPacket& packet) {
        unsigned char* const buffer = packet.m_buffer;
        packet.m_buffer = nullptr;
        return buffer;
    }

    // What the getters return, without a call.
    static const unsigned char* buffer(const CTalRtpPacket& packet) { return packet.m_buffer; }
    static int packetSize(const CTalRtpPacket& packet) { return packet.m_packetSize; }

    // Raises the recorded capacity to `capacity`; the allocation is known to hold it.
    static void growTo(CTalRtpPacket& packet, int capacity) {
        packet.m_bufferSize = packet.m_bufferSize < capacity ? capacity : packet.m_bufferSize;
    }

    // The payload of a packet whose payload size has just been set, which asked for the header size.
    static unsigned char* payload(const CTalRtpPacket& packet) {
        return packet.m_buffer + (packet.m_packetSize - packet.m_payloadSize);
    }

    // Makes the packet's sizes and kind as new; the bytes are the caller's to write.
    static void clear(CTalRtpPacket& packet) {
        packet.m_payloadSize = 0;
        packet.m_packetSize = 0;
        packet.m_packetType = PACKET_TYPE_PLAIN;
    }

    // Writes all of the fixed header: version 2, the marker, and no padding, extension or CSRC.
    static void writeMarkedHeader(CTalRtpPacket& packet, unsigned int payloadType, _uint16_t sequenceNumber,
                                  _uint32_t timestamp, _uint32_t ssrc) {
        if (__builtin_expect(payloadType > kPayloadTypeMask, 0)) {
            packet.set_payload_type(payloadType);  // asserts the range
        }
        unsigned char* const header = packet.m_buffer;
        const unsigned int flags = kVersion << kVersionShift;
        const unsigned int markerAndType = kMarkerMask | payloadType;
        storeBig32(header + kFlagsOffset, flags << 24 | markerAndType << 16 | sequenceNumber);
        storeBig32(header + kTimestampOffset, timestamp);
        storeBig32(header + kSyncSourceOffset, ssrc);
    }

    // Sets the payload size of a packet of which only the fixed header was written, zeroes everything else
    // but the payload, and returns where that goes.
    static unsigned char* beginPayload(CTalRtpPacket& packet, int size) {
        packet.set_payload_size(size);
        if (__builtin_expect(packet.m_packetSize - size == kFixedHeaderSize, 1)) {
            finish(packet, kFixedHeaderSize + size);
            return packet.m_buffer + kFixedHeaderSize;
        }
        // A host's class with a header of its own, which may read its size from the bytes just zeroed.
        finish(packet, kFixedHeaderSize);
        packet.set_payload_size(size);
        return payload(packet);
    }

    // Does what `reset` does, but zeroes only the RTP header and `headerSize` bytes behind it. The caller
    // writes what follows and ends with `finish`.
    static void begin(CTalRtpPacket& packet, int headerSize) {
        clear(packet);
        std::memset(packet.m_buffer, 0, kFixedHeaderSize);
        packet.set_version(kVersion);
        const int rest = packet.get_header_size() + headerSize - kFixedHeaderSize;
        std::memset(packet.m_buffer + kFixedHeaderSize, 0, static_cast<std::size_t>(std::max(rest, 0)));
    }
    // Zeroes the capacity from byte `written` on.
    static void finish(CTalRtpPacket& packet, int written) {
        if (written < packet.m_bufferSize) {
            std::memset(packet.m_buffer + written, 0,
                        static_cast<std::size_t>(packet.m_bufferSize - written));
        }
    }
};

}  // namespace talrtp

#endif  // TALRTP_SRC_TALRTPPACKETACCESS_H
