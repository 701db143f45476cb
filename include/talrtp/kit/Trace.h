// The library's diagnostics as calls of a function of the host, with a level, a filter and a limited rate.
//
//   kit::setTrace(kit::TraceLevel::kWarning, [](const kit::TraceLine& line) { log(line.text); }, 20);
//   kit::advanceTrace(now);   // once per turn of the event loop: refills the 20 lines per second
//
// This header only declares what a host calls, from any of its source files. The two C functions through
// which the library reaches the callback are defined by TraceToCallback.h, which exactly one source file
// includes. Without it no line arrives.
//
// The library emits an ERROR line for every FEC packet that it receives, which begins with "payload type is
// FEC, but memomy alligned". It reports no error, is never passed on and costs nothing of the rate.
//
// The settings belong to the program or library that includes these headers, and the callback runs inside of
// the library's calls, on their threads: with sessions on several threads it is called on several at the same
// time. Nothing here takes a lock. advanceTrace() and traceCounts() may be called on any thread, setTrace()
// only while no other thread is inside of the library or of these functions.

#ifndef TALRTP_KIT_TRACE_H
#define TALRTP_KIT_TRACE_H

#include <talrtp/kit/Time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <string_view>
#include <utility>

namespace talrtp::kit {

// Each level includes those before it.
enum class TraceLevel : int { kNone = -1, kError = 0, kWarning = 1, kInfo = 2 };

// One line of diagnostics.
struct TraceLine {
    TraceLevel level;       // of the line
    std::string_view text;  // without the end of a line; lent for the call
};

// Must not throw, since the library's code lies between it and the host, and must not call setTrace.
using TraceCallback = std::function<void(const TraceLine&)>;

// Counts of trace lines since the last setTrace().
struct TraceCounts {
    std::uint64_t passed = 0;    // handed to the callback
    std::uint64_t filtered = 0;  // the line of every FEC packet
    std::uint64_t dropped = 0;   // beyond the rate
};

namespace detail {

class TraceState {
public:
    void set(TraceLevel level, TraceCallback callback, unsigned int linesPerSecond) {
        m_callback = std::move(callback);
        m_linesPerSecond = linesPerSecond;
        m_budget = kSecond.count();
        m_last = kNever;
        m_passed = m_filtered = m_dropped = 0;
        m_level = m_callback ? level : TraceLevel::kNone;
    }

    // Whoever can send packets can provoke lines, so the budget never holds more than those of one second.
    void advance(TimePoint now) {
        const Ticks time = now.time_since_epoch().count();
        Ticks last = m_last;
        while (last < time && !m_last.compare_exchange_weak(last, time)) {
        }
        if (last == kNever || last >= time) {
            return;
        }
        const Ticks second = kSecond.count();
        Ticks budget = m_budget;
        while (!m_budget.compare_exchange_weak(
            budget, time - last < second ? std::min(budget + (time - last), second) : second)) {
        }
    }

    void take(TraceLine line) {
        if (line.level > m_level) {
            return;
        }
        if (line.text.find(kFecLine) != std::string_view::npos) {
            ++m_filtered;
        } else if (!pay()) {
            ++m_dropped;
        } else {
            ++m_passed;
            m_callback(line);
        }
    }

    TraceLevel level() const { return m_level; }
    TraceCounts counts() const { return {m_passed, m_filtered, m_dropped}; }

private:
    static constexpr std::string_view kFecLine = "payload type is FEC, but memomy alligned";
    static constexpr Duration kSecond = std::chrono::seconds(1);

    using Ticks = Duration::rep;
    static constexpr Ticks kNever = std::numeric_limits<Ticks>::min();

    // Takes a line's share of the second off the budget.
    bool pay() {
        if (m_linesPerSecond == 0) {
            return true;
        }
        const Ticks share = kSecond.count() / m_linesPerSecond;
        Ticks budget = m_budget;
        while (budget >= share) {
            if (m_budget.compare_exchange_weak(budget, budget - share)) {
                return true;
            }
        }
        return false;
    }

    std::atomic<TraceLevel> m_level{TraceLevel::kNone};
    TraceCallback m_callback;
    unsigned int m_linesPerSecond = 0;
    std::atomic<Ticks> m_budget{kSecond.count()};  // a full budget holds the lines of one second
    std::atomic<Ticks> m_last{kNever};
    std::atomic<std::uint64_t> m_passed{0};
    std::atomic<std::uint64_t> m_filtered{0};
    std::atomic<std::uint64_t> m_dropped{0};
};

// Lives until the process ends, since a session that is destroyed late still logs its statistics.
inline TraceState& traceState() {
    static TraceState* const state = new TraceState;
    return *state;
}

}  // namespace detail

// Hands all lines up to `level` to `callback`, at most `linesPerSecond` of them in a second; 0 sets no limit.
// A level of kNone or an empty callback ends the trace, and the library then assembles no line at all.
//
// The kit reads no clock: the limit knows the time from advanceTrace() only. Without any call of it, the
// lines of one second pass and all others are dropped.
inline void setTrace(TraceLevel level, TraceCallback callback, unsigned int linesPerSecond) {
    detail::traceState().set(level, std::move(callback), linesPerSecond);
}

// Tells the limit the time, which refills the lines that may pass, up to those of one second.
inline void advanceTrace(TimePoint now) {
    detail::traceState().advance(now);
}

// Returns what became of the lines so far.
inline TraceCounts traceCounts() {
    return detail::traceState().counts();
}

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_TRACE_H
