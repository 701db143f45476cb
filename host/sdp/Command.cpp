#include "sdp/Command.h"

#include "HostError.h"
#include "live/Arguments.h"
#include "net/Address.h"
#include "send/StreamFacts.h"

#include <talrtp/kit/AccessUnitSplitter.h>
#include <talrtp/kit/NalUnit.h>
#include <talrtp/kit/Sdp.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
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

bool isSps(const std::vector<std::uint8_t>& unit) {
    return kit::nalType(unit) == kit::kNalSps;
}

// Reads the file up to the end of its first picture.
StreamFacts readFacts(const std::string& path) {
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) {
        throw CHostError(fmt::format("cannot read '{}': it is a directory", path));
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw CHostError(fmt::format("cannot read '{}': {}", path, std::strerror(errno)));
    }
    std::optional<StreamFacts> facts;
    kit::AccessUnitSplitter splitter([&facts](const kit::AccessUnit& picture) {
        if (!facts) {
            facts = factsOf(picture.units());
        }
    });
    std::array<char, 65536> chunk{};
    while (!facts && file.read(chunk.data(), chunk.size()).gcount() > 0) {
        splitter.push(kit::BytesView(chunk.data(), static_cast<std::size_t>(file.gcount())));
    }
    splitter.finish();
    if (!facts || std::none_of(facts->parameterSets.begin(), facts->parameterSets.end(), isSps)) {
        throw CHostError(fmt::format("{}: no H.264 byte stream that begins with parameter sets", path));
    }
    return *facts;
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
        const StreamFacts facts = readFacts(m_path);
        kit::Sdp sdp = kit::Sdp::fromParameterSets(facts.parameterSets);
        sdp.sessionName = std::filesystem::path(m_path).filename().string();
        sdp.address = to.host;
        sdp.port = to.port;
        sdp.payloadType = options.payloadType;
        sdp.frameRate = facts.fps;
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
