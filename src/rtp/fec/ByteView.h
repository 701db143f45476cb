// Bytes that the arithmetic of forward error correction reads.

#ifndef TALRTP_SRC_FEC_BYTEVIEW_H
#define TALRTP_SRC_FEC_BYTEVIEW_H

#include "wire/PacketLayout.h"

namespace talrtp {

// A whole packet, RTP header included, or a block of a code. **Borrowed.**
struct stByteView {
    const unsigned char* data;
    int size;

    // The size of a packet without its fixed header; negative when the header is cut short.
    int bodySize() const { return size - kFixedHeaderSize; }
};

}  // namespace talrtp

#endif  // TALRTP_SRC_FEC_BYTEVIEW_H
