// A wall clock that stands still until a test sets it. The definition of `gettimeofday` in the test program
// takes precedence over the C library's, also for calls from the shared library.
//
//   talrtp::test::FakeClock::at(1700000000, 250000);   // seconds, microseconds
//
// One source file per program includes this header.

#ifndef TALRTP_TESTS_FAKECLOCK_H
#define TALRTP_TESTS_FAKECLOCK_H

#include <sys/time.h>

namespace talrtp {
namespace test {

class FakeClock {
public:
    static void at(long second, long usecond) {
        time().tv_sec = second;
        time().tv_usec = usecond;
    }

    // Lets `usecond` microseconds (not negative) pass.
    static void pass(long usecond) {
        const long total = time().tv_usec + usecond;
        at(time().tv_sec + total / 1000000, total % 1000000);
    }

    static int& reads() {
        static int count = 0;
        return count;
    }

    static timeval& time() {
        static timeval now = {0, 0};
        return now;
    }
};

}  // namespace test
}  // namespace talrtp

extern "C" int gettimeofday(struct timeval* now, void* /*timezone*/) noexcept {
    ++talrtp::test::FakeClock::reads();
    *now = talrtp::test::FakeClock::time();
    return 0;
}

#endif  // TALRTP_TESTS_FAKECLOCK_H
