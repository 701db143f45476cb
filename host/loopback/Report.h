// The table that `talrtp loopback` prints.

#ifndef TALRTP_HOST_LOOPBACK_REPORT_H
#define TALRTP_HOST_LOOPBACK_REPORT_H

#include "loopback/Loopback.h"

#include <string>

namespace talrtp::host {

// Returns the table and the closing sentence, line by line, ready to print. `name`: of the stream.
std::string describe(const std::string& name, const LoopbackOptions& options, const LoopbackReport& report);

// Returns "none", "xor" or "rs".
std::string nameOf(kit::FecScheme scheme);

}  // namespace talrtp::host

#endif  // TALRTP_HOST_LOOPBACK_REPORT_H
