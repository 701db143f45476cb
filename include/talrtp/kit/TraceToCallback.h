// Defines the two C functions through which the library reaches the callback of Trace.h.
//
//   #include <talrtp/kit/TraceToCallback.h>   // in exactly one source file of the program
//
// A second source file with this include fails to link. The functions are exported from the program even
// under -fvisibility=hidden, because TalRtpTrace.h declares them so; a hidden function would leave the
// library's own defaults in place, and no line would arrive. A program that loads the library with dlopen
// exports them with -rdynamic.

#ifndef TALRTP_KIT_TRACETOCALLBACK_H
#define TALRTP_KIT_TRACETOCALLBACK_H

#include <talrtp/TalRtpTrace.h>
#include <talrtp/kit/Trace.h>

#include <string_view>

// One source file includes this header, so each function is defined once.
// NOLINTBEGIN(misc-definitions-in-headers)
extern "C" {

int get_external_trace_mask(void) {
    return static_cast<int>(talrtp::kit::detail::traceState().level());
}

void util_adapter_trace(int level, const char* /*tag*/, const char* text, unsigned int length) {
    const talrtp::kit::TraceLine line{static_cast<talrtp::kit::TraceLevel>(level),
                                      std::string_view(text, length)};
    talrtp::kit::detail::traceState().take(line);
}

}  // extern "C"
// NOLINTEND(misc-definitions-in-headers)

#endif  // TALRTP_KIT_TRACETOCALLBACK_H
