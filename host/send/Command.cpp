#include "send/Command.h"

#include "live/Arguments.h"
#include "net/LossModel.h"
#include "send/SendOptions.h"
#include "send/SendSession.h"

#include <fmt/format.h>

#include <memory>
#include <optional>
#include <string>

namespace talrtp::host {

namespace {

const char* const kDescription =
    "Send an H.264 byte stream over RTP, in real time.\n\n"
    "The NAL units of FILE (Annex B), or of standard input when FILE is -, are packed into RTP packets\n"
    "(RFC 6184), protected by FEC packets if asked for, and sent picture by picture as a camera would.\n"
    "Media goes to PORT, RTCP to PORT+1 and FEC packets to PORT+2. Players that know no FEC, such as\n"
    "ffplay, play the media and never see the FEC packets.\n";

const char* const kFooter =
    "Examples:\n"
    "  talrtp send film.264 --to 127.0.0.1:5004 --sdp film.sdp\n"
    "  talrtp send film.264 --to 192.0.2.7:5004 --fec rs --group 10 --parity 3\n"
    "  talrtp send film.264 --to [::1]:5004 --loop 0 --drop 0.05 --fec xor\n"
    "  encoder | talrtp send - --to 239.1.2.3:5004 --ttl 4 --fps 30\n\n"
    "Exit status: 0 when everything was sent, also when a signal ended it; 1 when the input, a host or a\n"
    "port cannot be used or the input is no H.264 byte stream; 2 for wrong usage; 3 when units or packets\n"
    "were refused and the rest was sent.";

const char* const kPacingGroup = "Pacing";
const char* const kTrialGroup = "Trials";

class CSendCommand {
public:
    explicit CSendCommand(CLI::App& app) : m_app(app.add_subcommand("send", kDescription)) {
        m_app->footer(kFooter);
        // An option given again overrides itself, which lets scripts append the user's to their own.
        m_app->option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
        m_app->add_option("FILE", m_options.input, "H.264 byte stream (Annex B), or - for standard input")
            ->required()
            ->type_name("");
        m_app->add_option("--to", m_to, "Where to: HOST:PORT, or [ADDRESS]:PORT for IPv6")
            ->required()
            ->type_name("HOST:PORT");
        m_app->add_option("--sdp", m_options.sdpPath, "Write the session description for receivers here")
            ->type_name("FILE");
        addPacingOptions();
        m_stream.emplace(*m_app, "none, xor or rs (Reed-Solomon)");
        addFecOptions();
        addNetworkOptions();
        addTrialOptions();
        addReportOptions(*m_app, m_report);
    }

    CLI::App* app() const { return m_app; }

    int run() {
        finishOptions();
        CReporter reporter(m_report, false);
        return CSendSession(m_options, reporter).run();
    }

private:
    void addPacingOptions() {
        m_app
            ->add_option("--fps", m_options.fps,
                         "Pictures per second, 1 to 1000; the stream's own timing unless\n"
                         "given, 25 where it has none")
            ->check(within(1.0, 1000.0))
            ->type_name("N")
            ->group(kPacingGroup);
        m_app
            ->add_option("--rate", m_rate,
                         "Send at this many Mbit/s, or as fast as the system takes it with\n"
                         "'max', instead of in real time")
            ->type_name("MBIT")
            ->group(kPacingGroup);
        m_app->add_option("--loop", m_options.rounds, "Send the file this often; 0 is for ever")
            ->type_name("N")
            ->capture_default_str()
            ->group(kPacingGroup);
    }

    void addFecOptions() {
        m_app
            ->add_option("--group", m_group,
                         "Media packets in a group at most: up to 24 for xor, up to 254 for rs")
            ->type_name("K")
            ->capture_default_str()
            ->group(kFecGroup);
        m_app
            ->add_option("--parity", m_parity,
                         "FEC packets for each group: 2 for rs unless given, always 1 for xor")
            ->type_name("M")
            ->group(kFecGroup);
    }

