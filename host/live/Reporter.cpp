#include "live/Reporter.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <chrono>

#include <sys/ioctl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace talrtp::host {

namespace {

double secondsOf(const timeval& time) {
    constexpr double kMicro = 1e-6;
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * kMicro;
}

// A line that wraps cannot be taken back with a carriage return.
std::size_t terminalWidth() {
    constexpr std::size_t kUsualWidth = 80;
    winsize size{};
    const bool isKnown = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
    return isKnown ? size.ws_col : kUsualWidth;
}

}  // namespace

CReporter::CReporter(const ReportOptions& options, bool isStdoutTaken)
    : m_options(options),
      m_out(isStdoutTaken ? stderr : stdout),
      m_showsStatus(!options.isQuiet && isatty(STDERR_FILENO) != 0) {}

void CReporter::status(const std::string& text) {
    if (m_showsStatus) {
        fmt::print(stderr, "\r\033[K{}", text.substr(0, terminalWidth() - 1));
        m_isStatusShown = true;
    }
}

void CReporter::clearStatus() {
    if (m_isStatusShown) {
        std::fputs("\r\033[K", stderr);
        m_isStatusShown = false;
    }
}

void CReporter::note(const std::string& text) {
    if (!m_options.isQuiet) {
        clearStatus();
        fmt::print(stderr, "talrtp: {}\n", text);
    }
}

void CReporter::interval(const Json& report) {
    clearStatus();
    fmt::print(m_out, "{}\n", report.dump());
    std::fflush(m_out);
}

void CReporter::report(const Json& report, const std::string& text) {
    clearStatus();
    if (m_options.isJson) {
        constexpr int kIndent = 2;
        fmt::print(m_out, "{}\n", report.dump(m_options.statsSeconds ? -1 : kIndent));
    } else if (!m_options.isQuiet) {
        fmt::print(m_out, "{}", text);
    }
    std::fflush(m_out);
}

Json processReport() {
    constexpr long kKilo = 1024;
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return {{"userSeconds", secondsOf(usage.ru_utime)},
            {"systemSeconds", secondsOf(usage.ru_stime)},
            {"maxResidentBytes", usage.ru_maxrss * kKilo}};
}

double secondsBetween(kit::TimePoint start, kit::TimePoint end) {
    return std::chrono::duration<double>(end - start).count();
}

}  // namespace talrtp::host
