// Runs a stream over a grid of loss rates and FEC schemes, and writes what came back as CSV and as a plot.

#ifndef TALRTP_HOST_LOOPBACK_SWEEP_H
#define TALRTP_HOST_LOOPBACK_SWEEP_H

#include "loopback/Loopback.h"

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace talrtp::host {

struct SweepOptions {
    LoopbackOptions base;        // its FEC shape is that of Reed-Solomon; its loss is not used
    std::vector<double> losses;  // 0 to 1
    int runs = 1;                // for each point, with seeds that count up from the base's
};

// One point: the sums over all runs.
struct SweepPoint {
    double loss = 0;
    kit::Fec fec;
    int runs = 0;
    std::uint64_t units = 0;
    std::uint64_t whole = 0;
    std::uint64_t cut = 0;
    std::uint64_t missing = 0;
    std::uint64_t mediaPackets = 0;
    std::uint64_t fecPackets = 0;
    std::uint64_t lostMedia = 0;
    std::uint64_t rebuilt = 0;
    bool isGood = true;  // in every run every unit that could arrive did

    double wholePercent() const;
};

// Returns the three schemes that are compared: none, XOR and Reed-Solomon of the given shape. XOR gets groups
// of group / parity packets, so that both add about as many FEC packets.
std::vector<kit::Fec> schemesLike(const kit::Fec& reedSolomon);

// Runs every loss with every scheme. `run` carries one out. Points are ordered by scheme, then by loss.
std::vector<SweepPoint> runSweep(const SweepOptions& options,
                                 const std::function<LoopbackReport(const LoopbackOptions&)>& run);

void writeCsv(const std::vector<SweepPoint>& points, std::ostream& output);

// Draws units delivered whole against loss into the file `path` with gnuplot, as PNG or as SVG. Throws
// CHostError when that fails.
void writePlot(const std::vector<SweepPoint>& points, const std::string& title, bool asPng,
               const std::string& path);

}  // namespace talrtp::host

#endif  // TALRTP_HOST_LOOPBACK_SWEEP_H
