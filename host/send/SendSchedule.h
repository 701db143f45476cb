// When each picture leaves, and its RTP timestamp.

#ifndef TALRTP_HOST_SEND_SENDSCHEDULE_H
#define TALRTP_HOST_SEND_SENDSCHEDULE_H

#include <talrtp/kit/Time.h>

#include <cmath>
#include <cstdint>

namespace talrtp::host {

class CSendSchedule {
public:
    // `fps`: pictures per second. `isLive`: the pictures come from an encoder that works in real time, so
    // that a pause of it moves everything after it.
    CSendSchedule(kit::TimePoint start, double fps, bool isLive)
        : m_begin(start), m_fps(fps), m_isLive(isLive) {}

    // Returns when the next picture is due, which may be in the past.
    kit::TimePoint nextDue() const { return m_begin + offsetOf(m_index); }

    // Notes that the next picture is there at `now`. A live input that is more than a picture late begins a
    // new count: without that, the pictures after a pause would all leave at once.
    void beginPicture(kit::TimePoint now) {
        if (m_isLive && now > nextDue() + interval()) {
            m_begin = now;
            m_index = 0;
        }
    }
    void endPicture() { ++m_index; }

    kit::Duration interval() const { return offsetOf(1); }

private:
    kit::Duration offsetOf(std::uint64_t index) const {
        const double seconds = static_cast<double>(index) / m_fps;
        return std::chrono::duration_cast<kit::Duration>(std::chrono::duration<double>(seconds));
    }

    kit::TimePoint m_begin;
    double m_fps;
    bool m_isLive;
    std::uint64_t m_index = 0;  // pictures since m_begin
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_SEND_SENDSCHEDULE_H
