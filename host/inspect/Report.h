// The report of `talrtp inspect`, as text and as JSON.

#ifndef TALRTP_HOST_INSPECT_REPORT_H
#define TALRTP_HOST_INSPECT_REPORT_H

#include "inspect/Inspector.h"

#include <talrtp/kit/Statistics.h>

#include <optional>
#include <string>

namespace talrtp::host::inspect {

struct InspectReport {
    std::string name;     // of the capture
    std::string problem;  // why the capture broke off; empty at a proper end
    const CInspector* inspector = nullptr;
    std::optional<kit::Statistics> replay;
};

// Returns the tables, line by line.
std::string describe(const InspectReport& report);

// Returns the same as one JSON object. docs/interop.md lists the keys.
std::string describeAsJson(const InspectReport& report);

}  // namespace talrtp::host::inspect

#endif  // TALRTP_HOST_INSPECT_REPORT_H
