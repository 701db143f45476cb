// A packet object as the bytes that the arithmetic of forward error correction reads.

#ifndef TALRTP_SRC_TALRTPPACKETVIEW_H
#define TALRTP_SRC_TALRTPPACKETVIEW_H

#include "fec/ByteView.h"
#include "wire/PacketAccess.h"

namespace talrtp {

// **Lends** the bytes of `packet`.
inline stByteView viewOf(const CTalRtpPacket& packet) {
    return {CPacketAccess::buffer(packet), CPacketAccess::packetSize(packet)};
}

}  // namespace talrtp

#endif  // TALRTP_SRC_TALRTPPACKETVIEW_H
