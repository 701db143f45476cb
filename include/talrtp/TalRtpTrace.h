// The trace facility: two C functions that the host defines and the library calls for every diagnostic.
//
// A host that wants the library's diagnostics defines both, with C linkage, in its own program. Otherwise the
// library's weak defaults apply: a mask of -1, so that no line is ever assembled, and an output that does
// nothing.
//
// A line reads, without any blank that is not shown,
//   [TAL] WARNING: [TalRtp]: MESSAGE AND VALUES[src/rtp/FILE.cpp:LINE]
// and is at most 1023 characters long; a longer one is cut. The two statistics lines, given when a session is
// destroyed, end after their last value.

#ifndef TALRTP_TALRTPTRACE_H
#define TALRTP_TALRTPTRACE_H

#include <talrtp/TalRtpDefs.h>

extern "C" {

// Returns the trace level: negative for no line at all, 0 for ERROR lines, 1 for WARNING lines too, 2 or more
// for INFO lines too. Called afresh before each diagnostic, on the thread of the call that gives it.
TALRTP_API int get_external_trace_mask(void);

// Takes one finished line. `level` is 0 (ERROR), 1 (WARNING) or 2 (INFO); `tag` is "TAL"; `text` is the line,
// NUL-terminated, and `length` its length in characters. Both strings are lent for the duration of the call.
TALRTP_API void util_adapter_trace(int level, const char* tag, const char* text, unsigned int length);

}  // extern "C"

#endif  // TALRTP_TALRTPTRACE_H
