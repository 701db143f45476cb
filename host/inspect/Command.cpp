#include "inspect/Command.h"

#include "HostError.h"
#include "Interrupt.h"
#include "SdpFile.h"
#include "inspect/CaptureReader.h"
#include "inspect/Plot.h"
#include "inspect/Replay.h"
#include "inspect/Report.h"
#include "loopback/OutputFile.h"

#include <fmt/format.h>

#include <filesystem>
#include <memory>
#include <string>

namespace talrtp::host {

namespace inspect {

namespace {

const char* const kDescription =
    "Tell what a capture holds: RTP streams with their losses, pictures and units, FEC groups, RTCP.\n\n"
    "Reads pcap and pcapng, also those of foreign senders. Streams are found by the form of their\n"
    "packets: any payload type, any port. Where that errs, --sdp, --pt, --fec-pt and --fec say what\n"
    "the capture holds. Memory stays bounded for a capture of any length.\n";

const char* const kFooter =
    "Examples:\n"
    "  talrtp inspect call.pcapng\n"
    "  talrtp inspect call.pcap --json\n"
    "  talrtp inspect call.pcap --plot call.svg\n"
    "  talrtp inspect call.pcap --sdp call.sdp --replay call.264\n\n"
    "Exit status: 0 when the capture was read to its end; 1 when it cannot be read, or a file cannot be\n"
    "written; 2 for wrong usage; 3 when the capture breaks off, after the report on all before that.";

const char* const kStreamGroup = "Streams";
const char* const kOutputGroup = "Output";

constexpr int kMaxWaitMs = 4000;

class CInspectCommand {
public:
    explicit CInspectCommand(CLI::App& app) : m_app(app.add_subcommand("inspect", kDescription)) {
        m_app->footer(kFooter);
        m_app->option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
        m_app->add_option("CAPTURE", m_path, "Capture (pcap or pcapng)")->required()->type_name("");
        addStreamOptions();
        addOutputOptions();
    }

    CLI::App* app() const { return m_app; }

    int run() {
        if (!m_sdpPath.empty()) {
            m_sdp = readSdpFile(m_sdpPath);
        }
        CCaptureReader capture(m_path);
        CInspector inspector(options());
        while (const std::optional<CCaptureReader::Record> record = capture.next()) {
            inspector.add(capture.link(), record->bytes, record->time);
        }
        inspector.finish();
        InspectReport report{m_path, capture.problem(), &inspector, {}};
        if (!m_plotPath.empty()) {
            plot(inspector);
        }
        if (!m_replayPath.empty()) {
            report.replay = replay(inspector);
        }
        fmt::print("{}", m_isJson ? describeAsJson(report) : describe(report));
        return report.problem.empty() ? kExitGood : kExitWrong;
    }

private:
    static CLI::Option* payloadTypeOption(CLI::Option* option) {
        return option->check(CLI::Range(0, 127).description(""))->type_name("N")->group(kStreamGroup);
    }

    void addStreamOptions() {
        payloadTypeOption(m_app->add_option("--pt", m_payloadType, "Payload type of the H.264 stream"));
        payloadTypeOption(m_app->add_option("--fec-pt", m_fecPayloadType, "Payload type of the FEC packets"));
        m_app->add_option("--sdp", m_sdpPath, "Session description: payload types, FEC, parameter sets")
            ->type_name("FILE")
            ->group(kStreamGroup);
        m_app->add_option("--ssrc", m_ssrc, "The stream to plot and replay; the largest unless given")
            ->type_name("SSRC")
            ->group(kStreamGroup);
        m_app->add_option("--fec", m_scheme, "Scheme of the FEC packets: none, xor or rs")
            ->check(CLI::IsMember({"none", "xor", "rs"}).description(""))
            ->type_name("SCHEME")
            ->group(kStreamGroup);
        m_app->add_option("--rtcp", m_rtcp, "Form of the RTCP: native, rfc3550 or off")
            ->check(CLI::IsMember({"native", "rfc3550", "off"}).description(""))
            ->type_name("FORM")
            ->capture_default_str()
            ->group(kStreamGroup);
    }

    void addOutputOptions() {
        m_app->add_flag("--json", m_isJson, "Print one JSON object")->group(kOutputGroup);
        m_app
            ->add_option("--replay", m_replayPath,
                         "Receive the H.264 stream at the recorded times, with FEC, and write\n"
                         "the pictures to this file")
            ->type_name("OUT.264")
            ->group(kOutputGroup);
        m_app->add_option("--wait", m_waitMs, "With --replay: how long a gap holds pictures up, 0 to 4000 ms")
            ->check(CLI::Range(0, kMaxWaitMs).description(""))
            ->type_name("MS")
            ->capture_default_str()
            ->group(kOutputGroup);
        m_app
            ->add_option("--plot", m_plotPath,
                         "Draw bitrate, loss and recovery over time; gnuplot makes the SVG")
            ->type_name("FILE.svg")
            ->group(kOutputGroup);
    }

    InspectorOptions options() const {
        InspectorOptions options;
        options.ssrc = m_ssrc;
        if (m_sdp) {
            options.payloadType = m_sdp->payloadType;
            options.clockRate = m_sdp->clockRate;
        }
        if (m_sdp && m_sdp->fec != kit::FecScheme::kNone) {
            options.fec = m_sdp->fec;
            options.fecPayloadType = m_sdp->fecPayloadType;
        }
        options.payloadType = m_payloadType ? m_payloadType : options.payloadType;
        options.fecPayloadType = m_fecPayloadType ? m_fecPayloadType : options.fecPayloadType;
        if (!m_scheme.empty()) {
            options.fec = m_scheme == "xor"  ? kit::FecScheme::kXor
                          : m_scheme == "rs" ? kit::FecScheme::kReedSolomon
                                             : kit::FecScheme::kNone;
        }
        if (m_rtcp == "off") {
            options.rtcp.reset();
        } else {
            options.rtcp = m_rtcp == "native" ? kit::Form::kNative : kit::Form::kRfc3550;
        }
        return options;
    }

    kit::Statistics replay(const CInspector& inspector) const {
        kit::ReceiverOptions options = replayOptions(inspector);
        options.wait = std::chrono::milliseconds(m_waitMs);
        if (m_sdp) {
            options.parameterSets = m_sdp->parameterSets;
        }
        catchInterrupt();
        COutputFile file(m_replayPath);
        const kit::Statistics statistics = replayCapture(m_path, options, file.stream());
        file.commit();
        return statistics;
    }

    void plot(const CInspector& inspector) const {
        catchInterrupt();
        COutputFile file(m_plotPath);
        writeStreamPlot(inspector, std::filesystem::path(m_path).filename().string(), file.temporaryPath());
        file.commit();
    }

    CLI::App* m_app;
    std::string m_path;
    std::string m_plotPath;
    std::string m_replayPath;
    std::string m_sdpPath;
    std::optional<kit::Sdp> m_sdp;
    std::optional<std::uint32_t> m_ssrc;
    int m_waitMs = 200;
    std::string m_scheme;
    std::string m_rtcp = "rfc3550";
    std::optional<unsigned int> m_payloadType;
    std::optional<unsigned int> m_fecPayloadType;
    bool m_isJson = false;
};

}  // namespace

}  // namespace inspect

Command addInspect(CLI::App& app) {
    const auto command = std::make_shared<inspect::CInspectCommand>(app);
    return {command->app(), [command] { return command->run(); }};
}

}  // namespace talrtp::host
