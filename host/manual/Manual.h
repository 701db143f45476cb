// The manual pages and the shell completion, written from the command line that the program itself reads.

#ifndef TALRTP_HOST_MANUAL_MANUAL_H
#define TALRTP_HOST_MANUAL_MANUAL_H

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace talrtp::host {

// Returns the name of the page of the program or of one of its subcommands: talrtp, talrtp-send.
std::string pageNameOf(const CLI::App& command);

// Returns a page for section 1 (man(7)). `seeAlso`: names of the other pages. `version`: of the program.
std::string makePage(const CLI::App& command, const std::vector<std::string>& seeAlso,
                     const std::string& version);

// Returns a script for bash that completes subcommands, options and file names.
std::string makeCompletion(const CLI::App& program);

}  // namespace talrtp::host

#endif  // TALRTP_HOST_MANUAL_MANUAL_H
