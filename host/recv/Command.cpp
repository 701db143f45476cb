#include "recv/Command.h"

#include "HostError.h"
#include "SdpFile.h"
#include "live/Arguments.h"
#include "recv/RecvOptions.h"
#include "recv/RecvSession.h"

#include <fmt/format.h>

#include <csignal>
#include <memory>
#include <optional>
#include <string>

namespace talrtp::host {

namespace {

const char* const kDescription =
    "Receive an H.264 stream over RTP and write it as a byte stream.\n\n"
    "Listens on PORT for media, on PORT+1 for RTCP and on PORT+2 for FEC packets, or where SESSION, an\n"
    "SDP file as `talrtp send --sdp` and other programs write it, says so. Holds to one sender, rebuilds\n"
    "what FEC can, and writes the pictures in order (Annex B). Ends at the sender's goodbye (RTCP BYE).\n";

const char* const kFooter =
    "Examples:\n"
    "  talrtp recv film.sdp --out film.264\n"
    "  talrtp recv --listen 5004 --fec rs --out film.264\n"
    "  talrtp recv --listen [::1]:5004 --out - --quiet | ffplay -f h264 -\n"
    "  talrtp recv --listen 239.1.2.3:5004 --fec xor --out film.264 --idle 10\n\n"
    "Exit status: 0 when every picture was complete and written; 1 when a host, a port, the SDP or the\n"
    "output cannot be used; 2 for wrong usage; 3 when nothing arrived, or a picture had packets missing,\n"
    "was lost or was dropped because the output was too slow.\n\n"
    "Capture: packets that FEC rebuilt are in the file of --pcap with UDP source port 0, after the packet\n"
    "that made it possible.";

const char* const kPlayGroup = "Playing";
const char* const kEndGroup = "End";

class CRecvCommand {
public:
    explicit CRecvCommand(CLI::App& app) : m_app(app.add_subcommand("recv", kDescription)) {
        m_app->footer(kFooter);
        // An option given again overrides itself, which lets scripts append the user's to their own.
        m_app->option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
        CLI::Option* session = m_app->add_option("SESSION", m_session, "SDP file that describes the stream");
        session->type_name("");
        m_app->add_option("--listen", m_listen, "Where to listen: PORT, ADDRESS:PORT or [ADDRESS]:PORT")
            ->excludes(session)
            ->type_name("ADDRESS");
        m_app->add_option("--out", m_options.output, "Write the stream here, or to standard output for -")
            ->required()
            ->type_name("FILE");
        m_stream.emplace(*m_app, "none, xor or rs (Reed-Solomon), as the sender has it");
        m_app
            ->add_option("--pcap", m_options.capturePath,
                         "Write what arrives to this capture file, and what was rebuilt")
            ->type_name("FILE")
            ->group(kNetworkGroup);
        addPlayOptions();
        addEndOptions();
        addReportOptions(*m_app, m_report);
    }

    CLI::App* app() const { return m_app; }

    int run() {
        finishOptions();
        std::signal(SIGPIPE, SIG_IGN);  // writing then fails with an error that is reported
        CReporter reporter(m_report, m_options.output == "-");
        return CRecvSession(m_options, reporter).run();
    }

private:
    void addPlayOptions() {
        m_app
            ->add_option("--wait", m_wait,
                         "Milliseconds that a gap waits for late and FEC packets, 0 to 4000")
            ->check(within(0, 4000))
            ->type_name("MS")
            ->capture_default_str()
            ->group(kPlayGroup);
        m_app
            ->add_flag("--pli", m_options.asksForPictures,
                       "Ask the sender for a new start after a picture with packets missing\n"
                       "(RTCP picture loss indication)")
            ->group(kPlayGroup);
    }

    void addEndOptions() {
        m_app->add_option("--pictures", m_options.maxPictures, "End after this many pictures")
            ->check(within<std::uint64_t>(1, 1ULL << 62))
            ->type_name("N")
            ->group(kEndGroup);
        m_app->add_option("--idle", m_options.idleSeconds, "End when nothing arrived for so many seconds")
            ->check(within(0.01, 86400.0))
            ->type_name("SECONDS")
            ->group(kEndGroup);
    }

    void finishOptions() {
        m_options.wait = std::chrono::milliseconds(m_wait);
        if (!m_session.empty()) {
            useSession();
        } else if (!m_listen.empty()) {
            useListen();
        } else {
            throw CLI::RequiredError("SESSION or --listen");
        }
        if (m_options.asksForPictures && !m_options.stream.rtcp) {
            throw CLI::ValidationError("--pli", "it needs RTCP");
        }
    }

    void useListen() {
        const std::optional<HostAndPort> address = parseAddress(m_listen);
        if (!address) {
            throw CLI::ValidationError(
                "--listen", fmt::format("'{}' is no PORT, ADDRESS:PORT or [ADDRESS]:PORT", m_listen));
        }
        m_options.listen = *address;
        m_options.stream = m_stream->finish(address->port);
        m_options.rtcpPort = static_cast<std::uint16_t>(address->port + 1);
    }

    // The description says what no option does.
    void useSession() {
        const kit::Sdp sdp = readSession();
        m_options.listen = {sdp.address, static_cast<std::uint16_t>(sdp.port)};
        m_options.isListenAddressOptional = true;
        m_options.parameterSets = sdp.parameterSets;
        StreamOptions& stream = m_options.stream;
        stream = m_stream->finish(m_options.listen.port);
        m_options.rtcpPort = static_cast<std::uint16_t>(sdp.rtcpPort.value_or(sdp.port + 1));
        stream.payloadType = m_stream->isPayloadTypeGiven() ? stream.payloadType : sdp.payloadType;
        if (!m_stream->isFecGiven()) {
            stream.fec = sdp.fec;
        }
        if (stream.fec == sdp.fec && sdp.fec != kit::FecScheme::kNone) {
            stream.fecPort =
                m_stream->isFecPortGiven() ? stream.fecPort : static_cast<std::uint16_t>(sdp.fecPort);
            stream.fecPayloadType =
                m_stream->isFecPayloadTypeGiven() ? stream.fecPayloadType : sdp.fecPayloadType;
        }
    }

    kit::Sdp readSession() const {
        kit::Sdp sdp = readSdpFile(m_session);
        if (sdp.port < 1) {
            throw CHostError(fmt::format("{}: it leaves the port open", m_session));
        }
        return sdp;
    }

    CLI::App* m_app;
    RecvOptions m_options;
    ReportOptions m_report;
    std::optional<CStreamArguments> m_stream;
    std::string m_session;
    std::string m_listen;
    int m_wait = 200;
};

}  // namespace

Command addRecv(CLI::App& app) {
    const auto command = std::make_shared<CRecvCommand>(app);
    return {command->app(), [command] { return command->run(); }};
}

}  // namespace talrtp::host
