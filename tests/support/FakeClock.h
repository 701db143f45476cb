// A wall clock that stands still until a test sets it. It replaces the `gettimeofday` of the C library, also
// for calls from the shared library.
//
//   talrtp::test::FakeClock::at(1700000000, 250000);   // seconds, microseconds

#ifndef TALRTP_TESTS_FAKECLOCK_H
#define TALRTP_TESTS_FAKECLOCK_H

#include <sys/time.h>

namespace talrtp {
namespace test {

class FakeClock {
public:
    static void at(long second, long usecond);
    // Lets `usecond` microseconds (not negative) pass.
    static void pass(long usecond);

    // How often the clock was read.
    static int& reads();
    static timeval& time();
};

}  // namespace test
}  // namespace talrtp

#endif  // TALRTP_TESTS_FAKECLOCK_H
