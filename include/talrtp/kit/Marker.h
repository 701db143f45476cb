// The marker bit where receivers look for it: on the last packet of a picture (RFC 6184, 5.1). A session sets
// it on every packet but on fragments before a unit's last, since it does not know where a picture ends.

#ifndef TALRTP_KIT_MARKER_H
#define TALRTP_KIT_MARKER_H

#include <talrtp/TalRtpPacket.h>

#include <cstddef>

namespace talrtp::kit {

// Sets the marker on the last of the `count` packets of one picture, in sending order, and clears it on the
// others. **Borrows** the array; null only with a count of 0. Call it before FEC is made over the packets:
// FEC protects the marker as it finds it.
inline void setMarkerOnLastPacket(CTalRtpPacket* packets, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        packets[i].set_marker_flag(i + 1 == count);
    }
}

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_MARKER_H
