// The error that the program's own code throws, and its exit codes.

#ifndef TALRTP_HOST_HOSTERROR_H
#define TALRTP_HOST_HOSTERROR_H

#include <stdexcept>

namespace talrtp::host {

// Something that the user can do something about; the text is one line for stderr.
class CHostError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Exit codes of the program.
constexpr int kExitGood = 0;
constexpr int kExitFailed = 1;  // a file, a host or a port that cannot be used, or a file without a stream
constexpr int kExitUsage = 2;   // options that make no sense
constexpr int kExitWrong = 3;   // the work was done, and something is missing or differs

}  // namespace talrtp::host

#endif  // TALRTP_HOST_HOSTERROR_H
