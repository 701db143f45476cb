// How `talrtp recv` receives.

#ifndef TALRTP_HOST_RECV_RECVOPTIONS_H
#define TALRTP_HOST_RECV_RECVOPTIONS_H

#include "live/StreamOptions.h"
#include "net/Address.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace talrtp::host {

struct RecvOptions {
    HostAndPort listen;                    // every address of this host when there is none
    bool isListenAddressOptional = false;  // as in an SDP, which names the address as the sender sees it
    StreamOptions stream;
    std::uint16_t rtcpPort = 0;
    std::vector<std::vector<std::uint8_t>> parameterSets;
    std::string output;  // a path, or "-"
    std::chrono::milliseconds wait{200};
    bool asksForPictures = false;   // PLI
    std::uint64_t maxPictures = 0;  // 0 for no end
    std::optional<double> idleSeconds;
    std::string capturePath;  // empty for none
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_RECV_RECVOPTIONS_H
