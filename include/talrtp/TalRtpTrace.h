// The trace facility: two C functions that the host defines and the library calls for every diagnostic.
//
// A host that wants the library's diagnostics defines both, with C linkage, in its own program. Without them
// the library's weak defaults apply: a mask of -1, so that no line is ever assembled, and an output that does
// nothing.
//
// A line has this form, with exactly these blanks,
//   [TAL] WARNING: [TalRtp]: MESSAGE AND VALUES[src/rtp/FILE.cpp:LINE]
// and at most 1023 characters; a longer one is cut. The two statistics lines, which a session logs when it is
// destroyed, end after their last value.

#ifndef TALRTP_TALRTPTRACE_H
#define TALRTP_TALRTPTRACE_H

#include <talrtp/TalRtpDefs.h>

extern "C" {

// Returns the trace level: negative for no line at all, 0 for ERROR lines, 1 for WARNING lines too, 2 or more
// for INFO lines too. The library asks again before each diagnostic, on the thread of the call that logs it.
TALRTP_API int get_external_trace_mask(void);

// Receives one finished line, on the same thread. `level` is 0 (ERROR), 1 (WARNING) or 2 (INFO); `tag` is
// "TAL"; `text` is the line, NUL-terminated, and `length` its length in characters. Lends both strings until
// it returns. Called in the middle of an operation: call nothing of that object from here.
TALRTP_API void util_adapter_trace(int level, const char* tag, const char* text, unsigned int length);

}  // extern "C"

#endif  // TALRTP_TALRTPTRACE_H
