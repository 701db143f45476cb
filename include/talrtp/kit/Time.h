// The kit's notion of time. The kit never reads a clock: a host passes the current time with each call, taken
// from `std::chrono::steady_clock`, which never steps back. Tests and programs that replay captures pass any
// values.

#ifndef TALRTP_KIT_TIME_H
#define TALRTP_KIT_TIME_H

#include <chrono>

namespace talrtp::kit {

// A time of the steady clock.
using TimePoint = std::chrono::steady_clock::time_point;
// The time between two times.
using Duration = std::chrono::steady_clock::duration;

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_TIME_H
