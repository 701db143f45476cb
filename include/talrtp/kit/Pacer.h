// When to send the next datagram of a burst: a token bucket over bytes.
//
//   const kit::TimePoint at = pacer.next(now, datagram.bytes.size());
//   ... wait until `at`, then send
//
// The bucket holds `depthBytes` and fills at the rate given. A datagram takes its bytes out and leaves as
// soon as they are there. After a pause, `depthBytes` leave at once; on the whole, no more than the rate.

#ifndef TALRTP_KIT_PACER_H
#define TALRTP_KIT_PACER_H

#include <talrtp/kit/Failure.h>
#include <talrtp/kit/Time.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>

namespace talrtp::kit {

// Spreads datagrams over time, so that a burst does not overflow a queue on the way.
class Pacer {
public:
    // `bitsPerSecond`: 1 or more, finite. `depthBytes`: the largest burst; with 0 each datagram waits until
    // the one before it has left at the rate. Throws `std::invalid_argument` for another rate; without
    // exceptions, prints it and aborts.
    Pacer(double bitsPerSecond, std::size_t depthBytes) : m_bitsPerSecond(bitsPerSecond) {
        const bool isRate = std::isfinite(bitsPerSecond) && bitsPerSecond >= 1;
        refuseUnlessEmpty(isRate ? "" : "a pacer takes a rate of 1 bit per second or more");
        m_depth = ticksFor(depthBytes);
    }

    // Books a datagram of `bytes` and returns when it may leave: `now`, or later. Call it once for each
    // datagram, in the order of sending. A datagram beyond the depth waits for a full bucket.
    TimePoint next(TimePoint now, std::size_t bytes) {
        const double cost = ticksFor(bytes);
        if (!m_isBegun || m_full < now) {
            m_isBegun = true;
            m_full = now;
            m_fraction = 0;
        }
        const TimePoint enough = m_full + whole(std::min(cost, m_depth) - m_depth + m_fraction);
        book(cost);
        return std::max(now, enough);
    }

private:
    using Ticks = std::chrono::duration<double, Duration::period>;

    // The time that `bytes` take at the rate, in units of Duration. No datagram is longer than UDP allows,
    // and a bucket that takes a year to fill is as good as any larger one.
    double ticksFor(std::size_t bytes) const {
        constexpr double kYear = 31536000;
        const double seconds = std::min(static_cast<double>(bytes) * 8 / m_bitsPerSecond, kYear);
        return Ticks(std::chrono::duration<double>(seconds)).count();
    }

    // Rounded up, so that nothing leaves too early.
    static Duration whole(double ticks) { return Duration(static_cast<Duration::rep>(std::ceil(ticks))); }

    // Moves the time at which the bucket is full. The fraction of a unit is kept, so that rounding does not
    // add up.
    void book(double cost) {
        const double sum = m_fraction + cost;
        const double units = std::floor(sum);
        m_full += Duration(static_cast<Duration::rep>(units));
        m_fraction = sum - units;
    }

    double m_bitsPerSecond;
    double m_depth = 0;  // units of Duration in which an empty bucket fills
    bool m_isBegun = false;
    TimePoint m_full;       // when the bucket is full, but for
    double m_fraction = 0;  // this fraction of a unit
};

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_PACER_H
