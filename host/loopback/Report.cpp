#include "loopback/Report.h"

#include <talrtp/kit/FecGrouping.h>
#include <talrtp/kit/NalUnit.h>

#include <fmt/format.h>

#include <iterator>

namespace talrtp::host {

namespace {

using Lines = fmt::memory_buffer;

template <typename... Values>
void addLine(Lines& lines, const char* format, const Values&... values) {
    fmt::format_to(std::back_inserter(lines), fmt::runtime(format), values...);
    lines.push_back('\n');
}

void addRow(Lines& lines, const std::string& label, std::uint64_t first) {
    addLine(lines, "{:<28}{:>12}", label, first);
}

void addRow(Lines& lines, const std::string& label, std::uint64_t first, std::uint64_t second) {
    addLine(lines, "{:<28}{:>12}{:>12}", label, first, second);
}

void addRow(Lines& lines, const std::string& label, const LoopbackReport::Tally& tally) {
    addRow(lines, label, tally.count, tally.bytes);
}

void addRowIfAny(Lines& lines, const std::string& label, const LoopbackReport::Tally& tally) {
    if (tally.count > 0) {
        addRow(lines, label, tally);
    }
}

LoopbackReport::Tally operator+(const LoopbackReport::Tally& a, const LoopbackReport::Tally& b) {
    return {a.count + b.count, a.bytes + b.bytes};
}

std::string nameOfType(std::size_t type) {
    switch (type) {
        case kit::kNalSlice:
            return "slices";
        case kit::kNalPartitionA:
        case kit::kNalPartitionB:
        case kit::kNalPartitionC:
            return fmt::format("data partitions (type {})", type);
        case kit::kNalIdrSlice:
            return "IDR slices";
        case kit::kNalSei:
            return "SEI";
        case kit::kNalSps:
            return "sequence parameter sets";
        case kit::kNalPps:
            return "picture parameter sets";
        case kit::kNalDelimiter:
            return "delimiters";
        case kit::kNalPrefix:
            return "prefix units";
        case kit::kNalSubsetSps:
            return "subset parameter sets";
        case kit::kNalScalableSlice:
            return "layer slices";
        default:
            return fmt::format("type {}", type);
    }
}

std::string describeFec(const kit::Fec& fec) {
    if (fec.scheme == kit::FecScheme::kNone) {
        return "no FEC";
    }
    return fmt::format("FEC {}, {} over at most {}", nameOf(fec.scheme), fec.parity,
                       kit::FecGrouping(fec).limit());
}

std::string describeLoss(const NetworkOptions& network) {
    const std::string bursts =
        network.burst == 0 ? "" : fmt::format(" in bursts of {} on average", network.burst);
    return fmt::format("loss {:g} %{}", network.loss * 100, bursts);
}

void addHeading(Lines& lines, const std::string& name, const LoopbackOptions& options) {
    const kit::SenderOptions& sender = options.sender;
    addLine(lines, "{}", name);
    addLine(lines, "{:g} fps, MTU {}, {}, {}", options.fps, sender.mtu,
            sender.aggregate ? "aggregation" : "no aggregation", describeFec(sender.fec));
    addLine(lines, "{}, reorder {}, duplicate {:g} %, seed {}\n", describeLoss(options.network),
            options.network.reorder, options.network.duplicate * 100, options.network.seed);
}

void addSent(Lines& lines, const LoopbackReport& report) {
    LoopbackReport::Tally units;
    for (const LoopbackReport::Tally& each : report.units) {
        units = units + each;
    }
    addLine(lines, "{:<28}{:>12}{:>12}", "SENT", "number", "bytes");
    addRow(lines, "pictures", report.pictures);
    addRow(lines, "units", units);
    for (std::size_t type = 0; type < report.units.size(); ++type) {
        addRowIfAny(lines, "  " + nameOfType(type), report.units[type]);
    }
    addRowIfAny(lines, "units that RTP cannot carry", report.skipped);
    addRow(lines, "media packets", report.single + report.aggregate + report.fragments);
    addRow(lines, "  single", report.single);
    addRow(lines, "  STAP-A", report.aggregate);
    addRow(lines, "  FU-A", report.fragments);
    addRow(lines, "FEC packets", report.fec);
}

void addNetwork(Lines& lines, const LoopbackReport& report) {
    const NetworkCounts& media = report.mediaFlow;
    const NetworkCounts& fec = report.fecFlow;
    addLine(lines, "\n{:<28}{:>12}{:>12}", "NETWORK", "media", "FEC");
    addRow(lines, "packets sent", media.sent, fec.sent);
    addRow(lines, "  lost", media.lost, fec.lost);
    addRow(lines, "  came", media.sent - media.lost, fec.sent - fec.lost);
    addRow(lines, "    twice", media.duplicated, fec.duplicated);
    addRow(lines, "    out of order", media.reordered, fec.reordered);
}

void addReceived(Lines& lines, const LoopbackReport& report) {
    const AuditCounts& audit = report.audit;
    addLine(lines, "\n{:<28}{:>12}", "RECEIVED", "number");
    addRow(lines, "lost media packets", audit.lostPackets);
    addRow(lines, "  rebuilt", audit.rebuildable);
    addRow(lines, "  not rebuildable", audit.notRebuildable);
    addRow(lines, "units", audit.units);
    addRow(lines, "  delivered whole", audit.whole);
    addRow(lines, "  delivered cut", audit.cut);
    addRow(lines, "  not delivered", audit.missing);
    if (report.refused > 0) {
        addRow(lines, "hand-overs too late", report.refused);
    }
}

std::string conclude(const AuditCounts& audit) {
    if (!audit.isGood()) {
        return fmt::format(
            "WRONG: {} units that could arrive did not, {} hand-overs are no unit that was sent.",
            audit.arrivedButUndelivered, audit.wrong);
    }
    if (audit.whole == audit.units) {
        return fmt::format("Every unit came back, bit for bit and in order: {} of {}.", audit.whole,
                           audit.units);
    }
    return fmt::format("Every unit that could arrive did, bit for bit and in order: {} of {}.", audit.whole,
                       audit.units);
}

}  // namespace

std::string nameOf(kit::FecScheme scheme) {
    switch (scheme) {
        case kit::FecScheme::kXor:
            return "xor";
        case kit::FecScheme::kReedSolomon:
            return "rs";
        case kit::FecScheme::kNone:
            break;
    }
    return "none";
}

std::string describe(const std::string& name, const LoopbackOptions& options, const LoopbackReport& report) {
    Lines lines;
    addHeading(lines, name, options);
    addSent(lines, report);
    addNetwork(lines, report);
    addReceived(lines, report);
    addLine(lines, "\n{}", conclude(report.audit));
    return fmt::to_string(lines);
}

}  // namespace talrtp::host
