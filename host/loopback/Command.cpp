#include "loopback/Command.h"

#include "HostError.h"
#include "Interrupt.h"
#include "loopback/Loopback.h"
#include "loopback/OutputFile.h"
#include "loopback/ProgressBar.h"
#include "loopback/Report.h"
#include "loopback/Sweep.h"

#include <fmt/format.h>
#include <talrtp/kit/Trace.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace talrtp::host {

namespace {

// Words that an option takes; the position says what each stands for.
const std::vector<std::string> kSchemes{"none", "xor", "rs"};                     // as kit::FecScheme
const std::vector<std::string> kTraceLevels{"none", "error", "warning", "info"};  // levels -1 to 2

template <typename Number>
Number positionOf(const std::vector<std::string>& words, const std::string& word) {
    return static_cast<Number>(std::find(words.begin(), words.end(), word) - words.begin());
}

const char* const kDescription =
    "Send an H.264 file to itself through RTP and a network model, and compare what comes back.\n\n"
    "The NAL units of the file are packed into RTP packets: small units of one picture share a STAP-A,\n"
    "long ones are cut into FU-A fragments, any other goes alone. A model of a network loses, doubles\n"
    "and delays the packets; FEC rebuilds what it can; a receiving session hands the units over. The\n"
    "table says what became of each packet and unit. The same seed gives the same losses again.\n";

const char* const kFooter =
    "Examples:\n"
    "  talrtp loopback film.h264\n"
    "  talrtp loopback film.h264 --reorder 8 --duplicate 0.02 --out back.h264\n"
    "  talrtp loopback film.h264 --loss 0.05 --burst 3 --fec rs --group 10 --parity 3\n"
    "  talrtp loopback film.h264 --sweep --plot sweep.svg --csv sweep.csv\n\n"
    "Exit status: 0 when every unit that could arrive did, bit for bit; 1 when a file cannot be read or\n"
    "written or is no H.264 byte stream; 2 for wrong usage; 3 when a unit is missing or differs.";

const char* const kNetworkGroup = "Network";
const char* const kFecGroup = "Forward error correction";
const char* const kSweepGroup = "Sweep";

void printLine(const kit::TraceLine& line) {
    fmt::print(stderr, "{}\n", line.text);
}

class CCommand {
public:
    explicit CCommand(CLI::App& app) {
        CLI::App* command = app.add_subcommand("loopback", kDescription);
        m_app = command;
        command->footer(kFooter);
        // An option given again overrides itself, which lets scripts append the user's to their own.
        command->option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
        addStreamOptions(*command);
        addNetworkOptions(*command);
        addFecOptions(*command);
        addSweepOptions(*command);
    }

    CLI::App* app() const { return m_app; }

    int run() {
        finishOptions();
        catchInterrupt();
        return m_isSweep ? sweep() : loopback();
    }

private:
    // A range that the help text gives in words.
    template <typename Number>
    static CLI::Validator within(Number least, Number most) {
        return CLI::Range(least, most).description("");
    }

    void addStreamOptions(CLI::App& command) {
        kit::SenderOptions& sender = m_options.sender;
        command.add_option("FILE", m_input, "H.264 byte stream (Annex B)")->required()->type_name("");
        m_outOption = command.add_option("--out", m_output, "Write the units that came back to this file");
        m_outOption->type_name("FILE");
        command.add_option("--mtu", sender.mtu, "Largest RTP packet in bytes, FEC packets included")
            ->check(within(1, kit::kMaxMtu))
            ->type_name("BYTES")
            ->capture_default_str();
        CLI::Option* aggregate =
            command.add_flag("--aggregate", "Let small units of a picture share a packet (default)");
        command.add_flag("--no-aggregate", m_isNotAggregating, "Give every unit packets of its own")
            ->excludes(aggregate);
        command.add_option("--fps", m_options.fps, "Pictures per second, 1 to 1000, for the RTP timestamps")
            ->check(within(1.0, 1000.0))
            ->type_name("N")
            ->capture_default_str();
        command
            .add_option("--trace", m_traceLevel,
                        "Print what the library reports: none, error, warning or info")
            ->check(CLI::IsMember(kTraceLevels).description(""))
            ->type_name("LEVEL")
            ->capture_default_str();
    }

