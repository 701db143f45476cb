// A packet length as the Reed-Solomon codec protects it.

#ifndef TALRTP_SRC_FEC_RSLENGTH_H
#define TALRTP_SRC_FEC_RSLENGTH_H

#include <talrtp/TalRtpDefs.h>

namespace talrtp {

// A length as a block of 4 bytes, least significant byte first, and its parity. Only the low two bytes of a
// parity word go on the wire.
struct stLengthWord {
    unsigned char bytes[4];

    void set(_uint32_t length) {
        for (int i = 0; i < 4; ++i) {
            bytes[i] = static_cast<unsigned char>(length >> (8 * i));
        }
    }
    _int32_t get() const {
        _uint32_t length = 0;
        for (int i = 0; i < 4; ++i) {
            length |= static_cast<_uint32_t>(bytes[i]) << (8 * i);
        }
        return static_cast<_int32_t>(length);
    }
};

}  // namespace talrtp

#endif  // TALRTP_SRC_FEC_RSLENGTH_H
