// RTP timestamps and NTP timestamps of the host's steady clock, and RTP timestamps of pictures at a constant
// rate. All arithmetic is exact: there is no drift however long a stream runs.

#ifndef TALRTP_KIT_MEDIACLOCK_H
#define TALRTP_KIT_MEDIACLOCK_H

#include <talrtp/kit/Failure.h>
#include <talrtp/kit/Time.h>

#include <chrono>
#include <cstdint>

namespace talrtp::kit {

constexpr std::uint32_t kVideoClockRate = 90000;  // of H.264 (RFC 6184, 8.2.1)

// Converts between the steady clock, RTP timestamps and NTP timestamps.
class MediaClock {
public:
    // At `start`, the wall clock reads `wall` and the RTP timestamp is `firstTimestamp`, which is to be
    // random (RFC 3550, 5.1). `clockRate`: RTP timestamps per second, above 0.
    MediaClock(TimePoint start, std::chrono::system_clock::time_point wall, std::uint32_t firstTimestamp,
               std::uint32_t clockRate = kVideoClockRate)
        : m_start(start), m_wall(wall), m_firstTimestamp(firstTimestamp), m_clockRate(clockRate) {
        refuseUnlessEmpty(clockRate > 0 ? "" : "a clock rate is above 0");
    }

    // Returns the RTP timestamp at `time`, rounded down. It wraps around; times before the start are fine.
    std::uint32_t timestampAt(TimePoint time) const {
        const Split since = split(time - m_start);
        const std::int64_t ticks = since.nanoseconds * std::int64_t{m_clockRate} / kNanosecondsPerSecond;
        const std::uint64_t whole = static_cast<std::uint64_t>(since.seconds) * m_clockRate;
        return m_firstTimestamp + static_cast<std::uint32_t>(whole + static_cast<std::uint64_t>(ticks));
    }

    // Returns the NTP timestamp at `time` (RFC 3550, 4), rounded down: seconds since 1900 in the upper 32
    // bits, which wrap around in 2036, and the fraction of a second in the lower ones.
    std::uint64_t ntpAt(TimePoint time) const {
        constexpr std::int64_t kFrom1900To1970 = 2208988800;
        const Split wall = split(m_wall.time_since_epoch());
        const Split since = split(time - m_start);
        const std::int64_t nanoseconds = wall.nanoseconds + since.nanoseconds;
        const std::int64_t carry = nanoseconds / kNanosecondsPerSecond;
        const std::uint64_t rest = static_cast<std::uint64_t>(nanoseconds % kNanosecondsPerSecond);
        const std::int64_t seconds = wall.seconds + since.seconds + carry + kFrom1900To1970;
        const std::uint64_t fraction = (rest << 32) / static_cast<std::uint64_t>(kNanosecondsPerSecond);
        return static_cast<std::uint64_t>(seconds) << 32 | fraction;
    }

    // Returns the timestamp units per second.
    std::uint32_t clockRate() const { return m_clockRate; }

private:
    static constexpr std::int64_t kNanosecondsPerSecond = 1000000000;

    // Whole seconds, negative before the start, and the nanoseconds from there, 0 to 999999999.
    struct Split {
        std::int64_t seconds;
        std::int64_t nanoseconds;
    };

    template <typename Period>
    static Split split(Period time) {
        const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
        const auto rest = std::chrono::duration_cast<std::chrono::nanoseconds>(time - seconds);
        return {seconds.count(), rest.count()};
    }

    TimePoint m_start;
    std::chrono::system_clock::time_point m_wall;
    std::uint32_t m_firstTimestamp;
    std::uint32_t m_clockRate;
};

// Pictures per second as a fraction, such as 30000 / 1001. Both above 0.
struct FrameRate {
    std::uint32_t numerator = 30;   // pictures in `denominator` seconds
    std::uint32_t denominator = 1;  // seconds; not 0

    // Returns the rate as a number.
    double perSecond() const { return static_cast<double>(numerator) / static_cast<double>(denominator); }
};

// Returns how many units of the RTP clock lie between the first picture and picture `index`, counted from 0,
// rounded down, modulo 2^32. Add it to the first timestamp.
constexpr std::uint32_t ticksOfPicture(std::uint64_t index, FrameRate rate,
                                       std::uint32_t clockRate = kVideoClockRate) {
    // index * clockRate * denominator / numerator, in parts that fit 64 bits or may wrap around.
    const std::uint64_t step = std::uint64_t{clockRate} * rate.denominator;
    const std::uint64_t rounds = index / rate.numerator;
    const std::uint64_t rest = index % rate.numerator;
    const std::uint64_t whole = step / rate.numerator;
    const std::uint64_t part = step % rate.numerator;
    return static_cast<std::uint32_t>(rounds * step + rest * whole + rest * part / rate.numerator);
}

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_MEDIACLOCK_H
