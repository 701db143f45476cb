// The facts that both ends of a stream have to agree on, and their options.

#ifndef TALRTP_HOST_LIVE_STREAMOPTIONS_H
#define TALRTP_HOST_LIVE_STREAMOPTIONS_H

#include "net/Socket.h"

#include <talrtp/kit/Fec.h>
#include <talrtp/kit/Rtcp.h>
#include <talrtp/kit/SenderOptions.h>

#include <CLI/CLI.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace talrtp::host {

// Headings of the help text.
inline const char* const kNetworkGroup = "Network";
inline const char* const kFecGroup = "Forward error correction";
inline const char* const kReportGroup = "Reports";

// A range that the help text states in words.
template <typename Number>
CLI::Validator within(Number least, Number most) {
    return CLI::Range(least, most).description("");
}

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

// The options of both `send` and `recv`, added to a subcommand.
class CStreamArguments {
public:
    // `fecText`: what --fec means there.
    CStreamArguments(CLI::App& command, const std::string& fecText);

    // Returns what was asked for. Throws CLI::ValidationError when the parts do not fit. `mediaPort`: where
    // media goes or arrives.
    StreamOptions finish(std::uint16_t mediaPort) const;

    bool isFecGiven() const { return m_fecOption->count() > 0; }
    bool isFecPortGiven() const { return m_fecPortOption->count() > 0; }
    bool isPayloadTypeGiven() const { return m_payloadTypeOption->count() > 0; }
    bool isFecPayloadTypeGiven() const { return m_fecPayloadTypeOption->count() > 0; }

private:
    StreamOptions m_options;
    std::string m_scheme = "none";
    std::string m_fecPort = "PORT+2";
    std::string m_rtcp = "rfc3550";
    CLI::Option* m_fecOption = nullptr;
    CLI::Option* m_fecPortOption = nullptr;
    CLI::Option* m_payloadTypeOption = nullptr;
    CLI::Option* m_fecPayloadTypeOption = nullptr;
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_LIVE_STREAMOPTIONS_H
