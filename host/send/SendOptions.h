// How `talrtp send` sends.

#ifndef TALRTP_HOST_SEND_SENDOPTIONS_H
#define TALRTP_HOST_SEND_SENDOPTIONS_H

#include "live/StreamOptions.h"
#include "net/Address.h"

#include <talrtp/kit/Fec.h>

#include <cstdint>
#include <optional>
#include <string>

namespace talrtp::host {

enum class Pace {
    kRealTime,  // each picture when its time has come
    kBitrate,   // datagram after datagram at a bitrate, whatever the pictures' times
    kMax,       // as fast as the socket takes them
};

struct SendOptions {
    std::string input;  // a path, or "-"
    HostAndPort to;
    StreamOptions stream;
    kit::Fec fec;
    int mtu = 1200;
    bool isAggregating = true;
    std::optional<std::uint16_t> localPort;

    Pace pace = Pace::kRealTime;
    double bitsPerSecond = 0;   // with Pace::kBitrate
    std::optional<double> fps;  // the stream's own unless given
    std::uint64_t rounds = 1;   // 0 for without end

    double drop = 0;
    double burst = 0;
    std::uint64_t seed = 1;

    std::string sdpPath;      // empty for none
    std::string capturePath;  // empty for none
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_SEND_SENDOPTIONS_H
