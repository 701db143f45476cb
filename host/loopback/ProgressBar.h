// A progress bar on stderr: when that is a terminal, and the work takes longer than a moment.

#ifndef TALRTP_HOST_LOOPBACK_PROGRESSBAR_H
#define TALRTP_HOST_LOOPBACK_PROGRESSBAR_H

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>

#include <unistd.h>

namespace talrtp::host {

class CProgressBar {
public:
    // `whole`: what `show` counts up to; 0 when that is not known, which shows nothing.
    explicit CProgressBar(std::uint64_t whole)
        : m_whole(isatty(STDERR_FILENO) != 0 ? whole : 0), m_next(Clock::now() + kMoment) {}
    ~CProgressBar() {
        if (m_isShown) {
            std::fputs("\r\033[K", stderr);
        }
    }
    CProgressBar(const CProgressBar&) = delete;
    CProgressBar& operator=(const CProgressBar&) = delete;

    void show(std::uint64_t done) {
        if (m_whole == 0 || Clock::now() < m_next) {
            return;
        }
        m_next = Clock::now() + kStep;
        m_isShown = true;
        const std::uint64_t percent = done >= m_whole ? 100 : done * 100 / m_whole;
        const std::string bar(static_cast<std::size_t>(percent * kWidth / 100), '#');
        std::fprintf(stderr, "\r[%-*s] %3d %%", kWidth, bar.c_str(), static_cast<int>(percent));
    }

private:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds kMoment{500};
    static constexpr std::chrono::milliseconds kStep{100};
    static constexpr int kWidth = 40;

    std::uint64_t m_whole;
    Clock::time_point m_next;
    bool m_isShown = false;
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_LOOPBACK_PROGRESSBAR_H
