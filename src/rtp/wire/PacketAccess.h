// Operations on a packet object that are the library's own. They save work that nobody could observe.

#ifndef TALRTP_SRC_WIRE_PACKETACCESS_H
#define TALRTP_SRC_WIRE_PACKETACCESS_H

#include <talrtp/TalRtpFecPacket.h>
#include <talrtp/TalRtpPacket.h>

#include <cstring>
#include <limits>
#include <typeinfo>

#include "wire/PacketLayout.h"

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

    // How many times a packet got another buffer, or less or more of its own, on this thread so far.
    static unsigned int replacedBuffers();

    // The values that the getters return, without a call.
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

    // Writes all of the fixed header: version 2, the marker bit or none, and no padding, extension or CSRC.
    static void writeHeader(CTalRtpPacket& packet, unsigned int markerBit, unsigned int payloadType,
                            _uint16_t sequenceNumber, _uint32_t timestamp, _uint32_t ssrc) {
        if (__builtin_expect(payloadType > kPayloadTypeMask, 0)) {
            packet.set_payload_type(payloadType);  // asserts the range
        }
        unsigned char* const header = packet.m_buffer;
        const unsigned int flags = kVersion << kVersionShift;
        storeBig32(header + kFlagsOffset, flags << 24 | (markerBit | payloadType) << 16 | sequenceNumber);
        storeBig32(header + kTimestampOffset, timestamp);
        storeBig32(header + kSyncSourceOffset, ssrc);
    }

    // Sets the payload size of a packet of which only the fixed header was written, and returns where the
    // payload goes. Zeroes everything else after the fixed header, and the first `zeroed` bytes of the
    // payload. `Expected` is the class that the packet is likely to be of.
    template <typename Expected>
    static unsigned char* beginPayload(Expected& packet, int size, int zeroed = 0) {
        if (__builtin_expect(isStock(packet) && zeroed <= size, 1)) {
            packet.m_payloadSize = size;
            packet.m_packetSize = kFixedHeaderSize + size;
            zeroFrom(packet, packet.m_packetSize);
            unsigned char* const payload = packet.m_buffer + kFixedHeaderSize;
            std::memset(payload, 0, static_cast<std::size_t>(zeroed));
            return payload;
        }
        // A host's class may read its header size from these bytes. It finds them as in a packet that was
        // reset.
        zeroFrom(packet, kFixedHeaderSize);
        packet.set_payload_size(size);
        return payload(packet);
    }
    static constexpr int kWholePayload = std::numeric_limits<int>::max();  // as many zeroes as there is room

private:
    // Tells whether the packet's class is one of the library's, whose header size is known for a packet with
    // nothing but a fixed header. A class derived by a host may compute its own. The class that the caller
    // expects is compared first.
    template <typename Expected>
    static bool isStock(const Expected& packet) {
        const std::type_info& type = typeid(packet);
        return type == typeid(Expected) || type == typeid(CTalRtpPacket) || type == typeid(CRTPFECPacket) ||
               type == typeid(CRTPRSPacket);
    }

    // Zeroes the capacity from byte `begin` on.
    static void zeroFrom(CTalRtpPacket& packet, int begin) {
        if (begin < packet.m_bufferSize) {
            std::memset(packet.m_buffer + begin, 0, static_cast<std::size_t>(packet.m_bufferSize - begin));
        }
    }
};

}  // namespace talrtp

#endif  // TALRTP_SRC_WIRE_PACKETACCESS_H
