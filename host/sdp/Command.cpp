#include "sdp/Command.h"

#include "HostError.h"
#include "live/StreamOptions.h"
#include "net/Address.h"

#include <talrtp/kit/AccessUnitSplitter.h>
#include <talrtp/kit/NalUnit.h>
#include <talrtp/kit/Sdp.h>
#include <talrtp/kit/Sps.h>

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace talrtp::host {

namespace {

const char* const kDescription =
    "Print the session description (SDP) of a file's stream, and how to play it.\n\n"
    "The description comes first, then an empty line and the commands, ready to paste: what sends the\n"
    "stream, and what ffplay, GStreamer, VLC and talrtp need to play it. Save the description under the\n"
    "name in those commands.\n";

const char* const kFooter =
    "Examples:\n"
    "  talrtp sdp film.264 --to 127.0.0.1:5004\n"
    "  talrtp sdp film.264 --to 239.1.2.3:5004 --fec rs | sed '/^$/q' > film.sdp\n\n"
    "Exit status: 0 when the description was printed; 1 when the file cannot be read or is no H.264 byte\n"
    "stream with parameter sets; 2 for wrong usage.";

// What a description tells of a stream.
struct StreamHead {
    std::vector<std::vector<std::uint8_t>> parameterSets;
    std::optional<double> frameRate;
    bool hasSps = false;
    bool hasPicture = false;
};

// A set that a stream repeats is listed once.
void addSet(StreamHead& head, kit::BytesView unit) {
    std::vector<std::uint8_t> bytes(unit.begin(), unit.end());
    for (const std::vector<std::uint8_t>& each : head.parameterSets) {
        if (each == bytes) {
            return;
        }
    }
    head.parameterSets.push_back(std::move(bytes));
}

void readPicture(StreamHead& head, const kit::AccessUnit& picture) {
    if (head.hasPicture) {
        return;
    }
    head.hasPicture = true;
    for (const kit::BytesView unit : picture.units()) {
        const int type = kit::nalType(unit);
        if (type != kit::kNalSps && type != kit::kNalPps) {
            continue;
        }
        addSet(head, unit);
        head.hasSps = head.hasSps || type == kit::kNalSps;
        const std::optional<kit::SpsInfo> sps = type == kit::kNalSps ? kit::readSps(unit) : std::nullopt;
        if (const auto rate = sps ? sps->frameRate() : std::nullopt) {
            head.frameRate = static_cast<double>(rate->numerator) / rate->denominator;
        }
    }
}

// Reads the file up to the end of its first picture.
StreamHead readHead(const std::string& path) {
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) {
        throw CHostError(fmt::format("cannot read '{}': it is a directory", path));
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw CHostError(fmt::format("cannot read '{}': {}", path, std::strerror(errno)));
    }
    StreamHead head;
    kit::AccessUnitSplitter splitter([&head](const kit::AccessUnit& picture) { readPicture(head, picture); });
    std::array<char, 65536> chunk{};
    while (!head.hasPicture && file.read(chunk.data(), chunk.size()).gcount() > 0) {
        splitter.push(kit::BytesView(chunk.data(), static_cast<std::size_t>(file.gcount())));
    }
    splitter.finish();
    if (!head.hasSps) {
        throw CHostError(fmt::format("{}: no H.264 byte stream that begins with parameter sets", path));
    }
    return head;
}

std::string fecOptions(const kit::Sdp& sdp) {
    std::string options;
    if (sdp.payloadType != kit::SenderOptions().payloadType) {
        options += fmt::format(" --pt {}", sdp.payloadType);
    }
    if (sdp.fec != kit::FecScheme::kNone) {
        options += fmt::format(" --fec {}", sdp.fec == kit::FecScheme::kXor ? "xor" : "rs");
        options += sdp.fecPort == sdp.port + 2 ? "" : fmt::format(" --fec-port {}", sdp.fecPort);
        options += sdp.fecPayloadType == kit::SenderOptions().fecPayloadType
                       ? ""
                       : fmt::format(" --fec-pt {}", sdp.fecPayloadType);
    }
    return options;
}

// A word that a shell takes as it is.
std::string quoted(const std::string& word) {
    std::string text = "'";
    for (const char each : word) {
        text += each == '\'' ? "'\\''" : std::string(1, each);
    }
    return text + "'";
}

// ffplay waits for pictures to reorder unless told that there are none to wait for; its default buffer loses
// large pictures. GStreamer takes all it needs from the description.
std::string commandsFor(const std::string& path, const std::string& to, const kit::Sdp& sdp) {
    const std::string name =
        quoted(std::filesystem::path(path).filename().replace_extension(".sdp").string());
    return fmt::format(
        "# Save what stands above as {0}, start a player, then the sender.\n"
        "ffplay -protocol_whitelist file,udp,rtp -buffer_size 4000000 -i {0}\n"
        "gst-launch-1.0 filesrc location={0} ! sdpdemux ! rtph264depay ! avdec_h264 ! videoconvert ! "
        "autovideosink\n"
        "vlc {0}\n"
        "talrtp recv {0} --out {3}\n"
        "talrtp send {1} --to {2}{4}\n",
        name, quoted(path), quoted(to),
        quoted(std::filesystem::path(path).filename().replace_extension(".received.264").string()),
        fecOptions(sdp));
}

class CSdpCommand {
public:
    explicit CSdpCommand(CLI::App& app)
        : m_app(app.add_subcommand("sdp", kDescription)),
          m_stream(prepare(), "none, xor or rs (Reed-Solomon)") {}

    CLI::App* app() const { return m_app; }

    int run() const {
        const std::optional<HostAndPort> to = parseAddress(m_to);
        if (!to || to->host.empty()) {
            throw CLI::ValidationError("--to", fmt::format("'{}' is not HOST:PORT or [ADDRESS]:PORT", m_to));
        }
        const kit::Sdp sdp = describe(*to);
        if (const std::string problem = sdp.check(); !problem.empty()) {
            throw CHostError(fmt::format("cannot describe the session: {}", problem));
        }
        fmt::print("{}\n{}", sdp.write(), commandsFor(m_path, m_to, sdp));
        return kExitGood;
    }

private:
    CLI::App& prepare() {
        m_app->footer(kFooter);
        m_app->option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
        m_app->add_option("FILE", m_path, "H.264 byte stream (Annex B)")->required()->type_name("");
        m_app->add_option("--to", m_to, "Where the stream goes: HOST:PORT, or [ADDRESS]:PORT for IPv6")
            ->required()
            ->type_name("HOST:PORT");
        return *m_app;
    }

    kit::Sdp describe(const HostAndPort& to) const {
        const StreamOptions options = m_stream.finish(to.port);
        const StreamHead head = readHead(m_path);
        kit::Sdp sdp = kit::Sdp::fromParameterSets(head.parameterSets);
        sdp.sessionName = std::filesystem::path(m_path).filename().string();
        sdp.address = to.host;
        sdp.port = to.port;
        sdp.payloadType = options.payloadType;
        sdp.frameRate = head.frameRate;
        if (options.rtcp) {
            sdp.rtcpPort = to.port + 1;
        }
        if (options.fecPortBeside(to.port) != to.port) {
            sdp.fec = options.fec;
            sdp.fecPort = options.fecPortBeside(to.port);
            sdp.fecPayloadType = options.fecPayloadType;
        }
        return sdp;
    }

    CLI::App* m_app;
    std::string m_path;
    std::string m_to;
    CStreamArguments m_stream;
};

}  // namespace

Command addSdp(CLI::App& app) {
    const auto command = std::make_shared<CSdpCommand>(app);
    return {command->app(), [command] { return command->run(); }};
}

}  // namespace talrtp::host
