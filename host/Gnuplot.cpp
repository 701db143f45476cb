#include "Gnuplot.h"

#include "HostError.h"
#include "Interrupt.h"

#include <fmt/format.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace talrtp::host {

namespace {

// gnuplot does not tell that the disk is full: what it wrote then lacks the end. A device cannot be looked
// at.
bool hasEnd(const std::string& path) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) {
        return !error;
    }
    constexpr std::streamoff kEnd = 16;
    std::ifstream file(path, std::ios::binary);
    file.seekg(0, std::ios::end);
    file.seekg(-std::min<std::streamoff>(kEnd, file.tellg()), std::ios::end);
    const std::string end{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    return end.find("</svg>") != std::string::npos || end.find("IEND") != std::string::npos;
}

}  // namespace

std::string quotedForGnuplot(const std::string& text) {
    std::string quoted = "'";
    for (const char each : text) {
        quoted += each == '\'' ? "''" : std::string(1, each);
    }
    return quoted + "'";
}

void drawWithGnuplot(const std::string& commands, const std::string& path) {
    const auto outer = std::signal(SIGPIPE, SIG_IGN);
    std::FILE* const gnuplot = popen("command -v gnuplot >/dev/null && exec gnuplot", "w");
    if (gnuplot == nullptr) {
        throw CHostError("gnuplot cannot be started");
    }
    std::fwrite(commands.data(), 1, commands.size(), gnuplot);
    const int status = pclose(gnuplot);
    std::signal(SIGPIPE, outer);
    throwIfInterrupted();  // Ctrl-C ends gnuplot as well
    if (status != 0) {
        throw CHostError("the plot cannot be drawn; is gnuplot installed?");
    }
    if (!hasEnd(path)) {
        throw CHostError("the plot cannot be drawn; is the disk full?");
    }
}

}  // namespace talrtp::host
