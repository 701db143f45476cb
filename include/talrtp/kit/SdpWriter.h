// The checks and the text of a session description. Part of Sdp.h, which a host includes.

#ifndef TALRTP_KIT_SDPWRITER_H
#define TALRTP_KIT_SDPWRITER_H

#include <talrtp/kit/Base64.h>
#include <talrtp/kit/Sdp.h>
#include <talrtp/kit/SdpText.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace talrtp::kit {

namespace detail {

inline std::string checkPort(const char* name, int port) {
    return port >= 1 && port <= kMaxPort
               ? std::string()
               : std::string(name) + " " + std::to_string(port) + " is not in 1..65535";
}

inline std::string checkPayloadType(const char* name, unsigned int type) {
    return type <= kMaxPayloadType ? std::string()
                                   : std::string(name) + " " + std::to_string(type) + " is not in 0..127";
}

inline std::string checkName(const std::string& name) {
    for (const char letter : name) {
        if (letter == '\r' || letter == '\n' || letter == '\0') {
            return "sessionName holds the end of a line";
        }
    }
    return {};
}

inline std::string checkFormat(const Sdp& sdp) {
    if (sdp.clockRate == 0) {
        return "clockRate is 0";
    }
    if (!sdp.profileLevelId.empty() && !isProfileLevelId(sdp.profileLevelId)) {
        return "profileLevelId \"" + sdp.profileLevelId + "\" is not 6 hexadecimal digits";
    }
    if (sdp.packetizationMode != 0 && sdp.packetizationMode != 1) {
        return "packetizationMode " + std::to_string(sdp.packetizationMode) + " is neither 0 nor 1";
    }
    for (const auto& set : sdp.parameterSets) {
        if (set.empty()) {
            return "a parameter set is empty";
        }
    }
    if (sdp.frameRate && !(*sdp.frameRate >= 0.000001 && *sdp.frameRate < kMaxFrameRate)) {
        return "frameRate " + std::to_string(*sdp.frameRate) + " is not above 0 and below 1000000";
    }
    return checkPayloadType("payloadType", sdp.payloadType);
}

inline std::string checkFecFlow(const Sdp& sdp) {
    if (sdp.fec == FecScheme::kNone) {
        return {};
    }
    if (sdp.fecPort == sdp.port) {
        return "fecPort " + std::to_string(sdp.fecPort) + " is the port of the media";
    }
    const std::string fault = checkPort("fecPort", sdp.fecPort);
    return fault.empty() ? checkPayloadType("fecPayloadType", sdp.fecPayloadType) : fault;
}

// A number of millionths as a decimal number without zeros at its end.
inline std::string decimal(double value) {
    const std::int64_t millionths = std::llround(value * static_cast<double>(kMillionths));
    std::string fraction = std::to_string(kMillionths + millionths % kMillionths).substr(1);
    fraction.erase(fraction.find_last_not_of('0') + 1);
    return std::to_string(millionths / kMillionths) + (fraction.empty() ? "" : "." + fraction);
}

inline std::string formatOf(const Sdp& sdp) {
    std::string format = "packetization-mode=" + std::to_string(sdp.packetizationMode);
    if (!sdp.profileLevelId.empty()) {
        format += ";profile-level-id=" + sdp.profileLevelId;
    }
    const char* separator = ";sprop-parameter-sets=";
    for (const auto& set : sdp.parameterSets) {
        format += separator + encodeBase64(set);
        separator = ",";
    }
    return format;
}

inline void addLine(std::string& text, const std::string& line) {
    text += line + "\r\n";
}

inline void addVideo(std::string& text, const Sdp& sdp) {
    const std::string type = std::to_string(sdp.payloadType);
    addLine(text, "m=video " + std::to_string(sdp.port) + " RTP/AVP " + type);
    addLine(text, "a=rtpmap:" + type + " H264/" + std::to_string(sdp.clockRate));
    addLine(text, "a=fmtp:" + type + " " + formatOf(sdp));
    if (sdp.frameRate) {
        addLine(text, "a=framerate:" + decimal(*sdp.frameRate));
    }
    if (sdp.rtcpPort) {
        addLine(text, "a=rtcp:" + std::to_string(*sdp.rtcpPort));
    }
    if (sdp.ssrc) {
        // A source needs an attribute. RFC 5576, 4.1.
        const std::string ssrc = std::to_string(*sdp.ssrc);
        addLine(text, "a=ssrc:" + ssrc + " cname:talrtp-" + ssrc);
    }
}

inline void addFecFlow(std::string& text, const Sdp& sdp) {
    const std::string type = std::to_string(sdp.fecPayloadType);
    const std::string_view name = sdp.fec == FecScheme::kXor ? kXorName : kReedSolomonName;
    addLine(text, "a=mid:1");
    addLine(text, "m=application " + std::to_string(sdp.fecPort) + " RTP/AVP " + type);
    addLine(text, "a=rtpmap:" + type + " " + std::string(name) + "/" + std::to_string(sdp.clockRate));
    addLine(text, "a=mid:2");
}

}  // namespace detail

inline std::string Sdp::check() const {
    if (!detail::isAddress(address)) {
        return "address \"" + address + "\" is no address";
    }
    if (ttl < 0 || ttl > 255) {
        return "ttl " + std::to_string(ttl) + " is not in 0..255";
    }
    for (const std::string& fault : {detail::checkName(sessionName), detail::checkPort("port", port),
                                     rtcpPort ? detail::checkPort("rtcpPort", *rtcpPort) : std::string(),
                                     detail::checkFormat(*this), detail::checkFecFlow(*this)}) {
        if (!fault.empty()) {
            return fault;
        }
    }
    return {};
}

inline std::string Sdp::write() const {
    if (!check().empty()) {
        return {};
    }
    const std::string where = (detail::isIp6(address) ? "IN IP6 " : "IN IP4 ") + address;
    const std::string reach = detail::isIp4Multicast(address) ? "/" + std::to_string(ttl) : "";
    std::string text;
    detail::addLine(text, "v=0");
    detail::addLine(text, "o=- 0 0 " + where);
    detail::addLine(text, "s=" + (sessionName.empty() ? "-" : sessionName));
    detail::addLine(text, "c=" + where + reach);
    detail::addLine(text, "t=0 0");
    if (fec != FecScheme::kNone) {
        detail::addLine(text, "a=group:FEC-FR 1 2");
    }
    detail::addVideo(text, *this);
    if (fec != FecScheme::kNone) {
        detail::addFecFlow(text, *this);
    }
    return text;
}

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_SDPWRITER_H
