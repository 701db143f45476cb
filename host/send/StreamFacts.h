// Facts about a stream that its parameter sets tell.

#ifndef TALRTP_HOST_SEND_STREAMFACTS_H
#define TALRTP_HOST_SEND_STREAMFACTS_H

#include <talrtp/kit/BytesView.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace talrtp::host {

struct StreamFacts {
    std::optional<double> fps;                             // by the timing of the VUI
    std::vector<std::vector<std::uint8_t>> parameterSets;  // sequence and picture parameter sets
};

// Returns the facts in the units of a picture.
StreamFacts factsOf(const std::vector<kit::BytesView>& units);

}  // namespace talrtp::host

#endif  // TALRTP_HOST_SEND_STREAMFACTS_H
