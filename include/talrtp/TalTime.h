// Time for hosts: a wall-clock value in seconds and microseconds that converts to and from the fraction of an
// NTP timestamp (RFC 5905, 6), and a stopwatch that can pause.
//
// A session receives its time from the host, in milliseconds; the library reads the clock only to seed
// `random32`. Both classes here read it with `gettimeofday`. Nothing throws, nothing locks. Use each object
// from one thread at a time.

#ifndef TALRTP_TALTIME_H
#define TALRTP_TALTIME_H

#include <talrtp/TalRtpDefs.h>

namespace talrtp {

// A point in time, or a span. Values are not kept normalised: the microseconds may reach 1000000 or more, and
// the comparisons normalise both sides.
//
// The virtual destructor and the order of the data members are binary interface.
class TALRTP_API _time_t {
public:
    // Makes 0 s, 0 us.
    _time_t();
    // Copies both fields of `other`.
    _time_t(const _time_t& other);
    // Makes the value of `sec` seconds and `usec` microseconds, without normalising them.
    _time_t(unsigned long sec, unsigned long usec);
    // Virtual, so that a derived object may be deleted through this class.
    virtual ~_time_t();

    // Copies both fields. Returns this.
    _time_t& operator=(const _time_t& other);

    // Returns the seconds as stored: a second in the microseconds is not carried over.
    unsigned long getsecond() const;
    // Returns the microseconds as stored: 1000000 or more is possible.
    unsigned long getusecond() const;

    // Returns the whole microseconds in `frac` units of 2^-32 s.
    static unsigned long frac2usec(unsigned long frac);
    // Returns the whole units of 2^-32 s in `usec` microseconds.
    static unsigned long usec2frac(unsigned long usec);
    // Returns the microseconds in units of 2^-32 s, the fraction of an NTP timestamp.
    unsigned long getfraction() const;

    // Sets `sec` seconds and `usec` microseconds, without normalising them.
    void set_by_sec_usec(unsigned long sec, unsigned long usec);
    // Sets `sec` seconds, and the microseconds from `frac` units of 2^-32 s.
    void set_by_sec_frac(unsigned long sec, unsigned long frac);

    // Adds `us` (not negative) microseconds to this value itself, unlike the usual arithmetic operator. One
    // second is carried when the microseconds reach 1000000. Returns this.
    _time_t& operator+(double us);
    // Subtracts `us` (not negative) microseconds from this value itself, unlike the usual arithmetic
    // operator. One second is borrowed when the part of `us` below a second exceeds the microseconds. Returns
    // this.
    _time_t& operator-(double us);
    // Returns this value minus `other` in microseconds, negative when `other` is later.
    double operator-(_time_t other) const;

    // The comparisons look at the time as a whole: 1 s and 0 s with 1000000 us are equal.

    // Returns whether both are the same time.
    bool operator==(const _time_t& other) const;
    // Returns whether they are different times.
    bool operator!=(const _time_t& other) const;
    // Returns whether this is earlier than `other`.
    bool operator<(const _time_t& other) const;
    // Returns whether this is later than `other`.
    bool operator>(const _time_t& other) const;
    // Returns whether this is no later than `other`.
    bool operator<=(const _time_t& other) const;
    // Returns whether this is no earlier than `other`.
    bool operator>=(const _time_t& other) const;

    // Returns the current time of the wall clock, since 1970-01-01 00:00 UTC.
    static _time_t now();

private:
    unsigned long m_second;
    unsigned long m_usecond;  // 1000000 or more is possible
};

// A stopwatch in microseconds. A new one is stopped; after `start` it runs until it is paused or stopped. It
// follows the wall clock, steps of that clock included.
//
// The virtual destructor and the order of the data members are binary interface.
class TALRTP_API _timer_t {
public:
    // Makes a stopped stopwatch whose start time is now.
    _timer_t();
    // Virtual, so that a derived object may be deleted through this class.
    virtual ~_timer_t();

    // Starts the stopwatch. A stopped one measures from now on; a paused one goes on and leaves the pause
    // out. Does nothing while running.
    void start();
    // Pauses the stopwatch. A stopped one can be paused too: the next `start` then measures from its old
    // start time, less the pause. Does nothing while paused.
    void pause();
    // Stops the stopwatch and forgets its pauses; the start time stays. Does nothing while stopped.
    void stop();

    // Returns the microseconds measured so far without the pauses, 0.0 while stopped.
    double get_elapsed_time() const;
    // Sets the elapsed time to `us` microseconds at once; it goes on from there. While stopped the shift is
    // kept for the next start.
    void seek(double us);

private:
    _time_t m_startTime;   // of the last `start` of a stopped one
    _time_t m_pauseStart;  // of the current pause
    double m_pausedTotal;  // microseconds of the ended pauses, less those that `seek` added
    _int32_t m_state;      // 0 stopped, 1 running, 2 paused
};

}  // namespace talrtp

#endif  // TALRTP_TALTIME_H
