#include "inspect/Report.h"

#include "inspect/Names.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <iterator>

namespace talrtp::host::inspect {

namespace {

using Json = nlohmann::ordered_json;
using Lines = fmt::memory_buffer;

constexpr double kMilli = 1000;
constexpr double kMega = 1e6;
constexpr double kPercent = 100;
constexpr double kClockRate = 90000;

double secondsOf(std::chrono::nanoseconds time) {
    return std::chrono::duration<double>(time).count();
}

double lossPercent(const CStream& stream) {
    const auto lost = static_cast<double>(stream.sequences().lost());
    const double expected = lost + static_cast<double>(stream.sequences().arrived());
    return expected > 0 ? kPercent * lost / expected : 0;
}

double jitterMilliseconds(const CStream& stream) {
    return static_cast<double>(stream.jitter()) / kClockRate * kMilli;
}

std::string hex(std::uint32_t ssrc) {
    return fmt::format("0x{:08x}", ssrc);
}

kit::FecScheme schemeOf(StreamKind kind) {
    return kind == StreamKind::kXorFec ? kit::FecScheme::kXor : kit::FecScheme::kReedSolomon;
}

template <typename... Values>
void addLine(Lines& lines, const char* format, const Values&... values) {
    fmt::format_to(std::back_inserter(lines), fmt::runtime(format), values...);
    lines.push_back('\n');
}

template <typename Value>
void addRow(Lines& lines, const std::string& label, const Value& value, const char* unit = "") {
    addLine(lines, "{:<28}{:>12}{}", label, value, unit);
}

void addRowIfAny(Lines& lines, const std::string& label, std::uint64_t value) {
    if (value > 0) {
        addRow(lines, label, value);
    }
}

void addHeading(Lines& lines, const InspectReport& report) {
    const CInspector::Counts& counts = report.inspector->counts();
    addLine(lines, "{}", report.name);
    if (!report.problem.empty()) {
        addLine(lines, "The capture breaks off: {}. All before that is counted.", report.problem);
    }
    addRow(lines, "seconds", fmt::format("{:.3f}", secondsOf(report.inspector->duration())));
    addRow(lines, "frames", counts.frames);
    addRow(lines, "  UDP datagrams", counts.datagrams);
    addRowIfAny(lines, "    captured in part", counts.cutDatagrams);
    addRowIfAny(lines, "    RTCP", counts.rtcp);
    addRowIfAny(lines, "    neither RTP nor RTCP", counts.otherDatagrams);
    addRowIfAny(lines, "    RTP of too many streams", counts.untracked);
    addRowIfAny(lines, "  IP fragments, left out", counts.fragments);
    addRowIfAny(lines, "  malformed", counts.malformed);
    addRowIfAny(lines, "  others", counts.otherFrames);
}

void addPackets(Lines& lines, const CStream& stream) {
    const CSequenceTracker& sequences = stream.sequences();
    addRow(lines, "packets", stream.packets());
    addRow(lines, "  lost", sequences.lost(), fmt::format("  {:.2f} %", lossPercent(stream)).c_str());
    addRow(lines, "  doubled", sequences.doubled());
    addRow(lines, "  reordered", sequences.reordered());
    addRowIfAny(lines, "  with a number far off", sequences.stray());
    addRowIfAny(lines, "  captured in part", stream.cutPackets());
    addRowIfAny(lines, "restarts of the sender", sequences.restarts());
    addRow(lines, "bitrate", fmt::format("{:.3f}", stream.bitsPerSecond() / kMega), "  Mbit/s");
    addRow(lines, "jitter", fmt::format("{:.2f}", jitterMilliseconds(stream)), "  ms");
}

void addH264(Lines& lines, const CStream& stream) {
    addRow(lines, "single unit packets", stream.single());
    addRow(lines, "STAP-A packets", stream.aggregates());
    addRow(lines, "FU-A packets", stream.fragments());
    addRow(lines, "pictures complete", stream.pictures().complete());
    addRow(lines, "pictures cut", stream.pictures().cut());
    std::uint64_t units = 0;
    for (const std::uint64_t count : stream.units()) {
        units += count;
    }
    addRow(lines, "units", units);
    for (std::size_t type = 0; type < stream.units().size(); ++type) {
        addRowIfAny(lines, "  " + nameOfUnits(type), stream.units()[type]);
    }
}

void addFec(Lines& lines, const CFecGroups::Counts& counts) {
    addRow(lines, "groups complete", counts.complete);
    addRow(lines, "groups repairable", counts.repairable);
    addRow(lines, "  packets rebuildable", counts.rebuildable);
    addRow(lines, "groups lost", counts.lost);
    addRow(lines, "  packets missing", counts.missing);
}

void addStream(Lines& lines, const CInspector& inspector, const CStream& stream) {
    const StreamKind kind = inspector.kindOf(stream);
    addLine(lines, "\nSTREAM {}, payload type {}, {}", hex(stream.key().ssrc), stream.key().payloadType,
            nameOfKind(kind));
    addLine(lines, "{} to {}", nameOfEndpoint(stream.key().from), nameOfEndpoint(stream.key().to));
    addPackets(lines, stream);
    if (kind == StreamKind::kH264) {
        addH264(lines, stream);
    } else if (kind != StreamKind::kOther) {
        addFec(lines, stream.groups(schemeOf(kind)).counts());
    }
}

void addRtcp(Lines& lines, const CRtcpSources& rtcp) {
    if (rtcp.datagrams() == 0) {
        return;
    }
    addLine(lines, "\nRTCP");
    addRow(lines, "datagrams", rtcp.datagrams());
    addRow(lines, "  malformed", rtcp.malformed());
    if (rtcp.malformed() > 0) {
        addLine(lines, "  the first: {}", rtcp.firstError());
    }
    for (const auto& [ssrc, source] : rtcp.sources()) {
        addLine(lines, "source {} {}", hex(ssrc), source.cname);
        addRowIfAny(lines, "  sender reports", source.senderReports);
        addRowIfAny(lines, "  receiver reports", source.receiverReports);
        addRowIfAny(lines, "  source descriptions", source.descriptions);
        addRowIfAny(lines, "  goodbyes", source.byes);
        addRowIfAny(lines, "  application packets", source.apps);
        addRowIfAny(lines, "  NACK", source.nacks);
        addRowIfAny(lines, "  PLI", source.plis);
        addRowIfAny(lines, "  FIR", source.firs);
        addRowIfAny(lines, "  other feedback", source.otherFeedback);
        if (source.lastSenderReport) {
            addRow(lines, "  last tells packets sent", source.lastSenderReport->packetCount);
        }
        if (source.lastBlock) {
            addRow(lines, "  last tells packets lost", source.lastBlock->cumulativeLost);
        }
    }
}

void addReplay(Lines& lines, const kit::Statistics& replay) {
    addLine(lines, "\nREPLAY");
    addRow(lines, "pictures complete", replay.completePictures);
    addRow(lines, "pictures cut", replay.cutPictures);
    addRow(lines, "pictures skipped", replay.skippedPictures);
    addRow(lines, "units", replay.playedUnits);
    addRow(lines, "packets rebuilt", replay.rebuiltPackets);
    addRow(lines, "packets lost", replay.lostPackets);
}

Json countsJson(const CInspector::Counts& counts) {
    return {{"frames", counts.frames},
            {"datagrams", counts.datagrams},
            {"cut", counts.cutDatagrams},
            {"rtcp", counts.rtcp},
            {"other_datagrams", counts.otherDatagrams},
            {"untracked", counts.untracked},
            {"fragments", counts.fragments},
            {"malformed", counts.malformed},
            {"other_frames", counts.otherFrames}};
}

Json packetsJson(const CInspector& inspector, const CStream& stream) {
    const CSequenceTracker& sequences = stream.sequences();
    return {{"ssrc", stream.key().ssrc},
            {"payload_type", stream.key().payloadType},
            {"kind", nameOfKind(inspector.kindOf(stream))},
            {"from", nameOfEndpoint(stream.key().from)},
            {"to", nameOfEndpoint(stream.key().to)},
            {"packets", stream.packets()},
            {"bytes", stream.bytes()},
            {"lost", sequences.lost()},
            {"doubled", sequences.doubled()},
            {"reordered", sequences.reordered()},
            {"stray", sequences.stray()},
            {"restarts", sequences.restarts()},
            {"cut", stream.cutPackets()},
            {"bits_per_second", stream.bitsPerSecond()},
            {"jitter_ms", jitterMilliseconds(stream)}};
}

Json unitsJson(const CStream& stream) {
    Json units = Json::object();
    for (std::size_t type = 0; type < stream.units().size(); ++type) {
        if (stream.units()[type] > 0) {
            units[std::to_string(type)] = stream.units()[type];
        }
    }
    return units;
}

Json streamJson(const CInspector& inspector, const CStream& stream) {
    Json json = packetsJson(inspector, stream);
    const StreamKind kind = inspector.kindOf(stream);
    if (kind == StreamKind::kH264) {
        json["single_packets"] = stream.single();
        json["aggregate_packets"] = stream.aggregates();
        json["fragment_packets"] = stream.fragments();
        json["units"] = unitsJson(stream);
        json["pictures"] = {{"complete", stream.pictures().complete()}, {"cut", stream.pictures().cut()}};
    } else if (kind != StreamKind::kOther) {
        const CFecGroups::Counts& counts = stream.groups(schemeOf(kind)).counts();
        json["groups"] = {{"complete", counts.complete},
                          {"repairable", counts.repairable},
                          {"lost", counts.lost},
                          {"packets_rebuildable", counts.rebuildable},
                          {"packets_missing", counts.missing}};
    }
    return json;
}

// A CNAME may hold any bytes; invalid UTF-8 is replaced on printing.
Json sourceJson(std::uint32_t ssrc, const RtcpSource& source) {
    Json json = {{"ssrc", ssrc},
                 {"cname", source.cname},
                 {"sender_reports", source.senderReports},
                 {"receiver_reports", source.receiverReports},
                 {"descriptions", source.descriptions},
                 {"byes", source.byes},
                 {"apps", source.apps},
                 {"nacks", source.nacks},
                 {"plis", source.plis},
                 {"firs", source.firs},
                 {"other_feedback", source.otherFeedback}};
    if (source.lastSenderReport) {
        json["packets_sent"] = source.lastSenderReport->packetCount;
        json["bytes_sent"] = source.lastSenderReport->octetCount;
    }
    if (source.lastBlock) {
        json["packets_lost"] = source.lastBlock->cumulativeLost;
        json["highest_sequence"] = source.lastBlock->extendedHighest;
    }
    return json;
}

Json rtcpJson(const CRtcpSources& rtcp) {
    Json sources = Json::array();
    for (const auto& [ssrc, source] : rtcp.sources()) {
        sources.push_back(sourceJson(ssrc, source));
    }
    return {{"datagrams", rtcp.datagrams()}, {"malformed", rtcp.malformed()}, {"sources", sources}};
}

Json replayJson(const kit::Statistics& replay) {
    return {{"complete_pictures", replay.completePictures}, {"cut_pictures", replay.cutPictures},
            {"skipped_pictures", replay.skippedPictures},   {"units", replay.playedUnits},
            {"rebuilt_packets", replay.rebuiltPackets},     {"lost_packets", replay.lostPackets}};
}

}  // namespace

std::string describe(const InspectReport& report) {
    Lines lines;
    addHeading(lines, report);
    for (const CStream* const stream : report.inspector->streams()) {
        addStream(lines, *report.inspector, *stream);
    }
    if (report.inspector->rtcp()) {
        addRtcp(lines, *report.inspector->rtcp());
    }
    if (report.replay) {
        addReplay(lines, *report.replay);
    }
    return fmt::to_string(lines);
}

std::string describeAsJson(const InspectReport& report) {
    Json streams = Json::array();
    for (const CStream* const stream : report.inspector->streams()) {
        streams.push_back(streamJson(*report.inspector, *stream));
    }
    Json json = {{"capture", report.name},
                 {"problem", report.problem},
                 {"seconds", secondsOf(report.inspector->duration())},
                 {"counts", countsJson(report.inspector->counts())},
                 {"streams", streams}};
    if (report.inspector->rtcp()) {
        json["rtcp"] = rtcpJson(*report.inspector->rtcp());
    }
    if (report.replay) {
        json["replay"] = replayJson(*report.replay);
    }
    constexpr int kIndent = 2;
    return json.dump(kIndent, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace talrtp::host::inspect
