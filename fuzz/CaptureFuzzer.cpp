// Reads any bytes as a capture: the first byte chooses the link type and the options; then come frames, each
// after 2 bytes of size and 1 byte of time. Whatever they hold, the inspector counts every frame once and its
// numbers agree with each other.

#include "FuzzSupport.h"
#include "inspect/Inspector.h"

#include <algorithm>
#include <chrono>

namespace {

using namespace talrtp::host::inspect;
using talrtp::fuzz::ExactBuffer;
using talrtp::fuzz::require;

constexpr std::size_t kRecordHeader = 3;

InspectorOptions optionsOf(std::uint8_t choice) {
    InspectorOptions options;
    if ((choice & 0x08) != 0) {
        options.payloadType = 98;
    }
    if ((choice & 0x10) != 0) {
        options.fecPayloadType = 111;
        options.fec =
            (choice & 0x20) != 0 ? talrtp::kit::FecScheme::kXor : talrtp::kit::FecScheme::kReedSolomon;
    }
    options.rtcp = (choice & 0x40) != 0 ? talrtp::kit::Form::kNative : talrtp::kit::Form::kRfc3550;
    return options;
}

void checkStream(const CInspector& inspector, const CStream& stream) {
    const CSequenceTracker& sequences = stream.sequences();
    require(sequences.arrived() + sequences.doubled() + sequences.stray() == stream.packets(),
            "a packet is new, doubled or stray");
    require(stream.isLikely(), "streams of a packet or two were dropped");
    require(stream.bitsPerSecond() >= 0, "a bitrate is not negative");
    require(stream.pictures().complete() + stream.pictures().cut() <= sequences.arrived(),
            "a picture has a packet");
    std::uint64_t arrived = 0;
    for (const TimelineBin& bin : stream.timeline().bins()) {
        arrived += bin.arrived;
    }
    require(arrived == stream.packets(), "every packet has its place in time");
    inspector.kindOf(stream);
}

void check(const CInspector& inspector, std::uint64_t frames) {
    const CInspector::Counts& counts = inspector.counts();
    require(counts.frames == frames, "every frame counts");
    require(counts.datagrams + counts.fragments + counts.malformed + counts.otherFrames == frames,
            "a frame is of one kind");
    std::uint64_t inStreams = 0;
    for (const CStream* const stream : inspector.streams()) {
        checkStream(inspector, *stream);
        inStreams += stream->packets();
    }
    require(inStreams + counts.rtcp + counts.otherDatagrams + counts.untracked == counts.datagrams,
            "a datagram is of one kind");
    if (const CStream* const media = inspector.mainStream()) {
        inspector.fecStreamOf(*media);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const auto link = static_cast<LinkLayer>(std::min(data[0] & 0x07, 4));
    CInspector inspector(optionsOf(data[0]));
    std::chrono::milliseconds time(1'700'000'000'000);
    std::uint64_t frames = 0;
    for (std::size_t position = 1; position + kRecordHeader <= size; ++frames) {
        const std::size_t declared = static_cast<std::size_t>(data[position]) << 8 | data[position + 1];
        // A signed step: captures of several interfaces step back in time.
        time += std::chrono::milliseconds(static_cast<std::int8_t>(data[position + 2]));
        position += kRecordHeader;
        const std::size_t length = std::min(declared, size - position);
        ExactBuffer frame(data + position, static_cast<int>(length));
        inspector.add(link, talrtp::kit::BytesView(frame.data(), length), time);
        position += length;
    }
    inspector.finish();
    check(inspector, frames);
    return 0;
}
