// The time that a receiver's session is given.

#ifndef TALRTP_KIT_SESSIONCLOCK_H
#define TALRTP_KIT_SESSIONCLOCK_H

#include <talrtp/kit/Time.h>

#include <algorithm>
#include <chrono>
#include <cstddef>

namespace talrtp::kit {

// A clock made from the host's times that never steps back and never leaps. A host time earlier than the last
// one counts as no time at all, and a leap, such as after a suspend, as one hour.
class SteadyTime {
public:
    // Takes the host's time and **returns** the time of this clock.
    TimePoint advance(TimePoint host) {
        if (m_isFirst || host <= m_host) {
            m_isFirst = false;
        } else if (m_host < TimePoint() && host > m_host + Duration::max()) {
            m_time += kMaxLeap;  // the difference would overflow
        } else {
            m_time += std::min<Duration>(host - m_host, kMaxLeap);
        }
        m_host = host;
        return m_time;
    }

    // Returns the time of this clock.
    TimePoint now() const { return m_time; }

    // The host's time at which this clock shows `time`, which is not more than a few seconds ahead.
    TimePoint toHost(TimePoint time) const {
        const Duration ahead = std::max(time - m_time, Duration::zero());
        return m_host > TimePoint::max() - ahead ? TimePoint::max() : m_host + ahead;
    }

private:
    static constexpr std::chrono::hours kMaxLeap{1};

    bool m_isFirst = true;
    TimePoint m_host{};
    TimePoint m_time{};
};

// Milliseconds for a session. A session keeps packets for 5000 ms and knows them by 16 bits of their number:
// at more than some 13,000 packets a second it would take new packets for copies of old ones. So this clock
// advances by at least a quarter of a millisecond for each 1500 bytes, begun ones included. Then a session
// holds at most some 20,000 packets and 30 MB, at any rate. Where a stream is that fast, packets age out
// sooner than after 5 seconds; at 4,000 packets a second and less, nothing changes.
class SessionClock {
public:
    // Takes the time `now` of a datagram, from a clock that never steps back, and its size. **Returns**
    // milliseconds that never step back.
    unsigned long advance(TimePoint now, std::size_t size) {
        const std::size_t shares = size / kShareSize + 1;
        const auto least = m_time + std::chrono::microseconds(kShareTime * static_cast<std::int64_t>(shares));
        const auto real = std::chrono::duration_cast<std::chrono::microseconds>(now.time_since_epoch());
        m_time = std::max(least, real);
        return milliseconds();
    }

    // Returns the milliseconds of the last `advance`.
    unsigned long milliseconds() const { return static_cast<unsigned long>(m_time.count() / 1000); }

private:
    static constexpr std::size_t kShareSize = 1500;
    static constexpr std::int64_t kShareTime = 250;

    std::chrono::microseconds m_time{0};
};

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_SESSIONCLOCK_H
