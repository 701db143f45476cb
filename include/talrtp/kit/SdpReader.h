// Reads a session description. Part of Sdp.h, which a host includes.

#ifndef TALRTP_KIT_SDPREADER_H
#define TALRTP_KIT_SDPREADER_H

#include <talrtp/kit/Base64.h>
#include <talrtp/kit/Sdp.h>
#include <talrtp/kit/SdpText.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace talrtp::kit::detail {

// The text before the first `separator`, which is taken off `rest` together with it.
inline std::string_view takeUntil(std::string_view& rest, char separator) {
    const std::size_t end = rest.find(separator);
    const std::string_view first = rest.substr(0, end);
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    return first;
}

inline std::string_view trimmed(std::string_view text) {
    constexpr std::string_view kBlanks = " \t";
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// The next word of a line whose words are parted by blanks.
inline std::string_view takeWord(std::string_view& rest) {
    rest = trimmed(rest);
    return takeUntil(rest, ' ');
}

inline char lowered(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

inline bool isSameName(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (lowered(a[i]) != lowered(b[i])) {
            return false;
        }
    }
    return true;
}

// A number of digits only, up to `most`.
inline std::optional<std::uint32_t> numberOf(std::string_view text, std::uint32_t most) {
    std::uint64_t value = 0;
    for (const char letter : text) {
        if (!isDigit(letter)) {
            return std::nullopt;
        }
        value = value * 10 + static_cast<std::uint64_t>(letter - '0');
        if (value > most) {
            return std::nullopt;
        }
    }
    return text.empty() ? std::nullopt : std::optional<std::uint32_t>(static_cast<std::uint32_t>(value));
}

// Digits, a point and digits, of which six count. The decimal point of the host's locale plays no part.
inline std::optional<double> decimalOf(std::string_view text) {
    std::string_view fraction = text;
    const std::optional<std::uint32_t> whole = numberOf(takeUntil(fraction, '.'), 999999);
    std::string digits(fraction.substr(0, 6));
    digits.resize(6, '0');
    const std::optional<std::uint32_t> millionths = numberOf(digits, 999999);
    if (!whole || !millionths || *whole + *millionths == 0) {
        return std::nullopt;
    }
    const std::int64_t value = std::int64_t{*whole} * kMillionths + *millionths;
    return static_cast<double>(value) / static_cast<double>(kMillionths);
}

// A value as an error shows it: short, and without letters that would disturb a log.
inline std::string quoted(std::string_view value) {
    constexpr std::size_t kMost = 60;
    std::string text = "\"";
    for (const char letter : value.substr(0, kMost)) {
        text += letter >= ' ' && letter <= '~' ? letter : '?';
    }
    return text + (value.size() > kMost ? "...\"" : "\"");
}

class SdpReader {
public:
    explicit SdpReader(std::string_view text) : m_text(text) {}

    SdpResult read() {
        splitLines();
        const Section* const video = findVideo();
        if (video != nullptr) {
            readConnection(*video);
            readAttributes(*video);
            readFecFlow();
        }
        return m_error.empty() ? SdpResult{std::move(m_sdp), {}} : SdpResult{std::nullopt, m_error};
    }

private:
    struct Line {
        std::size_t number;
        char type;
        std::string_view value;
    };
    // The lines of the session, or of one medium. A medium begins with its m= line.
    struct Section {
        std::vector<Line> lines;
    };
    // An m= line: "video 5004 RTP/AVP 96 97".
    struct Medium {
        std::string_view kind;
        std::string_view port;
        std::string_view protocol;
        std::string_view types;
    };
    // The encoding of a payload type: "H264/90000".
    struct Encoding {
        std::size_t number;
        unsigned int payloadType;
        std::string_view name;
        std::string_view clockRate;
    };

    void fail(const std::string& error) {
        if (m_error.empty()) {
            m_error = error;
        }
    }
    void fail(const Line& line, const std::string& name, std::string_view value, const std::string& fault) {
        fail("line " + std::to_string(line.number) + ": " + name + " " + quoted(value) + " " + fault);
    }

    // Lines end with CR LF, or LF, or CR (RFC 8866, 5, asks a reader to take LF too). Those that are no
    // "letter=value" are skipped.
    void splitLines() {
        std::string_view rest = m_text;
        const char end = rest.find('\n') == std::string_view::npos ? '\r' : '\n';
        m_sections.emplace_back();
        for (std::size_t number = 1; !rest.empty(); ++number) {
            std::string_view line = takeUntil(rest, end);
            while (!line.empty() && line.back() == '\r') {
                line.remove_suffix(1);
            }
            if (line.size() < 2 || line[1] != '=') {
                continue;
            }
            if (line[0] == 'm') {
                m_sections.emplace_back();
            }
            m_sections.back().lines.push_back({number, line[0], line.substr(2)});
            readSessionLine(m_sections.back().lines.back());
        }
    }

    void readSessionLine(const Line& line) {
        if (line.type == 'v' && trimmed(line.value) != "0") {
            fail(line, "version", line.value, "is not 0");
        }
        if (line.type == 's' && line.value != "-") {
            m_sdp.sessionName = std::string(line.value);
        }
    }

    static Medium mediumOf(const Section& section) {
        std::string_view rest = section.lines.front().value;
        Medium medium;
        medium.kind = takeWord(rest);
        medium.port = takeWord(rest);
        medium.protocol = takeWord(rest);
        medium.types = trimmed(rest);
        return medium;
    }

    // The value of an attribute line "a=NAME:VALUE", or nothing when it is another line.
    static std::optional<std::string_view> attribute(const Line& line, std::string_view name) {
        std::string_view value = line.value;
        if (line.type != 'a' || !isSameName(takeUntil(value, ':'), name)) {
            return std::nullopt;
        }
        return trimmed(value);
    }

    // The places of the payload types in an m= line, from 1 on; 0 for a type that is not there.
    static std::array<std::size_t, kMaxPayloadType + 1> ranksOf(std::string_view types) {
        std::array<std::size_t, kMaxPayloadType + 1> ranks{};
        for (std::size_t rank = 1; !types.empty(); ++rank) {
            const std::optional<std::uint32_t> type = numberOf(takeWord(types), kMaxPayloadType);
            if (type && ranks[*type] == 0) {
                ranks[*type] = rank;
            }
        }
        return ranks;
    }

    static bool isOneOf(std::string_view name, std::initializer_list<std::string_view> names) {
        return std::any_of(names.begin(), names.end(),
                           [&](std::string_view candidate) { return isSameName(name, candidate); });
    }

    // Finds the first payload type of the m= line whose encoding is one of `names`. The line lists the types
    // in the order of preference.
    static std::optional<Encoding> findEncoding(const Section& section,
                                                std::initializer_list<std::string_view> names) {
        const auto ranks = ranksOf(mediumOf(section).types);
        std::optional<Encoding> found;
        for (const Line& line : section.lines) {
            const std::optional<Encoding> encoding = encodingOf(line);
            if (!encoding || ranks[encoding->payloadType] == 0 || !isOneOf(encoding->name, names)) {
                continue;
            }
            if (!found || ranks[encoding->payloadType] < ranks[found->payloadType]) {
                found = encoding;
            }
        }
        return found;
    }

    static std::optional<Encoding> encodingOf(const Line& line) {
        std::optional<std::string_view> value = attribute(line, "rtpmap");
        if (!value) {
            return std::nullopt;
        }
        const std::optional<std::uint32_t> type = numberOf(takeWord(*value), kMaxPayloadType);
        if (!type) {
            return std::nullopt;
        }
        std::string_view rest = trimmed(*value);
        const std::string_view name = takeUntil(rest, '/');
        return Encoding{line.number, *type, name, takeUntil(rest, '/')};
    }

    static bool isPlainRtp(std::string_view protocol) {
        return isSameName(protocol, "RTP/AVP") || isSameName(protocol, "RTP/AVPF");
    }

    static bool isVideo(const Section& section) { return isSameName(mediumOf(section).kind, "video"); }

    const Section* findVideo() {
        for (std::size_t i = 1; i < m_sections.size(); ++i) {
            const std::optional<Encoding> encoding = findEncoding(m_sections[i], {"H264"});
            if (isVideo(m_sections[i]) && isPlainRtp(mediumOf(m_sections[i]).protocol) && encoding) {
                readMedium(m_sections[i], *encoding);
                return &m_sections[i];
            }
        }
        failWithoutVideo();
        return nullptr;
    }

    // Names the first video, which may have another encoding or protocol, or else the first medium.
    void failWithoutVideo() {
        if (m_sections.size() < 2) {
            fail("no m= line: this is no session description of a stream");
            return;
        }
        std::size_t named = 1;
        for (std::size_t i = m_sections.size() - 1; i > 0; --i) {
            named = isVideo(m_sections[i]) ? i : named;
        }
        const Line& line = m_sections[named].lines.front();
        fail(line, "m=", line.value, "is no H.264 video over RTP/AVP, and no other medium is");
    }

    // A port may be followed by the number of ports: "5004/2".
    std::optional<std::uint32_t> portOf(const Line& line, std::string_view text) {
        const std::optional<std::uint32_t> port = numberOf(takeUntil(text, '/'), kMaxPort);
        if (!port) {
            fail(line, "m=", line.value, "has no port from 0 to 65535");
        }
        return port;
    }

    void readMedium(const Section& section, const Encoding& encoding) {
        m_sdp.port = static_cast<int>(portOf(section.lines.front(), mediumOf(section).port).value_or(0));
        m_sdp.payloadType = encoding.payloadType;
        const std::optional<std::uint32_t> rate = numberOf(encoding.clockRate, 0xffffffff);
        if (!rate || *rate == 0) {
            fail({encoding.number, 'a', {}}, "clock rate", encoding.clockRate, "is not a number above 0");
        }
        m_sdp.clockRate = rate.value_or(0);
    }

    // The address of the medium goes before that of the session.
    void readConnection(const Section& video) {
        const std::array<const Section*, 2> sections{{&video, &m_sections.front()}};
        for (const Section* const section : sections) {
            for (const Line& line : section->lines) {
                if (line.type == 'c') {
                    readAddress(line);
                    return;
                }
            }
        }
        fail("no c= line tells the address of the video");
    }

    // "IN IP4 239.1.2.3/127/2": the address, its TTL and how many follow; IPv6 has no TTL.
    void readAddress(const Line& line) {
        std::string_view rest = line.value;
        const std::string_view network = takeWord(rest);
        const std::string_view kind = takeWord(rest);
        std::string_view address = takeWord(rest);
        m_sdp.address = std::string(takeUntil(address, '/'));
        const bool isKnown = isSameName(kind, "IP4") || isSameName(kind, "IP6");
        if (!isSameName(network, "IN") || !isKnown || !isAddress(m_sdp.address)) {
            fail(line, "c=", line.value, "is no internet address");
        }
        if (isIp4Multicast(m_sdp.address) && !address.empty()) {
            readTtl(line, takeUntil(address, '/'));
        }
    }

    void readTtl(const Line& line, std::string_view text) {
        const std::optional<std::uint32_t> ttl = numberOf(text, 255);
        if (!ttl) {
            fail(line, "TTL", text, "is not in 0..255");
        }
        m_sdp.ttl = static_cast<int>(ttl.value_or(1));
    }

    void readAttributes(const Section& video) {
        for (const Line& line : video.lines) {
            if (std::optional<std::string_view> value = attribute(line, "fmtp")) {
                if (numberOf(takeWord(*value), kMaxPayloadType) == m_sdp.payloadType) {
                    readFormat(line, *value);
                }
            } else if (std::optional<std::string_view> port = attribute(line, "rtcp")) {
                readRtcpPort(line, *port);
            } else if (const std::optional<std::string_view> rate = attribute(line, "framerate")) {
                m_sdp.frameRate = decimalOf(*rate);
            } else if (std::optional<std::string_view> ssrc = attribute(line, "ssrc")) {
                const std::optional<std::uint32_t> number = numberOf(takeWord(*ssrc), 0xffffffff);
                m_sdp.ssrc = m_sdp.ssrc ? m_sdp.ssrc : number;
            }
        }
    }

    // "5005" or "5005 IN IP4 127.0.0.1". RFC 3605.
    void readRtcpPort(const Line& line, std::string_view value) {
        const std::string_view text = takeWord(value);
        const std::optional<std::uint32_t> port = numberOf(text, kMaxPort);
        if (!port || *port == 0) {
            fail(line, "RTCP port", text, "is not in 1..65535");
            return;
        }
        m_sdp.rtcpPort = static_cast<int>(*port);
    }

    void readFormat(const Line& line, std::string_view parameters) {
        while (!parameters.empty()) {
            std::string_view value = takeUntil(parameters, ';');
            const std::string_view name = trimmed(takeUntil(value, '='));
            value = trimmed(value);
            if (isSameName(name, "packetization-mode")) {
                readMode(line, value);
            } else if (isSameName(name, "profile-level-id")) {
                readProfile(line, value);
            } else if (isSameName(name, "sprop-parameter-sets")) {
                readParameterSets(line, value);
            }
        }
    }

    void readMode(const Line& line, std::string_view value) {
        const std::optional<std::uint32_t> mode = numberOf(value, 1);
        if (!mode) {
            fail(line, "packetization-mode", value, "is neither 0 nor 1");
        }
        m_sdp.packetizationMode = static_cast<int>(mode.value_or(0));
    }

    void readProfile(const Line& line, std::string_view value) {
        if (!isProfileLevelId(value)) {
            fail(line, "profile-level-id", value, "is not 6 hexadecimal digits");
        }
        m_sdp.profileLevelId = std::string(value);
    }

    void readParameterSets(const Line& line, std::string_view list) {
        while (!list.empty()) {
            const std::string_view text = trimmed(takeUntil(list, ','));
            std::optional<std::vector<std::uint8_t>> set = decodeBase64(text);
            if (!set) {
                fail(line, "parameter set", text, "is no Base64");
            } else if (!set->empty()) {
                m_sdp.parameterSets.push_back(std::move(*set));
            }
        }
    }

    void readFecFlow() {
        for (std::size_t i = 1; i < m_sections.size(); ++i) {
            const Section& section = m_sections[i];
            const std::optional<Encoding> encoding = findEncoding(section, {kReedSolomonName, kXorName});
            if (!encoding) {
                continue;
            }
            m_sdp.fec = isSameName(encoding->name, kXorName) ? FecScheme::kXor : FecScheme::kReedSolomon;
            m_sdp.fecPayloadType = encoding->payloadType;
            m_sdp.fecPort =
                static_cast<int>(portOf(section.lines.front(), mediumOf(section).port).value_or(0));
            return;
        }
    }

    std::string_view m_text;
    std::vector<Section> m_sections;  // the session, then each medium
    Sdp m_sdp;
    std::string m_error;
};

}  // namespace talrtp::kit::detail

namespace talrtp::kit {

inline SdpResult Sdp::read(std::string_view text) {
    return detail::SdpReader(text).read();
}

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_SDPREADER_H