    void addNetworkOptions(CLI::App& command) {
        NetworkOptions& network = m_options.network;
        m_lossOption =
            command.add_option("--loss", network.loss, "Share of the packets that is lost, 0 to 1");
        m_lossOption->check(within(0.0, 1.0))->type_name("P")->capture_default_str()->group(kNetworkGroup);
        command
            .add_option("--burst", network.burst,
                        "Losses come in bursts of this mean length (Gilbert-Elliott)")
            ->check(within(1.0, 10000.0))
            ->type_name("N")
            ->group(kNetworkGroup);
        command
            .add_option("--reorder", network.reorder, "A packet may come this many packets late, up to 10000")
            ->check(within(0, 10000))
            ->type_name("N")
            ->capture_default_str()
            ->group(kNetworkGroup);
        command.add_option("--duplicate", network.duplicate, "Share of the packets that comes twice, 0 to 1")
            ->check(within(0.0, 1.0))
            ->type_name("P")
            ->capture_default_str()
            ->group(kNetworkGroup);
        command.add_option("--seed", network.seed, "Seed of everything random")
            ->type_name("S")
            ->capture_default_str()
            ->group(kNetworkGroup);
    }

    void addFecOptions(CLI::App& command) {
        m_fecOption = command.add_option("--fec", m_scheme, "none, xor or rs (Reed-Solomon)");
        m_fecOption->check(CLI::IsMember(kSchemes).description(""))
            ->type_name("SCHEME")
            ->capture_default_str()
            ->group(kFecGroup);
        command
            .add_option("--group", m_group,
                        "Media packets in a group at most: up to 24 for xor, which takes\n"
                        "odd numbers and so lowers an even one by 1; up to 254 for rs")
            ->type_name("K")
            ->capture_default_str()
            ->group(kFecGroup);
        command
            .add_option("--parity", m_parity,
                        "FEC packets for each group: 2 for rs unless given, always 1 for xor")
            ->type_name("M")
            ->group(kFecGroup);
    }

    void addSweepOptions(CLI::App& command) {
        CLI::Option* sweep =
            command.add_flag("--sweep", m_isSweep,
                             "Run a grid of loss rates without FEC, with XOR and with Reed-Solomon\n"
                             "(--group, --parity); XOR gets groups of K / M packets, so that both\n"
                             "add about as many FEC packets");
        sweep->excludes(m_outOption)->excludes(m_lossOption)->excludes(m_fecOption)->group(kSweepGroup);
        command.add_option("--csv", m_csvPath, "Where the numbers go")
            ->needs(sweep)
            ->type_name("FILE")
            ->capture_default_str()
            ->group(kSweepGroup);
        command.add_option("--plot", m_plotPath, "Where the plot goes, .svg or .png; gnuplot draws it")
            ->needs(sweep)
            ->type_name("FILE")
            ->capture_default_str()
            ->group(kSweepGroup);
        command.add_option("--runs", m_runs, "Runs for each point, with seeds that count up")
            ->needs(sweep)
            ->check(within(1, 1000))
            ->type_name("N")
            ->capture_default_str()
            ->group(kSweepGroup);
    }

    // Sets and checks the values that depend on more than one option.
    void finishOptions() {
        constexpr std::uint32_t kSsrc = 0x7a11ab1e;  // the SourceID of the library's diagnostics
        kit::SenderOptions& sender = m_options.sender;
        sender.ssrc = kSsrc;
        kit::setTrace(static_cast<kit::TraceLevel>(positionOf<int>(kTraceLevels, m_traceLevel) - 1),
                      printLine, 0);
        sender.aggregate = !m_isNotAggregating;
        sender.fec.scheme =
            m_isSweep ? kit::FecScheme::kReedSolomon : positionOf<kit::FecScheme>(kSchemes, m_scheme);
        if (sender.fec.scheme != kit::FecScheme::kNone) {
            sender.fec.maxMedia = m_group;
            sender.fec.parity =
                m_parity.value_or(sender.fec.scheme == kit::FecScheme::kXor ? 1 : kDefaultParity);
        }
        checkOptions();
    }

