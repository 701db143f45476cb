#include "loopback/Command.h"

#include "loopback/Loopback.h"
#include "loopback/OutputFile.h"
#include "loopback/ProgressBar.h"
#include "loopback/Report.h"
#include "loopback/Sweep.h"
#include "loopback/TraceTap.h"

#include <fmt/format.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace talrtp {
namespace host {

namespace {

const std::map<std::string, kit::FecScheme> kSchemes{
    {"none", kit::FecScheme::kNone}, {"xor", kit::FecScheme::kXor}, {"rs", kit::FecScheme::kReedSolomon}};
const std::map<std::string, int> kTraceLevels{{"none", -1}, {"error", 0}, {"warning", 1}, {"info", 2}};

const char* const kDescription =
    "Send an H.264 file to itself through RTP and a network model, and compare what comes back.\n\n"
    "The NAL units of the file are packed into RTP packets: small units of one picture share a STAP-A,\n"
    "long ones are cut into FU-A fragments, any other goes alone. A model of a network loses, doubles\n"
    "and delays the packets; FEC rebuilds what it can; a receiving session hands the units over. The\n"
    "table says what became of each packet and unit. The same seed gives the same losses again.";

const char* const kFooter =
    "Examples:\n"
    "  talrtp loopback film.h264\n"
    "  talrtp loopback film.h264 --reorder 8 --duplicate 0.02 --out back.h264\n"
    "  talrtp loopback film.h264 --loss 0.05 --burst 3 --fec rs --group 10 --parity 3\n"
    "  talrtp loopback film.h264 --sweep --plot sweep.svg --csv sweep.csv\n\n"
    "Exit status: 0 when every unit that could arrive did, bit for bit; 1 when a file cannot be read or\n"
    "written or is no H.264 byte stream; 2 for wrong usage; 3 when a unit is missing or differs.";

volatile std::sig_atomic_t g_isInterrupted = 0;

void interrupt(int) {
    g_isInterrupted = 1;
}

class CCommand {
public:
    explicit CCommand(CLI::App& app) {
        CLI::App* command = app.add_subcommand("loopback", kDescription);
        command->footer(kFooter);
        addStreamOptions(*command);
        addNetworkOptions(*command);
        addFecOptions(*command);
        addSweepOptions(*command);
    }

    int run() {
        finishOptions();
        std::signal(SIGINT, interrupt);
        std::signal(SIGTERM, interrupt);
        return m_isSweep ? sweep() : loopback();
    }

private:
    void addStreamOptions(CLI::App& command) {
        SenderOptions& sender = m_options.sender;
        command.add_option("FILE", m_input, "H.264 byte stream (Annex B)")->required();
        m_outOption = command.add_option("--out", m_output, "Write the units that came back to this file");
        command.add_option("--mtu", sender.mtu, "Largest RTP packet in bytes, FEC packets included")
            ->check(CLI::Range(1, 65507))
            ->capture_default_str();
        command.add_flag("--aggregate,!--no-aggregate", sender.isAggregating,
                         "Let small units of one picture share a packet (the default), or not");
        command.add_option("--fps", m_options.fps, "Pictures per second, for the RTP timestamps")
            ->check(CLI::Range(1.0, 1000.0))
            ->capture_default_str();
        command
            .add_option("--trace", m_traceLevel,
                        "Print what the library reports: none, error, warning or info")
            ->transform(CLI::CheckedTransformer(kTraceLevels).description(""))
            ->default_str("none");
    }

    void addNetworkOptions(CLI::App& command) {
        NetworkOptions& network = m_options.network;
        const char* const group = "Network";
        m_lossOption =
            command.add_option("--loss", network.loss, "Share of the packets that is lost, 0 to 1");
        m_lossOption->check(CLI::Range(0.0, 1.0))->capture_default_str()->group(group);
        command
            .add_option("--burst", network.burst,
                        "Losses come in bursts of this mean length (Gilbert-Elliott)")
            ->check(CLI::Range(1.0, 10000.0))
            ->group(group);
        command.add_option("--reorder", network.reorder, "A packet may come this many packets late")
            ->check(CLI::Range(0, 10000))
            ->capture_default_str()
            ->group(group);
        command.add_option("--duplicate", network.duplicate, "Share of the packets that comes twice, 0 to 1")
            ->check(CLI::Range(0.0, 1.0))
            ->capture_default_str()
            ->group(group);
        command.add_option("--seed", network.seed, "Seed of everything random")
            ->capture_default_str()
            ->group(group);
    }

