// Writes the manual pages and the completion for bash into a directory:
//
//   talrtp_manual DIRECTORY        DIRECTORY/talrtp.1, DIRECTORY/talrtp-send.1, ..., DIRECTORY/talrtp.bash

#include "Program.h"
#include "manual/Manual.h"

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace talrtp::host {
namespace {

void write(const std::filesystem::path& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

void writeAll(const std::filesystem::path& directory) {
    const Program program = makeProgram();
    std::vector<const CLI::App*> commands{program.app.get()};
    for (const Command& each : program.commands) {
        commands.push_back(each.app);
    }
    std::filesystem::create_directories(directory);
    for (const CLI::App* command : commands) {
        std::vector<std::string> others;
        for (const CLI::App* each : commands) {
            if (each != command) {
                others.push_back(pageNameOf(*each));
            }
        }
        write(directory / (pageNameOf(*command) + ".1"), makePage(*command, others, TALRTP_PROGRAM_VERSION));
    }
    write(directory / "talrtp.bash", makeCompletion(*program.app));
}

}  // namespace
}  // namespace talrtp::host

int main(int argc, char** argv) {
    try {
        if (argc != 2) {
            throw std::runtime_error("usage: talrtp_manual DIRECTORY");
        }
        talrtp::host::writeAll(argv[1]);
        return 0;
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "talrtp_manual: %s\n", problem.what());
        return 1;
    }
}
