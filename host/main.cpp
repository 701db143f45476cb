// The command-line program `talrtp`.

#include "HostError.h"
#include "Program.h"

#include <fmt/format.h>
#include <talrtp/kit/TraceToCallback.h>  // `--trace` of every subcommand

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

namespace talrtp::host {
namespace {

// CLI11 has an exit code of its own for each kind of mistake; here there is one, and one line on stderr.
int reportUsage(const Program& program, const CLI::ParseError& problem) {
    if (problem.get_exit_code() == 0) {
        return program.app->exit(problem);
    }
    const std::vector<CLI::App*> parsed = program.app->get_subcommands();
    fmt::print(stderr, "talrtp: {} (see talrtp {}--help)\n", problem.what(),
               parsed.empty() ? "" : parsed.front()->get_name() + " ");
    return kExitUsage;
}

int runProgram(int argc, char** argv) {
    const Program program = makeProgram();
    try {
        program.app->parse(argc, argv);
        for (const Command& command : program.commands) {
            if (command.app->parsed()) {
                return command.run();
            }
        }
        return kExitUsage;  // not reached: a subcommand is required
    } catch (const CLI::ParseError& problem) {
        return reportUsage(program, problem);
    }
}

// Printed text may still be in the buffer of the stream.
void closeOutput() {
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        throw CHostError(fmt::format("cannot write to standard output: {}", std::strerror(errno)));
    }
}

}  // namespace
}  // namespace talrtp::host

int main(int argc, char** argv) {
    std::signal(SIGXFSZ, SIG_IGN);  // writing beyond a limit then fails with an error that is reported
    try {
        const int status = talrtp::host::runProgram(argc, argv);
        talrtp::host::closeOutput();
        return status;
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "talrtp: %s\n", problem.what());
        return talrtp::host::kExitFailed;
    } catch (...) {
        std::fputs("talrtp: stopped for an unknown reason\n", stderr);
        return talrtp::host::kExitFailed;
    }
}
