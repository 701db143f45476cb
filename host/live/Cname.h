// The name of an end of an RTP session.

#ifndef TALRTP_HOST_LIVE_CNAME_H
#define TALRTP_HOST_LIVE_CNAME_H

#include <fmt/format.h>

#include <random>
#include <string>

namespace talrtp::host {

// Returns a name that stands for this end for the time of a session (RFC 7022, 4.2).
inline std::string makeCname() {
    std::random_device random;
    return fmt::format("{:08x}{:08x}{:08x}", random(), random(), random());
}

}  // namespace talrtp::host

#endif  // TALRTP_HOST_LIVE_CNAME_H