    void addNetworkOptions() {
        m_app->add_option("--mtu", m_options.mtu, "Largest RTP packet in bytes, FEC packets included")
            ->check(within(1, kit::kMaxMtu))
            ->type_name("BYTES")
            ->capture_default_str()
            ->group(kNetworkGroup);
        m_app->add_flag("--no-aggregate", m_isNotAggregating, "Give every unit packets of its own")
            ->group(kNetworkGroup);
        m_app
            ->add_option("--from", m_from,
                         "Send from this port, RTCP from the one above and FEC packets from the\n"
                         "one above that; the system chooses unless given")
            ->check(within(1, 65533))
            ->type_name("PORT")
            ->group(kNetworkGroup);
        m_app->add_option("--ttl", m_ttl, "Hops that packets may take; 1 for multicast unless given")
            ->check(within(1, 255))
            ->type_name("N")
            ->group(kNetworkGroup);
        m_app->add_option("--pcap", m_options.capturePath, "Write what is sent to this capture file")
            ->type_name("FILE")
            ->group(kNetworkGroup);
    }

    void addTrialOptions() {
        m_app->add_option("--drop", m_options.drop, "Share of the packets that is dropped unsent, 0 to 1")
            ->check(within(0.0, 1.0))
            ->type_name("P")
            ->capture_default_str()
            ->group(kTrialGroup);
        m_app->add_option("--burst", m_options.burst, "Drop in bursts of this mean length (Gilbert-Elliott)")
            ->check(within(1.0, 10000.0))
            ->type_name("N")
            ->group(kTrialGroup);
        m_app->add_option("--seed", m_options.seed, "Seed of the dropping")
            ->type_name("S")
            ->capture_default_str()
            ->group(kTrialGroup);
    }

    void finishOptions() {
        const std::optional<HostAndPort> to = parseAddress(m_to);
        if (!to || to->host.empty()) {
            throw CLI::ValidationError(
                "--to", fmt::format("'{}' is no HOST:PORT, and no [ADDRESS]:PORT for IPv6", m_to));
        }
        m_options.to = *to;
        m_options.stream = m_stream->finish(to->port);
        m_options.stream.multicast.ttl = m_ttl;
        m_options.isAggregating = !m_isNotAggregating;
        m_options.localPort = m_from;
        finishFec();
        finishPace();
        if (!isPossibleBurst(m_options.drop, m_options.burst)) {
            throw CLI::ValidationError("--burst", "too short to drop so many packets");
        }
    }

    void finishFec() {
        const kit::FecScheme scheme = m_options.stream.fec;
        if (scheme != kit::FecScheme::kNone) {
            constexpr int kDefaultParity = 2;
            m_options.fec = {scheme, m_group,
                             m_parity.value_or(scheme == kit::FecScheme::kXor ? 1 : kDefaultParity)};
        }
        kit::SenderOptions options;
        options.mtu = m_options.mtu;
        options.fec = m_options.fec;
        options.payloadType = m_options.stream.payloadType;
        options.fecPayloadType = m_options.stream.fecPayloadType;
        const std::string problem = options.check();
        if (!problem.empty()) {
            throw CLI::ValidationError("--mtu, --group, --parity", problem);
        }
    }

    void finishPace() {
        constexpr double kMega = 1e6;
        constexpr double kMost = 1e5;
        if (m_rate.empty()) {
            return;
        }
        if (m_rate == "max") {
            m_options.pace = Pace::kMax;
            return;
        }
        double megabits = 0;
        if (!CLI::detail::lexical_cast(m_rate, megabits) || !(megabits > 0) || megabits > kMost) {
            throw CLI::ValidationError("--rate", fmt::format("'{}' is neither a bitrate nor 'max'", m_rate));
        }
        m_options.pace = Pace::kBitrate;
        m_options.bitsPerSecond = megabits * kMega;
    }

    CLI::App* m_app;
    SendOptions m_options;
    ReportOptions m_report;
    std::optional<CStreamArguments> m_stream;
    std::string m_to;
    std::string m_rate;
    int m_group = 10;
    std::optional<int> m_parity;
    std::optional<int> m_ttl;
    std::optional<std::uint16_t> m_from;
    bool m_isNotAggregating = false;
};

}  // namespace

Command addSend(CLI::App& app) {
    const auto command = std::make_shared<CSendCommand>(app);
    return {command->app(), [command] { return command->run(); }};
}

}  // namespace talrtp::host
