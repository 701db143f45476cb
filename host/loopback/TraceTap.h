// The program's side of the library's trace facility: prints lines on request, and reads numbers off the line
// of statistics that a session gives when it ends.

#ifndef TALRTP_HOST_LOOPBACK_TRACETAP_H
#define TALRTP_HOST_LOOPBACK_TRACETAP_H

#include <cstdint>
#include <string>

namespace talrtp::host {

class CTraceTap {
public:
    // Prints lines up to `level` on stderr: 0 ERROR, 1 WARNING, 2 INFO, -1 none.
    static void setPrintLevel(int level);

    // Keeps the lines that come while it lives.
    class StatisticsCatcher {
    public:
        StatisticsCatcher();
        ~StatisticsCatcher();
        StatisticsCatcher(const StatisticsCatcher&) = delete;
        StatisticsCatcher& operator=(const StatisticsCatcher&) = delete;

        // The number behind "`label` = "; 0 when it was not given.
        std::uint64_t value(const std::string& label) const;
    };
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_LOOPBACK_TRACETAP_H
