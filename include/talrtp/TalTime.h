// Time for hosts: a wall-clock value in seconds and microseconds that converts to and from the fraction of an
// NTP timestamp (RFC 5905, 6), and a stopwatch that can pause.
//
// The library itself takes time from the host as milliseconds and reads the clock only to seed `random32`.
// Both classes here read it with `gettimeofday`. Nothing throws, nothing locks; one thread per object.

#ifndef TALRTP_TALTIME_H
#define TALRTP_TALTIME_H

#include <talrtp/TalRtpDefs.h>

namespace talrtp {

// A point in time, or a span. Values are not kept normalised: the microseconds may reach 1000000 or more, and
// the comparisons normalise both sides. The virtual destructor and the order of the data members are binary
// interface.
class TALRTP_API _time_t {
public:
    // Makes 0 s, 0 us.
    _time_t();
    _time_t(const _time_t& other);
    // Makes the value of `sec` seconds and `usec` microseconds, as they are.
    _time_t(unsigned long sec, unsigned long usec);
    virtual ~_time_t();

    // Copies both fields. Returns this.
    _time_t& operator=(const _time_t& other);

    // Returns the seconds, as they are kept.
    unsigned long getsecond() const;
    // Returns the microseconds, as they are kept: 1000000 or more is possible.
    unsigned long getusecond() const;

    // Returns the whole microseconds in `frac` units of 2^-32 s.
    static unsigned long frac2usec(unsigned long frac);
    // Returns the whole units of 2^-32 s in `usec` microseconds.
    static unsigned long usec2frac(unsigned long usec);
    // Returns the microseconds in units of 2^-32 s, the fraction of an NTP timestamp.
    unsigned long getfraction() const;

    // Sets seconds and microseconds, as they are.
    void set_by_sec_usec(unsigned long sec, unsigned long usec);
    // Sets the seconds, and the microseconds from `frac` units of 2^-32 s.
    void set_by_sec_frac(unsigned long sec, unsigned long frac);

    // Adds `us` (not negative) microseconds to this value itself, unlike the usual arithmetic operator. One
    // second is carried when the microseconds reach 1000000. Returns this.
    _time_t& operator+(double us);
    // Takes `us` (not negative) microseconds from this value itself, unlike the usual arithmetic operator.
    // One second is borrowed when the part of `us` below a second exceeds the microseconds. Returns this.
    _time_t& operator-(double us);
    // Returns this value minus `other` in microseconds, negative when `other` is later.
    double operator-(_time_t other) const;

    bool operator==(const _time_t& other) const;
    bool operator!=(const _time_t& other) const;
    bool operator<(const _time_t& other) const;
    bool operator>(const _time_t& other) const;
    bool operator<=(const _time_t& other) const;
    bool operator>=(const _time_t& other) const;

    // Returns the current time of the wall clock, since 1970-01-01 00:00 UTC.
    static _time_t now();

private:
    unsigned long m_second;
    unsigned long m_usecond;
};

// A stopwatch in microseconds. It is made stopped; started it runs until it is paused or stopped. It follows
// the wall clock, steps of that clock included. The virtual destructor and the order of the data members are
// binary interface.
class TALRTP_API _timer_t {
public:
    // Makes a stopped stopwatch whose start time is now.
    _timer_t();
    virtual ~_timer_t();

    // Runs the stopwatch. From stopped it measures from now, from paused it goes on without the pause. Does
    // nothing while running.
    void start();
    // Pauses the stopwatch, also from stopped: started after that, it measures from its old start time less
    // the pause. Does nothing while paused.
    void pause();
    // Stops the stopwatch and forgets its pauses; the start time stays. Does nothing while stopped.
    void stop();

    // Returns the microseconds measured so far without the pauses, 0.0 while stopped.
    double get_elapsed_time() const;
    // Makes the elapsed time `us` microseconds at once; it goes on from there. While stopped the shift is
    // kept for the next start.
    void seek(double us);

private:
    _time_t m_startTime;
    _time_t m_pauseStart;
    double m_pausedTotal;  // microseconds
    _int32_t m_state;      // 0 stopped, 1 running, 2 paused
};

}  // namespace talrtp

#endif  // TALRTP_TALTIME_H