    void checkOptions() const {
        const kit::SenderOptions& sender = m_options.sender;
        if (!sender.fec.check().empty()) {
            throw CLI::ValidationError("--group, --parity",
                                       sender.fec.scheme == kit::FecScheme::kXor
                                           ? "xor takes 1 FEC packet over 1 to 24 media packets"
                                           : "rs takes 2 to 255 packets in a group, media and FEC");
        }
        const int least = kit::kMinMediaPacket + kit::fecExcess(sender.fec.scheme);
        if (sender.mtu < least) {
            throw CLI::ValidationError(
                "--mtu", fmt::format("{} cannot carry a fragment, {} is the least here", sender.mtu, least));
        }
        if (!isPossibleBurst(m_options.network.loss, m_options.network.burst)) {
            throw CLI::ValidationError("--burst", "too short to lose so many packets");
        }
    }

    int loopback() {
        checkFiles();
        std::optional<COutputFile> output;
        if (!m_output.empty()) {
            output.emplace(m_output);
        }
        const LoopbackReport report = runOnce(m_options, output ? &output->stream() : nullptr);
        if (output) {
            output->commit();
        }
        fmt::print("{}", describe(m_input, m_options, report));
        return report.audit.isGood() ? kExitGood : kExitWrong;
    }

    int sweep() {
        checkFiles();
        SweepOptions options;
        options.base = m_options;
        options.losses = {0, 0.01, 0.02, 0.03, 0.04, 0.05, 0.06, 0.08, 0.1, 0.125, 0.15, 0.2};
        options.runs = m_runs;
        COutputFile csv(m_csvPath);
        COutputFile plot(m_plotPath);
        const std::vector<SweepPoint> points =
            runSweep(options, [this](const LoopbackOptions& each) { return runOnce(each, nullptr); });
        writeCsv(points, csv.stream());
        csv.commit();
        writePlot(points, std::filesystem::path(m_input).filename().string(), isPng(m_plotPath),
                  plot.temporaryPath());
        plot.commit();
        const bool isGood =
            std::all_of(points.begin(), points.end(), [](const SweepPoint& each) { return each.isGood; });
        fmt::print("{} points, {} runs each: {} and {}\n{}\n", points.size(), m_runs, m_csvPath, m_plotPath,
                   isGood ? "Every unit that could arrive did, bit for bit and in order."
                          : "WRONG: not every unit that could arrive did.");
        return isGood ? kExitGood : kExitWrong;
    }

    static bool isPng(const std::string& path) { return std::filesystem::path(path).extension() == ".png"; }

    void checkFiles() const {
        std::error_code error;
        if (std::filesystem::is_directory(m_input, error)) {
            throw CHostError(fmt::format("cannot read '{}': it is a directory", m_input));
        }
        if (!m_output.empty() && std::filesystem::equivalent(m_input, m_output, error)) {
            throw CHostError(fmt::format("'{}' is the input: write somewhere else", m_output));
        }
    }

    LoopbackReport runOnce(const LoopbackOptions& options, std::ostream* output) const {
        std::ifstream input(m_input, std::ios::binary);
        if (!input) {
            throw CHostError(fmt::format("cannot read '{}': {}", m_input, std::strerror(errno)));
        }
        std::error_code error;
        CProgressBar bar(std::filesystem::file_size(m_input, error));
        try {
            return runLoopback(options, input, output, [&bar](std::uint64_t bytesRead) {
                bar.show(bytesRead);
                return !isInterrupted();
            });
        } catch (const CHostError& problem) {
            throw CHostError(fmt::format("{}: {}", m_input, problem.what()));
        }
    }

    static constexpr int kDefaultParity = 2;

    LoopbackOptions m_options;
    std::string m_input;
    std::string m_output;
    std::string m_csvPath = "sweep.csv";
    std::string m_plotPath = "sweep.svg";
    std::string m_traceLevel = "none";
    std::string m_scheme = "none";
    int m_group = 10;
    std::optional<int> m_parity;
    int m_runs = 10;
    bool m_isSweep = false;
    bool m_isNotAggregating = false;
    CLI::App* m_app = nullptr;
    CLI::Option* m_outOption = nullptr;
    CLI::Option* m_lossOption = nullptr;
    CLI::Option* m_fecOption = nullptr;
};

}  // namespace

Command addLoopback(CLI::App& app) {
    const auto command = std::make_shared<CCommand>(app);
    return {command->app(), [command] { return command->run(); }};
}

}  // namespace talrtp::host
