#include "inspect/Plot.h"

#include "Gnuplot.h"
#include "HostError.h"

#include <fmt/format.h>

#include <algorithm>

namespace talrtp::host::inspect {

namespace {

// Packets that FEC rebuilds, in bins as wide as those of the media: both began with the capture, and one of
// them may have stopped doubling its width earlier.
std::vector<std::uint64_t> repairsLike(const CTimeline& media, const CTimeline* repairs) {
    std::vector<std::uint64_t> sums(media.bins().size());
    if (repairs == nullptr) {
        return sums;
    }
    for (std::size_t i = 0; i < repairs->bins().size(); ++i) {
        const double time = (static_cast<double>(i) + 0.5) * repairs->secondsPerBin();
        const auto bin = static_cast<std::size_t>(time / media.secondsPerBin());
        if (bin < sums.size()) {
            sums[bin] += repairs->bins()[i].rebuildable;
        }
    }
    return sums;
}

// One line for each bin: time, Mbit/s, percent lost, percent that FEC rebuilds.
std::string dataOf(const CTimeline& media, const CTimeline* repairs) {
    constexpr double kPercent = 100;
    constexpr double kMegabitsPerByte = 8e-6;
    const std::vector<std::uint64_t> rebuilt = repairsLike(media, repairs);
    const double width = media.secondsPerBin();
    std::string data;
    for (std::size_t i = 0; i < media.bins().size(); ++i) {
        const TimelineBin& bin = media.bins()[i];
        const double expected = std::max(static_cast<double>(bin.arrived + bin.lost), 1.0);
        data += fmt::format("{:.3f} {:.6f} {:.4f} {:.4f}\n", (static_cast<double>(i) + 0.5) * width,
                            static_cast<double>(bin.bytes) * kMegabitsPerByte / width,
                            kPercent * static_cast<double>(bin.lost) / expected,
                            kPercent * static_cast<double>(rebuilt[i]) / expected);
    }
    return data;
}

std::string commandsFor(const std::string& data, const std::string& title, const std::string& path) {
    return fmt::format(
        "$stream << EOD\n{}EOD\nset terminal svg size 900,620 background 'white'\nset output {}\n"
        "stats $stream using 3 nooutput\n"
        "set multiplot layout 2,1 title {} noenhanced\nset grid\nset yrange [0:1<*]\nset ylabel 'Mbit/s'\n"
        "plot $stream using 1:2 with lines lw 2 title 'media arrived'\n"
        "set xlabel 'seconds'\nset ylabel 'packets, %'\n"
        "if (STATS_max < 1) {{ set yrange [0:1] }}\n"  // a range that is empty at first is warned of
        "plot $stream using 1:3 with steps lw 2 title 'lost', "
        "'' using 1:4 with steps lw 2 title 'rebuilt by FEC'\nunset multiplot\n",
        data, quotedForGnuplot(path), quotedForGnuplot(title));
}

const CTimeline* repairsOf(const CInspector& inspector, const CStream& media) {
    const CStream* const fec = inspector.fecStreamOf(media);
    if (fec == nullptr) {
        return nullptr;
    }
    const bool isXor = inspector.kindOf(*fec) == StreamKind::kXorFec;
    return &fec->groups(isXor ? kit::FecScheme::kXor : kit::FecScheme::kReedSolomon).repairs();
}

}  // namespace

void writeStreamPlot(const CInspector& inspector, const std::string& title, const std::string& path) {
    const CStream* const media = inspector.mainStream();
    if (media == nullptr) {
        throw CHostError("there is no H.264 stream to plot; --pt names its payload type");
    }
    drawWithGnuplot(commandsFor(dataOf(media->timeline(), repairsOf(inspector, *media)), title, path), path);
}

}  // namespace talrtp::host::inspect
