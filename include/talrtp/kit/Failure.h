// How the kit refuses options that cannot work.

#ifndef TALRTP_KIT_FAILURE_H
#define TALRTP_KIT_FAILURE_H

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace talrtp::kit {

// Throws `std::invalid_argument` with `text` unless it is empty. Without exceptions, prints it and aborts:
// wrong options are a mistake in the host's program, never an effect of what arrives from the network.
inline void refuseUnlessEmpty(const std::string& text) {
    if (text.empty()) {
        return;
    }
#if defined(__cpp_exceptions)
    throw std::invalid_argument(text);
#else
    std::fprintf(stderr, "talrtp: %s\n", text.c_str());
    std::abort();
#endif
}

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_FAILURE_H
