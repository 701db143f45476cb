// The subcommand `talrtp loopback`: its options and what it does with them.

#ifndef TALRTP_HOST_LOOPBACK_COMMAND_H
#define TALRTP_HOST_LOOPBACK_COMMAND_H

#include "Program.h"

namespace talrtp::host {

// Adds the subcommand to `app`.
Command addLoopback(CLI::App& app);

}  // namespace talrtp::host

#endif  // TALRTP_HOST_LOOPBACK_COMMAND_H
