// A capture once more, through a receiver that is told the recorded times.

#ifndef TALRTP_HOST_INSPECT_REPLAY_H
#define TALRTP_HOST_INSPECT_REPLAY_H

#include "inspect/Inspector.h"

#include <talrtp/kit/Receiver.h>

#include <iosfwd>
#include <string>
#include <vector>

namespace talrtp::host::inspect {

// How to receive the main stream of a capture that was inspected. Throws CHostError when there is none, or
// its payload type is one that no receiver takes.
kit::ReceiverOptions replayOptions(const CInspector& inspector);

// Writes every picture that the receiver plays to `output` as a byte stream. Datagrams of which the capture
// holds only a part count as lost. Returns the receiver's counters.
kit::Statistics replayCapture(const std::string& path, const kit::ReceiverOptions& options,
                              std::ostream& output);

}  // namespace talrtp::host::inspect

#endif  // TALRTP_HOST_INSPECT_REPLAY_H
