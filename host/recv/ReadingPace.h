// When to read a stream again: as soon as something arrives, or, while datagrams arrive faster than it pays
// to wake up for each, after a rest in which more arrive.

#ifndef TALRTP_HOST_RECV_READINGPACE_H
#define TALRTP_HOST_RECV_READINGPACE_H

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace talrtp::host {

class CReadingPace {
public:
    // `bufferBytes`: the receive buffer of the socket, the smaller one of two.
    explicit CReadingPace(int bufferBytes)
        : m_rest(std::min(kLongestRest, std::chrono::microseconds(bufferBytes / (2 * kFastestBytes)))) {}

    std::chrono::microseconds rest() const { return m_rest; }

    // Whether to rest after a round of so many datagrams, which began that long after the one before it.
    static bool isRestDue(std::chrono::nanoseconds sinceLastRound, std::int64_t datagrams) {
        return sinceLastRound < datagrams * kFastSpacing && datagrams < kFullRound;
    }

private:
    // While datagrams arrive faster than this, one after the other, many are read together: to wake up for
    // each costs more than to read it.
    static constexpr std::chrono::microseconds kFastSpacing{250};
    // They wait in their sockets no longer than this, and than a stream of 1 Gbit/s, in bytes per
    // microsecond, needs to fill half a socket.
    static constexpr std::chrono::microseconds kLongestRest{4000};
    static constexpr int kFastestBytes = 125;
    // So many datagrams in one round show a stream that is faster, which is read without a rest.
    static constexpr std::int64_t kFullRound = 128;

    std::chrono::microseconds m_rest;
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_RECV_READINGPACE_H
