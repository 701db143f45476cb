// Moves the marker bit to where receivers look for it: the last packet of a picture (RFC 6184, 5.1). A
// session sets it on every packet but on fragments before a unit's last, since it does not know where a
// picture ends.

#ifndef TALRTP_HOST_KIT_MARKERFIX_H
#define TALRTP_HOST_KIT_MARKERFIX_H

#include <talrtp/TalRtpPacket.h>

#include <cstddef>

namespace talrtp::kit {

// `packets`: an array of the `count` packets of one picture, in sending order; borrowed. To be called before
// FEC is made over them: FEC protects the marker as it finds it.
inline void markLastPacketOnly(CTalRtpPacket* packets, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        packets[i].set_marker_flag(i + 1 == count);
    }
}

}  // namespace talrtp::kit

#endif  // TALRTP_HOST_KIT_MARKERFIX_H
