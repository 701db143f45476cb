// The subcommand `talrtp loopback`: its options and what it does with them.

#ifndef TALRTP_HOST_LOOPBACK_COMMAND_H
#define TALRTP_HOST_LOOPBACK_COMMAND_H

#include <CLI/CLI.hpp>

#include <functional>

namespace talrtp::host {

// Exit codes of the program.
constexpr int kExitGood = 0;
constexpr int kExitFailed = 1;  // a file could not be read or written, or holds no stream
constexpr int kExitUsage = 2;   // options that make no sense
constexpr int kExitWrong = 3;   // a unit that could arrive did not, or came changed

// Adds the subcommand to `app`. Returns what carries it out, once the command line was parsed; it returns the
// exit code and throws CHostError, or CLI::ValidationError for options that do not go together.
std::function<int()> addLoopback(CLI::App& app);

}  // namespace talrtp::host

#endif  // TALRTP_HOST_LOOPBACK_COMMAND_H
