// The subcommand `talrtp send`: its options and what it does with them.

#ifndef TALRTP_HOST_SEND_COMMAND_H
#define TALRTP_HOST_SEND_COMMAND_H

#include "Program.h"

namespace talrtp::host {

// Adds the subcommand to `app`.
Command addSend(CLI::App& app);

}  // namespace talrtp::host

#endif  // TALRTP_HOST_SEND_COMMAND_H
