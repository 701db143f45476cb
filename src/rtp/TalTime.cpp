#include <talrtp/TalTime.h>

#include <sys/time.h>

namespace talrtp {

namespace {

constexpr unsigned long kUsecPerSecond = 1000000;
constexpr double kFractionPerUsec = 4294.967296;  // 2^32 / 10^6

enum ETimerState { TIMER_STOPPED = 0, TIMER_RUNNING = 1, TIMER_PAUSED = 2 };

// A span in microseconds, cut into whole seconds and what is left of it.
struct stSpan {
    explicit stSpan(double us)
        : wholeSeconds(static_cast<long>(us / static_cast<double>(kUsecPerSecond))),
          rest(us - static_cast<double>(wholeSeconds) * static_cast<double>(kUsecPerSecond)) {}

    long wholeSeconds;
    double rest;  // microseconds
};

// `left` - `right` of two unsigned fields, as a signed number.
double difference(unsigned long left, unsigned long right) {
    return static_cast<double>(static_cast<long>(left - right));
}

}  // namespace

_time_t::_time_t() : m_second(0), m_usecond(0) {}

_time_t::_time_t(const _time_t& other) : m_second(other.m_second), m_usecond(other.m_usecond) {}

_time_t::_time_t(unsigned long sec, unsigned long usec) : m_second(sec), m_usecond(usec) {}

_time_t::~_time_t() {}

_time_t& _time_t::operator=(const _time_t& other) {
    m_second = other.m_second;
    m_usecond = other.m_usecond;
    return *this;
}

unsigned long _time_t::getsecond() const {
    return m_second;
}

unsigned long _time_t::getusecond() const {
    return m_usecond;
}

unsigned long _time_t::frac2usec(unsigned long frac) {
    return static_cast<unsigned long>(static_cast<double>(frac) / kFractionPerUsec);
}

unsigned long _time_t::usec2frac(unsigned long usec) {
    return static_cast<unsigned long>(static_cast<double>(usec) * kFractionPerUsec);
}

unsigned long _time_t::getfraction() const {
    return usec2frac(m_usecond);
}

void _time_t::set_by_sec_usec(unsigned long sec, unsigned long usec) {
    m_second = sec;
    m_usecond = usec;
}

void _time_t::set_by_sec_frac(unsigned long sec, unsigned long frac) {
    m_second = sec;
    m_usecond = frac2usec(frac);
}

// Compatibility: this and the next operator change the object itself; hosts use them as += and -=.
_time_t& _time_t::operator+(double us) {
    const stSpan span(us);
    m_second += static_cast<unsigned long>(span.wholeSeconds);
    m_usecond += static_cast<unsigned long>(static_cast<long>(span.rest));
    if (m_usecond >= kUsecPerSecond) {
        m_usecond -= kUsecPerSecond;
        m_second += 1;
    }
    return *this;
}

_time_t& _time_t::operator-(double us) {
    const stSpan span(us);
    // Compared before it is truncated: a rest of 200.5 borrows from 200 microseconds.
    if (span.rest > static_cast<double>(m_usecond)) {
        m_usecond += kUsecPerSecond;
        m_second -= 1;
    }
    m_second -= static_cast<unsigned long>(span.wholeSeconds);
    m_usecond -= static_cast<unsigned long>(static_cast<long>(span.rest));
    return *this;
}

double _time_t::operator-(_time_t other) const {
    return difference(m_second, other.m_second) * static_cast<double>(kUsecPerSecond) +
           difference(m_usecond, other.m_usecond);
}

bool _time_t::operator==(const _time_t& other) const {
    return m_second + m_usecond / kUsecPerSecond == other.m_second + other.m_usecond / kUsecPerSecond &&
           m_usecond % kUsecPerSecond == other.m_usecond % kUsecPerSecond;
}

bool _time_t::operator!=(const _time_t& other) const {
    return !(*this == other);
}

bool _time_t::operator<(const _time_t& other) const {
    const unsigned long second = m_second + m_usecond / kUsecPerSecond;
    const unsigned long otherSecond = other.m_second + other.m_usecond / kUsecPerSecond;
    if (second != otherSecond) {
        return second < otherSecond;
    }
    return m_usecond % kUsecPerSecond < other.m_usecond % kUsecPerSecond;
}

bool _time_t::operator>(const _time_t& other) const {
    return !(*this <= other);
}

bool _time_t::operator<=(const _time_t& other) const {
    return *this < other || *this == other;
}

bool _time_t::operator>=(const _time_t& other) const {
    return !(*this < other);
}

_time_t _time_t::now() {
    timeval time;
    gettimeofday(&time, nullptr);
    return _time_t(static_cast<unsigned long>(time.tv_sec), static_cast<unsigned long>(time.tv_usec));
}

_timer_t::_timer_t() : m_startTime(_time_t::now()), m_pausedTotal(0.0), m_state(TIMER_STOPPED) {}

_timer_t::~_timer_t() {}

void _timer_t::start() {
    if (m_state == TIMER_RUNNING) {
        return;
    }
    const _time_t now = _time_t::now();
    if (m_state == TIMER_PAUSED) {
        m_pausedTotal += now - m_pauseStart;
    } else {
        // Compatibility: the paused total is not cleared here, so a `seek` made while stopped takes effect.
        m_startTime = now;
    }
    m_state = TIMER_RUNNING;
}

void _timer_t::pause() {
    if (m_state == TIMER_PAUSED) {
        return;
    }
    m_pauseStart = _time_t::now();
    m_state = TIMER_PAUSED;
}

void _timer_t::stop() {
    if (m_state == TIMER_STOPPED) {
        return;
    }
    m_pausedTotal = 0.0;
    m_state = TIMER_STOPPED;
}

double _timer_t::get_elapsed_time() const {
    if (m_state == TIMER_STOPPED) {
        return 0.0;
    }
    const _time_t now = _time_t::now();
    const double elapsed = now - m_startTime - m_pausedTotal;
    return m_state == TIMER_PAUSED ? elapsed - (now - m_pauseStart) : elapsed;
}

void _timer_t::seek(double us) {
    m_pausedTotal -= us - get_elapsed_time();
}

}  // namespace talrtp
