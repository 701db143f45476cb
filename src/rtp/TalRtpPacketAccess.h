// What the library's own code may do to a packet object beside the public operations, to save work that
// nobody could observe.

#ifndef TALRTP_SRC_TALRTPPACKETACCESS_H
#define TALRTP_SRC_TALRTPPACKETACCESS_H

#include <talrtp/TalRtpPacket.h>

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

    // Raises the recorded capacity to `capacity`; the allocation is known to hold it.
    static void growTo(CTalRtpPacket& packet, int capacity) {
        packet.m_bufferSize = packet.m_bufferSize < capacity ? capacity : packet.m_bufferSize;
    }

    // Does what `reset` does, but zeroes only the RTP header and `headerSize` bytes behind it. The caller
    // writes what follows and ends with `finish`.
    static void begin(CTalRtpPacket& packet, int headerSize) {
        packet.m_payloadSize = 0;
        packet.m_packetSize = 0;
        packet.m_packetType = PACKET_TYPE_PLAIN;
        std::memset(packet.m_buffer, 0, static_cast<std::size_t>(kFixedHeaderSize + headerSize));
        packet.set_version(kVersion);
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