    void addFecOptions(CLI::App& command) {
        const char* const group = "Forward error correction";
        m_fecOption = command.add_option("--fec", m_options.sender.fec.scheme,
                                         "Scheme: none, xor or rs (Reed-Solomon)");
        m_fecOption->transform(CLI::CheckedTransformer(kSchemes).description(""))
            ->default_str("none")
            ->group(group);
        command
            .add_option("--group", m_group,
                        "Media packets in a group at most; up to 24 for xor, which takes odd numbers and so\n"
                        "lowers an even one by 1; up to 254 for rs")
            ->capture_default_str()
            ->group(group);
        command
            .add_option("--parity", m_parity,
                        "FEC packets for each group: 2 unless given for rs, always 1 for xor")
            ->group(group);
    }

    void addSweepOptions(CLI::App& command) {
        const char* const group = "Sweep";
        CLI::Option* sweep =
            command.add_flag("--sweep", m_isSweep,
                             "Run a grid of loss rates with no FEC, with XOR and with Reed-Solomon\n"
                             "of --group and --parity; XOR gets smaller groups, as many FEC packets");
        sweep->excludes(m_outOption)->excludes(m_lossOption)->excludes(m_fecOption)->group(group);
        command.add_option("--csv", m_csvPath, "Where the numbers go")
            ->needs(sweep)
            ->default_str("sweep.csv")
            ->group(group);
        command.add_option("--plot", m_plotPath, "Where the plot goes (.svg or .png), drawn by gnuplot")
            ->needs(sweep)
            ->default_str("sweep.svg")
            ->group(group);
        command.add_option("--runs", m_runs, "Runs for each point, with seeds that count up")
            ->needs(sweep)
            ->check(CLI::Range(1, 1000))
            ->capture_default_str()
            ->group(group);
    }

    // What no single option can check.
    void finishOptions() {
        SenderOptions& sender = m_options.sender;
        CTraceTap::setPrintLevel(m_traceLevel);
        if (m_isSweep) {
            sender.fec.scheme = kit::FecScheme::kReedSolomon;
        }
        if (sender.fec.scheme != kit::FecScheme::kNone) {
            sender.fec.group = m_group;
            sender.fec.parity =
                m_parity.value_or(sender.fec.scheme == kit::FecScheme::kXor ? 1 : kDefaultParity);
        }
        if (!kit::CFecPlanner::isValid(sender.fec)) {
            throw CLI::ValidationError("--group, --parity",
                                       "xor takes 1 FEC packet over 1 to 24 media packets, rs at least 1 "
                                       "over at least 1, together at most 255");
        }
        const int least =
            sender.mtu - kit::maxMediaPacket(sender.mtu, sender.fec.scheme) + kit::kMinMediaPacket;
        if (sender.mtu < least) {
            throw CLI::ValidationError(
                "--mtu", fmt::format("{} cannot carry a fragment; with these options it takes at least {}",
                                     sender.mtu, least));
        }
        if (!isPossibleBurst(m_options.network.loss, m_options.network.burst)) {
            throw CLI::ValidationError("--burst",
                                       "bursts of that length cannot lose so many packets: take longer ones");
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
        bool isGood = true;
        const std::vector<SweepPoint> points =
            runSweep(options, [this](const LoopbackOptions& each) { return runOnce(each, nullptr); });
        for (const SweepPoint& point : points) {
            isGood = isGood && point.isGood;
        }
        writeCsv(points, csv.stream());
        csv.commit();
        writePlot(points, std::filesystem::path(m_input).filename().string(), m_plotPath);
        fmt::print("{} points of {} runs each: {}, {}\n", points.size(), m_runs, m_csvPath, m_plotPath);
        fmt::print("{}\n", isGood ? "Every unit that could arrive did, bit for bit and in order."
                                  : "WRONG: units that could arrive did not.");
        return isGood ? kExitGood : kExitWrong;
    }

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
                return g_isInterrupted == 0;
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
    int m_traceLevel = -1;
    int m_group = 10;
    std::optional<int> m_parity;
    int m_runs = 10;
    bool m_isSweep = false;
    CLI::Option* m_outOption = nullptr;
    CLI::Option* m_lossOption = nullptr;
    CLI::Option* m_fecOption = nullptr;
};

}  // namespace

std::function<int()> addLoopback(CLI::App& app) {
    const auto command = std::make_shared<CCommand>(app);
    return [command] { return command->run(); };
}

}  // namespace host
}  // namespace talrtp
