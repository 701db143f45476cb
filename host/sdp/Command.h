// The subcommand `talrtp sdp`.

#ifndef TALRTP_HOST_SDP_COMMAND_H
#define TALRTP_HOST_SDP_COMMAND_H

#include "Program.h"

namespace talrtp::host {

// Adds the subcommand to `app`.
Command addSdp(CLI::App& app);

}  // namespace talrtp::host

#endif  // TALRTP_HOST_SDP_COMMAND_H
