// Ends the test program when a test takes longer than it may: where a loop that must end goes on for ever,
// the test fails, and does not hang.
//
//   const talrtp::test::TimeLimit limit(60);

#ifndef TALRTP_TESTS_TIMELIMIT_H
#define TALRTP_TESTS_TIMELIMIT_H

#include <unistd.h>

#include <csignal>
#include <cstdlib>

namespace talrtp {
namespace test {

class TimeLimit {
public:
    explicit TimeLimit(unsigned int seconds) {
        std::signal(SIGALRM, fail);
        alarm(seconds);
    }
    ~TimeLimit() {
        alarm(0);
        std::signal(SIGALRM, SIG_DFL);
    }
    TimeLimit(const TimeLimit&) = delete;
    TimeLimit& operator=(const TimeLimit&) = delete;

private:
    static void fail(int /*signal*/) {
        static const char kText[] = "The test took longer than its time limit.\n";
        static_cast<void>(!write(STDERR_FILENO, kText, sizeof kText - 1));
        _exit(EXIT_FAILURE);
    }
};

}  // namespace test
}  // namespace talrtp

#endif  // TALRTP_TESTS_TIMELIMIT_H
