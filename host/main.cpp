// The command-line program `talrtp`.

#include "loopback/Command.h"
#include "loopback/Session.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <cstdio>

namespace {

constexpr const char* kVersion = "talrtp " TALRTP_PROGRAM_VERSION;

// CLI11 has an exit code of its own for each kind of mistake; here there is one, and one line on stderr.
int reportUsage(const CLI::App& app, const CLI::ParseError& problem) {
    if (problem.get_exit_code() == 0) {
        return app.exit(problem);
    }
    fmt::print(stderr, "talrtp: {} (see talrtp loopback --help)\n", problem.what());
    return talrtp::host::kExitUsage;
}

int runProgram(int argc, char** argv) {
    CLI::App app("Carries H.264 over RTP with forward error correction.", "talrtp");
    app.set_version_flag("--version", kVersion);
    app.require_subcommand(1);
    app.get_formatter()->column_width(26);
    const std::function<int()> run = talrtp::host::addLoopback(app);
    try {
        app.parse(argc, argv);
        return run();
    } catch (const CLI::ParseError& problem) {
        return reportUsage(app, problem);
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return runProgram(argc, argv);
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "talrtp: %s\n", problem.what());
        return talrtp::host::kExitFailed;
    } catch (...) {
        std::fputs("talrtp: stopped for an unknown reason\n", stderr);
        return talrtp::host::kExitFailed;
    }
}
