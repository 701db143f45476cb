// Sends a stream to itself: byte stream -> pictures -> packets -> network model -> session -> byte stream, on
// a clock that is simulated, and keeps account of every unit and packet.

#ifndef TALRTP_HOST_LOOPBACK_LOOPBACK_H
#define TALRTP_HOST_LOOPBACK_LOOPBACK_H

#include "loopback/Audit.h"
#include "loopback/Network.h"

#include <talrtp/kit/SenderOptions.h>

#include <array>
#include <cstdint>
#include <functional>
#include <istream>
#include <ostream>

namespace talrtp::host {

struct LoopbackOptions {
    kit::SenderOptions sender;
    NetworkOptions network;
    double fps = 30;
};

struct LoopbackReport {
    static constexpr std::size_t kTypeCount = 32;

    struct Tally {
        std::uint64_t count = 0;
        std::uint64_t bytes = 0;

        void add(std::uint64_t size) {
            ++count;
            bytes += size;
        }
    };

    std::uint64_t pictures = 0;
    std::array<Tally, kTypeCount> units;  // carried, by type
    Tally skipped;                        // units that RTP cannot carry
    Tally single;                         // media packets by kind
    Tally aggregate;
    Tally fragments;
    Tally fec;
    NetworkCounts mediaFlow;
    NetworkCounts fecFlow;
    AuditCounts audit;
    std::uint64_t rebuiltBySession = 0;  // includes packets that arrived late after all
    std::uint64_t refused = 0;           // hand-overs that were too late or repeated
};

// Called with the bytes read so far. Returns false to stop.
using Progress = std::function<bool(std::uint64_t bytesRead)>;

// Runs the whole of `input`. `output`: takes what the sink got as a byte stream; null when it is not wanted.
// Throws CHostError when `input` is no byte stream of NAL units or `output` fails, or when `progress` stops
// it.
LoopbackReport runLoopback(const LoopbackOptions& options, std::istream& input, std::ostream* output,
                           const Progress& progress);

}  // namespace talrtp::host

#endif  // TALRTP_HOST_LOOPBACK_LOOPBACK_H
