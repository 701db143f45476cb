// The subcommand `talrtp recv`: its options and what it does with them.

#ifndef TALRTP_HOST_RECV_COMMAND_H
#define TALRTP_HOST_RECV_COMMAND_H

#include "Program.h"

namespace talrtp::host {

// Adds the subcommand to `app`.
Command addRecv(CLI::App& app);

}  // namespace talrtp::host

#endif  // TALRTP_HOST_RECV_COMMAND_H
