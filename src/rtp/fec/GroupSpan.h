// The numbers that an FEC packet states for its whole group, from the headers of the media packets.

#ifndef TALRTP_SRC_FEC_GROUPSPAN_H
#define TALRTP_SRC_FEC_GROUPSPAN_H

#include <algorithm>
#include <cstdint>

#include "fec/ByteView.h"

namespace talrtp {

// Numbers and timestamps are ordered across the wrap-around (RFC 3550, A.1). A value exactly half the range
// ahead counts as later.
struct stGroupSpan {
    int count = 0;
    std::uint16_t lowestSeq = 0;
    std::uint16_t highestSeq = 0;
    std::uint32_t latestTimestamp = 0;
    int largestSize = 0;  // of a whole packet

    void add(const stByteView& packet) {
        const std::uint16_t seq = readSequenceNumber(packet.data);
        const std::uint32_t timestamp = readTimestamp(packet.data);
        const bool isFirst = count++ == 0;
        if (isFirst || static_cast<std::uint16_t>(seq - lowestSeq) > kHalfOfNumbers) {
            lowestSeq = seq;
        }
        if (isFirst || isAhead(static_cast<std::uint16_t>(seq - highestSeq), kHalfOfNumbers)) {
            highestSeq = seq;
        }
        if (isFirst || isAhead(timestamp - latestTimestamp, kHalfOfTimestamps)) {
            latestTimestamp = timestamp;
        }
        largestSize = isFirst ? packet.size : std::max(largestSize, packet.size);
    }

    // Tells whether the lowest and the highest number are as far apart as those of consecutive packets.
    bool isConsecutive() const { return static_cast<std::uint16_t>(highestSeq - lowestSeq) + 1 == count; }

private:
    static constexpr std::uint32_t kHalfOfNumbers = 0x8000;
    static constexpr std::uint32_t kHalfOfTimestamps = 0x80000000;

    static bool isAhead(std::uint32_t distance, std::uint32_t half) {
        return distance != 0 && distance <= half;
    }
};

}  // namespace talrtp

#endif  // TALRTP_SRC_FEC_GROUPSPAN_H
