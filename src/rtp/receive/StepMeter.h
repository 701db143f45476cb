// Counts the work of a session, so that tests can bound its growth for each datagram.

#ifndef TALRTP_SRC_RECEIVE_STEPMETER_H
#define TALRTP_SRC_RECEIVE_STEPMETER_H

#include <talrtp/TalRtpDefs.h>

#include <cstddef>

namespace talrtp {

struct stStepMeter {
    _uint64_t steps = 0;     // over lists, stores and FEC groups
    _uint64_t products = 0;  // bytes multiplied to rebuild packets

    // Counts a search in an ordered map of `size` entries.
    void countSearch(std::size_t size) { steps += 64 - static_cast<unsigned int>(__builtin_clzll(size | 1)); }
};

}  // namespace talrtp

#endif  // TALRTP_SRC_RECEIVE_STEPMETER_H
