// The options that the live subcommands share.

#ifndef TALRTP_HOST_LIVE_ARGUMENTS_H
#define TALRTP_HOST_LIVE_ARGUMENTS_H

#include "live/Reporter.h"
#include "live/StreamOptions.h"

#include <CLI/CLI.hpp>

#include <cstdint>
#include <string>

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

// Adds --json, --stats and --quiet.
void addReportOptions(CLI::App& command, ReportOptions& options);

}  // namespace talrtp::host

#endif  // TALRTP_HOST_LIVE_ARGUMENTS_H
