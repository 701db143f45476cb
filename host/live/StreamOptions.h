// The facts that both ends of a stream have to agree on.

#ifndef TALRTP_HOST_LIVE_STREAMOPTIONS_H
#define TALRTP_HOST_LIVE_STREAMOPTIONS_H

#include "net/Socket.h"

#include <talrtp/kit/Fec.h>
#include <talrtp/kit/Rtcp.h>
#include <talrtp/kit/SenderOptions.h>

#include <cstdint>
#include <optional>

namespace talrtp::host {

struct StreamOptions {
    kit::FecScheme fec = kit::FecScheme::kNone;
    unsigned int payloadType = 98;
    unsigned int fecPayloadType = 111;
    std::optional<std::uint16_t> fecPort;                 // unless set, two above the media port
    std::optional<kit::Form> rtcp = kit::Form::kRfc3550;  // none when RTCP is off
    MulticastOptions multicast;

    std::uint16_t fecPortBeside(std::uint16_t mediaPort) const {
        return fecPort.value_or(static_cast<std::uint16_t>(mediaPort + 2));
    }
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_LIVE_STREAMOPTIONS_H
