// The subcommand `talrtp inspect`.

#ifndef TALRTP_HOST_INSPECT_COMMAND_H
#define TALRTP_HOST_INSPECT_COMMAND_H

#include "Program.h"

namespace talrtp::host {

// Adds the subcommand to `app`.
Command addInspect(CLI::App& app);

}  // namespace talrtp::host

#endif  // TALRTP_HOST_INSPECT_COMMAND_H
