#include "live/Arguments.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <vector>

namespace talrtp::host {

namespace {

// The position says what each word stands for.
const std::vector<std::string> kSchemes{"none", "xor", "rs"};  // as kit::FecScheme
const std::vector<std::string> kRtcpForms{"native", "rfc3550", "off"};

std::optional<kit::Form> formOf(const std::string& word) {
    if (word == "off") {
        return std::nullopt;
    }
    return word == "native" ? kit::Form::kNative : kit::Form::kRfc3550;
}

std::uint16_t parseFecPort(const std::string& text, std::uint16_t mediaPort) {
    if (text == "same") {
        return mediaPort;
    }
    const std::optional<HostAndPort> address = parseAddress(text);
    if (!address || !address->host.empty()) {
        throw CLI::ValidationError("--fec-port", fmt::format("'{}' is neither a port nor 'same'", text));
    }
    return address->port;
}

}  // namespace

CStreamArguments::CStreamArguments(CLI::App& command, const std::string& fecText) {
    m_fecOption = command.add_option("--fec", m_scheme, fecText);
    m_fecOption->check(CLI::IsMember(kSchemes).description(""))
        ->type_name("SCHEME")
        ->capture_default_str()
        ->group(kFecGroup);
    m_fecPortOption = command.add_option("--fec-port", m_fecPort,
                                         "Port of the FEC packets, or 'same' for that of the media");
    m_fecPortOption->type_name("PORT")->capture_default_str()->group(kFecGroup);
    m_fecPayloadTypeOption =
        command.add_option("--fec-pt", m_options.fecPayloadType, "RTP payload type of the FEC packets");
    m_fecPayloadTypeOption->check(within(0, 127))->type_name("N")->capture_default_str()->group(kFecGroup);
    m_payloadTypeOption =
        command.add_option("--pt", m_options.payloadType, "RTP payload type of the media packets");
    m_payloadTypeOption->check(within(0, 127))->type_name("N")->capture_default_str()->group(kNetworkGroup);
    CLI::Option* rtcp =
        command.add_option("--rtcp", m_rtcp,
                           "RTCP on PORT+1: rfc3550, which other programs speak, native, the\n"
                           "form of this library's own RTCP stack, or off");
    rtcp->check(CLI::IsMember(kRtcpForms).description(""))
        ->type_name("FORM")
        ->capture_default_str()
        ->group(kNetworkGroup);
    command.add_option("--interface", m_options.multicast.interface, "Network interface for multicast")
        ->type_name("NAME")
        ->group(kNetworkGroup);
}

StreamOptions CStreamArguments::finish(std::uint16_t mediaPort) const {
    constexpr std::uint16_t kLastPort = 65535;
    StreamOptions options = m_options;
    options.fec =
        static_cast<kit::FecScheme>(std::find(kSchemes.begin(), kSchemes.end(), m_scheme) - kSchemes.begin());
    options.rtcp = formOf(m_rtcp);
    const std::string problem =
        kit::SenderOptions::checkPayloadTypes(options.payloadType, options.fecPayloadType);
    if (!problem.empty()) {
        throw CLI::ValidationError("--pt, --fec-pt", problem);
    }
    if (isFecPortGiven()) {
        options.fecPort = parseFecPort(m_fecPort, mediaPort);
    } else if (options.fec != kit::FecScheme::kNone && mediaPort > kLastPort - 2) {
        throw CLI::ValidationError("--fec-port", fmt::format("there is no port {} + 2", mediaPort));
    }
    if (options.rtcp && mediaPort == kLastPort) {
        throw CLI::ValidationError("--rtcp", fmt::format("there is no port {} + 1", mediaPort));
    }
    if (options.rtcp && options.fec != kit::FecScheme::kNone &&
        options.fecPortBeside(mediaPort) == mediaPort + 1) {
        throw CLI::ValidationError("--fec-port", fmt::format("port {} is that of RTCP", mediaPort + 1));
    }
    return options;
}

void addReportOptions(CLI::App& command, ReportOptions& options) {
    constexpr double kLeast = 0.01;
    constexpr double kMost = 86400;
    command.add_flag("--json", options.isJson, "Print the report as one JSON object")->group(kReportGroup);
    command.add_option("--stats", options.statsSeconds, "Print one line of JSON each so many seconds")
        ->check(within(kLeast, kMost))
        ->type_name("SECONDS")
        ->group(kReportGroup);
    command.add_flag("--quiet", options.isQuiet, "Print nothing but errors and the JSON that was asked for")
        ->group(kReportGroup);
}

}  // namespace talrtp::host
