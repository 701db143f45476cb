// Sums over time in a fixed number of bins, whose width doubles when the capture goes on.

#ifndef TALRTP_HOST_INSPECT_TIMELINE_H
#define TALRTP_HOST_INSPECT_TIMELINE_H

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace talrtp::host::inspect {

struct TimelineBin {
    std::uint64_t bytes = 0;    // of arrived packets
    std::uint64_t arrived = 0;  // packets
    std::uint64_t lost = 0;     // packets missing in the order of their numbers
    std::uint64_t rebuildable = 0;
};

class CTimeline {
public:
    static constexpr std::size_t kMaxBins = 400;

    // The bin of `time` after the start of the capture.
    TimelineBin& at(std::chrono::nanoseconds time) {
        const auto sinceStart = static_cast<std::uint64_t>(std::max<std::int64_t>(time.count(), 0));
        while (sinceStart / m_width >= kMaxBins) {
            halve();
        }
        const auto index = static_cast<std::size_t>(sinceStart / m_width);
        m_bins.resize(std::max(m_bins.size(), index + 1));
        return m_bins[index];
    }

    const std::vector<TimelineBin>& bins() const { return m_bins; }
    double secondsPerBin() const { return static_cast<double>(m_width) / 1e9; }

private:
    void halve() {
        for (std::size_t i = 0; i < m_bins.size(); ++i) {
            const TimelineBin bin = m_bins[i];
            m_bins[i] = {};
            TimelineBin& sum = m_bins[i / 2];
            sum.bytes += bin.bytes;
            sum.arrived += bin.arrived;
            sum.lost += bin.lost;
            sum.rebuildable += bin.rebuildable;
        }
        m_bins.resize((m_bins.size() + 1) / 2);
        m_width *= 2;
    }

    std::uint64_t m_width = 50'000'000;  // nanoseconds
    std::vector<TimelineBin> m_bins;
};

}  // namespace talrtp::host::inspect

#endif  // TALRTP_HOST_INSPECT_TIMELINE_H
