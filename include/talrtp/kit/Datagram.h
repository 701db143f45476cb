// One RTP packet on its way out.

#ifndef TALRTP_KIT_DATAGRAM_H
#define TALRTP_KIT_DATAGRAM_H

#include <talrtp/kit/BytesView.h>

#include <cstdint>

namespace talrtp::kit {

// One packet to send. The sender **lends** it for the duration of the call; datagrams are passed in the order
// in which to send them.
struct Datagram {
    BytesView bytes;               // the whole RTP packet
    bool isFec = false;            // for the FEC port, where that is another one
    std::uint16_t sequence = 0;    // media and FEC packets count apart
    std::uint32_t timestamp = 0;   // RTP timestamp
    bool isLastOfPicture = false;  // the media packet with the marker bit
};

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_DATAGRAM_H
