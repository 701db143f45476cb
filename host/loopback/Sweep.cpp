#include "loopback/Sweep.h"

#include "Gnuplot.h"
#include "loopback/Report.h"

#include <fmt/format.h>
#include <talrtp/kit/FecGrouping.h>

#include <algorithm>

namespace talrtp::host {

namespace {

constexpr double kPercent = 100;

void add(SweepPoint& point, const LoopbackReport& report) {
    ++point.runs;
    point.units += report.audit.units;
    point.whole += report.audit.whole;
    point.cut += report.audit.cut;
    point.missing += report.audit.missing;
    point.mediaPackets += report.mediaFlow.sent;
    point.fecPackets += report.fecFlow.sent;
    point.lostMedia += report.audit.lostPackets;
    point.rebuilt += report.audit.rebuildable;
    point.isGood = point.isGood && report.audit.isGood();
}

std::string labelOf(const kit::Fec& fec) {
    switch (fec.scheme) {
        case kit::FecScheme::kXor:
            return fmt::format("XOR, 1 over at most {}", kit::FecGrouping(fec).limit());
        case kit::FecScheme::kReedSolomon:
            return fmt::format("Reed-Solomon, {} over at most {}", fec.parity, fec.maxMedia);
        case kit::FecScheme::kNone:
            break;
    }
    return "no FEC";
}

// The commands that gnuplot gets: settings, one curve for each scheme, then the curves' data.
std::string makeCommands(const std::vector<SweepPoint>& points, const std::string& title,
                         const std::string& path, bool asPng) {
    std::string curves;
    std::string data;
    const kit::Fec* last = nullptr;
    for (const SweepPoint& point : points) {
        if (last == nullptr || last->scheme != point.fec.scheme) {
            data += last == nullptr ? "" : "e\n";
            curves += fmt::format("{}'-' with linespoints lw 2 pt 7 ps 0.6 title {}",
                                  last == nullptr ? "" : ", ", quotedForGnuplot(labelOf(point.fec)));
        }
        last = &point.fec;
        data += fmt::format("{:g} {:.4f}\n", point.loss * kPercent, point.wholePercent());
    }
    return fmt::format(
        "set terminal {}\nset output {}\nset title {} noenhanced\n"
        "set xlabel 'packets lost, %'\nset ylabel 'units delivered whole, %'\n"
        "set grid\nset key bottom left\nset yrange [*:100]\nplot {}\n{}e\n",
        asPng ? "png size 900,560" : "svg size 900,560 background 'white'", quotedForGnuplot(path),
        quotedForGnuplot(title), curves, data);
}

}  // namespace

double SweepPoint::wholePercent() const {
    return units == 0 ? 0 : kPercent * static_cast<double>(whole) / static_cast<double>(units);
}

std::vector<kit::Fec> schemesLike(const kit::Fec& reedSolomon) {
    const int xorGroup = std::min(std::max(reedSolomon.maxMedia / reedSolomon.parity, 1), kit::kMaxXorGroup);
    return {{}, {kit::FecScheme::kXor, xorGroup, 1}, reedSolomon};
}

std::vector<SweepPoint> runSweep(const SweepOptions& options,
                                 const std::function<LoopbackReport(const LoopbackOptions&)>& run) {
    std::vector<SweepPoint> points;
    for (const kit::Fec& fec : schemesLike(options.base.sender.fec)) {
        for (const double loss : options.losses) {
            SweepPoint point;
            point.loss = loss;
            point.fec = fec;
            LoopbackOptions each = options.base;
            each.sender.fec = fec;
            each.network.loss = loss;
            for (int i = 0; i < options.runs; ++i, ++each.network.seed) {
                add(point, run(each));
            }
            points.push_back(point);
        }
    }
    return points;
}

void writeCsv(const std::vector<SweepPoint>& points, std::ostream& output) {
    output << "scheme,group,parity,loss,runs,units,whole,cut,missing,whole_percent,media_packets,fec_packets,"
              "media_lost,media_rebuilt\n";
    for (const SweepPoint& point : points) {
        const std::size_t group =
            point.fec.scheme == kit::FecScheme::kNone ? 0 : kit::FecGrouping(point.fec).limit();
        output << fmt::format("{},{},{},{:g},{},{},{},{},{},{:.4f},{},{},{},{}\n", nameOf(point.fec.scheme),
                              group, point.fec.parity, point.loss, point.runs, point.units, point.whole,
                              point.cut, point.missing, point.wholePercent(), point.mediaPackets,
                              point.fecPackets, point.lostMedia, point.rebuilt);
    }
}

void writePlot(const std::vector<SweepPoint>& points, const std::string& title, bool asPng,
               const std::string& path) {
    drawWithGnuplot(makeCommands(points, title, path, asPng), path);
}

}  // namespace talrtp::host
