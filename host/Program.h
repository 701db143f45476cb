// The whole command line of `talrtp`: every subcommand with its options, texts and examples. The program runs
// it, and the manual pages and the shell completion are written from it.

#ifndef TALRTP_HOST_PROGRAM_H
#define TALRTP_HOST_PROGRAM_H

#include <CLI/CLI.hpp>

#include <functional>
#include <memory>
#include <vector>

namespace talrtp::host {

// A subcommand and its work. `run` is called after the command line was parsed; it returns the exit code and
// throws CHostError, or CLI::ParseError for options that do not go together.
struct Command {
    CLI::App* app;  // owned by the program's app
    std::function<int()> run;
};

struct Program {
    std::unique_ptr<CLI::App> app;
    std::vector<Command> commands;
};

Program makeProgram();

}  // namespace talrtp::host

#endif  // TALRTP_HOST_PROGRAM_H
