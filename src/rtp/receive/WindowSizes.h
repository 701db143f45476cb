// The sizes of media packets in the window of an XOR group, for tries in a row of groups that overlap.

#ifndef TALRTP_SRC_RECEIVE_WINDOWSIZES_H
#define TALRTP_SRC_RECEIVE_WINDOWSIZES_H

#include <talrtp/TalRtpDefs.h>

#include "wire/PacketLayout.h"

namespace talrtp {

// Sums the sizes of packets up, by exclusive or. It asks for the size of a packet once, and then looks only
// at packets that were not in the sum before, or are not in it any more.
class CWindowSizes {
public:
    // Forgets all sizes, since packets may have changed.
    void forget() {
        m_asked = 0;
        m_summed = 0;
        m_sum = 0;
    }

    // Returns the sum over the packets of a window, bit 0 for packet `base`. `sizeOf` tells the size of
    // packet `base` + i.
    template <typename SizeOf>
    _uint16_t sum(_uint16_t base, _uint32_t packets, SizeOf sizeOf) {
        if (base != m_base) {
            forget();
            m_base = base;
        }
        for (_uint32_t news = packets & ~m_asked; news != 0; news &= news - 1) {
            const unsigned int i = static_cast<unsigned int>(__builtin_ctz(news));
            m_sizes[i] = static_cast<_uint16_t>(sizeOf(i));
        }
        m_asked |= packets;
        for (_uint32_t changed = packets ^ m_summed; changed != 0; changed &= changed - 1) {
            m_sum = static_cast<_uint16_t>(m_sum ^ m_sizes[__builtin_ctz(changed)]);
        }
        m_summed = packets;
        return m_sum;
    }

private:
    _uint32_t m_asked = 0;
    _uint32_t m_summed = 0;
    _uint16_t m_base = 0;
    _uint16_t m_sum = 0;
    _uint16_t m_sizes[kFecMaskBits] = {};
};

}  // namespace talrtp

#endif  // TALRTP_SRC_RECEIVE_WINDOWSIZES_H
