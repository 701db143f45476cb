// How the report names things.

#ifndef TALRTP_HOST_INSPECT_NAMES_H
#define TALRTP_HOST_INSPECT_NAMES_H

#include "inspect/Frame.h"
#include "inspect/Stream.h"

#include <string>

namespace talrtp::host::inspect {

// "127.0.0.1:5004" or "[::1]:5004".
std::string nameOfEndpoint(const Endpoint& endpoint);

// "H.264", "FEC, XOR", ...
std::string nameOfKind(StreamKind kind);

// Of a NAL unit type, 0 to 31: "IDR slices". ITU-T H.264, table 7-1.
std::string nameOfUnits(std::size_t type);

}  // namespace talrtp::host::inspect

#endif  // TALRTP_HOST_INSPECT_NAMES_H
