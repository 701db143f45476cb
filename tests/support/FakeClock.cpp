#include "FakeClock.h"

namespace talrtp {
namespace test {

void FakeClock::at(long second, long usecond) {
    time().tv_sec = second;
    time().tv_usec = usecond;
}

void FakeClock::pass(long usecond) {
    const long total = time().tv_usec + usecond;
    at(time().tv_sec + total / 1000000, total % 1000000);
}

int& FakeClock::reads() {
    static int count = 0;
    return count;
}

timeval& FakeClock::time() {
    static timeval now = {0, 0};
    return now;
}

}  // namespace test
}  // namespace talrtp

extern "C" int gettimeofday(struct timeval* now, void* /*timezone*/) noexcept {
    ++talrtp::test::FakeClock::reads();
    *now = talrtp::test::FakeClock::time();
    return 0;
}
